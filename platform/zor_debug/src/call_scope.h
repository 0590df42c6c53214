// call_scope.h: keeps a call into this library invisible to its caller.

#ifndef ZOR_DEBUG_SRC_CALL_SCOPE_H
#define ZOR_DEBUG_SRC_CALL_SCOPE_H

#include <pthread.h>

#include <cerrno>

namespace zor_debug {

/// Restores errno at its end.
class ErrnoScope {
public:
    ErrnoScope() : m_errno(errno) {}
    ~ErrnoScope() { errno = m_errno; }

    ErrnoScope(const ErrnoScope&) = delete;
    ErrnoScope& operator=(const ErrnoScope&) = delete;

private:
    const int m_errno;
};

/// Keeps the thread from being cancelled until its end: a thread that a cancellation ends inside
/// a system call would never give back what it holds.
class CancellationScope {
public:
    CancellationScope() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~CancellationScope() {
        int ignored = 0;
        (void)pthread_setcancelstate(m_before, &ignored);
    }

    CancellationScope(const CancellationScope&) = delete;
    CancellationScope& operator=(const CancellationScope&) = delete;

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

/// Both.
class CallScope {
private:
    const ErrnoScope m_errno;
    const CancellationScope m_cancellation;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_CALL_SCOPE_H

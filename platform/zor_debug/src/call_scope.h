// call_scope.h: keeps a call into this library invisible to its caller.

#ifndef ZOR_DEBUG_SRC_CALL_SCOPE_H
#define ZOR_DEBUG_SRC_CALL_SCOPE_H

#include <pthread.h>

#include <cerrno>

namespace zor_debug {

/// Restores errno at its end, and keeps the thread from being cancelled until then: a thread
/// that a cancellation ends inside write() would never give the output lock back.
class CallScope {
public:
    CallScope() : m_errno(errno) {
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    }
    ~CallScope() {
        int ignored = 0;
        (void)pthread_setcancelstate(m_cancelState, &ignored);
        errno = m_errno;
    }

    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

    /// errno as it was when the call began.
    int callersErrno() const { return m_errno; }

private:
    const int m_errno;
    int m_cancelState = PTHREAD_CANCEL_ENABLE;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_CALL_SCOPE_H

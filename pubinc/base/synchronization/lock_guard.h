// lock_guard.h: holds a mutex for the length of a scope, under its own name in the log.

#ifndef BASE_SYNCHRONIZATION_LOCK_GUARD_H
#define BASE_SYNCHRONIZATION_LOCK_GUARD_H

#include "base/synchronization/internal/guarded_mutex.h"
#include "base/synchronization/mutex.h"

namespace tevalon::base {

/// Holds a Mutex, a native mutex or a std::mutex from its construction to its destruction;
/// which of them is deduced: `LockGuard lock(m_mutex);`. Belongs to one thread.
///
/// A lock or unlock that fails is reported by one error line and nothing else: the code
/// behind the guard then runs unprotected. A std::mutex reports no failed unlock.
template <typename NativeMutex>
class TEVALON_SCOPED_CAPABILITY LockGuard {
public:
    /// @param mutex  Not owned; must outlive the guard.
    // The analysis knows a Mutex but not what it wraps, so the bodies are not checked.
    explicit LockGuard(Mutex& mutex) TEVALON_ACQUIRE(mutex) TEVALON_NO_THREAD_SAFETY_ANALYSIS
        : LockGuard(*mutex.nativeHandle()) {}

    /// @param mutex  Not owned; must outlive the guard.
    explicit LockGuard(NativeMutex& mutex) TEVALON_UNCHECKED_MUTEX : m_mutex(&mutex) {
        internal::lockOrLog(m_mutex, "lock_guard.h", 29, "LockGuard");
    }

    ~LockGuard() TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        internal::unlockOrLog(m_mutex, "lock_guard.h", 43, "~LockGuard");
    }

    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    NativeMutex* m_mutex;
};

LockGuard(Mutex&)->LockGuard<pthread_mutex_t>;

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_LOCK_GUARD_H

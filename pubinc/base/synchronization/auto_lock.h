// auto_lock.h: holds a mutex for the length of a scope.

#ifndef BASE_SYNCHRONIZATION_AUTO_LOCK_H
#define BASE_SYNCHRONIZATION_AUTO_LOCK_H

#include "base/synchronization/internal/guarded_mutex.h"
#include "base/synchronization/mutex.h"

namespace tevalon::base {

/// Holds a Mutex, a native mutex or a std::mutex from its construction to its destruction;
/// which of them is deduced: `AutoLock lock(m_mutex);`. Belongs to one thread.
///
/// A lock or unlock that fails is reported by one error line and nothing else: the code
/// behind the guard then runs unprotected. A std::mutex reports no failed unlock.
template <typename NativeMutex>
class TEVALON_SCOPED_CAPABILITY AutoLock {
public:
    /// @param mutex  Not owned; must outlive the guard.
    // The analysis knows a Mutex but not what it wraps, so the bodies are not checked.
    explicit AutoLock(Mutex& mutex) TEVALON_ACQUIRE(mutex) TEVALON_NO_THREAD_SAFETY_ANALYSIS
        : AutoLock(*mutex.nativeHandle()) {}

    /// @param mutex  Not owned; must outlive the guard.
    explicit AutoLock(NativeMutex& mutex) TEVALON_UNCHECKED_MUTEX : m_mutex(&mutex) {
        internal::lockOrLog(m_mutex, "auto_lock.h", 31, "AutoLock");
    }

    ~AutoLock() TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        internal::unlockOrLog(m_mutex, "auto_lock.h", 44, "~AutoLock");
    }

    AutoLock(const AutoLock&) = delete;
    AutoLock& operator=(const AutoLock&) = delete;

private:
    NativeMutex* m_mutex;
};

AutoLock(Mutex&)->AutoLock<pthread_mutex_t>;

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_AUTO_LOCK_H

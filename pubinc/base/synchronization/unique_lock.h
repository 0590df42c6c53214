// unique_lock.h: holds a mutex, or nothing, for the length of a scope.

#ifndef BASE_SYNCHRONIZATION_UNIQUE_LOCK_H
#define BASE_SYNCHRONIZATION_UNIQUE_LOCK_H

#include "base/synchronization/internal/guarded_mutex.h"
#include "base/synchronization/mutex.h"

namespace tevalon::base {

/// Holds a Mutex, a native mutex or a std::mutex from its construction to its destruction;
/// which of them is deduced: `UniqueLock lock(m_mutex);`. Belongs to one thread.
///
/// A lock or unlock that fails is reported by one error line and nothing else: the code
/// behind the guard then runs unprotected. A std::mutex reports no failed unlock.
template <typename NativeMutex>
class TEVALON_SCOPED_CAPABILITY UniqueLock {
public:
    /// @param mutex  Not owned; must outlive the guard.
    // The analysis knows a Mutex but not what it wraps, so the bodies are not checked.
    explicit UniqueLock(Mutex& mutex) TEVALON_ACQUIRE(mutex) TEVALON_NO_THREAD_SAFETY_ANALYSIS
        : UniqueLock(mutex.nativeHandle()) {}

    /// @param mutex  Not owned; must outlive the lock.
    explicit UniqueLock(NativeMutex& mutex) TEVALON_UNCHECKED_MUTEX : UniqueLock(&mutex) {}

    /// @param p_mutex  Not owned; must outlive the lock. Null makes a lock that holds nothing.
    explicit UniqueLock(NativeMutex* p_mutex) TEVALON_UNCHECKED_MUTEX : m_mutex(p_mutex) {
        if (m_mutex == nullptr) return;
        internal::lockOrLog(m_mutex, "unique_lock.h", 33, "UniqueLock");
    }

    ~UniqueLock() TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        if (m_mutex == nullptr) return;
        internal::unlockOrLog(m_mutex, "unique_lock.h", 47, "~UniqueLock");
    }

    UniqueLock(const UniqueLock&) = delete;
    UniqueLock& operator=(const UniqueLock&) = delete;

    /// The POSIX mutex that is held, or null. Not owned.
    pthread_mutex_t* nativeHandle() const {
        return m_mutex != nullptr ? internal::posixMutex(m_mutex) : nullptr;
    }

private:
    NativeMutex* m_mutex;
};

UniqueLock(Mutex&)->UniqueLock<pthread_mutex_t>;

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_UNIQUE_LOCK_H

// mutex.h: a POSIX mutex that throws when it cannot be made.

#ifndef BASE_SYNCHRONIZATION_MUTEX_H
#define BASE_SYNCHRONIZATION_MUTEX_H

#include <pthread.h>

#include "base/synchronization/internal/system_error.h"
#include "base/synchronization/thread_annotations.h"

namespace tevalon::base {

/// A mutex with default attributes: not recursive, a thread that locks it twice deadlocks.
/// Locked and unlocked by AutoLock, UniqueLock or LockGuard only.
class TEVALON_CAPABILITY("mutex") Mutex {
public:
    /// Throws std::runtime_error, "Mutex init error: " and the description of errno.
    Mutex() {
        if (pthread_mutex_init(&m_mutex, nullptr) != 0) {
            internal::throwSystemError("Mutex init error: ");
        }
    }
    ~Mutex() { (void)pthread_mutex_destroy(&m_mutex); }  // Nobody is left to be told.

    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Owned by this object, never null.
    pthread_mutex_t* nativeHandle() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_MUTEX_H

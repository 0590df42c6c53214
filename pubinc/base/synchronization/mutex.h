// mutex.h: a POSIX mutex that throws when it cannot be made.

#ifndef BASE_SYNCHRONIZATION_MUTEX_H
#define BASE_SYNCHRONIZATION_MUTEX_H

#include <pthread.h>

#include "base/synchronization/internal/system_error.h"
#include "base/synchronization/thread_annotations.h"

namespace tevalon::base {

/// A mutex with default attributes: not recursive, a thread that locks it twice deadlocks.
/// Locked and unlocked by the guards beside this header, or by the standard library's, to which it
/// is a mutex like their own: std::scoped_lock takes several without a deadlock. Clang's analysis
/// knows AutoLock, LockGuard, UniqueLock and RelockableLock, and not those of the standard library.
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

    // The bodies are not checked: the analysis knows a Mutex but not what it wraps.

    /// Throws std::runtime_error, "Mutex lock error: " and the description of errno.
    void lock() TEVALON_ACQUIRE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        if (pthread_mutex_lock(&m_mutex) != 0) internal::throwSystemError("Mutex lock error: ");
    }
    /// False where it is locked already, by this thread too. Never waits.
    [[nodiscard]] bool try_lock() TEVALON_TRY_ACQUIRE(true) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        return pthread_mutex_trylock(&m_mutex) == 0;
    }
    /// By the thread that has locked it. Does not throw: the standard guards call it in their
    /// destructors, and a mutex of this kind does not refuse its holder.
    void unlock() noexcept TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        (void)pthread_mutex_unlock(&m_mutex);
    }

    /// Owned by this object, never null.
    pthread_mutex_t* nativeHandle() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_MUTEX_H

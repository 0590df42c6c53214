// condition_variable.h: a POSIX condition variable whose failures are exceptions.

#ifndef BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H
#define BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H

#include <pthread.h>

#include "base/synchronization/internal/system_error.h"
#include "base/synchronization/unique_lock.h"

namespace tevalon::base {

/// A condition variable for untimed waits. Any number of threads may wait and notify.
class ConditionVariable {
public:
    /// Throws std::runtime_error, "ConditionVariable init error: " and the description of
    /// errno.
    ConditionVariable() {
        if (pthread_cond_init(&m_cond, nullptr) != 0) {
            internal::throwSystemError("ConditionVariable init error: ");
        }
    }
    ~ConditionVariable() { (void)pthread_cond_destroy(&m_cond); }  // Nobody is left to be told.

    ConditionVariable(const ConditionVariable&) = delete;
    ConditionVariable& operator=(const ConditionVariable&) = delete;

    /// Releases @p lock, blocks until notified, or for no reason at all, and takes the lock
    /// again: wait in a loop on your condition. Throws std::runtime_error,
    /// "ConditionVariable wait error: " when @p lock holds nothing and
    /// "ConditionVariable cond_wait error: " when the wait fails, with the description of
    /// errno.
    template <typename NativeMutex>
    void wait(UniqueLock<NativeMutex>& lock) {
        pthread_mutex_t* p_mutex = lock.nativeHandle();
        if (p_mutex == nullptr) internal::throwSystemError("ConditionVariable wait error: ");
        if (pthread_cond_wait(&m_cond, p_mutex) != 0) {
            internal::throwSystemError("ConditionVariable cond_wait error: ");
        }
    }

    /// Wakes one waiting thread, if there is one. The lock need not be held. Throws
    /// std::runtime_error, "ConditionVariable notify_one error: " and the description of
    /// errno.
    void notify_one() {
        if (pthread_cond_signal(&m_cond) != 0) {
            internal::throwSystemError("ConditionVariable notify_one error: ");
        }
    }

private:
    pthread_cond_t m_cond = {};
};

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H

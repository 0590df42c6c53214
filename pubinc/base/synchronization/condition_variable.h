// condition_variable.h: a POSIX condition variable whose failures are exceptions.

#ifndef BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H
#define BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H

#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <mutex>

#include "base/synchronization/internal/deadline.h"
#include "base/synchronization/internal/system_error.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/relockable_lock.h"
#include "base/synchronization/unique_lock.h"

namespace tevalon::base {

/// A condition variable. Any number of threads may wait and notify.
///
/// Waits take a UniqueLock, a RelockableLock or a std::unique_lock<Mutex>, which holds its mutex,
/// release that while they wait and return with it held. Timed waits count on the monotonic clock,
/// which no change of the wall clock moves, and never end early; where that clock cannot be read,
/// the time is over at once. Durations are as long as one likes, waits 31 years at most.
///
/// A predicate is called with the lock held, and says when to stop waiting:
///
///     m_changed.wait(lock, [this]() TEVALON_REQUIRES(m_mutex) { return !m_jobs.empty(); });
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
        waitOnce(nativeHandleOf(lock));
    }
    /// The same.
    void wait(RelockableLock& lock) { waitOnce(nativeHandleOf(lock)); }
    /// The same.
    void wait(std::unique_lock<Mutex>& lock) { waitOnce(nativeHandleOf(lock)); }

    /// Waits until @p isDone() is true; not at all where it is already. Throws as above, and where
    /// @p isDone does.
    // Unchecked, here and below: the analysis does not know that what the predicate requires is
    // held.
    template <typename Lock, typename Predicate>
    void wait(Lock& lock, Predicate isDone) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        while (!isDone()) wait(lock);
    }

    /// Waits as wait(lock), but for @p duration at most. False when the time is over, true when
    /// notified, or for no reason at all.
    template <typename Lock, typename Rep, typename Period>
    [[nodiscard]] bool wait_for(Lock& lock, std::chrono::duration<Rep, Period> duration) {
        return waitOnceUntil(nativeHandleOf(lock), internal::deadlineIn(duration));
    }
    /// The same until a moment has come.
    template <typename Lock, typename Duration>
    [[nodiscard]] bool wait_until(
        Lock& lock, std::chrono::time_point<std::chrono::steady_clock, Duration> deadline) {
        return waitOnceUntil(nativeHandleOf(lock),
                             internal::deadlineAt(deadline.time_since_epoch()));
    }

    /// Waits until @p isDone() is true or @p duration is over, however often it is woken, and
    /// returns what @p isDone() says then: true also where it has come true at the last moment.
    template <typename Lock, typename Rep, typename Period, typename Predicate>
    [[nodiscard]] bool wait_for(Lock& lock, std::chrono::duration<Rep, Period> duration,
                                Predicate isDone) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        if (isDone()) return true;
        return waitUntilDone(nativeHandleOf(lock), internal::deadlineIn(duration), isDone);
    }
    /// The same until a moment has come.
    template <typename Lock, typename Duration, typename Predicate>
    [[nodiscard]] bool wait_until(
        Lock& lock, std::chrono::time_point<std::chrono::steady_clock, Duration> deadline,
        Predicate isDone) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        if (isDone()) return true;
        return waitUntilDone(nativeHandleOf(lock),
                             internal::deadlineAt(deadline.time_since_epoch()), isDone);
    }

    /// Wakes one waiting thread, if there is one. The lock need not be held. Throws
    /// std::runtime_error, "ConditionVariable notify_one error: " and the description of
    /// errno.
    void notify_one() {
        if (pthread_cond_signal(&m_cond) != 0) {
            internal::throwSystemError("ConditionVariable notify_one error: ");
        }
    }

    /// The same for all that wait, with "ConditionVariable notify_all error: ".
    void notify_all() {
        if (pthread_cond_broadcast(&m_cond) != 0) {
            internal::throwSystemError("ConditionVariable notify_all error: ");
        }
    }

private:
    template <typename NativeMutex>
    static pthread_mutex_t* nativeHandleOf(const UniqueLock<NativeMutex>& lock) {
        return lock.nativeHandle();
    }
    static pthread_mutex_t* nativeHandleOf(const RelockableLock& lock) {
        return lock.nativeHandle();
    }
    static pthread_mutex_t* nativeHandleOf(const std::unique_lock<Mutex>& lock) {
        return lock.owns_lock() ? lock.mutex()->nativeHandle() : nullptr;
    }

    void waitOnce(pthread_mutex_t* p_mutex) {
        if (p_mutex == nullptr) internal::throwSystemError("ConditionVariable wait error: ");
        if (pthread_cond_wait(&m_cond, p_mutex) != 0) {
            internal::throwSystemError("ConditionVariable cond_wait error: ");
        }
    }

    bool waitOnceUntil(pthread_mutex_t* p_mutex, const timespec& deadline) {
        if (p_mutex == nullptr) internal::throwSystemError("ConditionVariable wait error: ");
        const int error = pthread_cond_clockwait(&m_cond, p_mutex, CLOCK_MONOTONIC, &deadline);
        if (error != 0 && error != ETIMEDOUT) {
            internal::throwSystemError("ConditionVariable cond_wait error: ");
        }
        return error == 0;
    }

    template <typename Predicate>
    bool waitUntilDone(pthread_mutex_t* p_mutex, const timespec& deadline,
                       Predicate& isDone) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        while (waitOnceUntil(p_mutex, deadline)) {
            if (isDone()) return true;
        }
        return isDone();
    }

    pthread_cond_t m_cond = {};
};

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_CONDITION_VARIABLE_H

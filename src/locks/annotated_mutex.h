// annotated_mutex.h: std::mutex and its guards, for Clang's -Wthread-safety to check.

#ifndef SRC_LOCKS_ANNOTATED_MUTEX_H
#define SRC_LOCKS_ANNOTATED_MUTEX_H

#include <pthread.h>
#include <time.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "base/synchronization/thread_annotations.h"
#include "locks/patient_lock.h"
#include "os/monotonic_time.h"
#include "record/wait_scope.h"

namespace tevalon::base {

/// A std::mutex that the analysis knows: libstdc++'s carries no annotations. Throws
/// std::system_error where it cannot be locked, as std::mutex does. For the library's own state;
/// locks whose failures are reported in the log are those of base/synchronization/.
class TEVALON_CAPABILITY("mutex") AnnotatedMutex {
public:
    AnnotatedMutex() = default;

    AnnotatedMutex(const AnnotatedMutex&) = delete;
    AnnotatedMutex& operator=(const AnnotatedMutex&) = delete;

    /// For guards.
    std::mutex& native() { return m_mutex; }
    /// Likewise; locked, and a long wait for it recorded.
    std::mutex& nativeLocked() {
        record::lockRecorded(m_mutex, this);
        return m_mutex;
    }
    /// The same for a caller that has asked already whether anything is recorded.
    std::mutex& nativeLocked(bool isRecording) {
        if (isRecording) return nativeLocked();
        m_mutex.lock();
        return m_mutex;
    }
    /// See holderOf().
    std::int32_t holder() { return holderOf(m_mutex.native_handle()); }

private:
    std::mutex m_mutex;
};

/// Holds the mutex for the length of a scope.
class TEVALON_SCOPED_CAPABILITY MutexGuard {
public:
    explicit MutexGuard(AnnotatedMutex& mutex) TEVALON_ACQUIRE(mutex)
        : m_guard(mutex.nativeLocked(), std::adopt_lock) {}
    MutexGuard(AnnotatedMutex& mutex, bool isRecording) TEVALON_ACQUIRE(mutex)
        : m_guard(mutex.nativeLocked(isRecording), std::adopt_lock) {}
    ~MutexGuard() TEVALON_RELEASE() {}

    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    const std::lock_guard<std::mutex> m_guard;
};

/// The same, which can be released for a while, or wait.
class TEVALON_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(AnnotatedMutex& mutex) TEVALON_ACQUIRE(mutex)
        : m_lock(mutex.nativeLocked(), std::adopt_lock) {}
    ~MutexLock() TEVALON_RELEASE() {}

    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void lock() TEVALON_ACQUIRE() { m_lock.lock(); }
    void unlock() TEVALON_RELEASE() { m_lock.unlock(); }

    /// Releases the mutex, waits once, and takes it again; may return for no reason. The caller
    /// loops, for the analysis does not see into a predicate.
    void wait(std::condition_variable& condition) { condition.wait(m_lock); }

    /// For at most so many nanoseconds, on the monotonic clock; not at all where that cannot be
    /// read. As std::condition_variable does, takes no notice of a failure of the wait.
    void waitFor(std::condition_variable& condition, std::int64_t nanoseconds) {
        const timespec deadline = monotonicDeadline(nanoseconds);
        (void)pthread_cond_clockwait(condition.native_handle(), m_lock.mutex()->native_handle(),
                                     CLOCK_MONOTONIC, &deadline);
    }

private:
    std::unique_lock<std::mutex> m_lock;
};

}  // namespace tevalon::base

#endif  // SRC_LOCKS_ANNOTATED_MUTEX_H

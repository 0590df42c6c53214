// relockable_lock.h: holds a mutex for the length of a scope, and can let it go for a while.

#ifndef BASE_SYNCHRONIZATION_RELOCKABLE_LOCK_H
#define BASE_SYNCHRONIZATION_RELOCKABLE_LOCK_H

#include <pthread.h>

#include "base/synchronization/mutex.h"

namespace tevalon::base {

/// Holds a Mutex from its construction to its destruction, but between unlock() and lock(), which
/// Clang's analysis follows. Belongs to one thread.
///
///     RelockableLock lock(m_mutex);
///     while (!m_jobs.empty()) {
///         Job job = takeJob();
///         lock.unlock();
///         job();
///         lock.lock();
///     }
///
/// Where the mutex cannot be locked it throws as Mutex::lock() does, unlike the other guards: code
/// that takes a lock again relies on it.
class TEVALON_SCOPED_CAPABILITY RelockableLock {
public:
    // The bodies are not checked: the analysis does not see that m_mutex is the given one.

    /// @param mutex  Not owned; must outlive the guard.
    explicit RelockableLock(Mutex& mutex) TEVALON_ACQUIRE(mutex) TEVALON_NO_THREAD_SAFETY_ANALYSIS
        : m_mutex(mutex) {
        lock();
    }

    ~RelockableLock() TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        if (m_isHeld) m_mutex.unlock();
    }

    RelockableLock(const RelockableLock&) = delete;
    RelockableLock& operator=(const RelockableLock&) = delete;

    /// Only while it is released.
    void lock() TEVALON_ACQUIRE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        m_mutex.lock();
        m_isHeld = true;
    }
    /// Likewise. False where another thread holds the mutex.
    [[nodiscard]] bool try_lock() TEVALON_TRY_ACQUIRE(true) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        m_isHeld = m_mutex.try_lock();
        return m_isHeld;
    }
    /// Only while it holds the mutex.
    void unlock() TEVALON_RELEASE() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        m_isHeld = false;
        m_mutex.unlock();
    }

    /// Whether it holds the mutex now.
    [[nodiscard]] bool owns_lock() const { return m_isHeld; }

    /// The POSIX mutex while it is held, or null. Not owned.
    pthread_mutex_t* nativeHandle() const { return m_isHeld ? m_mutex.nativeHandle() : nullptr; }

private:
    Mutex& m_mutex;
    bool m_isHeld = false;
};

}  // namespace tevalon::base

#endif  // BASE_SYNCHRONIZATION_RELOCKABLE_LOCK_H

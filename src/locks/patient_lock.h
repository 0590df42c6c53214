// patient_lock.h: a lock that is not waited for longer than one cares to.

#ifndef SRC_LOCKS_PATIENT_LOCK_H
#define SRC_LOCKS_PATIENT_LOCK_H

#include <pthread.h>
#include <time.h>

#include <cstdint>

#include "os/monotonic_time.h"

namespace tevalon::base {

/// The kernel's id of the thread that holds @p p_mutex at this moment; 0 where none does. As the
/// C library keeps it for debuggers.
inline std::int32_t holderOf(pthread_mutex_t* p_mutex) {
    return __atomic_load_n(&p_mutex->__data.__owner, __ATOMIC_RELAXED);
}

/// Tries to lock a mutex until it gets it, or a time has come. For looking at what is going on,
/// where a mutex that stays locked is an answer too. Not pthread_mutex_clocklock(), which the
/// thread sanitizer does not know.
///
/// Thread-safety: belongs to one thread, which must not hold the mutex in another way.
class PatientLock {
public:
    /// @param untilNs  On the monotonic clock. It tries at least once.
    PatientLock(pthread_mutex_t* p_mutex, std::uint64_t untilNs)
        : m_mutex(p_mutex), m_isLocked(tryUntil(p_mutex, untilNs)) {}
    ~PatientLock() {
        if (m_isLocked) (void)pthread_mutex_unlock(m_mutex);
    }

    PatientLock(const PatientLock&) = delete;
    PatientLock& operator=(const PatientLock&) = delete;

    [[nodiscard]] bool isLocked() const { return m_isLocked; }

private:
    static bool tryUntil(pthread_mutex_t* p_mutex, std::uint64_t untilNs) {
        constexpr timespec kPause = {0, 500'000};
        while (pthread_mutex_trylock(p_mutex) != 0) {
            if (monotonicNanoseconds() >= untilNs) return false;
            (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &kPause, nullptr);
        }
        return true;
    }

    pthread_mutex_t* const m_mutex;
    const bool m_isLocked;
};

}  // namespace tevalon::base

#endif  // SRC_LOCKS_PATIENT_LOCK_H

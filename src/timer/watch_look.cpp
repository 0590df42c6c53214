#include "timer/watch_look.h"

#include "base/timer/watchdog.h"
#include "locks/patient_lock.h"
#include "os/monotonic_time.h"

namespace tevalon::base::timer {

// Here nobody else has a pointer to the watchdog: hence the cast.
WatchDogLook WatchLooker::look(const activity::Activity& activity, std::uint64_t untilNs,
                               WatchVisitor* p_visitor) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    auto* const p_watchDog = static_cast<WatchDog*>(const_cast<void*>(activity.object()));
    if (p_watchDog == nullptr) return {true, 0};
    pthread_mutex_t* const p_mutex = p_watchDog->m_mutex.nativeHandle();
    const std::int32_t holder = holderOf(p_mutex);
    const PatientLock lock(p_mutex, untilNs);
    if (!lock.isLocked()) return {false, holder};
    const double now = monotonicSeconds();
    for (std::int32_t id = 0; id < WatchDog::kWatchCount; ++id) {
        const double begin = p_watchDog->m_beginTime[id];
        if (begin == 0) continue;  // Idle.
        const double period = now - begin;
        p_visitor->visit({id, p_watchDog->m_timeout[id], period + p_watchDog->m_elapsed[id]});
    }
    return {true, holder};
}

}  // namespace tevalon::base::timer

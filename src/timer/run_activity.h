// run_activity.h: a run of a simple timer's handler that goes on.

#ifndef SRC_TIMER_RUN_ACTIVITY_H
#define SRC_TIMER_RUN_ACTIVITY_H

#include <cstdint>

#include "activity/activity.h"
#include "os/monotonic_time.h"

namespace tevalon::base::simple_timer {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

class RunActivity {
public:
    explicit RunActivity(const void* /*p_timer*/) {}
    ~RunActivity() {}  // So that one that is only constructed counts as used.
};

#else

class RunActivity : public activity::Activity {
public:
    /// @param p_timer  The TimerImpl.
    explicit RunActivity(const void* p_timer)
        : Activity(activity::Kind::TimerRun, p_timer), m_sinceMs(monotonicMilliseconds()) {}

    /// See monotonicMilliseconds().
    std::uint32_t sinceMs() const { return m_sinceMs; }

private:
    const std::uint32_t m_sinceMs;
    const activity::Listing m_listing{this};
};

#endif

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_RUN_ACTIVITY_H

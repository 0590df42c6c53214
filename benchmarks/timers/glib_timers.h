// glib_timers.h: GLib's timeout sources; one that was stopped cannot be started again, so each
// start makes another. From another thread than the loop's.

#ifndef BENCHMARKS_TIMERS_GLIB_TIMERS_H
#define BENCHMARKS_TIMERS_GLIB_TIMERS_H

#include <vector>

#include "schedulers/glib_scheduler.h"

namespace bench {

class GlibTimers {
public:
    static constexpr const char* kName = GlibScheduler::kName;

    void add(int delayMs) { m_timers.push_back({nullptr, delayMs}); }
    void start(std::size_t index) {
        m_timers[index].handle = m_scheduler.post(m_timers[index].delayMs, [] {});
    }
    void stop(std::size_t index) { m_scheduler.cancel(m_timers[index].handle); }

private:
    struct Timer {
        GlibScheduler::Handle handle;
        int delayMs;
    };

    GlibScheduler m_scheduler;
    std::vector<Timer> m_timers;
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_GLIB_TIMERS_H

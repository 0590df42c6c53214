// libevent_timers.h: libevent's timers, from another thread than the loop's.

#ifndef BENCHMARKS_TIMERS_LIBEVENT_TIMERS_H
#define BENCHMARKS_TIMERS_LIBEVENT_TIMERS_H

#include <event2/event.h>

#include <vector>

#include "support/libevent_loop.h"

namespace bench {

class LibeventTimers {
public:
    static constexpr const char* kName = "libevent";

    LibeventTimers() = default;
    ~LibeventTimers() {
        m_loop.stop();
        for (const Timer& timer : m_timers) event_free(timer.p_event);
    }

    LibeventTimers(const LibeventTimers&) = delete;
    LibeventTimers& operator=(const LibeventTimers&) = delete;

    void add(int delayMs) {
        event* const p_event = event_new(
            m_loop.base(), -1, 0, [](evutil_socket_t, short, void*) {}, nullptr);
        m_timers.push_back({p_event, {delayMs / 1000, delayMs % 1000 * 1000}});
    }
    void start(std::size_t index) { event_add(m_timers[index].p_event, &m_timers[index].delay); }
    void stop(std::size_t index) { event_del(m_timers[index].p_event); }

private:
    struct Timer {
        event* p_event;
        timeval delay;
    };

    LibeventLoop m_loop;
    std::vector<Timer> m_timers;
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_LIBEVENT_TIMERS_H

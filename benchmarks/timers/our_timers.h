// our_timers.h: simple timers; the scheduler has a thread of its own.

#ifndef BENCHMARKS_TIMERS_OUR_TIMERS_H
#define BENCHMARKS_TIMERS_OUR_TIMERS_H

#include <memory>
#include <vector>

#include "base/simple_timer.h"
#include "support/rows.h"

namespace bench {

class OurTimers {
public:
    static constexpr const char* kName = kOurs;

    void add(int delayMs) {
        using tevalon::base::simple_timer::Timer;
        m_timers.push_back(std::make_unique<Timer>(
            "bench", tevalon::base::simple_timer::TimeoutTime{0, delayMs, 0}, [](Timer*, void*) {},
            nullptr, tevalon::base::simple_timer::ONCE));
    }
    void start(std::size_t index) { m_timers[index]->start(); }
    void stop(std::size_t index) { m_timers[index]->stop(); }

private:
    std::vector<std::unique_ptr<tevalon::base::simple_timer::Timer>> m_timers;
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_OUR_TIMERS_H

#include <memory>
#include <vector>

#include "base/simple_timer.h"
#include "hot_paths/hot_path.h"
#include "support/random_delays.h"

namespace bench {
namespace {

using tevalon::base::simple_timer::Timer;

std::unique_ptr<Timer> makeTimer(int timeoutMs) {
    return std::make_unique<Timer>(
        "hot", tevalon::base::simple_timer::TimeoutTime{0, timeoutMs, 0}, [](Timer*, void*) {},
        nullptr, tevalon::base::simple_timer::ONCE);
}

/// Timers that are started, the first of which nothing comes before: so the scheduler sleeps.
std::vector<std::unique_ptr<Timer>> startedTimers(int count, FarDelays* p_delays) {
    std::vector<std::unique_ptr<Timer>> started;
    for (int i = 0; i < count; ++i) {
        started.push_back(makeTimer(i == 0 ? FarDelays::kLeast - 1 : p_delays->next()));
        started.back()->start();
    }
    return started;
}

void startAndStop(int started, int count) {
    FarDelays delays;
    const auto others = startedTimers(started, &delays);
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < count; ++i) timers.push_back(makeTimer(delays.next()));
    const Counted counted;
    for (const auto& timer : timers) {
        timer->start();
        timer->stop();
    }
}

}  // namespace

void addTimerPaths(HotPaths* p_paths) {
    constexpr int kCount = 100;
    for (const int started : {10, 1000}) {
        p_paths->push_back({"timers/start_and_stop/" + std::to_string(started) + "_started", kCount,
                            [=](int count) { startAndStop(started, count); }});
    }
}

}  // namespace bench

// Simple timers, their scheduler and its pipe.
#include <time.h>

#include <atomic>
#include <memory>
#include <thread>

#include "base/simple_timer.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::Semaphore;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;
using tevalon::testkit::ScenarioOptions;

namespace {

constexpr TimeoutTime kTenMs = {0, 10, 0};

void sleepMs(int milliseconds) {
    const timespec duration = {0, milliseconds * 1'000'000L};
    (void)nanosleep(&duration, nullptr);
}

tevalon::base::simple_timer::TimerHandler posts(Semaphore* p_fired) {
    return [p_fired](Timer*, void*) { p_fired->post(); };
}

ScenarioOptions smallPipe() {
    ScenarioOptions options;
    options.pipeBytes = sizeof(int);
    return options;
}

}  // namespace

TEVALON_SCENARIO(SimpleTimerFires) {
    Semaphore fired;
    Timer timer("A", kTenMs, posts(&fired), nullptr, ONCE);
    TEVALON_EXPECT(timer.start() == 0);
    fired.wait();
    TEVALON_EXPECT(!timer.isStarted());
}

// Due as it is started: it may have fired before the call returns.
TEVALON_SCENARIO(SimpleTimerWithoutTimeout) {
    Semaphore fired;
    Timer timer("A", {0, 0, 0}, posts(&fired), nullptr, ONCE);
    TEVALON_EXPECT(timer.start() == 0);
    fired.wait();
    TEVALON_EXPECT(!timer.isStarted());
}

// At the very time at which it expires.
TEVALON_SCENARIO(SimpleTimerStopAgainstExpiry) {
    std::atomic<int> fired{0};
    {
        Timer timer(
            "A", kTenMs, [&](Timer*, void*) { ++fired; }, nullptr, ONCE);
        TEVALON_EXPECT(timer.start() == 0);
        sleepMs(10);
        TEVALON_EXPECT(timer.stop() == 0);
        TEVALON_EXPECT(!timer.isStarted());
    }
    TEVALON_EXPECT(fired <= 1);
}

TEVALON_SCENARIO(SimpleTimerDestroyedAgainstExpiry) {
    auto fired = std::make_unique<std::atomic<int>>(0);
    {
        Timer timer(
            "A", kTenMs, [p_fired = fired.get()](Timer*, void*) { ++*p_fired; }, nullptr, ONCE);
        TEVALON_EXPECT(timer.start() == 0);
        sleepMs(10);
    }
    fired.reset();
}

TEVALON_SCENARIO(SimpleTimerRestartAgainstExpiry) {
    Semaphore fired;
    Timer timer("A", kTenMs, posts(&fired), nullptr, ONCE);
    TEVALON_EXPECT(timer.start() == 0);
    sleepMs(10);
    TEVALON_EXPECT(timer.restart() == 0);
    fired.wait();
    while (timer.isStarted()) fired.wait();
}

// A property may change once the timer is no longer started, while its last run begins.
TEVALON_SCENARIO(SimpleTimerPropertyChangeAgainstExpiry) {
    Semaphore first;
    Semaphore second;
    Timer timer("A", kTenMs, posts(&first), nullptr, ONCE);
    TEVALON_EXPECT(timer.start() == 0);
    sleepMs(10);
    if (timer.changeHandler(posts(&second), nullptr) == 0) {
        TEVALON_EXPECT(timer.start() == 0);
        second.wait();
    } else {
        first.wait();
    }
}

// Two runs of a periodic timer go on at once, for each run has its own thread.
TEVALON_SCENARIO(SimpleTimerOverlappingRuns) {
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    {
        Timer timer(
            "A", kTenMs,
            [&](Timer* p_timer, void*) {
                ++begun;
                if (!p_timer->needStop()) sleepMs(15);
                ++ended;
            },
            nullptr, CONTINUE);
        TEVALON_EXPECT(timer.start() == 0);
        sleepMs(21);
        TEVALON_EXPECT(timer.stop() == 0);
    }
    TEVALON_EXPECT(ended == begun);
    const int runs = begun;
    sleepMs(30);
    TEVALON_EXPECT(runs == begun);
}

TEVALON_SCENARIO(SimpleTimerStartAgainstStart) {
    Semaphore fired;
    Timer first("A", kTenMs, posts(&fired), nullptr, ONCE);
    std::thread other([&] {
        Timer second("B", {0, 5, 0}, posts(&fired), nullptr, ONCE);
        TEVALON_EXPECT(second.start() == 0);
        fired.wait();
    });
    TEVALON_EXPECT(first.start() == 0);
    fired.wait();
    other.join();
}

// Commands that find no room have the scheduler woken by those that did.
TEVALON_SCENARIO_WITH(SimpleTimerFullPipe, smallPipe()) {
    Semaphore fired;
    Timer late("A", kTenMs, posts(&fired), nullptr, ONCE);
    Timer early("B", {0, 5, 0}, posts(&fired), nullptr, ONCE);
    Timer earliest("C", {0, 2, 0}, posts(&fired), nullptr, ONCE);
    TEVALON_EXPECT(late.start() == 0);
    TEVALON_EXPECT(early.start() == 0);
    TEVALON_EXPECT(earliest.start() == 0);
    fired.wait();
    TEVALON_EXPECT(tevalon::testkit::elapsedNanoseconds() < 3'000'000);
    fired.wait();
    fired.wait();
}

TEVALON_SCENARIO(SimpleTimerHandlerDestroysItsTimer) {
    Semaphore fired;
    auto* const p_timer = new Timer(
        "A", kTenMs,
        [&](Timer* p_own, void*) {
            delete p_own;
            fired.post();
        },
        nullptr, CONTINUE);
    TEVALON_EXPECT(p_timer->start() == 0);
    fired.wait();
}

// The command of the first timer is lost; the next start announces it with its own.
TEVALON_SCENARIO(SimpleTimerLostCommand) {
    Semaphore fired;
    Timer first("A", {0, 5, 0}, posts(&fired), nullptr, ONCE);
    Timer second("B", kTenMs, posts(&fired), nullptr, ONCE);
    tevalon::testkit::refuseNextWrite();
    TEVALON_EXPECT(first.start() == 0);
    TEVALON_EXPECT(second.start() == 0);
    fired.wait();
    fired.wait();
}

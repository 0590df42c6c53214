// Timers that expire: each handler runs on a new thread. From the call that makes the thread to
// the handler's entry; and a burst of timers due at once, from when they are due to when the last
// handler begins, for which an iteration is one timer.

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/simple_timer.h"
#include "support/arrivals.h"
#include "support/bare_thread.h"
#include "support/rows.h"
#include "support/thread_births.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;

constexpr int kBurst = 1000;
constexpr int kBurstDelayMs = 50;

double seconds(Clock::time_point before, Clock::time_point after) {
    return std::chrono::duration<double>(after - before).count();
}

/// What begins on one thread and is waited for on another, one at a time.
class Entry {
public:
    void expect() { m_arrivals.expect(1); }
    void entered() {
        m_age = seconds(latestThreadBirth(), Clock::now());
        m_arrivals.arrived();
    }
    double waitForAge() {
        m_arrivals.waitForAll();
        return m_age;
    }

private:
    double m_age = 0;  // Of the thread, at the handler's entry.
    Arrivals m_arrivals;
};

void expireOnce(benchmark::State& state) {
    Entry entry;
    Timer timer(
        "one", TimeoutTime{0, 0, 0}, [&](Timer*, void*) { entry.entered(); }, nullptr, ONCE);
    for (auto _ : state) {
        entry.expect();
        timer.start();
        state.SetIterationTime(entry.waitForAge());
        timer.stop();
    }
}

// From a thread that has slept, as the timers' own has.
void enterBareThread(benchmark::State& state) {
    Entry entry;
    auto body = [&] { entry.entered(); };
    for (auto _ : state) {
        entry.expect();
        std::this_thread::sleep_for(std::chrono::microseconds(50));
        startBareThread(&body);
        state.SetIterationTime(entry.waitForAge());
    }
}

/// Counts on many threads until the last has come.
class Crowd {
public:
    explicit Crowd(int count) : m_missing(count) { m_arrivals.expect(1); }

    void entered() {
        if (--m_missing > 0) return;
        m_last = Clock::now();
        m_arrivals.arrived();
    }
    double waitForSecondsSince(Clock::time_point due) {
        m_arrivals.waitForAll();
        return seconds(due, m_last);
    }

private:
    std::atomic<int> m_missing;
    Clock::time_point m_last;
    Arrivals m_arrivals;
};

// Each timer's delay is what is left until then, so that all are due within microseconds.
TimeoutTime timeUntil(Clock::time_point due) {
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(due - Clock::now());
    return {0, 0, static_cast<std::int32_t>(left.count())};
}

void expireTogether(benchmark::State& state) {
    while (state.KeepRunningBatch(kBurst)) {
        Crowd crowd(kBurst);
        std::vector<std::unique_ptr<Timer>> timers;
        const Clock::time_point due = Clock::now() + std::chrono::milliseconds(kBurstDelayMs);
        for (int i = 0; i < kBurst; ++i) {
            timers.push_back(std::make_unique<Timer>(
                "burst", timeUntil(due), [&](Timer*, void*) { crowd.entered(); }, nullptr, ONCE));
            timers.back()->start();
        }
        state.SetIterationTime(crowd.waitForSecondsSince(due));
    }
}

void enterBareThreads(benchmark::State& state) {
    while (state.KeepRunningBatch(kBurst)) {
        Crowd crowd(kBurst);
        auto body = [&] { crowd.entered(); };
        const Clock::time_point due = Clock::now() + std::chrono::milliseconds(kBurstDelayMs);
        std::this_thread::sleep_until(due);
        for (int i = 0; i < kBurst; ++i) startBareThread(&body);
        state.SetIterationTime(crowd.waitForSecondsSince(due));
    }
}

const bool s_areRowsAdded = [] {
    const std::int64_t once = scaled(3000);
    addTimedRow("expiries/thread_to_handler/unpinned", kOurs, expireOnce)->Iterations(once);
    addTimedRow("expiries/thread_to_handler/unpinned", kLimit, enterBareThread)->Iterations(once);
    const std::int64_t burst = scaled(10) * kBurst;
    const std::string task = "expiries/burst_of_" + std::to_string(kBurst) + "/unpinned";
    addTimedRow(task, kOurs, expireTogether)->Iterations(burst);
    addTimedRow(task, kLimit, enterBareThreads)->Iterations(burst);
    return true;
}();

}  // namespace
}  // namespace bench

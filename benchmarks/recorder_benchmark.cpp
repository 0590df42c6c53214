// The recorder beside a bare reading of the clock, which each record holds. An iteration is one
// record; with two threads it is one of each.

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>

#include "base/diagnostics/recorder.h"
#include "support/placement.h"
#include "support/rows.h"

namespace bench {
namespace {

namespace diagnostics = tevalon::base::diagnostics;

class Recording {
public:
    Recording() {
        if (diagnostics::startRecording() != diagnostics::Status::Ok) std::abort();
    }
    ~Recording() { (void)diagnostics::stopRecording(); }

    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

struct NoRecording {};

struct BareClock {
    using Setting = NoRecording;
    static constexpr const char* kName = kLimit;
    static void once(std::int64_t) {
        timespec now = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        benchmark::DoNotOptimize(now);
    }
};

struct Counter {
    using Setting = Recording;
    static constexpr const char* kName = kOurs;
    static void once(std::int64_t value) { diagnostics::counter("frames", value); }
};

struct Mark {
    using Setting = Recording;
    static constexpr const char* kName = kOurs;
    static void once(std::int64_t value) {
        diagnostics::mark("a text of 40 bytes, the longest ones", value);
    }
};

struct CounterOff {
    using Setting = NoRecording;
    static constexpr const char* kName = kOurs;
    static void once(std::int64_t value) {
        diagnostics::counter("frames", value);
        benchmark::ClobberMemory();
    }
};

struct Nothing {
    using Setting = NoRecording;
    static constexpr const char* kName = kLimit;
    static void once(std::int64_t) { benchmark::ClobberMemory(); }
};

template <typename Task>
void oneThread(benchmark::State& state) {
    const Placement placement(Cpus::One);
    placement.forSenders();
    [[maybe_unused]] const typename Task::Setting setting;
    std::int64_t value = 0;
    for (auto _ : state) Task::once(++value);
}

template <typename Task>
void repeat(std::int64_t times) {
    for (std::int64_t i = 0; i < times; ++i) Task::once(i);
}

template <typename Task>
void twoThreads(benchmark::State& state, std::int64_t times) {
    const Placement placement(Cpus::Two);
    [[maybe_unused]] const typename Task::Setting setting;
    while (state.KeepRunningBatch(times)) {
        placement.forReceivers();
        std::thread other(repeat<Task>, times);
        placement.forSenders();
        std::thread one(repeat<Task>, times);
        one.join();
        other.join();
    }
}

template <typename Task>
void addTwoThreads(const std::string& task) {
    const std::int64_t times = scaled(2000000);
    addRow(task, Task::kName, [=](benchmark::State& state) {
        twoThreads<Task>(state, times);
    })->Iterations(times);
}

const bool s_areRowsAdded = [] {
    addRow("record/off/one_cpu", kOurs, oneThread<CounterOff>);
    addRow("record/off/one_cpu", kLimit, oneThread<Nothing>);
    addRow("record/counter/one_cpu", kOurs, oneThread<Counter>);
    addRow("record/counter/one_cpu", kLimit, oneThread<BareClock>);
    addRow("record/longest_mark/one_cpu", kOurs, oneThread<Mark>);
    addRow("record/longest_mark/one_cpu", kLimit, oneThread<BareClock>);
    addTwoThreads<Counter>("record/counter_2_threads/two_cpus");
    addTwoThreads<BareClock>("record/counter_2_threads/two_cpus");
    return true;
}();

}  // namespace
}  // namespace bench

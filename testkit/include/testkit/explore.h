// explore.h: runs a scenario of threads under every schedule that matters.
//
//     #include "testkit/explore.h"
//
//     TEVALON_SCENARIO(StopAgainstPost) {
//         Module module;
//         std::thread poster([&] { module.post(); });
//         module.stop();
//         poster.join();
//         TEVALON_EXPECT(module.isEmpty());
//     }
//
// Linked with the library tevalon::testkit, which brings main() and takes the place of the thread
// sanitizer's runtime: the sources under test are compiled with -fsanitize=thread and are otherwise
// unmodified. The guide is docs/explore-your-module.md.

#ifndef TESTKIT_EXPLORE_H
#define TESTKIT_EXPLORE_H

#include <cstddef>
#include <cstdint>

namespace tevalon::testkit {

/// The body of a scenario. It runs once in each schedule, in a process of its own that is forked
/// from one in which static objects are constructed and nothing else has happened. The schedule
/// ends when the body returns; threads that still run then are given up, as at the end of a
/// process. A call of exit() ends it too, after the destructors of static objects. The body must do
/// the same in every run but for what the schedule decides: no real time, no random numbers, no
/// identifiers of processes or threads.
using ScenarioBody = void (*)();

/// What a scenario asks for. All members may be left as they are.
struct ScenarioOptions {
    /// Waits for a condition may return though nobody has notified, once for each unit of the
    /// preemption bound. POSIX allows it; it takes many more schedules.
    bool hasSpuriousWakeUps = false;
    /// Threads at once, the first and those that wait to be joined included; where there are more
    /// the run fails. At most kMostThreads.
    int mostThreads = 16;
    /// Scheduling points of one schedule; a run that needs more is reported as a livelock.
    std::uint32_t mostSteps = 20'000;
    /// Where the monotonic clock stands at first, in seconds.
    std::int64_t startSeconds = 1'000;
    /// Bytes that a pipe holds; the kernel's 64 KiB by default.
    std::size_t pipeBytes = 65'536;
    /// All threads see the same processor in sched_getcpu(); else each sees one of its own.
    bool isOneProcessor = false;
    /// The bound of preemptions for a search without one on the command line.
    int bound = 2;
    /// The scenario is meant to fail in this way, as a report names it: "data race", "deadlock".
    /// The program succeeds only where a schedule does. Null: none may.
    const char* meantFailure = nullptr;
};

/// The most threads that a schedule may have at once.
inline constexpr int kMostThreads = 16;

/// Registers a scenario; made by TEVALON_SCENARIO.
class Scenario {
public:
    /// Adds itself to the program's scenarios. None of the arguments is copied but the options.
    Scenario(const char* name, ScenarioBody body, const ScenarioOptions& options);
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;

    const char* const name;         ///< As it is called on the command line.
    const ScenarioBody body;        ///< What it does.
    const ScenarioOptions options;  ///< What it asks for.
    Scenario* p_next = nullptr;     ///< The one that was registered before it.
};

/// While it lives, time must not have to pass: a wait that only a time-out can end fails the
/// schedule, as a lost wake-up that the time-out would hide. Any thread; several may nest.
class TimeStandsStill {
public:
    TimeStandsStill();
    ~TimeStandsStill();
    TimeStandsStill(const TimeStandsStill&) = delete;
    TimeStandsStill& operator=(const TimeStandsStill&) = delete;
};

/// Fails the schedule and ends it; no destructor runs. Any thread.
[[noreturn]] void fail(const char* file, int line, const char* text);

/// The next call of pthread_create() that this thread makes fails with EAGAIN.
void refuseNextThread();

/// The next call of write() on a pipe that this thread makes fails with EIO.
void refuseNextWrite();

/// Nanoseconds on the virtual clock since the schedule began.
std::int64_t elapsedNanoseconds();

/// Moves the virtual clock forward at once, whoever runs. What has become due is due.
void advanceClock(std::int64_t nanoseconds);

/// Threads that are alive now, the caller included.
int liveThreads();

}  // namespace tevalon::testkit

/// Defines and registers a scenario: TEVALON_SCENARIO(Name) { ... }
#define TEVALON_SCENARIO(scenarioName) \
    TEVALON_SCENARIO_WITH(scenarioName, ::tevalon::testkit::ScenarioOptions())

/// The same with ScenarioOptions.
#define TEVALON_SCENARIO_WITH(scenarioName, options)                                           \
    static void scenarioName##Body();                                                          \
    static ::tevalon::testkit::Scenario scenarioName##Registered(#scenarioName,                \
                                                                 scenarioName##Body, options); \
    static void scenarioName##Body()

/// Fails the schedule unless @p condition holds.
#define TEVALON_EXPECT(condition)                                     \
    do {                                                              \
        if (!(condition)) {                                           \
            ::tevalon::testkit::fail(__FILE__, __LINE__, #condition); \
        }                                                             \
    } while (false)

#endif  // TESTKIT_EXPLORE_H

// What a process with every service started costs while nothing is to be done. The limit: as many
// threads that sleep for the periods at which the services have to look, and for nothing else.
//
// The row of the processor time is per second; the counter per_second is of wake-ups.

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "support/arrivals.h"
#include "support/own_threads.h"
#include "support/rows.h"

namespace bench {
namespace {

namespace timer = tevalon::base::timer;
using std::chrono::milliseconds;

constexpr milliseconds kWatchPeriod(100);  // At which the watchdog looks.
constexpr milliseconds kIdlePeriod(1000);  // At which a timer thread without a task looks.
constexpr int kTimerThreads = 5;
constexpr int kFarMs = 10000000;

/// Has every service started, each thread of which has done something.
class Services {
public:
    Services() {
        m_watchdog = std::make_unique<timer::WatchDog>();
        m_far.start();
        using Post = void (*)(std::shared_ptr<timer::TimerTaskBase>);
        for (const Post post : {Post{timer::TimerThreadPool::postMainThreadTask},
                                Post{timer::TimerThreadPool::postForegroundTask},
                                Post{timer::TimerThreadPool::postBackgroundTask},
                                Post{timer::TimerThreadPool::postWorkerTask}}) {
            runOnce([&](auto task) {
                task->setNextFireTime(1);
                post(task);
            });
        }
        runOnce([&](auto task) { m_timerThread.postTask(task, 0); });
        m_hub.registerHandler(1, [](auto) {});
        tevalon::base::event_dispatcher::evtdispch_register_hub(&m_hub);
    }
    ~Services() { tevalon::base::event_dispatcher::evtdispch_unregister_hub(&m_hub); }

    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

private:
    template <typename Post>
    void runOnce(Post post) {
        Arrivals arrivals;
        arrivals.expect(1);
        post(std::make_shared<timer::CallableTimerTask>([&] { arrivals.arrived(); }));
        arrivals.waitForAll();
    }

    std::unique_ptr<timer::WatchDog> m_watchdog;
    tevalon::base::simple_timer::Timer m_far{
        "far", {0, kFarMs, 0}, [](auto, auto) {}, nullptr, tevalon::base::simple_timer::ONCE};
    timer::TimerThread m_timerThread;
    tevalon::base::event_dispatcher::EventHub m_hub{1};
};

/// Threads that do nothing but sleep, over and over.
class Sleepers {
public:
    Sleepers() {
        sleepFor(kWatchPeriod);
        for (int i = 0; i < kTimerThreads; ++i) sleepFor(kIdlePeriod);
    }
    ~Sleepers() {
        m_isEnding = true;
        for (std::thread& thread : m_threads) thread.join();
    }

    Sleepers(const Sleepers&) = delete;
    Sleepers& operator=(const Sleepers&) = delete;

private:
    void sleepFor(milliseconds period) {
        m_threads.emplace_back([this, period] {
            while (!m_isEnding) std::this_thread::sleep_for(period);
        });
    }

    std::atomic<bool> m_isEnding{false};
    std::vector<std::thread> m_threads;
};

ThreadUsage usagePerSecond(const ThreadIds& threads) {
    const auto time = isQuick() ? milliseconds(3000) : milliseconds(10000);
    std::this_thread::sleep_for(kIdlePeriod);  // Lets what has just been done come to its end.
    const ThreadUsage before = usageOf(threads);
    std::this_thread::sleep_for(time);
    const ThreadUsage after = usageOf(threads);
    const double seconds = std::chrono::duration<double>(time).count();
    return {(after.switches - before.switches) / seconds,
            (after.cpuSeconds - before.cpuSeconds) / seconds};
}

/// Measured once for both rows: it takes seconds.
template <typename Busy>
const ThreadUsage& idleUsage() {
    static const ThreadUsage s_usage = [] {
        const ThreadIds before = threadsNow();
        const Busy threads;
        return usagePerSecond(threadsSince(before));
    }();
    return s_usage;
}

template <typename Busy>
void addRowsOf(const char* peer) {
    addTimedRow("idle/processor_time_per_second/unpinned", peer,
                [](benchmark::State& state) {
                    for (auto _ : state) state.SetIterationTime(idleUsage<Busy>().cpuSeconds);
                })
        ->Iterations(1)
        ->Repetitions(1);
    addTimedRow("idle/wake_ups/unpinned", peer,
                [](benchmark::State& state) {
                    for (auto _ : state) state.SetIterationTime(1);
                    state.counters["per_second"] = idleUsage<Busy>().switches;
                })
        ->Iterations(1)
        ->Repetitions(1);
}

const bool s_areRowsAdded = [] {
    addRowsOf<Services>(kOurs);
    addRowsOf<Sleepers>(kLimit);
    return true;
}();

}  // namespace
}  // namespace bench

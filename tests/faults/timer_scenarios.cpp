// Simple timers, timer threads, the pool and the watchdog.

#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/simple_timer.h"
#include "base/timer.h"
#include "faults/scenario.h"

namespace faults {
namespace {

using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;
namespace simple_timer = tevalon::base::simple_timer;
namespace timer = tevalon::base::timer;

constexpr TimeoutTime kSoon = {0, 2, 0};
constexpr TimeoutTime kLate = {1000, 0, 0};

// What a handler or a task counts outlives the run: it may come late where a call has failed.
struct Counts {
    std::atomic<int> first{0};
    std::atomic<int> second{0};
};

Counts* newCounts() {
    static std::vector<std::unique_ptr<Counts>> s_all;
    s_all.push_back(std::make_unique<Counts>());
    return s_all.back().get();
}

// ---- Timer ----

simple_timer::TimerHandler counting(std::atomic<int>* p_count) {
    return [p_count](Timer*, void*) { ++*p_count; };
}

// The scheduler's start, which fails for good, is one scenario's matter.
void startScheduler() {
    const Timer first("first", kLate, counting(&newCounts()->first), nullptr, simple_timer::ONCE);
}

void timerOnce(Run& run) {
    Counts* const p_counts = newCounts();
    Timer once("a timer that fires once", kSoon, counting(&p_counts->first), nullptr,
               simple_timer::ONCE);
    run.say("start", once.start());
    (void)run.waitFor("fired", p_counts->first, 1);
    run.calm();
    const int before = p_counts->first;
    run.say("restart", once.restart());
    (void)run.waitFor("fired then", p_counts->first, before + 1);
    run.say("stop", once.stop());
}

void timerPeriodic(Run& run) {
    Counts* const p_counts = newCounts();
    Timer periodic("periodic", kSoon, counting(&p_counts->first), nullptr, simple_timer::CONTINUE);
    run.say("start", periodic.start());
    (void)run.waitFor("fired", p_counts->first, 3);
    run.say("restart", periodic.restart());
    (void)run.waitFor("fired on", p_counts->first, p_counts->first + 2);
    run.say("stop", periodic.stop());
    run.calm();
    const int before = p_counts->first;
    run.say("start then", periodic.start());
    (void)run.waitFor("fired then", p_counts->first, before + 2);
    run.say("stop then", periodic.stopNoBlock());
}

void timerProperties(Run& run) {
    Counts* const p_counts = newCounts();
    Timer changed("changed", kLate, counting(&p_counts->first), nullptr, simple_timer::ONCE);
    run.say("type", changed.changeType(simple_timer::CONTINUE));
    run.say("timeout", changed.changeTimeout(kSoon));
    run.say("handler", changed.changeHandler(counting(&p_counts->second), nullptr));
    run.say("property",
            changed.setProperty(kSoon, counting(&p_counts->second), nullptr, simple_timer::ONCE));
    run.say("start", changed.start());
    (void)run.waitFor("fired", p_counts->second, 1);
    run.calm();
    const int before = p_counts->second;
    (void)changed.stop();
    run.say("property then",
            changed.setProperty(kSoon, counting(&p_counts->second), nullptr, simple_timer::ONCE));
    run.say("start then", changed.start());
    (void)run.waitFor("fired then", p_counts->second, before + 1);
}

// Enough of them that the list of started timers grows, and shrinks.
void timersMany(Run& run) {
    constexpr int kTimers = 100;
    Counts* const p_counts = newCounts();
    std::vector<std::unique_ptr<Timer>> timers;
    int started = 0;
    for (int i = 0; i < kTimers; ++i) {
        const TimeoutTime timeout = {1000 - i, 0, 0};  // Each before all that are there.
        timers.push_back(std::make_unique<Timer>("many", timeout, counting(&p_counts->first),
                                                 nullptr, simple_timer::ONCE));
        started += timers.back()->start() == 0 ? 1 : 0;
    }
    Timer soon("soon", kSoon, counting(&p_counts->second), nullptr, simple_timer::ONCE);
    const int start = soon.start();
    run.say("started", started + (start == 0 ? 1 : 0));  // One less, whichever fails.
    run.say("start", start);
    (void)run.waitFor("fired", p_counts->second, 1);
    timers.clear();
    run.calm();
    const int before = p_counts->second;
    run.say("restart", soon.restart());
    (void)run.waitFor("fired then", p_counts->second, before + 1);
}

// A stop that waits for the handler.
void timerStoppedInHandler(Run& run) {
    Counts* const p_counts = newCounts();
    const long waits = callsOf("pthread_cond_wait");
    Timer slow(
        "slow", kSoon,
        [&run, p_counts, waits](Timer*, void*) {
            ++p_counts->first;
            (void)run.waitForCalls(nullptr, "pthread_cond_wait", waits + 1);
        },
        nullptr, simple_timer::ONCE);
    run.say("start", slow.start());
    (void)run.waitFor("fired", p_counts->first, 1);
    run.say("stop", slow.stop());
    run.calm();
    const int before = p_counts->first;
    run.say("restart", slow.restart());
    (void)run.waitFor("fired then", p_counts->first, before + 1);
}

// ---- TimerThread ----

std::shared_ptr<timer::TimerTaskBase> countingTask(std::atomic<int>* p_count, int taskId = 0) {
    return std::make_shared<timer::CallableTimerTask>([p_count] { ++*p_count; }, taskId);
}

void timerThread(Run& run) {
    Counts* const p_counts = newCounts();
    timer::TimerThread thread;
    thread.postTask(countingTask(&p_counts->first));
    (void)run.waitFor("fired", p_counts->first, 1);
    thread.postTask(countingTask(&p_counts->first), 2);
    (void)run.waitFor("fired later", p_counts->first, 2);
    const auto late = countingTask(&p_counts->second, 7);
    thread.postTask(late, 1000000);
    run.say("has task", thread.hasTask() ? 1 : 0);
    thread.cancelTaskByTaskId(7);
    thread.postTask(countingTask(&p_counts->second), 1000000);
    thread.cancelTaskBySessionId(late->sessionId());
    thread.stop();
    run.calm();
    const int before = p_counts->first;
    thread.postTask(countingTask(&p_counts->first));
    (void)run.waitFor("fired then", p_counts->first, before + 1);
}

// A post that fails leaves the thread as it was: the next one starts it.
void timerThreadPostedAgain(Run& run) {
    Counts* const p_counts = newCounts();
    timer::TimerThread thread;
    try {
        thread.postTask(countingTask(&p_counts->first));
        run.say("posted", "yes");
    } catch (const std::exception& error) {
        calmDown();
        run.say("posted", error.what());
    }
    run.calm();
    thread.postTask(countingTask(&p_counts->second));
    (void)run.waitFor("fired then", p_counts->second, 1);
}

// Enough of them that the queue grows.
void timerThreadQueue(Run& run) {
    constexpr int kTasks = 200;
    Counts* const p_counts = newCounts();
    timer::TimerThread thread;
    for (int i = 0; i < kTasks; ++i) {
        thread.postTask(countingTask(&p_counts->second, i), 1000000 + i * 7919 % 1000);
    }
    run.say("queued", thread.taskCount());
    thread.postTask(countingTask(&p_counts->first));
    (void)run.waitFor("fired", p_counts->first, 1);
    thread.cancelTaskByTaskId(100);
    run.calm();
    const int before = p_counts->first;
    thread.postTask(countingTask(&p_counts->first));
    (void)run.waitFor("fired then", p_counts->first, before + 1);
}

// ---- TimerThreadPool ----

// With one worker: whether a second one is made depends on how busy the first one is.
void makePool() {
    timer::TimerThreadPool::init(1);
}

void pool(Run& run) {
    Counts* const p_counts = newCounts();
    std::atomic<int>* const p_first = &p_counts->first;
    timer::TimerThreadPool::postMainThreadTask(countingTask(p_first));
    timer::TimerThreadPool::postForegroundTask(countingTask(p_first));
    timer::TimerThreadPool::postBackgroundTask(countingTask(p_first));
    for (int i = 0; i < 4; ++i) timer::TimerThreadPool::postWorkerTask(countingTask(p_first));
    (void)run.waitFor("fired", p_counts->first, 7);
    run.say("is main thread", timer::TimerThreadPool::isMainThread() ? 1 : 0);
    run.calm();
    std::atomic<int>* const p_second = &p_counts->second;
    timer::TimerThreadPool::postMainThreadTask(countingTask(p_second));
    timer::TimerThreadPool::postForegroundTask(countingTask(p_second));
    timer::TimerThreadPool::postBackgroundTask(countingTask(p_second));
    for (int i = 0; i < 4; ++i) timer::TimerThreadPool::postWorkerTask(countingTask(p_second));
    (void)run.waitFor("fired then", p_counts->second, 7);
}

// ---- WatchDog ----

void onTimeout(void* p_count, timer::WatchDog::WATCH_ID, double) {
    ++*static_cast<std::atomic<int>*>(p_count);
}

void watchdog(Run& run) {
    Counts* const p_counts = newCounts();
    timer::WatchDog dog;
    dog.setTimeoutCallback(onTimeout, &p_counts->first);
    dog.beginWatch(timer::WatchDog::eWatchID_StartUp, 0.001);
    (void)run.waitFor("reported", p_counts->first, 1);
    dog.stopWatch(timer::WatchDog::eWatchID_StartUp);
    run.calm();
    const int before = p_counts->first;
    dog.beginWatch(timer::WatchDog::eWatchID_doOOM, 0.001);
    (void)run.waitFor("reported then", p_counts->first, before + 1);
}

void ownWatch(Run& run) {
    std::atomic<int>* const p_reports = &newCounts()->first;
    // Takes a while, so that the watch is ended meanwhile, and waits.
    const auto note = [p_reports](const std::string&, double) {
        ++*p_reports;
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    };
    timer::WatchDog dog;
    {
        const timer::NamedWatch watch(dog, "own", 0.001, note);
        (void)run.waitFor("reported", *p_reports, 1);
    }
    run.calm();
    const int before = *p_reports;
    const timer::NamedWatch watch(dog, "own", 0.001, note);
    (void)run.waitFor("reported then", *p_reports, before + 1);
}

// By the client, with no callback: into the log.
void watchdogCheck(Run& run) {
    timer::WatchDog dog;
    dog.stop();
    dog.beginWatch(timer::WatchDog::eWatchID_StartUp, -1.0);
    run.say("overdue", static_cast<long>(dog.checkTimers().size()));
    run.calm();
    dog.beginWatch(timer::WatchDog::eWatchID_doOOM, -1.0);
    run.say("overdue then", dog.checkTimers().empty() ? 0 : 1);
}

}  // namespace

std::vector<Scenario> timerScenarios() {
    return {
        {"timer once", timerOnce},
        {"timer once, all lines", timerOnce, startScheduler, Module::Library, 5000},
        {"timer periodic", timerPeriodic, startScheduler},
        {"timer properties", timerProperties, startScheduler},
        {"timers many", timersMany, startScheduler},
        {"timer stopped in its handler", timerStoppedInHandler, startScheduler},
        {"timer thread posted to again", timerThreadPostedAgain},
        {"timer thread", timerThread},
        {"timer thread, all lines", timerThread, nullptr, Module::Library, 5000},
        {"timer thread queue", timerThreadQueue},
        {"pool", pool, makePool},
        {"watchdog", watchdog},
        {"watchdog, an own watch", ownWatch},
        {"watchdog check", watchdogCheck},
    };
}

}  // namespace faults

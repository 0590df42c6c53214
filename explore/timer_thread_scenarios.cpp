// A timer thread's queue, start, stop and end.
#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>

#include "base/timer.h"
#include "os/monotonic_time.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::monotonicSeconds;
using tevalon::base::Semaphore;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TaskHandle;
using tevalon::base::timer::TimerThread;
using tevalon::testkit::TimeStandsStill;

namespace {

constexpr std::int32_t kTenMs = 10;

// Of four threads and a worker.
tevalon::testkit::ScenarioOptions onePreemption() {
    tevalon::testkit::ScenarioOptions options;
    options.bound = 1;
    return options;
}

std::shared_ptr<CallableTimerTask> makeTask(Semaphore* p_fired, std::int32_t id = 0) {
    return std::make_shared<CallableTimerTask>([p_fired] { p_fired->post(); }, id);
}

}  // namespace

// Both start the worker, or one of them; each task fires once, and no wake-up is left to a
// time-out.
TEVALON_SCENARIO(TimerThreadPostAgainstPost) {
    Semaphore fired;
    TimerThread thread;
    const TimeStandsStill still;
    std::thread other([&] { thread.postTask(makeTask(&fired)); });
    thread.postTask(makeTask(&fired));
    fired.wait();
    fired.wait();
    other.join();
}

// The worker sleeps, or is about to.
TEVALON_SCENARIO(TimerThreadPostAgainstWorker) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(makeTask(&fired));
    const TimeStandsStill still;
    thread.postTask(makeTask(&fired));
    fired.wait();
    fired.wait();
}

TEVALON_SCENARIO(TimerThreadStopAgainstWorker) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(makeTask(&fired));
    const TimeStandsStill still;
    thread.stop();
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// Whatever the post has found, the next one has the queue served.
TEVALON_SCENARIO(TimerThreadPostAgainstStop) {
    Semaphore fired;
    TimerThread thread;
    std::thread other([&] { thread.postTask(makeTask(&fired)); });
    thread.stop();
    other.join();
    thread.postTask(makeTask(&fired));
    fired.wait();
    fired.wait();
}

// The worker that is being joined does not serve the post, and a second one does not either.
TEVALON_SCENARIO(TimerThreadPostDuringStop) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(makeTask(&fired));
    fired.wait();
    std::thread other([&] { thread.postTask(makeTask(&fired)); });
    thread.stop();
    other.join();
    thread.postTask(makeTask(&fired));
    fired.wait();
    fired.wait();
}

TEVALON_SCENARIO(TimerThreadStopAgainstStop) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(makeTask(&fired));
    fired.wait();
    std::thread other([&] { thread.stop(); });
    thread.stop();
    other.join();
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// Destroyed on one side, and by its own task on the other: the last holder decides.
TEVALON_SCENARIO(TimerThreadDestroyedFromTwoSides) {
    auto thread = std::make_shared<TimerThread>();
    thread->postTask(
        std::make_shared<CallableTimerTask>([held = thread]() mutable { held.reset(); }));
    thread.reset();
    while (tevalon::testkit::liveThreads() > 1) std::this_thread::yield();
}

TEVALON_SCENARIO(TimerThreadDestroyedAgainstWorker) {
    Semaphore fired;
    {
        TimerThread thread;
        thread.postTask(makeTask(&fired));
        fired.wait();
    }
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// The start fails for one post; the other one's task is queued all the same, and served.
TEVALON_SCENARIO(TimerThreadStartFails) {
    Semaphore fired;
    TimerThread thread;
    std::atomic<bool> hasFailed{false};
    std::thread other([&] {
        tevalon::testkit::refuseNextThread();
        try {
            thread.postTask(makeTask(&fired));
        } catch (const std::runtime_error&) {
            hasFailed = true;
        }
    });
    thread.postTask(makeTask(&fired));
    other.join();
    fired.wait();
    if (!hasFailed) fired.wait();
}

// A task's owner moves its time while it is queued, and posts another to have the queue looked at.
TEVALON_SCENARIO(TimerThreadTimeMovedInQueue) {
    Semaphore fired;
    TimerThread thread;
    const auto late = makeTask(&fired);
    thread.postTask(late, kTenMs);
    late->setNextFireTime(monotonicSeconds() + 0.001);
    thread.postTask(makeTask(&fired));
    fired.wait();
    fired.wait();
}

TEVALON_SCENARIO(TimerThreadCancelAgainstFire) {
    Semaphore fired;
    TimerThread thread;
    const auto task = makeTask(&fired, 7);
    thread.postTask(task);
    thread.cancelTaskByTaskId(7);
    thread.postTask(makeTask(&fired));
    fired.wait();
}

// By its session, which is found without a search through the queue.
TEVALON_SCENARIO(TimerThreadCancelSessionAgainstFire) {
    Semaphore fired;
    TimerThread thread;
    const auto task = makeTask(&fired);
    thread.postTask(task);
    thread.cancelTaskBySessionId(task->sessionId());
    thread.postTask(makeTask(&fired));
    fired.wait();
}

// Done or cancelled, and destroyed by whoever has come first.
TEVALON_SCENARIO(TaskHandleCancelAgainstRun) {
    int runs = 0;
    const auto held = std::make_shared<int>(0);
    TimerThread thread;
    TaskHandle handle = thread.post([&runs, held] { ++runs; }, 0);
    const bool isCancelled = handle.cancel();
    thread.stop();
    TEVALON_EXPECT(runs == (isCancelled ? 0 : 1));
    TEVALON_EXPECT(held.use_count() == 1);
}

// Its thread goes meanwhile: the task is the last holder's.
TEVALON_SCENARIO(TaskHandleCancelAgainstDestruction) {
    const auto held = std::make_shared<int>(0);
    auto thread = std::make_unique<TimerThread>();
    TaskHandle handle = thread->post([held] {}, kTenMs);
    std::thread other([&] { (void)handle.cancel(); });
    thread.reset();
    other.join();
    TEVALON_EXPECT(held.use_count() == 1);
}

TEVALON_SCENARIO(TaskHandleCancelAgainstCancel) {
    std::atomic<int> cancelled{0};
    TimerThread thread;
    TaskHandle handle = thread.post([] {}, kTenMs);
    std::thread other([&, copy = handle]() mutable { cancelled += copy.cancel() ? 1 : 0; });
    cancelled += handle.cancel() ? 1 : 0;
    other.join();
    TEVALON_EXPECT(cancelled <= 1);
}

// The task posts itself again, and stops its own thread.
TEVALON_SCENARIO(TimerThreadTaskStopsItsThread) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(std::make_shared<CallableTimerTask>([&] {
        thread.stop();
        fired.post();
    }));
    fired.wait();
    thread.postTask(makeTask(&fired));
    fired.wait();
}

// A task that was never fired posts another one as it is destroyed.
TEVALON_SCENARIO(TimerThreadTaskPostsAsItGoes) {
    struct Posts {
        ~Posts() {
            p_thread->postTask(std::make_shared<CallableTimerTask>([held = std::move(held)] {}));
        }
        TimerThread* p_thread;
        std::shared_ptr<int> held;
    };
    const auto held = std::make_shared<int>(0);
    auto thread = std::make_unique<TimerThread>();
    auto posts = std::make_shared<Posts>();
    posts->p_thread = thread.get();
    posts->held = held;
    thread->postTask(std::make_shared<CallableTimerTask>([posts = std::move(posts)] {}), kTenMs);
    thread.reset();
    TEVALON_EXPECT(held.use_count() == 1);
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

TEVALON_SCENARIO(TimerThreadTaskStartsAsItGoes) {
    struct Starts {
        ~Starts() { p_thread->start(); }
        TimerThread* p_thread;
    };
    auto thread = std::make_unique<TimerThread>();
    auto starts = std::make_shared<Starts>();
    starts->p_thread = thread.get();
    thread->postTask(std::make_shared<CallableTimerTask>([starts = std::move(starts)] {}), kTenMs);
    thread.reset();
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// A stop between one post's claim to start the worker and its start, and another post.
TEVALON_SCENARIO_WITH(TimerThreadTwoPostsAgainstStop, onePreemption()) {
    Semaphore fired;
    {
        TimerThread thread;
        std::thread poster([&] { thread.postTask(makeTask(&fired)); });
        std::thread stopper([&] { thread.stop(); });
        thread.postTask(makeTask(&fired));
        poster.join();
        stopper.join();
    }
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

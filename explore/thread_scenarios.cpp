// The watchdog, and Runnable.
#include <time.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "base/synchronization.h"
#include "base/threading.h"
#include "base/timer.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::ConditionVariable;
using tevalon::base::Mutex;
using tevalon::base::RelockableLock;
using tevalon::base::Semaphore;
using tevalon::base::Threading::Runnable;
using tevalon::base::timer::NamedWatch;
using tevalon::base::timer::WatchDog;

namespace {

void sleepMs(int milliseconds) {
    const timespec duration = {0, milliseconds * 1'000'000L};
    (void)nanosleep(&duration, nullptr);
}

void postSemaphore(void* p_context, WatchDog::WATCH_ID, double) {
    static_cast<Semaphore*>(p_context)->post();
}

tevalon::testkit::ScenarioOptions spuriousWakeUps() {
    tevalon::testkit::ScenarioOptions options;
    options.hasSpuriousWakeUps = true;
    return options;
}

/// Counts its rounds, and lets others wait for one.
class Rounds : public Runnable {
public:
    Rounds() : Runnable(1) {}
    void execute() override { round.post(); }
    Semaphore round;
};

}  // namespace

TEVALON_SCENARIO(WatchDogReports) {
    Semaphore reported;
    WatchDog dog;
    dog.setTimeoutCallback(postSemaphore, &reported);
    dog.beginWatch(WatchDog::eWatchID_doOOM, 0.05);
    reported.wait();
}

// The watch ends as it is found overdue.
TEVALON_SCENARIO(WatchDogReportAgainstStopWatch) {
    Semaphore reported;
    {
        WatchDog dog;
        dog.setTimeoutCallback(postSemaphore, &reported);
        dog.beginWatch(WatchDog::eWatchID_doOOM, 0.05);
        sleepMs(100);
        dog.stopWatch(WatchDog::eWatchID_doOOM);
    }
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// The watch ends as it is reported: what its callback needs may go then.
TEVALON_SCENARIO(NamedWatchEndedAgainstReport) {
    auto reports = std::make_unique<int>(0);
    WatchDog dog;
    {
        const NamedWatch watch(dog, "own", 0.05,
                               [p_reports = reports.get()](auto&&...) { ++*p_reports; });
        sleepMs(100);
    }
    TEVALON_EXPECT(*reports <= 1);
    reports.reset();
}

// The callback ends its own watch, and another thread begins and ends a second one.
TEVALON_SCENARIO(NamedWatchEndsItself) {
    Semaphore ended;
    WatchDog dog;
    std::unique_ptr<NamedWatch> watch;
    watch = std::make_unique<NamedWatch>(dog, "own", 0.05, [&](auto&&...) {
        watch.reset();
        ended.post();
    });
    std::thread other([&] { const NamedWatch second(dog, "other", 0.05, [](auto&&...) {}); });
    ended.wait();
    other.join();
}

// One callback wins.
TEVALON_SCENARIO(WatchDogSetAgainstReport) {
    Semaphore first;
    Semaphore second;
    WatchDog dog;
    dog.beginWatch(WatchDog::eWatchID_doOOM, 0.05);
    sleepMs(100);
    std::thread other([&] { dog.setTimeoutCallback(postSemaphore, &first); });
    dog.setTimeoutCallback(postSemaphore, &second);
    other.join();
}

TEVALON_SCENARIO(WatchDogStopAgainstRun) {
    {
        WatchDog dog;
        dog.stop();
    }
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// Woken for no reason, each waits on, until its time is over, or what it waits for has come.
TEVALON_SCENARIO_WITH(ConditionTimedWaitAgainstNotifyAll, spuriousWakeUps()) {
    Mutex mutex;
    ConditionVariable condition;
    bool isOpen = false;
    const auto pass = [&] {
        RelockableLock lock(mutex);
        const bool isTold = condition.wait_for(lock, std::chrono::hours(1), [&] { return isOpen; });
        TEVALON_EXPECT(isTold);
        TEVALON_EXPECT(isOpen);
    };
    std::thread other(pass);
    std::thread opener([&] {
        const RelockableLock lock(mutex);
        isOpen = true;
        condition.notify_all();
    });
    pass();
    other.join();
    opener.join();
}

TEVALON_SCENARIO(RunnableStopEndsIt) {
    Rounds rounds;
    std::thread thread([&] { TEVALON_EXPECT(rounds.run() == 0); });
    rounds.stop();
    thread.join();
    TEVALON_EXPECT(!rounds.running());
}

TEVALON_SCENARIO(RunnablePauseThenStop) {
    Rounds rounds;
    std::thread thread([&] { TEVALON_EXPECT(rounds.run() == 0); });
    rounds.pause();
    rounds.stop();
    thread.join();
}

TEVALON_SCENARIO(RunnablePauseAndResume) {
    Rounds rounds;
    std::thread thread([&] { TEVALON_EXPECT(rounds.run() == 0); });
    rounds.pause();
    sleepMs(1);
    rounds.resume();
    rounds.round.wait();
    rounds.stop();
    thread.join();
}

TEVALON_SCENARIO_WITH(RunnableSpuriousWakeUp, spuriousWakeUps()) {
    Rounds rounds;
    std::atomic<bool> isResumed{false};
    rounds.pause();
    std::thread thread([&] { TEVALON_EXPECT(rounds.run() == 0); });
    std::thread other([&] {
        rounds.round.wait();
        TEVALON_EXPECT(isResumed);
    });
    sleepMs(5);
    isResumed = true;
    rounds.resume();
    other.join();
    rounds.stop();
    thread.join();
}

TEVALON_SCENARIO(RunnableResumeAgainstStop) {
    Rounds rounds;
    std::thread thread([&] { TEVALON_EXPECT(rounds.run() == 0); });
    rounds.pause();
    std::thread other([&] { rounds.resume(); });
    rounds.stop();
    other.join();
    thread.join();
}

// What clients wrote before there were durations, callables and handles: it compiles, and means
// what it did.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "base/simple_timer.h"
#include "base/synchronization.h"
#include "timer/timer_fixtures.h"

// Clients need not build with these.
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wfloat-conversion"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using simple_timer::TimeoutTime;
using simple_timer::Timer;

/// The fire time that @p post leaves, in seconds from before it.
template <typename Post>
double delayOf(Post post) {
    TimerThread thread;
    const auto task = makeTask([] {});
    test::LogCapture log(0);
    Holder holder;
    EXPECT_TRUE(holder.hold(thread));
    const double before = monotonicNow();
    post(thread, task);
    thread.cancelTaskBySessionId(-1);
    return task->getNextFireTime() - before;
}

TEST(ExistingExpressionsTest, DelaysOfAllArithmeticTypesAreMilliseconds) {
    const auto expectDelay = [](double seconds, auto delay) {
        const double delayed =
            delayOf([&](TimerThread& thread, const auto& task) { thread.postTask(task, delay); });
        EXPECT_GE(delayed, seconds);
        EXPECT_LT(delayed, seconds + 60);
    };
    expectDelay(1000, 1000000);
    expectDelay(2000, 2000000U);
    expectDelay(3000, 3000000L);
    expectDelay(4000, 4000000LL);
    expectDelay(5000, static_cast<std::size_t>(5000000));
    expectDelay(6000, 6000000.75);
    expectDelay(30, static_cast<short>(30000));
    const double none =
        delayOf([](TimerThread& thread, const auto& task) { thread.postTask(task, 0); });
    EXPECT_GE(none, 0);
    const double braces =
        delayOf([](TimerThread& thread, const auto& task) { thread.postTask(task, {}); });
    EXPECT_GE(braces, 0);
}

TEST(ExistingExpressionsTest, ATaskMayBeGivenAsWhateverConvertsToOne) {
    const test::LogCapture log(0);
    TimerThread thread;
    thread.postTask(nullptr);
    thread.postTask(nullptr, 0);
    thread.postTask({}, 0);
    thread.postTask(std::unique_ptr<TimerTaskBase>(new TestTask([] {})), 3600000);
    thread.postTask(std::make_shared<CallableTimerTask>([] {}), 3600000);
    EXPECT_EQ(thread.taskCount(), 2);
}

TEST(ExistingExpressionsTest, AddressesOfFunctionsAreThoseOfOneFunction) {
    const auto main = &TimerThreadPool::postMainThreadTask;
    const auto foreground = &TimerThreadPool::postForegroundTask;
    const auto background = &TimerThreadPool::postBackgroundTask;
    const auto worker = &TimerThreadPool::postWorkerTask;
    const auto begin = &WatchDog::beginWatch;
    const auto stop = &WatchDog::stopWatch;
    const auto set = &WatchDog::setTimeoutCallback;
    const auto changeTimeout = &Timer::changeTimeout;
    const auto setProperty = &Timer::setProperty;
    const auto notify = &ConditionVariable::notify_one;
    const auto handle = &Mutex::nativeHandle;
    void (TimerThread::*const post)(std::shared_ptr<TimerTaskBase>) = &TimerThread::postTask;
    void (TimerThread::*const postLater)(std::shared_ptr<TimerTaskBase>, std::int32_t) =
        &TimerThread::postTask;
    void (ConditionVariable::*const wait)(UniqueLock<pthread_mutex_t>&) = &ConditionVariable::wait;
    const auto waitOn = &ConditionVariable::wait<pthread_mutex_t>;

    EXPECT_TRUE((std::is_same_v<decltype(main), decltype(worker)>));
    EXPECT_TRUE((std::is_same_v<decltype(foreground), decltype(background)>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(begin), void (WatchDog::*const)(WatchDog::WATCH_ID, double)>));
    EXPECT_TRUE((std::is_same_v<decltype(stop), void (WatchDog::*const)(WatchDog::WATCH_ID)>));
    EXPECT_TRUE((std::is_same_v<decltype(changeTimeout), int (Timer::*const)(const TimeoutTime&)>));
    EXPECT_TRUE(set != nullptr && setProperty != nullptr && notify != nullptr);
    EXPECT_TRUE(handle != nullptr && post != nullptr && postLater != nullptr);
    EXPECT_TRUE(wait == waitOn);
}

TEST(ExistingExpressionsTest, TimeoutsInBracesAreSecondsMillisecondsMicroseconds) {
    const test::LogCapture log(0);
    const auto handler = [](Timer*, void*) {};
    Timer timer("a", {1000, 0, 0}, handler, nullptr, simple_timer::ONCE);
    Timer none("c", {}, handler, nullptr, simple_timer::ONCE);
    Timer without("d", {0, 1, 0}, nullptr, nullptr, simple_timer::CONTINUE);
    const TimeoutTime timeout = {1, 2, 3};
    Timer named(std::string("e"), timeout, {}, &timer, simple_timer::ONCE);
    EXPECT_EQ(timer.changeTimeout({0, 5, 0}), 0);
    EXPECT_EQ(timer.setProperty({1, 0, 0}, handler, nullptr, simple_timer::ONCE), 0);
    EXPECT_EQ(without.start(), -1);
    EXPECT_TRUE(std::is_aggregate_v<TimeoutTime>);
}

TEST(ExistingExpressionsTest, WatchesTakeAllArithmeticTypes) {
    const test::LogCapture log(0);
    WatchDog dog;
    dog.beginWatch(WatchDog::eWatchID_doOOM, 1000);
    dog.beginWatch(WatchDog::eWatchID_doOOM, 1000U);
    dog.beginWatch(WatchDog::eWatchID_doOOM, 1000L);
    dog.beginWatch(WatchDog::eWatchID_doOOM, 1000.5);
    dog.beginWatch(WatchDog::eWatchID_doOOM, 1000.5F);
    dog.setTimeoutCallback(nullptr, nullptr);
    std::thread(&WatchDog::beginWatch, &dog, WatchDog::eWatchID_doOOM, 1000.0).join();
    std::bind(&WatchDog::stopWatch, &dog, std::placeholders::_1)(WatchDog::eWatchID_doOOM);
    EXPECT_TRUE(dog.checkTimers().empty());
}

TEST(ExistingExpressionsTest, GuardsDeduceWhatTheyHold) {
    Mutex mutex;
    ConditionVariable condition;
    { const AutoLock lock(mutex); }
    { const AutoLock lock(*mutex.nativeHandle()); }
    { const LockGuard<pthread_mutex_t> lock(mutex); }
    UniqueLock lock(mutex);
    EXPECT_TRUE((std::is_same_v<decltype(lock), UniqueLock<pthread_mutex_t>>));
    condition.notify_one();
}

}  // namespace

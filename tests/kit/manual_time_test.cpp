// What of the library obeys the kit's clock, and in what order.
#include "testkit/manual_time.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/synchronization.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"
#include "kit/story.h"
#include "testkit/spy_hub.h"
#include "testkit/watchdog_reports.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::event_dispatcher::evtdispch_register_hub;
using tevalon::base::event_dispatcher::evtdispch_unregister_hub;
using tevalon::base::event_dispatcher::kEventResultTimeout;
using tevalon::testkit::advance;
using tevalon::testkit::runUntilIdle;
using tevalon::testkit::SpyHub;
using tevalon::testkit::WatchdogReports;

constexpr int kModule = 80;

// Seconds on the clock since the object was made.
class StopWatch {
public:
    double seconds() const { return now() - m_begin; }

private:
    static double now() { return tevalon::base::monotonicSeconds(); }
    const double m_begin = now();
};

TEST(ManualTimeTest, TheClocksStandStill) {
    const auto steady = std::chrono::steady_clock::now();
    const auto system = std::chrono::system_clock::now();

    EXPECT_EQ(std::chrono::steady_clock::now(), steady);
    EXPECT_EQ(std::chrono::system_clock::now(), system);
}

TEST(ManualTimeTest, TheTestTurnsTheClocks) {
    const auto steady = std::chrono::steady_clock::now();
    const auto system = std::chrono::system_clock::now();

    advance(90min);

    EXPECT_EQ(std::chrono::steady_clock::now() - steady, 90min);
    EXPECT_EQ(std::chrono::system_clock::now() - system, 90min);
}

TEST(ManualTimeTest, ASleepOfTheTestTakesItsTimeOnTheClockAlone) {
    const StopWatch watch;

    (void)sleep(3600);
    (void)usleep(500000);

    EXPECT_NEAR(watch.seconds(), 3600.5, 1e-6);
}

TEST(ManualTimeTest, AHubHandlesNothingUntilItIsRun) {
    std::vector<int> handled;
    EventHub hub(kModule);
    hub.registerHandler(1, [&](const std::shared_ptr<BrowserEvent>&) { handled.push_back(1); });
    hub.registerHandler(2, [&](const std::shared_ptr<BrowserEvent>&) { handled.push_back(2); });
    evtdispch_register_hub(&hub);
    hub.sendEvent(hub.createEvent(1), kModule);
    hub.sendEvent(hub.createEvent(2), kModule);
    EXPECT_THAT(handled, IsEmpty());

    runUntilIdle();

    EXPECT_THAT(handled, ElementsAre(1, 2));
    evtdispch_unregister_hub(&hub);
}

TEST(ManualTimeTest, HubsRunInTheOrderInWhichTheyWereGivenSomething) {
    test::Story story;
    EventHub first(kModule);
    EventHub second(kModule + 1);
    first.registerHandler(1, [&](const std::shared_ptr<BrowserEvent>&) {
        story.add("first");
        first.sendEvent(first.createEvent(1), kModule + 1);
    });
    second.registerHandler(1, [&](const std::shared_ptr<BrowserEvent>&) { story.add("second"); });
    evtdispch_register_hub(&first);
    evtdispch_register_hub(&second);
    runUntilIdle();  // Both threads have begun.
    for (int i = 0; i < 50; ++i) {
        story.clear();
        second.sendEvent(second.createEvent(1), kModule + 1);
        first.sendEvent(first.createEvent(1), kModule);

        runUntilIdle();

        EXPECT_THAT(story.events(), ElementsAre("second", "first", "second")) << "in round " << i;
    }
    evtdispch_unregister_hub(&first);
    evtdispch_unregister_hub(&second);
}

// The library's own waits of some microseconds (spins, naps) must neither move the clock nor
// leave an event unhandled.
TEST(ManualTimeTest, RunningUntilIdleTakesNoTime) {
    SpyHub spy(kModule);
    spy.answer(1, 7).take(2);
    EventHub asking(kModule + 1);
    const StopWatch watch;

    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(asking.sendEventSync(asking.createEvent(1), kModule, -1), 7);
        spy.send(2, kModule);
        runUntilIdle();
    }

    EXPECT_EQ(spy.count(2), 200U);
    EXPECT_EQ(watch.seconds(), 0.0);
}

TEST(ManualTimeTest, ASynchronousSendTimesOutOnTheClock) {
    SpyHub spy(kModule);
    spy.take(1);
    EventHub asking(kModule + 1);
    const StopWatch watch;

    EXPECT_EQ(asking.sendEventSync(asking.createEvent(1), kModule, 60000), kEventResultTimeout);

    EXPECT_NEAR(watch.seconds(), 60, 1e-6);
    EXPECT_EQ(spy.count(1), 1U);
}

TEST(ManualTimeTest, ASynchronousSendIsAnsweredByWhatTimeBrings) {
    SpyHub spy(kModule);
    spy.answer(1, [](const SpyHub::Event&) {
        (void)sleep(10);
        return 5;
    });
    EventHub asking(kModule + 1);
    const StopWatch watch;

    EXPECT_EQ(asking.sendEventSync(asking.createEvent(1), kModule, 60000), 5);

    EXPECT_NEAR(watch.seconds(), 10, 1e-6);
}

TEST(ManualTimeTest, TasksRunWhenTheyAreDueAndInThatOrder) {
    std::vector<std::string> story;
    const StopWatch watch;
    tevalon::base::timer::TimerThread thread;
    const auto note = [&](const char* name) {
        return [&, name] { story.push_back(name + std::to_string(watch.seconds())); };
    };
    thread.post(note("third "), 30s);
    thread.post(note("first "), 10s);
    thread.post(note("second "), 20s);
    runUntilIdle();
    EXPECT_THAT(story, IsEmpty());

    advance(9999ms);
    EXPECT_THAT(story, IsEmpty());
    advance(1ms);
    EXPECT_THAT(story, ElementsAre("first 10.000000"));
    advance(1h);

    EXPECT_THAT(story, ElementsAre("first 10.000000", "second 20.000000", "third 30.000000"));
}

// A task thread reckons in floating-point seconds since the machine was started, and rounds up.
TEST(ManualTimeTest, ATaskRunsAtItsTimeHoweverThatIsRounded) {
    constexpr int kTasks = 200;
    tevalon::base::timer::TimerThread thread;
    int run = 0;
    for (int task = 1; task <= kTasks; ++task) {
        thread.post([&run] { ++run; }, std::chrono::milliseconds(task));
        advance(std::chrono::milliseconds(task));
        ASSERT_EQ(run, task);
    }
}

TEST(ManualTimeTest, SimpleTimersExpireOnTheClock) {
    using tevalon::base::simple_timer::Timer;
    int onceExpired = 0;
    int periods = 0;
    Timer once(
        "once", 10s, [&](Timer*, void*) { ++onceExpired; }, nullptr,
        tevalon::base::simple_timer::ONCE);
    Timer periodic(
        "periodic", 3s, [&](Timer*, void*) { ++periods; }, nullptr,
        tevalon::base::simple_timer::CONTINUE);
    once.start();
    periodic.start();

    advance(9s);
    EXPECT_EQ(onceExpired, 0);
    EXPECT_EQ(periods, 3);
    advance(1s);
    EXPECT_EQ(onceExpired, 1);
    once.restart();
    advance(1h);

    EXPECT_EQ(onceExpired, 2);
    EXPECT_FALSE(once.isStarted());
    EXPECT_EQ(periods, 1203);
    periodic.stop();
}

TEST(ManualTimeTest, WatchesAreOverdueOnTheClock) {
    WatchdogReports reports;
    tevalon::base::timer::WatchDog dog;
    const tevalon::base::timer::NamedWatch watch(dog, "tune", 2s, reports.callback());

    advance(1900ms);
    EXPECT_THAT(reports.all(), IsEmpty());
    advance(300ms);

    ASSERT_EQ(reports.all().size(), 1U);
    EXPECT_EQ(reports.all()[0].name, "tune");
    EXPECT_NEAR(reports.all()[0].seconds, 2.1, 0.1001);
}

TEST(ManualTimeTest, TimeLimitsOfLocksAndConditionsAreOnTheClock) {
    tevalon::base::Mutex mutex;
    tevalon::base::ConditionVariable condition;
    tevalon::base::UniqueLock lock(mutex);
    const StopWatch watch;

    EXPECT_FALSE(condition.wait_for(lock, 5s, [] { return false; }));

    EXPECT_NEAR(watch.seconds(), 5, 1e-6);
}

class Counting : public tevalon::base::Threading::Runnable {
public:
    explicit Counting(int intervalMs) : Runnable(intervalMs) {}
    void execute() override { ++rounds; }

    std::atomic<int> rounds{0};
};

TEST(ManualTimeTest, ARunnablesIntervalIsOnTheClock) {
    Counting counting(1000);
    tevalon::base::Threading::BasicThread<Counting> thread(&counting);

    advance(3500ms);

    EXPECT_EQ(counting.rounds, 3);
    counting.stop();
    thread.end();
}

}  // namespace

// What the library's threads cost while there is nothing to do: next to no processor time, and no
// more wake-ups than their periods say. The results of the other tests are the same for a thread
// that never sleeps.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading.h"
#include "base/timer.h"
#include "support/event.h"
#include "support/log_capture.h"
#include "thread_account.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using namespace tevalon::base::timer;
namespace simple = tevalon::base::simple_timer;

constexpr int kHourMs = 3600 * 1000;
constexpr simple::TimeoutTime kHour{3600, 0, 0};
constexpr simple::TimeoutTime kSoon{0, 1, 0};

// Whole orders of magnitude above what is meant, and below what a loop without a wait makes.
constexpr double kMostCpuShare = 0.1;
constexpr double kWakesByItself = 5;  // None; what is left of its start may fall in here.
constexpr double kWakesOncePerSecond = 10;
constexpr double kWakesTenTimesPerSecond = 100;

/// Threads, and how often each may wake.
class Watched {
public:
    void add(const std::string& name, double mostWakeUpsPerSecond, pid_t thread) {
        m_services.push_back({name, mostWakeUpsPerSecond, thread});
    }

    /// Looks at all of them for two seconds. Time itself is what is tested here.
    void expectIdle() const {
        using Clock = std::chrono::steady_clock;
        std::vector<test::ThreadAccount> before;
        const auto begin = Clock::now();
        for (const Service& service : m_services) before.push_back(test::accountOf(service.thread));
        std::this_thread::sleep_for(std::chrono::seconds(2));
        const std::chrono::duration<double> passed = Clock::now() - begin;
        for (std::size_t i = 0; i < m_services.size(); ++i) {
            const test::ThreadAccount after = test::accountOf(m_services[i].thread);
            EXPECT_LE((after.cpuSeconds - before[i].cpuSeconds) / passed.count(), kMostCpuShare)
                << m_services[i].name;
            EXPECT_LE(static_cast<double>(after.wakeUps - before[i].wakeUps) / passed.count(),
                      m_services[i].mostWakeUpsPerSecond)
                << m_services[i].name;
        }
    }

private:
    struct Service {
        std::string name;
        double mostWakeUpsPerSecond;
        pid_t thread;
    };

    std::vector<Service> m_services;
};

using Post = std::function<void(std::shared_ptr<TimerTaskBase>)>;

/// Fires a task and returns the thread on which it fired.
pid_t threadOf(const Post& post) {
    test::Event fired;
    pid_t thread = 0;
    post(std::make_shared<CallableTimerTask>([&] {
        thread = currentThread();
        fired.set();
    }));
    EXPECT_TRUE(fired.wait());
    return thread;
}

pid_t threadOf(TimerThread& thread) {
    return threadOf([&](auto task) { thread.postTask(std::move(task), 0); });
}

/// The process's one scheduler of simple timers.
pid_t simpleTimerScheduler() {
    static const pid_t s_thread = test::threadMadeBy([] {
        const simple::Timer first(
            "first", kHour, [](simple::Timer*, void*) {}, nullptr, simple::ONCE);
    });
    return s_thread;
}

/// A hub with a handler, and its thread.
class Hub {
public:
    Hub()
        : m_thread(test::threadMadeBy([this] {
              (void)m_hub.registerHandler(
                  kType, [this](std::shared_ptr<BrowserEvent>) { m_handled.arrive(); });
          })) {}

    pid_t thread() const { return m_thread; }

    void handle(int count) {
        m_handled.reset(count);
        for (int i = 0; i < count; ++i) (void)m_hub.receiveEvent(m_hub.createEvent(kType));
        EXPECT_TRUE(m_handled.wait());
    }

private:
    static constexpr std::int32_t kType = 5;

    test::Countdown m_handled{1};
    EventHub m_hub{3};
    const pid_t m_thread;
};

/// A thread that waits for a reply.
class Waiter {
public:
    explicit Waiter(std::int32_t timeout) {
        (void)m_event.initWaitResultCv();
        m_id = test::threadMadeBy([&] {
            m_thread = std::thread([this, timeout] { (void)m_event.waitForResult(timeout); });
        });
    }
    ~Waiter() {
        m_event.replyResult(0);
        m_thread.join();
    }

    pid_t thread() const { return m_id; }

private:
    BrowserEvent m_event{3, 5, nullptr};
    std::thread m_thread;
    pid_t m_id = 0;
};

class PausedRunnable : public Threading::Runnable {
public:
    PausedRunnable() : Runnable(0) {
        pause();
        m_id = test::threadMadeBy([&] { m_thread = std::thread([this] { (void)run(); }); });
    }
    ~PausedRunnable() override {
        stop();
        m_thread.join();
    }

    pid_t thread() const { return m_id; }

    void execute() override {}

private:
    std::thread m_thread;
    pid_t m_id = 0;
};

class IdleTest : public testing::Test {
protected:
    // The thread sanitizer makes a thread of its own beside the first one of the program.
    IdleTest() {
        std::thread([] {}).join();
    }

    test::LogCapture m_log{kLogError};
    Watched m_watched;
};

TEST_F(IdleTest, ThreadsSleepBeforeTheirFirstWork) {
    TimerThread timerThread;
    m_watched.add("timer thread", kWakesOncePerSecond,
                  test::threadMadeBy([&] { timerThread.start(); }));
    m_watched.add("simple timer", kWakesByItself, simpleTimerScheduler());
    const Hub hub;
    m_watched.add("event hub", kWakesByItself, hub.thread());
    std::unique_ptr<WatchDog> watchDog;
    m_watched.add("watchdog", kWakesTenTimesPerSecond,
                  test::threadMadeBy([&] { watchDog = std::make_unique<WatchDog>(); }));
    const Waiter patient(-1);
    m_watched.add("wait without limit", kWakesByItself, patient.thread());
    const PausedRunnable runnable;
    m_watched.add("paused runnable", kWakesByItself, runnable.thread());

    m_watched.expectIdle();
}

TEST_F(IdleTest, ThreadsSleepOnceTheirWorkIsDone) {
    TimerThread timerThread;
    m_watched.add("timer thread", kWakesOncePerSecond, threadOf(timerThread));
    m_watched.add("main thread", kWakesOncePerSecond,
                  threadOf(&TimerThreadPool::postMainThreadTask));
    m_watched.add("foreground thread", kWakesOncePerSecond,
                  threadOf(&TimerThreadPool::postForegroundTask));
    m_watched.add("background thread", kWakesOncePerSecond,
                  threadOf(&TimerThreadPool::postBackgroundTask));
    m_watched.add("worker", kWakesOncePerSecond, threadOf(&TimerThreadPool::postWorkerTask));
    m_watched.add("simple timer", kWakesByItself, simpleTimerScheduler());
    test::Event fired;
    simple::Timer timer(
        "timer", kSoon, [&](simple::Timer*, void*) { fired.set(); }, nullptr, simple::ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(fired.wait());
    Hub hub;
    m_watched.add("event hub", kWakesByItself, hub.thread());
    hub.handle(100);

    m_watched.expectIdle();
    (void)timer.stop();
}

TEST_F(IdleTest, ThreadsSleepUntilTheirWorkIsDue) {
    const auto task = [] { return std::make_shared<CallableTimerTask>([] {}); };
    TimerThread hour;
    m_watched.add("timer thread, hour", kWakesByItself, threadOf(hour));
    hour.postTask(task(), kHourMs);
    TimerThread never;
    m_watched.add("timer thread, never", kWakesByItself, threadOf(never));
    const auto neverDue = task();
    neverDue->setNextFireTime(std::numeric_limits<double>::infinity());
    never.postTask(neverDue);
    m_watched.add("simple timer", kWakesByItself, simpleTimerScheduler());
    simple::Timer timer(
        "timer", kHour, [](simple::Timer*, void*) {}, nullptr, simple::CONTINUE);
    ASSERT_EQ(timer.start(), 0);
    std::unique_ptr<WatchDog> watchDog;
    m_watched.add("watchdog", kWakesTenTimesPerSecond,
                  test::threadMadeBy([&] { watchDog = std::make_unique<WatchDog>(); }));
    watchDog->beginWatch(WatchDog::eWatchID_StartUp, 3600);
    const Waiter waiter(kHourMs);
    m_watched.add("wait with a limit", kWakesByItself, waiter.thread());

    m_watched.expectIdle();
    (void)timer.stop();
}

}  // namespace

// Forks while another thread is just inside of one lock of the library, for each of its locks in
// turn: no child waits for it.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading.h"
#include "base/timer.h"
#include "ends/forked_child.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;
using simple_timer::Timer;
using timer::CallableTimerTask;
using timer::NamedWatch;
using timer::TimerThread;
using timer::TimerThreadPool;
using timer::WatchDog;

constexpr std::int32_t kModule = 7;
constexpr std::int32_t kAsk = 1;
constexpr std::int32_t kLateMs = 3600 * 1000;

/// One object of each class that has locks or threads.
class Objects {
public:
    Objects() {
        (void)m_hub.registerHandler(
            kAsk, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(42); });
    }

    /// Everything that takes a lock, and what it starts to its end. Never waits for long.
    bool use() {
        return useTimer() && useThread(m_thread) && usePool() && useHub() && useWatchDogs() &&
               useJob();
    }

private:
    bool useTimer() {
        // The second run may begin when this has returned.
        const auto fired = std::make_shared<test::Event>();
        const auto tell = [fired](Timer*, void*) { fired->set(); };
        bool isDone = m_timer.changeHandler(tell, nullptr) == 0 && m_timer.start() == 0 &&
                      fired->wait() && m_timer.restart() == 0 && m_timer.stop() == 0;
        Timer late(
            "late", {3600, 0, 0}, [](Timer*, void*) {}, nullptr, simple_timer::CONTINUE);
        isDone = isDone && late.start() == 0 && late.stopNoBlock() == 0 && late.start() == 0;
        return isDone;
    }

    static bool useThread(TimerThread& thread) {
        test::Event fired;
        thread.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
        thread.postTask(std::make_shared<CallableTimerTask>([&] { fired.set(); }), 0);
        if (!fired.wait()) return false;
        thread.cancelTaskByTaskId(0);
        (void)thread.isBusy();
        (void)thread.hasTask();
        thread.stop();
        (void)thread.popFirstTask();  // If it has not been dropped.
        return !thread.hasTask();
    }

    static bool usePool() {
        test::Countdown fired(2);
        auto task = std::make_shared<CallableTimerTask>([&] { fired.arrive(); });
        task->setNextFireTime(0.001);
        TimerThreadPool::postMainThreadTask(task);
        TimerThreadPool::postWorkerTask(task);
        const bool areFired = fired.wait();
        while (task.use_count() > 1) std::this_thread::yield();  // The tasks use what is here.
        return areFired;
    }

    bool useHub() {
        const bool isRegistered = event_dispatcher::evtdispch_register_hub(&m_hub) == 0;
        const bool isAnswered = m_hub.sendEventSync(m_hub.createEvent(kAsk), kModule, -1) == 42;
        // Starts the thread again, after a teardown.
        const std::int32_t type = ++m_types;
        const bool isAdded =
            m_hub.registerHandler(type, [](const std::shared_ptr<BrowserEvent>&) {}) == 0;
        (void)event_dispatcher::evtdispch_unregister_hub(&m_hub);
        return isRegistered && isAdded && isAnswered &&
               m_hub.registerHandler(++m_types, [](const std::shared_ptr<BrowserEvent>&) {}) == 0;
    }

    bool useWatchDogs() {
        m_dog.beginWatch(WatchDog::eWatchID_app_show, 3600.0);
        timer::GlobalWatchDog()->beginWatch(WatchDog::eWatchID_app_show, 3600.0);
        timer::GlobalWatchDog()->stopWatch(WatchDog::eWatchID_app_show);
        m_dog.stopWatch(WatchDog::eWatchID_app_show);
        m_watch.restart();
        const NamedWatch another(m_dog, "another", 3600.0, ignore);
        return m_dog.checkTimers().empty();
    }

    static void ignore(const std::string& /*name*/, double /*seconds*/) {}

    bool useJob() {
        m_job.pause();
        const bool isPaused = !m_job.running();
        m_job.resume();
        return isPaused && m_job.running();
    }

    class Job : public Threading::Runnable {
    public:
        Job() : Runnable(-1) {}
        void execute() override {}
    };

    Timer m_timer{"inherited", {0, 0, 500}, [](Timer*, void*) {}, nullptr, simple_timer::ONCE};
    TimerThread m_thread;
    EventHub m_hub{kModule};
    std::int32_t m_types = 100;
    WatchDog m_dog;
    NamedWatch m_watch{m_dog, "watch", 3600.0, ignore};
    Job m_job;
};

TEST(ForkAtLocksTest, NoChildWaitsForALockThatIsHeldInItsParent) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::setLogLevel(0);  // The substitute's locks, which a fork waits for, are its own affair.
    auto objects = std::make_unique<Objects>();
    ASSERT_TRUE(objects->use());

    int forks = 0;
    for (bool isHeld = true; isHeld; ++forks) {
        test::Event ends;  // The use of the objects, or its lock is held.
        test::Event isForked;
        std::atomic<bool> wasHeld{false};
        std::atomic<bool> isUsed{false};
        {
            const test::RunAtCall holdTheLock(
                test::Call::PthreadMutexUnlock,
                [&] {
                    wasHeld = true;
                    ends.set();
                    (void)isForked.wait();
                },
                test::When().anyThread().nth(forks + 1));
            std::thread user([&] {
                isUsed = objects->use();
                ends.set();
            });
            ASSERT_TRUE(ends.wait());
            isHeld = wasHeld && !HasFailure();
            if (isHeld) {
                EXPECT_EQ(test::runInForkedChild([&] { objects.reset(); }), 0)
                    << "destroyed at lock " << forks + 1;
                EXPECT_EQ(test::runInForkedChild([&] {
                              CHECK_IN_CHILD(objects->use());
                              CHECK_IN_CHILD((new Objects)->use());
                          }),
                          0)
                    << "used at lock " << forks + 1;
            }
            isForked.set();
            user.join();
        }
        ASSERT_TRUE(isUsed) << "after fork " << forks + 1;
    }
    EXPECT_GT(forks, 50);  // So that it is known to have come to pass.
}

}  // namespace

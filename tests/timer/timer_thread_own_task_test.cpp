// Timer threads and watchdogs that are stopped, destroyed and abandoned by what they run.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>

#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::CountCalls;
using test::LogCapture;
using test::When;

constexpr std::int32_t kHourMs = 3600 * 1000;

TEST(TimerThreadOwnTaskTest, ATaskMayStopItsThread) {
    FireLog fired;
    LogCapture log(kLogAlways);
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        thread.stop();
                        fired.add(1);
                    }),
                    0);

    ASSERT_TRUE(fired.waitFor(1));
    EXPECT_TRUE(log.waitFor("Exiting Timer Thread..."));

    thread.postTask(makeTask([&] { fired.add(2); }), 0);
    EXPECT_TRUE(fired.waitFor(2));
}

TEST(TimerThreadOwnTaskTest, APostInATaskThatHasStoppedItsThreadHasItGoOn) {
    FireLog fired;
    CountCalls threads(Call::PthreadCreate, When().anyThread());
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        thread.stop();
                        thread.postTask(makeTask([&] { fired.add(2); }), 0);
                        fired.add(1);
                    }),
                    0);

    ASSERT_TRUE(fired.waitFor(2));
    EXPECT_EQ(threads.seen(), 1);
}

TEST(TimerThreadOwnTaskTest, NeverDoTwoThreadsFireTasksAtOnce) {
    FireLog fired;
    std::atomic<int> inside{0};
    std::atomic<bool> wereTwo{false};
    test::Event stopped;
    test::Event release;
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        if (++inside > 1) wereTwo = true;
                        thread.stop();
                        stopped.set();
                        (void)release.wait();
                        --inside;
                        fired.add(1);
                    }),
                    0);
    ASSERT_TRUE(stopped.wait());

    thread.postTask(makeTask([&] {
                        if (++inside > 1) wereTwo = true;
                        --inside;
                        fired.add(2);
                    }),
                    0);
    release.set();

    EXPECT_TRUE(fired.waitFor(2));
    EXPECT_FALSE(wereTwo);
}

TEST(TimerThreadOwnTaskTest, StoppedAndPostedToAtAnyMomentItFiresEverything) {
    FireLog fired;
    TimerThread thread;
    constexpr int kRounds = 500;
    for (int round = 1; round <= kRounds; ++round) {
        thread.postTask(makeTask([&] {
                            thread.stop();
                            fired.add(1);
                        }),
                        0);
        ASSERT_TRUE(fired.waitFor(static_cast<std::size_t>(round)));
    }
}

TEST(TimerThreadOwnTaskTest, AStopElsewhereWaitsForATaskThatStopsToo) {
    FireLog fired;
    test::Event entered;
    test::Event joining;
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        entered.set();
                        (void)joining.wait();
                        thread.stop();
                        fired.add(1);
                    }),
                    0);
    ASSERT_TRUE(entered.wait());
    test::RunAtCall atJoin(Call::PthreadJoin, [&] { joining.set(); });

    thread.stop();

    EXPECT_EQ(fired.fired().size(), 1U);
}

TEST(TimerThreadOwnTaskTest, ATaskMayDestroyItsThread) {
    LogCapture log(kLogAlways);
    FireLog fired;
    auto* const p_thread = new TimerThread;
    const auto held = std::make_shared<int>(7);
    int seen = 0;
    const std::weak_ptr<TestTask> queued = [&] {
        const auto task = makeTask([&] { fired.add(99); });
        p_thread->postTask(task, kHourMs);
        return task;
    }();
    p_thread->postTask(makeTask([&, held, p_thread] {
                           delete p_thread;
                           seen = *held;
                           EXPECT_TRUE(queued.expired());
                           fired.add(1);
                       }),
                       0);

    EXPECT_TRUE(fired.waitFor(1));
    EXPECT_EQ(seen, 7);
    EXPECT_TRUE(log.waitFor("Exiting Timer Thread..."));
}

TEST(TimerThreadOwnTaskTest, AfterPthreadExitTheNextPostStartsAWorker) {
    FireLog fired;
    test::Event entered;
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        entered.set();
                        pthread_exit(nullptr);
                    }),
                    0);
    ASSERT_TRUE(entered.wait());
    while (thread.isBusy()) std::this_thread::yield();  // Until it has left.

    thread.postTask(makeTask([&] { fired.add(1); }), 0);

    EXPECT_TRUE(fired.waitFor(1));
}

TEST(TimerThreadOwnTaskTest, PthreadExitDoesNotHangStopNorDestruction) {
    test::Event entered;
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        entered.set();
                        pthread_exit(nullptr);
                    }),
                    0);
    ASSERT_TRUE(entered.wait());

    thread.stop();
}

TEST(TimerThreadOwnTaskTest, AWatchdogsCallbackMayDestroyIt) {
    test::Event destroyed;
    struct Context {
        WatchDog* p_dog;
        test::Event* p_destroyed;
    };
    Context context = {new WatchDog, &destroyed};
    context.p_dog->setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID, double) {
            auto* const self = static_cast<Context*>(p_context);
            delete self->p_dog;
            self->p_destroyed->set();
        },
        &context);

    context.p_dog->beginWatch(WatchDog::eWatchID_app_show, 0.0);

    EXPECT_TRUE(destroyed.wait());
}

/// Tells when its thread ends.
struct AtThreadEnd {
    test::Event* p_event = nullptr;
    ~AtThreadEnd() {
        if (p_event != nullptr) p_event->set();
    }
};

// It neither looks at another watch nor sleeps.
TEST(TimerThreadOwnTaskTest, AWatchdogsThreadEndsWhereItsCallbackHasDestroyedIt) {
    struct Context {
        WatchDog* p_dog = new WatchDog;
        test::Event hasEnded;
        std::optional<CountCalls> reads;
        std::optional<CountCalls> sleeps;
    };
    Context context;
    context.p_dog->setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID, double) {
            static thread_local AtThreadEnd t_atEnd;
            auto* const self = static_cast<Context*>(p_context);
            t_atEnd.p_event = &self->hasEnded;
            delete self->p_dog;
            self->reads.emplace(Call::ClockGettime);
            self->sleeps.emplace(Call::Nanosleep);
        },
        &context);

    context.p_dog->beginWatch(WatchDog::eWatchID_app_show, 0.0);

    ASSERT_TRUE(context.hasEnded.wait());
    EXPECT_EQ(context.reads->seen(), 0);
    EXPECT_EQ(context.sleeps->seen(), 0);
}

TEST(TimerThreadOwnTaskTest, AWatchdogsCallbackMayEndItsThread) {
    test::Event entered;
    WatchDog dog;
    dog.setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID, double) {
            static_cast<test::Event*>(p_context)->set();
            pthread_exit(nullptr);
        },
        &entered);
    dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);

    EXPECT_TRUE(entered.wait());
}  // The destructor does not wait for ever.

// The destructor joins, which is a cancellation point.
TEST(TimerThreadOwnTaskTest, ACancelledThreadDestroysItsWatchdogAndItsThread) {
    bool isDone = false;
    std::thread([&] {
        auto dog = std::make_unique<WatchDog>();
        auto thread = std::make_unique<TimerThread>();
        thread->postTask(makeTask([] {}), kHourMs);
        (void)pthread_cancel(pthread_self());
        dog.reset();
        thread.reset();
        isDone = true;
        // The cancellation stays pending: no sanitizer is to see the thread unwound.
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    }).join();

    EXPECT_TRUE(isDone);
}

TEST(TimerThreadOwnTaskTest, AWatchdogsPassNeedsNoMemory) {
    LogCapture log(kLogError);
    WatchDog dog;
    {
        test::FailCall noMemory(Call::New, ENOMEM, When().anyThread().everyTime());
        const test::PassCalls pass;

        dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);

        EXPECT_TRUE(log.waitFor("Watch dog Timeout : 20(eWatchID_app_show) ,  "));
    }
    dog.stopWatch(WatchDog::eWatchID_app_show);
}

}  // namespace

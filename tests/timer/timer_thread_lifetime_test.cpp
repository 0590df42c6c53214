// Starting, stopping and restarting a TimerThread, from many sides at once.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>

#include "support/signal_storm.h"
#include "support/threads.h"
#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::LogCapture;
using test::When;

class TimerThreadLifetimeTest : public testing::Test {
protected:
    LogCapture m_log{kLogError};
    Holder m_holder;
};

TEST_F(TimerThreadLifetimeTest, StopWithoutAThreadDoesNothing) {
    TimerThread thread;
    test::CountCalls joins(Call::PthreadJoin);

    thread.stop();
    thread.stop();

    EXPECT_EQ(joins.seen(), 0);
}

TEST_F(TimerThreadLifetimeTest, StopWaitsForTheTaskInHand) {
    TimerThread thread;
    bool hasFinished = false;  // Seen through the join.
    test::Event entered;
    test::Event release;
    thread.postTask(makeTask([&] {
                        entered.set();
                        (void)release.wait();
                        hasFinished = true;
                    }),
                    0);
    ASSERT_TRUE(entered.wait());
    test::Event joining;
    test::RunAtCall atJoin(
        Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());

    std::thread stopping([&] {
        thread.stop();
        EXPECT_TRUE(hasFinished);
    });
    ASSERT_TRUE(joining.wait());
    release.set();
    stopping.join();

    EXPECT_TRUE(hasFinished);
}

TEST_F(TimerThreadLifetimeTest, StopKeepsTheQueueAndTheNextPostRunsIt) {
    TimerThread thread;
    FireLog fires;
    ASSERT_TRUE(m_holder.hold(thread));
    const std::int32_t firstId = thread.threadId();
    thread.postTask(makeTask([&] { fires.add(1); }, 0.1));
    thread.postTask(makeTask([&] { fires.add(2); }, 0.2));
    test::Event joining;
    {
        test::RunAtCall atJoin(
            Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());
        std::thread stopping([&] { thread.stop(); });
        ASSERT_TRUE(joining.wait());
        m_holder.letGo();
        stopping.join();
    }
    EXPECT_EQ(thread.taskCount(), 2);
    EXPECT_TRUE(fires.fired().empty());
    EXPECT_FALSE(thread.isBusy());
    EXPECT_EQ(thread.threadId(), firstId);  // Not reset when the thread ends.

    thread.postTask(makeTask([&] { fires.add(3); }), 0);

    ASSERT_TRUE(fires.waitFor(3));
    EXPECT_EQ(fires.fired(), (std::vector<int>{1, 2, 3}));
    EXPECT_NE(thread.threadId(), firstId);
}

TEST_F(TimerThreadLifetimeTest, APostDuringStopIsQueuedAndKeepsNoThreadAlive) {
    TimerThread thread;
    FireLog fires;
    ASSERT_TRUE(m_holder.hold(thread));
    {
        test::Event joining;
        test::RunAtCall atJoin(
            Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());
        std::thread stopping([&] { thread.stop(); });
        const bool isJoining = joining.wait();
        test::CountCalls created(Call::PthreadCreate, When().anyThread());

        thread.postTask(makeTask([&] { fires.add(1); }), 0);
        m_holder.letGo();
        stopping.join();

        EXPECT_TRUE(isJoining);
        EXPECT_EQ(created.seen(), 0);
        EXPECT_EQ(thread.taskCount(), 1);
        EXPECT_TRUE(fires.fired().empty());
    }

    test::CountCalls created(Call::PthreadCreate, When().anyThread());
    thread.postTask(makeTask([&] { fires.add(2); }), 0);

    ASSERT_TRUE(fires.waitFor(2));
    EXPECT_EQ(fires.fired(), (std::vector<int>{1, 2}));
    EXPECT_EQ(created.seen(), 1);
}

TEST_F(TimerThreadLifetimeTest, AThreadThatWaitsIsWokenByStop) {
    TimerThread thread;
    thread.postTask(makeTask([] {}), 1000 * 1000 * 1000);

    thread.stop();

    EXPECT_EQ(thread.taskCount(), 1);
}

TEST_F(TimerThreadLifetimeTest, DestructionLetsGoOfTheQueueUnfired) {
    bool hasFired = false;
    const auto task = makeTask([&] { hasFired = true; });
    {
        TimerThread thread;
        thread.postTask(task, 1000 * 1000 * 1000);
        EXPECT_EQ(task.use_count(), 2);
    }
    EXPECT_EQ(task.use_count(), 1);
    EXPECT_FALSE(hasFired);
}

TEST_F(TimerThreadLifetimeTest, DestructionWaitsForTheTaskInHand) {
    bool hasFinished = false;
    test::Event entered;
    test::Event release;
    auto thread = std::make_unique<TimerThread>();
    thread->postTask(makeTask([&] {
                         entered.set();
                         (void)release.wait();
                         hasFinished = true;
                     }),
                     0);
    ASSERT_TRUE(entered.wait());
    test::RunAtCall atJoin(Call::PthreadJoin, [&] { release.set(); });

    thread.reset();

    EXPECT_TRUE(hasFinished);
}

TEST_F(TimerThreadLifetimeTest, MayBeDestroyedWhileItsTaskHasItStopAndGoOn) {
    std::atomic<bool> hasPosted{false};  // Relaxed, so that it orders nothing else.
    TimerThread thread;
    thread.postTask(makeTask([&] {
                        thread.stop();
                        thread.postTask(makeTask([] {}), 0);
                        hasPosted.store(true, std::memory_order_relaxed);
                    }),
                    0);

    while (!hasPosted.load(std::memory_order_relaxed)) std::this_thread::yield();
}

TEST_F(TimerThreadLifetimeTest, StartMakesTheThreadBeforeAnyPost) {
    TimerThread thread;
    test::CountCalls created(Call::PthreadCreate);

    thread.start();
    test::Event fired;
    thread.postTask(makeTask([&] { fired.set(); }), 0);

    EXPECT_TRUE(fired.wait());
    EXPECT_EQ(created.seen(), 1);
}

TEST_F(TimerThreadLifetimeTest, ThreadsHaveAName) {
    TimerThread thread;
    std::string name;
    test::Event fired;
    thread.postTask(makeTask([&] {
                        char text[16] = "";
                        (void)pthread_getname_np(pthread_self(), text, sizeof(text));
                        name = text;
                        fired.set();
                    }),
                    0);
    ASSERT_TRUE(fired.wait());

    char own[16] = "";
    (void)pthread_getname_np(pthread_self(), own, sizeof(own));
    EXPECT_FALSE(name.empty());
    EXPECT_NE(name, own);  // A thread inherits its maker's.
}

TEST_F(TimerThreadLifetimeTest, SignalsChangeNothing) {
    test::SignalStorm storm;
    TimerThread thread;
    FireLog fires;
    std::atomic<int> early{0};
    for (int n = 0; n < 50; ++n) {
        const double due = monotonicNow() + 0.002 * n;
        thread.postTask(makeTask(
            [&, n, due] {
                if (monotonicNow() < due) ++early;
                fires.add(n);
            },
            due));
    }
    thread.postTask(makeTask([&] { fires.add(-1); }), 3600 * 1000);

    storm.blow(300);

    ASSERT_TRUE(fires.waitFor(50));
    thread.stop();
    std::vector<int> expected;
    for (int n = 0; n < 50; ++n) expected.push_back(n);
    EXPECT_EQ(fires.fired(), expected);
    EXPECT_EQ(early, 0);
    EXPECT_EQ(thread.taskCount(), 1);
}

TEST_F(TimerThreadLifetimeTest, OneThreadIsMadeByPostsAtOnce) {
    constexpr int kPosters = 4;
    for (int round = 0; round < 20; ++round) {
        TimerThread thread;
        test::Countdown fired(kPosters);
        test::CountCalls created(Call::PthreadCreate, When().anyThread());
        test::runAtOnce(kPosters,
                        [&](int) { thread.postTask(makeTask([&] { fired.arrive(); }), 0); });

        EXPECT_TRUE(fired.wait());
        EXPECT_EQ(created.seen(), kPosters + 1);  // Those of the test, and one.
    }
}

TEST_F(TimerThreadLifetimeTest, ConcurrentStopsAndPostsLoseNeitherThreadsNorTasks) {
    constexpr int kPosters = 2;
    constexpr int kStoppers = 3;
    constexpr int kPosts = 400;
    constexpr int kStops = 150;
    std::atomic<int> fired{0};
    int left = 0;
    test::CountCalls created(Call::PthreadCreate, When().anyThread());
    test::CountCalls joined(Call::PthreadJoin, When().anyThread());
    {
        TimerThread thread;
        test::runAtOnce(kPosters + kStoppers, [&](int i) {
            if (i < kPosters) {
                for (int n = 0; n < kPosts; ++n) {
                    thread.postTask(makeTask([&] { ++fired; }), n % 3 - 1);
                }
            } else {
                for (int n = 0; n < kStops; ++n) thread.stop();
            }
        });
        thread.stop();
        left = thread.taskCount();
        EXPECT_EQ(fired + left, kPosters * kPosts);

        // What is left runs with the next thread.
        test::Event last;
        thread.postTask(makeTask([&] { last.set(); }, monotonicNow() + 0.002));
        EXPECT_TRUE(last.wait());
        thread.stop();
        EXPECT_EQ(thread.taskCount(), 0);
    }

    EXPECT_EQ(fired, kPosters * kPosts);
    EXPECT_EQ(joined.seen(), created.seen());
}

TEST_F(TimerThreadLifetimeTest, ASecondStopWaitsForTheTaskInHandToo) {
    TimerThread thread;
    test::Event entered;
    test::Event release;
    std::atomic<bool> hasFinished{false};
    thread.postTask(makeTask([&] {
                        entered.set();
                        (void)release.wait();
                        hasFinished = true;
                    }),
                    0);
    ASSERT_TRUE(entered.wait());
    const auto stopAndLook = [&] {
        thread.stop();
        EXPECT_TRUE(hasFinished);
    };
    test::Event joining;
    test::RunAtCall atJoin(
        Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());
    std::thread first(stopAndLook);
    const bool firstIsJoining = joining.wait();
    test::Event waiting;
    test::RunAtCall atWait(
        Call::PthreadCondWait, [&] { waiting.set(); }, When().anyThread());

    std::thread second(stopAndLook);
    const bool secondIsWaiting = waiting.wait();
    release.set();
    first.join();
    second.join();

    EXPECT_TRUE(firstIsJoining);
    EXPECT_TRUE(secondIsWaiting);
    EXPECT_FALSE(thread.isBusy());
}

TEST_F(TimerThreadLifetimeTest, ConcurrentStopsReturnAfterTheTaskInHand) {
    TimerThread thread;
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> isFiring{false};
        test::Event entered;
        thread.postTask(makeTask([&] {
                            isFiring = true;
                            entered.set();
                            std::this_thread::yield();
                            isFiring = false;
                        }),
                        0);
        ASSERT_TRUE(entered.wait());
        test::runAtOnce(3, [&](int) { thread.stop(); });
        EXPECT_FALSE(isFiring);
        EXPECT_FALSE(thread.isBusy());
    }
}

}  // namespace

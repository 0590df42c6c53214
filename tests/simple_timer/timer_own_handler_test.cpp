// Timers that are stopped, destroyed and abandoned by their own handlers.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>

#include "simple_timer/simple_timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::LogCapture;

TEST(TimerOwnHandlerTest, StopDoesNotWaitForTheRunItIsCalledIn) {
    LogCapture log(kLogAlways);
    test::Event done;
    Timer timer(
        "self", kSoon,
        [&](Timer* p_timer, void*) {
            EXPECT_EQ(p_timer->stop(), 0);
            EXPECT_FALSE(p_timer->isStarted());
            EXPECT_TRUE(p_timer->needStop());
            done.set();
        },
        nullptr, CONTINUE);

    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(done.wait());
    EXPECT_TRUE(log.waitFor("After wait timer:'self' stop."));
}

TEST(TimerOwnHandlerTest, RestartBeginsANewTimeout) {
    std::atomic<int> left{5};
    test::Event done;
    Timer timer(
        "self", kSoon,
        [&](Timer* p_timer, void*) {
            if (--left > 0) {
                EXPECT_EQ(p_timer->restart(), 0);
            } else {
                done.set();
            }
        },
        nullptr, ONCE);

    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(done.wait());
}

TEST(TimerOwnHandlerTest, TwoRunsThatStopTheirTimerDoNotWaitForEachOther) {
    test::Countdown entered(2);
    test::Countdown returned(2);
    Timer timer(
        "self", kSoon,
        [&](Timer* p_timer, void*) {
            entered.arrive();
            EXPECT_TRUE(entered.wait());
            EXPECT_EQ(p_timer->stop(), 0);
            returned.arrive();
        },
        nullptr, CONTINUE);

    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(returned.wait());
}

TEST(TimerOwnHandlerTest, MayDestroyItsTimer) {
    const auto held = std::make_shared<int>(7);
    test::Event done;
    int seen = 0;
    auto* const p_timer = new Timer(
        "self", kSoon,
        [held, &done, &seen](Timer* p_self, void*) {
            delete p_self;
            seen = *held;  // What the handler holds is there until it returns.
            done.set();
        },
        nullptr, ONCE);

    ASSERT_EQ(p_timer->start(), 0);

    EXPECT_TRUE(done.wait());
    EXPECT_EQ(seen, 7);
}

TEST(TimerOwnHandlerTest, ARunThatDestroysTheTimerWaitsForTheOthers) {
    test::Event firstEntered;
    test::Event releaseFirst;
    test::Event secondEntered;
    test::Event destroyed;
    std::atomic<bool> hasFirstReturned{false};
    std::atomic<bool> wasFirstOver{false};
    std::atomic<int> runs{0};
    auto* const p_timer = new Timer(
        "overlap", kSoon,
        [&](Timer* p_self, void*) {
            switch (++runs) {
                case 1:
                    firstEntered.set();
                    (void)releaseFirst.wait();
                    hasFirstReturned = true;
                    break;
                case 2:
                    (void)firstEntered.wait();
                    secondEntered.set();
                    delete p_self;
                    wasFirstOver = hasFirstReturned.load();
                    destroyed.set();
                    break;
                default:
                    break;
            }
        },
        nullptr, CONTINUE);
    test::Event waits;
    test::RunAtCall atWait(
        test::Call::PthreadCondWait, [&] { waits.set(); }, test::When().anyThread());

    ASSERT_EQ(p_timer->start(), 0);
    ASSERT_TRUE(secondEntered.wait());
    ASSERT_TRUE(waits.wait());
    EXPECT_FALSE(destroyed.isSet());
    releaseFirst.set();

    EXPECT_TRUE(destroyed.wait());
    EXPECT_TRUE(wasFirstOver);
}

// What a run lets go of last may be what owns the timer.
TEST(TimerOwnHandlerTest, AHandlerThatOwnsItsTimerMayBeReplacedInARun) {
    struct Owner {
        std::unique_ptr<Timer> timer;
        test::Event* p_destroyed;
        ~Owner() {
            timer.reset();
            p_destroyed->set();
        }
    };
    test::Event destroyed;
    auto owner = std::make_shared<Owner>();
    owner->p_destroyed = &destroyed;
    Owner* const p_owner = owner.get();
    p_owner->timer = std::make_unique<Timer>(
        "owned", kSoon,
        [owner](Timer* p_timer, void*) { (void)p_timer->changeHandler(ignore, nullptr); }, nullptr,
        ONCE);
    owner.reset();

    ASSERT_EQ(p_owner->timer->start(), 0);

    EXPECT_TRUE(destroyed.wait());
}

TEST(TimerOwnHandlerTest, PthreadExitEndsTheRun) {
    test::Event entered;
    {
        Timer timer(
            "exits", kSoon,
            [&](Timer*, void*) {
                entered.set();
                pthread_exit(nullptr);
            },
            nullptr, ONCE);
        ASSERT_EQ(timer.start(), 0);
        ASSERT_TRUE(entered.wait());

        EXPECT_EQ(timer.stop(), 0);
    }  // Neither waits for ever.
}

TEST(TimerOwnHandlerTest, CancellationEndsTheRun) {
    test::Event entered;
    std::atomic<pthread_t> self{};
    Timer timer(
        "cancelled", kSoon,
        [&](Timer*, void*) {
            self = pthread_self();
            entered.set();
            // Not in a call that blocks: the thread sanitizer sees no lock of a thread that is
            // cancelled in one of those that it intercepts.
            for (;;) pthread_testcancel();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(entered.wait());

    ASSERT_EQ(pthread_cancel(self), 0);

    EXPECT_EQ(timer.stop(), 0);
}

}  // namespace

// What stopping and destroying wait for, and what no handler ever sees.

#include <gtest/gtest.h>

#include "simple_timer/simple_timer_fixtures.h"
#include "support/fresh_process.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::LogCapture;
using test::When;

class TimerLifetimeTest : public testing::Test {
protected:
    /// Tells when a thread waits for the end of a handler.
    class Waiting {
    public:
        [[nodiscard]] bool wait() { return m_entered.wait(); }

    private:
        test::Event m_entered;
        test::RunAtCall m_atWait{Call::PthreadCondWait, [this] { m_entered.set(); },
                                 When().anyThread()};
    };

    TimerLifetimeTest() {
        // Makes the scheduler before any test holds new threads.
        const Timer first("first", kFar, ignore, nullptr, ONCE);
    }

    LogCapture m_log{kLogError};
    Runs m_runs;
};

TEST_F(TimerLifetimeTest, StopWaitsForARunThatGoesOn) {
    HeldHandler held;
    Timer timer("held", kSoon, held.handler(), nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());
    Waiting waiting;

    std::thread stopping([&] {
        EXPECT_EQ(timer.stop(), 0);
        EXPECT_TRUE(held.hasReturned());
    });
    EXPECT_TRUE(waiting.wait());
    held.letGo();
    stopping.join();
}

TEST_F(TimerLifetimeTest, AllWhoStopItReturnWhenTheRunEnds) {
    constexpr int kStoppers = 3;
    HeldHandler held;
    Timer timer("stopped", kAtOnce, held.handler(), nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());
    test::Countdown waiting(kStoppers);
    const test::RunAtCall atWait(
        Call::PthreadCondWait, [&] { waiting.arrive(); }, When().anyThread().everyTime());

    std::vector<std::thread> stoppers;
    for (int i = 0; i < kStoppers; ++i) {
        stoppers.emplace_back([&] {
            EXPECT_EQ(timer.stop(), 0);
            EXPECT_TRUE(held.hasReturned());
        });
    }
    EXPECT_TRUE(waiting.wait());
    held.letGo();

    for (std::thread& stopper : stoppers) stopper.join();
}

TEST_F(TimerLifetimeTest, StopNoBlockDoesNotWait) {
    HeldHandler held;
    Timer timer("held", kSoon, held.handler(), nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());

    EXPECT_EQ(timer.stopNoBlock(), 0);

    EXPECT_FALSE(held.hasReturned());
    EXPECT_TRUE(timer.needStop());
    EXPECT_FALSE(timer.isStarted());
    held.letGo();
}

TEST_F(TimerLifetimeTest, StopDoesNotWaitForARunThatHasNotBegun) {
    HeldStarts starts;
    Timer timer("unborn", kSoon, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(starts.waitForCreated(1));

    EXPECT_EQ(timer.stop(), 0);
    EXPECT_TRUE(m_runs.runs().empty());

    starts.letBegin(1);
    EXPECT_TRUE(m_runs.waitFor(1));  // The timer is there, so the handler runs.
}

TEST_F(TimerLifetimeTest, StopReturnsWithTheFirstOfSeveralRunsToEnd) {
    HeldStarts starts;
    starts.letBegin(2);
    test::Countdown entered(2);
    test::Event firstRelease;
    test::Event secondRelease;
    std::atomic<int> number{0};
    std::atomic<int> ended{0};
    Timer timer(
        "overlap", kSoon,
        [&](Timer*, void*) {
            const bool isFirst = ++number == 1;
            entered.arrive();
            (void)(isFirst ? firstRelease : secondRelease).wait();
            ++ended;
        },
        nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(entered.wait());
    test::RunAtCall atWait(Call::PthreadCondWait, [&] { firstRelease.set(); });

    EXPECT_EQ(timer.stop(), 0);

    EXPECT_EQ(atWait.hits(), 1);
    EXPECT_EQ(ended, 1);
    secondRelease.set();
}

TEST_F(TimerLifetimeTest, DestructionWaitsForARunThatGoesOn) {
    HeldHandler held;
    auto timer = std::make_unique<Timer>("held", kSoon, held.handler(), nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());
    Waiting waiting;

    std::thread destroying([&] {
        timer.reset();
        EXPECT_TRUE(held.hasReturned());
    });
    EXPECT_TRUE(waiting.wait());
    held.letGo();
    destroying.join();
}

TEST_F(TimerLifetimeTest, DestructionWaitsForAllOverlappingRuns) {
    test::Countdown entered(3);
    test::Event release[3];
    std::atomic<int> number{0};
    std::atomic<int> going{0};
    auto timer = std::make_unique<Timer>(
        "overlap", kSoon,
        [&](Timer* p_timer, void*) {
            const int mine = number++;
            if (mine >= 3) return;
            ++going;
            entered.arrive();
            (void)release[mine].wait();
            // It is still there.
            EXPECT_EQ(p_timer->name(), "overlap");
            --going;
        },
        nullptr, CONTINUE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(entered.wait());
    Waiting waiting;

    std::thread destroying([&] {
        timer.reset();
        EXPECT_EQ(going, 0);
    });
    EXPECT_TRUE(waiting.wait());
    for (test::Event& one : release) {
        one.set();
        // Gives a destructor that waits for one run only its chance to be wrong.
        for (int i = 0; i < 100; ++i) std::this_thread::yield();
    }
    destroying.join();
}

TEST_F(TimerLifetimeTest, DestructionWaitsForARunThatARestartHasForgotten) {
    HeldHandler held;
    auto timer = std::make_unique<Timer>("forgotten", kSoon, held.handler(), nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());
    ASSERT_EQ(timer->changeTimeout(kFar), 0);
    // A start says that nothing runs, so that stopping returns.
    ASSERT_EQ(timer->start(), 0);
    EXPECT_EQ(timer->stop(), 0);
    EXPECT_FALSE(held.hasReturned());
    Waiting waiting;

    std::thread destroying([&] {
        timer.reset();
        EXPECT_TRUE(held.hasReturned());
    });
    EXPECT_TRUE(waiting.wait());
    held.letGo();
    destroying.join();
}

TEST_F(TimerLifetimeTest, ARunThatHasNotBegunNeverSeesADestroyedTimer) {
    HeldStarts starts;
    auto timer = std::make_unique<Timer>("unborn", kSoon, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(starts.waitForCreated(1));

    timer.reset();

    starts.letBegin(1);
    ASSERT_TRUE(starts.waitForEnded(1));
    EXPECT_TRUE(m_runs.runs().empty());
}

// From when a ONCE timer is marked stopped its destruction waits for nobody; the scheduler, which
// goes on with it, must hold it by then.
TEST_F(TimerLifetimeTest, ATimerMayGoBeforeItsHandlersThreadIsCreated) {
    auto timer = std::make_unique<Timer>("hasty", kSoon, m_runs.handler(), nullptr, ONCE);
    test::Event creating;
    test::Event isGone;
    test::Event done;
    test::RunAtCall atCreation(
        Call::PthreadCreate,
        [&] {
            creating.set();
            (void)isGone.wait();
            done.set();
        },
        When().anyThread());
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(creating.wait());
    EXPECT_FALSE(timer->isStarted());

    timer.reset();

    isGone.set();
    ASSERT_TRUE(done.wait());
    // One that is due later, by which time the first thread has been created.
    HeldStarts starts;
    starts.letBegin(SIZE_MAX);
    test::Event ran;
    Timer next(
        "next", kSoon, [&](Timer*, void*) { ran.set(); }, nullptr, ONCE);
    ASSERT_EQ(next.start(), 0);
    ASSERT_TRUE(ran.wait());
    EXPECT_TRUE(m_runs.runs().empty());
}

// The code of a handler, and of what it holds, may be unloaded once its timer is gone.
TEST_F(TimerLifetimeTest, AHandlerThatNeverRunsGoesWithItsTimer) {
    HeldStarts starts;
    auto token = std::make_shared<int>(0);
    const std::weak_ptr<int> held = token;
    auto timer = std::make_unique<Timer>(
        "unborn", kSoon, [token = std::move(token)](Timer*, void*) {}, nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(starts.waitForCreated(1));

    timer.reset();

    EXPECT_TRUE(held.expired());
    starts.letBegin(1);
    ASSERT_TRUE(starts.waitForEnded(1));
}

TEST_F(TimerLifetimeTest, DestructionWaitsForTheEndOfAHandlerThatWasReplaced) {
    HeldHandler held;
    test::Event leaving;
    test::Event release;
    std::atomic<bool> isGone{false};
    auto token = std::shared_ptr<int>(new int(0), [&](const int* p_number) {
        delete p_number;
        leaving.set();
        (void)release.wait();
        isGone = true;
    });
    auto timer = std::make_unique<Timer>(
        "replaced", kSoon,
        [hold = held.handler(), token = std::move(token)](Timer* p_timer, void* p_data) {
            hold(p_timer, p_data);
        },
        nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());
    ASSERT_EQ(timer->changeHandler(ignore, nullptr), 0);
    held.letGo();
    ASSERT_TRUE(leaving.wait());
    Waiting waiting;

    std::thread destroying([&] {
        timer.reset();
        EXPECT_TRUE(isGone);
        release.set();
    });
    if (waiting.wait()) release.set();
    destroying.join();
}

TEST_F(TimerLifetimeTest, NoneOfManyRunsThatHaveNotBegunSeesADestroyedTimer) {
    HeldStarts starts;
    auto timer = std::make_unique<Timer>("unborn", kSoon, m_runs.handler(), nullptr, CONTINUE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(starts.waitForCreated(5));
    starts.letBegin(2);
    ASSERT_TRUE(m_runs.waitFor(2));

    timer.reset();

    const std::size_t before = m_runs.runs().size();
    starts.letBegin(SIZE_MAX);
    ASSERT_TRUE(starts.waitForEnded(5));
    EXPECT_EQ(m_runs.runs().size(), before);
}

TEST_F(TimerLifetimeTest, WhatTheHandlerHoldsGoesWithTheTimer) {
    auto held = std::make_shared<int>(0);
    test::Event ran;
    {
        HeldStarts starts;
        starts.letBegin(SIZE_MAX);
        Timer timer(
            "holds", kSoon, [held, &ran](Timer*, void*) { ran.set(); }, nullptr, ONCE);
        ASSERT_EQ(timer.start(), 0);
        ASSERT_TRUE(ran.wait());
        ASSERT_TRUE(starts.waitForEnded(1));
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(TimerLifetimeTest, ATimerThatItsHandlerStartsDuringDestructionIsGoneAllTheSame) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        auto held = std::make_shared<int>(0);
        test::Event entered;
        test::Event release;
        {
            const Timer first("first", kFar, ignore, nullptr, ONCE);
            HeldStarts starts;
            starts.letBegin(SIZE_MAX);
            auto timer = std::make_unique<Timer>(
                "again", kSoon,
                [held, &entered, &release](Timer* p_timer, void*) {
                    entered.set();
                    (void)release.wait();
                    EXPECT_EQ(p_timer->changeTimeout(kFar), 0);
                    EXPECT_EQ(p_timer->start(), 0);
                },
                nullptr, ONCE);
            ASSERT_EQ(timer->start(), 0);
            ASSERT_TRUE(entered.wait());
            test::RunAtCall atWait(Call::PthreadCondWait, [&] { release.set(); });

            timer.reset();
            ASSERT_TRUE(starts.waitForEnded(1));
        }
        EXPECT_EQ(held.use_count(), 1);  // Not listed any more.
    });
}

TEST_F(TimerLifetimeTest, ATimerThatItsHandlerStartsDuringDestructionIsNotWaitedFor) {
    const std::string isEmpty = "No timer need handle.";
    test::setLogLevel(kLogDebug);
    test::Event entered;
    test::Event release;
    auto timer = std::make_unique<Timer>(
        "again", kAtOnce,
        [&](Timer* p_timer, void*) {
            entered.set();
            (void)release.wait();
            EXPECT_EQ(p_timer->changeTimeout(kFar), 0);
            EXPECT_EQ(p_timer->start(), 0);
        },
        nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(entered.wait());
    ASSERT_TRUE(m_log.waitFor(isEmpty));
    m_log.clear();
    test::RunAtCall atWait(Call::PthreadCondWait, [&] { release.set(); });

    timer.reset();

    EXPECT_TRUE(m_log.waitFor(isEmpty));  // Once more, instead of an expiry.
}

TEST_F(TimerLifetimeTest, AHandlerMayDestroyAnotherTimer) {
    auto victim = std::make_unique<Timer>("victim", kSoon, m_runs.handler(), nullptr, CONTINUE);
    ASSERT_EQ(victim->start(), 0);
    test::Event done;
    Timer timer(
        "killer", kSoon,
        [&](Timer*, void*) {
            victim.reset();
            done.set();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(done.wait());
}

TEST_F(TimerLifetimeTest, TimersThatComeAndGoAreSeenByTheirHandlersOnly) {
    struct Owner {
        Owner()
            : timer(
                  "guest", {0, 0, 50},
                  [this](Timer* p_timer, void* p_data) {
                      EXPECT_EQ(p_data, this);
                      EXPECT_EQ(p_timer, &timer);
                      EXPECT_EQ(alive.load(), 1);
                      std::this_thread::yield();
                      EXPECT_EQ(alive.load(), 1);
                  },
                  this, CONTINUE) {}

        struct Mark : std::atomic<int> {
            Mark() : std::atomic<int>(1) {}
            ~Mark() { store(0); }
        } alive;  // Goes after the timer.
        Timer timer;
    };
    test::runAtOnce(4, [&](int) {
        for (int n = 0; n < 100; ++n) {
            const auto owner = std::make_unique<Owner>();
            EXPECT_EQ(owner->timer.start(), 0);
            for (int i = 0; i < n % 8; ++i) std::this_thread::yield();
        }
    });
}

}  // namespace

// What is behind a timer: who keeps whom waiting, and runs that begin too late.

#include "timer/timer_impl.h"

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "simple_timer/simple_timer_fixtures.h"
#include "support/contention.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimerImpl;

class TimerImplTest : public testing::Test {
protected:
    const test::LogCapture m_log;
};

std::unique_ptr<TimerImpl> timerWith(TimerHandler handler) {
    return std::make_unique<TimerImpl>(nullptr, "timer", kFar, std::move(handler), nullptr, ONCE);
}

TEST_F(TimerImplTest, ChangesOfTheHandlerKeepEachOtherWaiting) {
    const auto timer = timerWith(ignore);

    EXPECT_TRUE(test::keepsWaiting([&] { (void)timer->setProperty(kFar, ignore, nullptr, ONCE); },
                                   [&] { (void)timer->changeHandler(ignore, nullptr); }));
}

TEST_F(TimerImplTest, ARunThatBeginsWaitsForAChangeOfTheHandler) {
    const auto timer = timerWith(ignore);

    EXPECT_TRUE(test::keepsWaiting([&] { (void)timer->changeHandler(ignore, nullptr); },
                                   [&] { timer->runHandler(); }));
}

TEST_F(TimerImplTest, ARunThatBeginsWaitsUntilTheTimerIsRetired) {
    const auto timer = timerWith(ignore);

    EXPECT_TRUE(test::keepsWaiting([&] { timer->retire(); }, [&] { timer->runHandler(); }));
}

// The end of a run that comes between the look and the wait would be missed.
TEST_F(TimerImplTest, NothingComesBetweenTheLookOfAStopAndItsWait) {
    HeldHandler held;
    const auto timer = timerWith(held.handler());
    std::thread run([&] { timer->runHandler(); });
    ASSERT_TRUE(held.waitUntilEntered());
    std::unique_ptr<test::Contender> other;
    bool hasToWait = false;
    const test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*)> atWait(
        Call::PthreadCondWait,
        [&](pthread_cond_t*, pthread_mutex_t*) {
            other = std::make_unique<test::Contender>(
                [&] { (void)timer->changeHandler(ignore, nullptr); });
            hasToWait = other->hasToWait();
            held.letGo();
            if (!hasToWait) run.join();  // Before a wait that would never end.
            return 0;                    // For no reason, as a wait may.
        },
        When());

    EXPECT_EQ(timer->stop(), 0);

    EXPECT_EQ(atWait.hits(), 1);
    EXPECT_TRUE(hasToWait);
    other.reset();
    if (run.joinable()) run.join();
}

// Of a period that is over before it begins.
TEST_F(TimerImplTest, TheNextRunIsOneMillisecondLaterAtLeastAndNotBeforeItIsDue) {
    constexpr std::int32_t kNow = 1'000'000;
    TimerImpl timer(nullptr, "timer", {0, 0, -5}, ignore, nullptr, CONTINUE);
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(Call::ClockGettime,
                                                             [](clockid_t, timespec* p_now) {
                                                                 *p_now = {kNow, 250'005'000};
                                                                 return 0;
                                                             });

    timer.reschedule({kNow, 249'900'000});
    EXPECT_EQ(timer.expiredTime().nsec, 250'900'000);
    timer.reschedule({kNow, 248'000'000});
    EXPECT_EQ(timer.expiredTime().nsec, 250'000'000);
}

TEST_F(TimerImplTest, ARunThatBeginsWhileOthersAreWaitedForIsNone) {
    std::atomic<int> calls{0};
    HeldHandler held;
    const auto timer = timerWith([&, hold = held.handler()](Timer* p_timer, void* p_data) {
        if (++calls == 1) hold(p_timer, p_data);
    });
    std::thread run([&] { timer->runHandler(); });
    ASSERT_TRUE(held.waitUntilEntered());
    test::Event waits;
    const test::RunAtCall atWait(
        Call::PthreadCondWait, [&] { waits.set(); }, When().anyThread());
    std::thread destroying([&] {
        timer->retire();
        EXPECT_TRUE(held.hasReturned());
    });
    ASSERT_TRUE(waits.wait());

    timer->runHandler();

    EXPECT_EQ(calls, 1);
    // Nor does it end the one that goes on: a stop waits for that.
    const test::RunAtCall atStop(Call::PthreadCondWait, [&] { held.letGo(); });
    EXPECT_EQ(timer->stop(), 0);
    EXPECT_TRUE(held.hasReturned());
    held.letGo();
    destroying.join();
    run.join();
}

}  // namespace

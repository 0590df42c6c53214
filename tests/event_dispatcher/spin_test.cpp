#include "event_dispatcher/spin.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <cstdint>

#include "support/fault_injection.h"

namespace {

using test::Call;

using tevalon::base::event_dispatcher::AdaptiveSpin;
using tevalon::base::event_dispatcher::g_wakeUpTime;
using tevalon::base::event_dispatcher::Moment;
using tevalon::base::event_dispatcher::WakeUpTime;

constexpr int kOwnProcessor = 0;
constexpr int kOtherProcessor = 1;
constexpr std::int64_t kSecond = 1'000'000'000;
// Short however long the test itself is held up between the wait and the wake-up.
constexpr std::int64_t kShort = -kSecond;

/// How often @p spin looks for what comes with the @p last look; never, where that is 0.
int looksOf(AdaptiveSpin* p_spin, int last) {
    int looks = 0;
    const bool hasCome = p_spin->until([&] { return ++looks == last; });
    EXPECT_EQ(hasCome, looks == last);
    return looks;
}

/// The calling thread's clock, which goes on by so many nanoseconds with each reading.
class SteppingClock {
public:
    static constexpr std::int64_t kStart = 1'000'000 * kSecond;

    explicit SteppingClock(std::int64_t step)
        : m_clock(Call::ClockGettime, [this, step](clockid_t /*clock*/, timespec* p_now) {
              *p_now = {static_cast<time_t>(m_now / kSecond), static_cast<long>(m_now % kSecond)};
              m_now += step;
              ++m_readings;
              return 0;
          }) {}

    int readings() const { return m_readings; }

private:
    std::int64_t m_now = kStart;
    int m_readings = 0;
    test::ReplaceCall<int(clockid_t, timespec*)> m_clock;
};

/// Brings the estimate to its lower bound, where samples that are not above it leave it.
void makeWakeUpsShort() {
    while (g_wakeUpTime.estimate() > WakeUpTime::kLeast) g_wakeUpTime.add(0);
}

void makeWakeUpsLong() {
    while (g_wakeUpTime.estimate() < WakeUpTime::kMost) g_wakeUpTime.add(kSecond);
}

/// A wait that is slept through: the other thread, on @p processor, ends it @p length nanoseconds
/// after it began.
void sleepThrough(AdaptiveSpin* p_spin, std::int64_t length, int processor = kOtherProcessor) {
    EXPECT_EQ(looksOf(p_spin, 0), 1);
    const std::int64_t woken = Moment::nanosecondsNow() + length;
    p_spin->parked({woken, processor}, {woken + g_wakeUpTime.estimate(), kOwnProcessor});
}

class AdaptiveSpinTest : public testing::Test {
protected:
    void becomeWorthIt() {
        for (int i = 0; i < AdaptiveSpin::kShortWaits; ++i) sleepThrough(&m_spin, kShort);
    }

    AdaptiveSpin m_spin{100};
};

TEST_F(AdaptiveSpinTest, WhatHasComeIsSeenWithTheFirstLook) {
    EXPECT_TRUE(m_spin.until([] { return true; }));
}

TEST_F(AdaptiveSpinTest, DoesNotSpinBeforeItIsKnownToPay) {
    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, SpinsAfterShortWaits) {
    becomeWorthIt();

    EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST_F(AdaptiveSpinTest, OneShortWaitIsChance) {
    sleepThrough(&m_spin, kShort);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, GoesOnAsLongAsItPays) {
    becomeWorthIt();

    for (int i = 0; i < 100; ++i) EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST_F(AdaptiveSpinTest, SpinsNotShorterThanAWakeUpTakes) {
    becomeWorthIt();
    const std::int64_t before = Moment::nanosecondsNow();

    EXPECT_FALSE(m_spin.until([] { return false; }));

    EXPECT_GE(Moment::nanosecondsNow() - before, g_wakeUpTime.estimate());
}

TEST_F(AdaptiveSpinTest, EndsThoughTheClockStandsStill) {
    constexpr int kMany = 10'000'000;
    becomeWorthIt();
    const timespec stopped = {1'000'000, 0};
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        Call::ClockGettime, [&](clockid_t /*clock*/, timespec* p_now) {
            *p_now = stopped;
            return 0;
        });

    int looks = 0;
    EXPECT_FALSE(m_spin.until([&] { return ++looks == kMany; }));
    EXPECT_LT(looks, kMany);
}

TEST_F(AdaptiveSpinTest, EndsWithTheFirstReadingThatIsLateEnough) {
    becomeWorthIt();
    timespec now = {1'000'000, 0};
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        Call::ClockGettime, [&](clockid_t /*clock*/, timespec* p_now) {
            ++now.tv_sec;
            *p_now = now;
            return 0;
        });

    EXPECT_LT(looksOf(&m_spin, 0), 1000);
}

TEST_F(AdaptiveSpinTest, EndsAtOnceWhereTheClockCannotBeRead) {
    becomeWorthIt();
    const test::FailCall clock(Call::ClockGettime, EINVAL, test::When().everyTime());

    EXPECT_LT(looksOf(&m_spin, 0), 1000);
}

TEST_F(AdaptiveSpinTest, OneSpinInVainEndsIt) {
    becomeWorthIt();
    EXPECT_GT(looksOf(&m_spin, 0), 1);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, AfterASpinInVainOneShortWaitIsChanceAgain) {
    becomeWorthIt();
    EXPECT_GT(looksOf(&m_spin, 0), 1);

    sleepThrough(&m_spin, kShort);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, EndsWhenAWakeUpWouldBeOver) {
    makeWakeUpsShort();
    becomeWorthIt();
    const SteppingClock clock(WakeUpTime::kLeast);

    (void)looksOf(&m_spin, 0);

    EXPECT_EQ(clock.readings(), 2);  // When it begins, and when it is over.
}

// Of half a wake-up, for the one that spins so long.
TEST_F(AdaptiveSpinTest, AWaitIsShortUpToItsShareOfAWakeUp) {
    constexpr std::int64_t kHalf = WakeUpTime::kLeast / 2;
    const SteppingClock clock(0);
    makeWakeUpsShort();
    AdaptiveSpin often(50);
    AdaptiveSpin never(50);

    for (int i = 0; i < AdaptiveSpin::kShortWaits; ++i) {
        sleepThrough(&often, kHalf);
        sleepThrough(&never, kHalf + 1);
    }

    EXPECT_EQ(looksOf(&often, 10), 10);
    EXPECT_EQ(looksOf(&never, 0), 1);
}

TEST_F(AdaptiveSpinTest, WakeUpsOfOtherProcessorsAreMeasured) {
    constexpr std::int64_t kWoken = SteppingClock::kStart;
    makeWakeUpsLong();

    m_spin.parked({kWoken, kOwnProcessor}, {kWoken, kOwnProcessor});
    EXPECT_EQ(g_wakeUpTime.estimate(), WakeUpTime::kMost);

    m_spin.parked({kWoken, kOtherProcessor}, {kWoken, kOwnProcessor});
    EXPECT_EQ(g_wakeUpTime.estimate(), WakeUpTime::kMost - WakeUpTime::kMost / 8);
}

TEST_F(AdaptiveSpinTest, OneLongWaitMakesTheNextOnesCountAnew) {
    sleepThrough(&m_spin, kShort);
    sleepThrough(&m_spin, kSecond);
    sleepThrough(&m_spin, kShort);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, DoesNotSpinInTheWayOfAThreadOnItsOwnProcessor) {
    for (int i = 0; i < 100; ++i) sleepThrough(&m_spin, kShort, kOwnProcessor);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
}

TEST_F(AdaptiveSpinTest, AnUnknownProcessorIsNotItsOwn) {
    for (int i = 0; i < AdaptiveSpin::kShortWaits; ++i) {
        EXPECT_EQ(looksOf(&m_spin, 0), 1);
        const std::int64_t woken = Moment::nanosecondsNow() + kShort;
        m_spin.parked({woken, Moment::kNoProcessor}, {woken, Moment::kNoProcessor});
    }

    EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST_F(AdaptiveSpinTest, SkipsOneWaitWhenToldTo) {
    becomeWorthIt();

    m_spin.skipNext(true);

    EXPECT_EQ(looksOf(&m_spin, 0), 1);
    EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST_F(AdaptiveSpinTest, ASkippedWaitTellsNothing) {
    becomeWorthIt();

    m_spin.skipNext(true);
    sleepThrough(&m_spin, kSecond);

    EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST_F(AdaptiveSpinTest, ASkipCanBeTakenBack) {
    becomeWorthIt();

    m_spin.skipNext(true);
    m_spin.skipNext(false);

    EXPECT_EQ(looksOf(&m_spin, 10), 10);
}

TEST(WakeUpTimeTest, FollowsWhatIsMeasured) {
    WakeUpTime time(8'000);
    for (int i = 0; i < 100; ++i) time.add(35'000);

    EXPECT_NEAR(time.estimate(), 35'000, 35'000 / 8);

    for (int i = 0; i < 100; ++i) time.add(4'000);

    EXPECT_NEAR(time.estimate(), 4'000, 4'000 / 8);
}

TEST(WakeUpTimeTest, AThreadThatWaitedForItsProcessorCountsNoMoreThanAnother) {
    WakeUpTime time(8'000);

    time.add(kSecond);

    EXPECT_EQ(time.estimate(), 9'000);
}

TEST(WakeUpTimeTest, AShorterOneTakesAnEighthOff) {
    WakeUpTime time(8'000);

    time.add(0);

    EXPECT_EQ(time.estimate(), 7'000);
}

TEST(WakeUpTimeTest, OneThatIsAsLongTakesAnEighthOff) {
    WakeUpTime time(8'000);

    time.add(8'000);

    EXPECT_EQ(time.estimate(), 7'000);
}

TEST(WakeUpTimeTest, StaysWithinItsBounds) {
    WakeUpTime time(8'000);
    for (int i = 0; i < 100; ++i) time.add(kSecond);

    EXPECT_EQ(time.estimate(), WakeUpTime::kMost);

    for (int i = 0; i < 100; ++i) time.add(-kSecond);

    EXPECT_EQ(time.estimate(), WakeUpTime::kLeast);
}

}  // namespace

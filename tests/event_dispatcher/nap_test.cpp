#include "event_dispatcher/nap.h"

#include <gtest/gtest.h>

#include <time.h>

#include "support/fault_injection.h"

namespace {

using test::Call;
using tevalon::base::event_dispatcher::Nap;

constexpr bool kSameProcessor = true;
constexpr std::int64_t kShort = 1'000;

/// How many such wake-ups in a row it takes until a nap is due.
unsigned wakeUpsUntilDue(Nap* p_nap) {
    unsigned count = 0;
    while (!p_nap->isDue() && count < 100'000) {
        p_nap->woken(kSameProcessor, kShort);
        ++count;
    }
    return count;
}

TEST(NapTest, IsDueAfterManyShortWaitsForAThreadOnTheSameProcessor) {
    Nap nap;

    EXPECT_FALSE(nap.isDue());
    EXPECT_EQ(wakeUpsUntilDue(&nap), Nap::kLeastWakeUps);
}

TEST(NapTest, AWakeUpFromAnotherProcessorMakesThemCountAnew) {
    Nap nap;
    for (unsigned i = 1; i < Nap::kLeastWakeUps; ++i) nap.woken(kSameProcessor, kShort);

    nap.woken(!kSameProcessor, kShort);

    EXPECT_EQ(wakeUpsUntilDue(&nap), Nap::kLeastWakeUps);
}

TEST(NapTest, ALongWaitMakesThemCountAnew) {
    Nap nap;
    for (unsigned i = 1; i < Nap::kLeastWakeUps; ++i) nap.woken(kSameProcessor, kShort);

    nap.woken(kSameProcessor, Nap::kNanoseconds);

    EXPECT_EQ(wakeUpsUntilDue(&nap), Nap::kLeastWakeUps);
}

TEST(NapTest, AWaitIsLongFromAQuarterOfANapOn) {
    constexpr std::int64_t kQuarter = Nap::kNanoseconds / 4;
    Nap nap;
    for (unsigned i = 1; i < Nap::kLeastWakeUps; ++i) nap.woken(kSameProcessor, kQuarter - 1);
    nap.woken(kSameProcessor, kQuarter);
    EXPECT_FALSE(nap.isDue());

    for (unsigned i = 0; i < Nap::kLeastWakeUps; ++i) nap.woken(kSameProcessor, kQuarter - 1);
    EXPECT_TRUE(nap.isDue());
}

TEST(NapTest, OneFollowsAnotherAsLongAsTheyBringMuch) {
    Nap nap;
    (void)wakeUpsUntilDue(&nap);

    for (int i = 0; i < 100; ++i) {
        nap.brought(true);
        ASSERT_TRUE(nap.isDue());
    }
}

TEST(NapTest, IsTriedTheLessTheOftenerItBroughtLittle) {
    Nap nap;
    unsigned expected = Nap::kLeastWakeUps;
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(wakeUpsUntilDue(&nap), expected);
        nap.brought(false);
        ASSERT_FALSE(nap.isDue());
        expected = std::min(expected * 4, Nap::kMostWakeUps);
    }
}

TEST(NapTest, OneThatBringsMuchMakesUpForThoseThatDidNot) {
    Nap nap;
    (void)wakeUpsUntilDue(&nap);
    nap.brought(false);
    (void)wakeUpsUntilDue(&nap);

    nap.brought(true);
    nap.brought(false);

    EXPECT_EQ(wakeUpsUntilDue(&nap), Nap::kLeastWakeUps * 4);
}

/// While it lives, the clock goes that much further each time that it is read.
class SteppingClock {
public:
    explicit SteppingClock(std::int64_t nanoseconds)
        : m_replace(Call::ClockGettime, [this, nanoseconds](clockid_t /*clock*/, timespec* p_now) {
              m_nanoseconds += nanoseconds;
              p_now->tv_sec = static_cast<time_t>(m_nanoseconds / 1'000'000'000);
              p_now->tv_nsec = static_cast<long>(m_nanoseconds % 1'000'000'000);
              return 0;
          }) {}

private:
    std::int64_t m_nanoseconds = 1'000'000'000;
    const test::ReplaceCall<int(clockid_t, timespec*)> m_replace;
};

TEST(NapTest, OneThatTakesFarTooLongIsTheLastForLong) {
    Nap nap;
    (void)wakeUpsUntilDue(&nap);
    const SteppingClock clock(Nap::kOverlongNanoseconds + 1);
    unsigned expected = Nap::kLeastWakeUps;
    for (int i = 0; i < 3; ++i) {
        nap.sleep();
        nap.brought(true);
        expected *= 16;
        ASSERT_FALSE(nap.isDue());
        ASSERT_EQ(wakeUpsUntilDue(&nap), expected);
    }
}

TEST(NapTest, OneThatTakesALittleLongerIsAsGood) {
    Nap nap;
    (void)wakeUpsUntilDue(&nap);
    const SteppingClock clock(Nap::kOverlongNanoseconds);

    nap.sleep();
    nap.brought(true);

    EXPECT_TRUE(nap.isDue());
}

TEST(NapTest, LastsNoShorterThanItSays) {
    Nap nap;
    timespec before = {};
    timespec after = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &before);

    nap.sleep();

    (void)clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE((after.tv_sec - before.tv_sec) * 1'000'000'000LL + after.tv_nsec - before.tv_nsec,
              Nap::kNanoseconds);
}

}  // namespace

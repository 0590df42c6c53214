#include "os/monotonic_time.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/fault_injection.h"

namespace {

using namespace tevalon::base;

TEST(MonotonicMillisecondsTest, AreThoseOfTheTimeBegunOnesLeftOut) {
    EXPECT_EQ(millisecondsOf({0, 0}), 0U);
    EXPECT_EQ(millisecondsOf({12, 345'999'999}), 12'345U);
    EXPECT_EQ(millisecondsOf({1, 999'999}), 1000U);
}

TEST(MonotonicMillisecondsTest, BeginAnewAfter49Days) {
    EXPECT_EQ(millisecondsOf({4'294'967, 295'000'000}), UINT32_MAX);
    EXPECT_EQ(millisecondsOf({4'294'967, 296'000'000}), 0U);
    EXPECT_EQ(millisecondsOf({4'294'969, 0}) - millisecondsOf({4'294'966, 500'000'000}), 2500U);
}

TEST(MonotonicMillisecondsTest, AreZeroWhereTheClockCannotBeRead) {
    const test::FailCall noClock(test::Call::ClockGettime, EINVAL);

    EXPECT_EQ(monotonicMilliseconds(), 0U);
}

TEST(MonotonicDeadlineTest, IsSoFarFromNowAndNotBeforeTheClocksBeginning) {
    const auto nanosecondsAt = [](std::int64_t fromNow, const timespec& now) {
        return nanosecondsOf(monotonicDeadline(fromNow, now));
    };

    EXPECT_EQ(nanosecondsAt(2'500'000'000, {10, 600'000'000}), 13'100'000'000U);
    EXPECT_EQ(nanosecondsAt(1, {0, 0}), 1U);
    EXPECT_EQ(nanosecondsAt(-1, {0, 2}), 1U);
    EXPECT_EQ(nanosecondsAt(-1, {0, 1}), 0U);
    EXPECT_EQ(nanosecondsAt(-5'000'000'000, {2, 0}), 0U);
}

}  // namespace

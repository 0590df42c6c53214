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

}  // namespace

#include "base/utils/monotonic_time.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>

#include "support/fault_injection.h"

namespace {

using namespace tevalon::base;
using namespace std::chrono_literals;

double secondsOf(const timespec& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

TEST(MonotonicTimeTest, IsTheMonotonicClockInSeconds) {
    timespec before = {};
    timespec after = {};

    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &before), 0);
    const double now = monotonicSeconds();
    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &after), 0);

    EXPECT_GE(now, secondsOf(before));
    EXPECT_LE(now, secondsOf(after));
}

TEST(MonotonicTimeTest, IsMinusOneWhereTheClockCannotBeRead) {
    double now = 0.0;
    {
        const test::FailCall noClock(test::Call::ClockGettime, EINVAL);
        now = monotonicSeconds();
    }

    EXPECT_EQ(now, -1.0);
}

TEST(MonotonicTimeTest, DurationsOfAnyUnitAreSeconds) {
    EXPECT_EQ(toSeconds(1500ms), 1.5);
    EXPECT_EQ(toSeconds(-2min), -120.0);
    EXPECT_EQ(toSeconds(std::chrono::duration<float>(0.25F)), 0.25);
    EXPECT_EQ(toSeconds(std::chrono::hours::max()),
              static_cast<double>(std::chrono::hours::max().count()) * 3600);
}

TEST(MonotonicTimeTest, MillisecondsAreRoundedUp) {
    EXPECT_EQ(toMilliseconds(0ns), 0);
    EXPECT_EQ(toMilliseconds(1ns), 1);
    EXPECT_EQ(toMilliseconds(1000000ns), 1);
    EXPECT_EQ(toMilliseconds(1000001ns), 2);
    EXPECT_EQ(toMilliseconds(2147483646000001ns), INT32_MAX);
    EXPECT_EQ(toMilliseconds(-1ns), 0);
    EXPECT_EQ(toMilliseconds(-1000001ns), -1);
    EXPECT_EQ(toMilliseconds(std::chrono::duration<double>(0.0015)), 2);
    EXPECT_EQ(toMilliseconds(std::chrono::duration<std::int32_t, std::ratio<1, 60>>(1)), 17);
}

TEST(MonotonicTimeTest, MillisecondsDoNotOverflow) {
    EXPECT_EQ(toMilliseconds(2147483647ms), INT32_MAX);
    EXPECT_EQ(toMilliseconds(2147483648ms), INT32_MAX);
    EXPECT_EQ(toMilliseconds(-2147483648ms), INT32_MIN);
    EXPECT_EQ(toMilliseconds(-2147483649ms), INT32_MIN);
    EXPECT_EQ(toMilliseconds(std::chrono::hours::max()), INT32_MAX);
    EXPECT_EQ(toMilliseconds(std::chrono::hours::min()), INT32_MIN);
    EXPECT_EQ(toMilliseconds(std::chrono::nanoseconds::max()), INT32_MAX);
    EXPECT_EQ(toMilliseconds(std::chrono::duration<std::uint64_t>(UINT64_MAX)), INT32_MAX);
}

TEST(MonotonicTimeTest, MillisecondsOfFloatingDurationsThatAreNoNumber) {
    using Seconds = std::chrono::duration<double>;

    EXPECT_EQ(toMilliseconds(Seconds(std::numeric_limits<double>::quiet_NaN())), 0);
    EXPECT_EQ(toMilliseconds(Seconds(std::numeric_limits<double>::infinity())), INT32_MAX);
    EXPECT_EQ(toMilliseconds(Seconds(-std::numeric_limits<double>::infinity())), INT32_MIN);
}

TEST(MonotonicTimeTest, ATimeOutIsNeverTakenForNone) {
    EXPECT_EQ(toTimeoutMs(-1ms), 0);
    EXPECT_EQ(toTimeoutMs(std::chrono::hours::min()), 0);
    EXPECT_EQ(toTimeoutMs(0s), 0);
    EXPECT_EQ(toTimeoutMs(250us), 1);
    EXPECT_EQ(toTimeoutMs(2s), 2000);
}

static_assert(toMilliseconds(3s) == 3000 && toTimeoutMs(-3s) == 0 && toSeconds(500ms) == 0.5);

}  // namespace

// Timeouts of std::chrono.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <ratio>

#include "base/simple_timer.h"
#include "support/event.h"
#include "support/log_capture.h"

namespace {

using namespace std::chrono_literals;
using namespace tevalon::base::simple_timer;

void expectTimeout(TimeoutTime actual, std::int32_t sec, std::int32_t usec) {
    EXPECT_EQ(actual.sec, sec);
    EXPECT_EQ(actual.msec, 0);
    EXPECT_EQ(actual.usec, usec);
}

TEST(TimerDurationTest, IsRoundedUpToMicroseconds) {
    expectTimeout(toTimeoutTime(0s), 0, 0);
    expectTimeout(toTimeoutTime(250ms), 0, 250000);
    expectTimeout(toTimeoutTime(2500ms), 2, 500000);
    expectTimeout(toTimeoutTime(1ns), 0, 1);
    expectTimeout(toTimeoutTime(999999001ns), 1, 0);
    expectTimeout(toTimeoutTime(3h), 10800, 0);
    expectTimeout(toTimeoutTime(std::chrono::duration<double>(1.5)), 1, 500000);
    expectTimeout(toTimeoutTime(std::chrono::duration<float, std::milli>(0.0001F)), 0, 1);
    static_assert(toTimeoutTime(1s).sec == 1);
}

TEST(TimerDurationTest, IsBoundedByWhatATimeoutHolds) {
    using Seconds = std::chrono::duration<double>;
    expectTimeout(toTimeoutTime(-1ns), 0, 0);
    expectTimeout(toTimeoutTime(std::chrono::hours::min()), 0, 0);
    expectTimeout(toTimeoutTime(Seconds(std::nan(""))), 0, 0);
    expectTimeout(toTimeoutTime(std::chrono::seconds(INT32_MAX) - 1us), INT32_MAX - 1, 999999);
    expectTimeout(toTimeoutTime(std::chrono::seconds(INT32_MAX)), INT32_MAX, 0);
    expectTimeout(toTimeoutTime(std::chrono::hours::max()), INT32_MAX, 0);
    expectTimeout(toTimeoutTime(Seconds(std::numeric_limits<double>::infinity())), INT32_MAX, 0);
}

TEST(TimerDurationTest, ATimerTakesIt) {
    test::Event fired;
    std::chrono::steady_clock::time_point at;
    const auto handler = [&](Timer*, void*) {
        at = std::chrono::steady_clock::now();
        fired.set();
    };
    Timer timer("duration", 20ms, handler, nullptr, ONCE);
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_EQ(timer.start(), 0);

    ASSERT_TRUE(fired.wait());
    EXPECT_GE(at - begin, 20ms);
}

TEST(TimerDurationTest, ATimerThatIsToRepeatRefusesNone) {
    const test::LogCapture log(0);
    Timer timer(
        "none", -5ms, [](Timer*, void*) {}, nullptr, CONTINUE);

    EXPECT_EQ(timer.start(), -1);
    EXPECT_EQ(timer.changeTimeout(toTimeoutTime(0s)), -1);
    EXPECT_EQ(timer.setProperty(
                  toTimeoutTime(5ms), [](Timer*, void*) {}, nullptr, CONTINUE),
              0);
}

}  // namespace

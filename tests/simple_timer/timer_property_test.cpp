// What a timer may be made and set to, and what becomes of its timeout.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ostream>

#include "simple_timer/simple_timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

using Lines = std::vector<LogEntry>;

LogEntry zeroContinueLine(const std::string& function) {
    return timerLine(kLogError, function,
                     "When type is CONTINUE, the timeout cannot be {0, 0, 0}.\n");
}

LogEntry invalidLine(const std::string& name) {
    return timerLine(kLogError, "start",
                     "Property of timer('" + name + "') is invalid, cannot start.\n");
}

class TimerPropertyTest : public testing::Test {
protected:
    Lines lines() const { return m_log.entriesWithoutLineNumbers(); }

    /// Whether it can be started; leaves it stopped, and the log empty.
    bool isStartable(Timer& timer) {
        const bool result = timer.start() == 0;
        if (result) {
            EXPECT_TRUE(timer.isStarted());
        }
        (void)timer.stopNoBlock();
        m_log.clear();
        return result;
    }

    LogCapture m_log{kLogError};
};

TEST_F(TimerPropertyTest, TypesHaveTheirValues) {
    EXPECT_EQ(ONCE, 0);
    EXPECT_EQ(CONTINUE, 1);
    EXPECT_EQ(sizeof(TimerType_e), 4U);
}

TEST_F(TimerPropertyTest, FieldsAreInTheirOrder) {
    EXPECT_EQ(sizeof(TimeoutTime), 12U);
    EXPECT_EQ(offsetof(TimeoutTime, sec), 0U);
    EXPECT_EQ(offsetof(TimeoutTime, msec), 4U);
    EXPECT_EQ(offsetof(TimeoutTime, usec), 8U);
    EXPECT_EQ(sizeof(Timer), sizeof(std::shared_ptr<int>));
}

TEST_F(TimerPropertyTest, APeriodOfZeroMakesATimerInvalid) {
    Timer timer("none", kAtOnce, ignore, nullptr, CONTINUE);
    EXPECT_EQ(lines(), Lines{zeroContinueLine("TimerImpl")});
    m_log.clear();

    EXPECT_EQ(timer.start(), -1);

    EXPECT_EQ(lines(), Lines{invalidLine("none")});
    EXPECT_FALSE(timer.isStarted());
    EXPECT_EQ(timer.name(), "none");
}

TEST_F(TimerPropertyTest, SetPropertyMakesAnInvalidTimerFit) {
    Timer timer("none", kAtOnce, ignore, nullptr, CONTINUE);
    m_log.clear();

    EXPECT_EQ(timer.setProperty(kFar, ignore, nullptr, CONTINUE), 0);

    EXPECT_EQ(lines(), Lines{});
    EXPECT_TRUE(isStartable(timer));
}

TEST_F(TimerPropertyTest, ATimeoutOfZeroIsFineForOnce) {
    Runs runs;
    Timer timer("zero", kAtOnce, runs.handler(), nullptr, ONCE);
    EXPECT_EQ(timer.start(), 0);
    EXPECT_TRUE(runs.waitFor(1));
    EXPECT_EQ(lines(), Lines{});
    (void)timer.stop();
}

TEST_F(TimerPropertyTest, WithoutAHandlerATimerIsSilentlyInvalid) {
    Timer timer("mute", kFar, nullptr, nullptr, ONCE);
    EXPECT_EQ(lines(), Lines{});

    EXPECT_EQ(timer.start(), -1);

    EXPECT_EQ(lines(), Lines{invalidLine("mute")});
}

TEST_F(TimerPropertyTest, SetPropertyWithoutAHandlerIsValidAllTheSame) {
    Timer timer("mute", kFar, nullptr, nullptr, ONCE);

    EXPECT_EQ(timer.setProperty(kFar, nullptr, nullptr, ONCE), 0);

    EXPECT_TRUE(isStartable(timer));
}

TEST_F(TimerPropertyTest, OnlySetPropertyMakesAnInvalidTimerFit) {
    Timer timer("none", kAtOnce, ignore, nullptr, CONTINUE);

    EXPECT_EQ(timer.changeHandler(ignore, nullptr), 0);
    EXPECT_FALSE(isStartable(timer));
    EXPECT_EQ(timer.changeTimeout(kFar), 0);
    EXPECT_FALSE(isStartable(timer));
    EXPECT_EQ(timer.changeType(ONCE), 0);
    EXPECT_FALSE(isStartable(timer));
}

TEST_F(TimerPropertyTest, ARefusedSetPropertyMakesTheTimerInvalidAndKeepsTheRest) {
    Timer timer("late", kFar, ignore, nullptr, ONCE);

    EXPECT_EQ(timer.setProperty(kAtOnce, ignore, nullptr, CONTINUE), -1);

    EXPECT_EQ(lines(), Lines{zeroContinueLine("setProperty")});
    EXPECT_FALSE(isStartable(timer));
    EXPECT_EQ(timer.changeTimeout(kAtOnce), 0);  // The type is still ONCE.
    EXPECT_EQ(timer.setProperty(kFar, ignore, nullptr, ONCE), 0);
    EXPECT_EQ(timer.setProperty(kAtOnce, ignore, nullptr, CONTINUE), -1);
    EXPECT_EQ(timer.changeType(CONTINUE), 0);  // The timeout is still not zero.
}

TEST_F(TimerPropertyTest, AnyFieldMakesATimeout) {
    for (const TimeoutTime timeout : {TimeoutTime{1, 0, 0}, TimeoutTime{0, 1, 0},
                                      TimeoutTime{0, 0, 1}, TimeoutTime{1, -1, -1}}) {
        m_log.clear();
        Timer timer("any", kFar, ignore, nullptr, CONTINUE);
        EXPECT_EQ(timer.changeTimeout(timeout), 0);
        EXPECT_EQ(timer.setProperty(timeout, ignore, nullptr, CONTINUE), 0);
        EXPECT_EQ(lines(), Lines{});
        EXPECT_TRUE(isStartable(timer));
    }
}

TEST_F(TimerPropertyTest, APeriodCannotBecomeZero) {
    Timer timer("beat", kFar, ignore, nullptr, CONTINUE);

    EXPECT_EQ(timer.changeTimeout(kAtOnce), -1);

    EXPECT_EQ(lines(), Lines{zeroContinueLine("changeTimeout")});
    EXPECT_EQ(timer.changeType(CONTINUE), 0);  // The timeout is still not zero.
    EXPECT_TRUE(isStartable(timer));
}

TEST_F(TimerPropertyTest, ATimeoutOfZeroCannotBecomeAPeriod) {
    Timer timer("once", kFar, ignore, nullptr, ONCE);
    EXPECT_EQ(timer.changeTimeout(kAtOnce), 0);

    EXPECT_EQ(timer.changeType(CONTINUE), -1);

    EXPECT_EQ(
        lines(),
        Lines{timerLine(kLogError, "changeType",
                        "When the timeout is {0, 0, 0}, you cannot change type to CONTINUE.\n")});
    EXPECT_EQ(timer.changeTimeout(kAtOnce), 0);  // The type is still ONCE.
    EXPECT_EQ(timer.changeTimeout(kFar), 0);
    EXPECT_EQ(timer.changeType(CONTINUE), 0);
    EXPECT_TRUE(isStartable(timer));
}

TEST_F(TimerPropertyTest, AStartedTimerIsNotChanged) {
    Runs before;
    Timer timer("busy", kFar, before.handler(), nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_EQ(timer.setProperty(kAtOnce, ignore, nullptr, CONTINUE), -1);
    EXPECT_EQ(timer.changeTimeout(kAtOnce), -1);
    EXPECT_EQ(timer.changeType(CONTINUE), -1);
    EXPECT_EQ(timer.changeHandler(ignore, nullptr), -1);

    Lines expected;
    for (const char* function : {"setProperty", "changeTimeout", "changeType", "changeHandler"}) {
        expected.push_back(
            timerLine(kLogError, function, "Must stop timer before changing its property.\n"));
    }
    EXPECT_EQ(lines(), expected);
    (void)timer.stop();
    EXPECT_TRUE(isStartable(timer));
    EXPECT_EQ(timer.changeTimeout(kAtOnce), 0);  // The type is still ONCE.
    ASSERT_EQ(timer.start(), 0);
    EXPECT_TRUE(before.waitFor(1));  // The handler is still the old one.
    (void)timer.stop();
}

TEST_F(TimerPropertyTest, ChangesTakeEffectAtTheNextStart) {
    Runs first;
    Runs second;
    int data = 0;
    Timer timer("new", kFar, first.handler(), nullptr, CONTINUE);

    EXPECT_EQ(timer.changeHandler(second.handler(), &data), 0);
    EXPECT_EQ(timer.changeTimeout(kSoon), 0);
    EXPECT_EQ(timer.changeType(ONCE), 0);
    EXPECT_EQ(timer.start(), 0);

    ASSERT_TRUE(second.waitFor(1));
    EXPECT_EQ(second.runs()[0].p_data, &data);
    EXPECT_FALSE(second.runs()[0].isStarted);
    (void)timer.stop();
    EXPECT_TRUE(first.runs().empty());
}

TEST_F(TimerPropertyTest, WithoutMemoryAStartFailsAndChangesNothing) {
    constexpr std::size_t kMost = 1000;  // Room is made for several at once.
    std::vector<std::unique_ptr<Timer>> timers;
    m_log.clear();
    int result = 0;
    while (result == 0 && timers.size() < kMost) {
        timers.push_back(std::make_unique<Timer>("many", kFar, ignore, nullptr, ONCE));
        const test::FailCall noMemory(Call::New, ENOMEM, When().everyTime());
        result = timers.back()->start();
    }

    EXPECT_EQ(result, -1);
    EXPECT_EQ(lines(), Lines{timerLine(kLogError, "start", "Fail to start timer:'many'.\n")});
    EXPECT_FALSE(timers.back()->isStarted());
    EXPECT_EQ(timers.back()->start(), 0);
    EXPECT_TRUE(timers.back()->isStarted());
    m_log.clear();
}

TEST_F(TimerPropertyTest, WithoutMemoryTheTimerDoesNothingButSaySo) {
    const TimerHandler handler = ignore;
    alignas(Timer) unsigned char memory[sizeof(Timer)];
    Timer first("first", kFar, ignore, nullptr, ONCE);  // Makes the scheduler.
    std::string name("gone");
    Timer* p_timer = nullptr;
    {
        test::FailCall noMemory(Call::New, ENOMEM, When().everyTime());
        p_timer =
            ::new (static_cast<void*>(memory)) Timer(std::move(name), kFar, handler, nullptr, ONCE);
    }
    EXPECT_EQ(lines(), Lines{timerLine(kLogError, "Timer", "Fail to create TimerImpl.\n")});
    m_log.clear();

    EXPECT_EQ(p_timer->setProperty(kFar, ignore, nullptr, ONCE), -1);
    EXPECT_EQ(p_timer->changeTimeout(kFar), -1);
    EXPECT_EQ(p_timer->changeType(ONCE), -1);
    EXPECT_EQ(p_timer->changeHandler(ignore, nullptr), -1);
    EXPECT_EQ(p_timer->start(), -1);
    EXPECT_EQ(p_timer->stop(), -1);
    EXPECT_EQ(p_timer->stopNoBlock(), -1);
    EXPECT_EQ(p_timer->restart(), -1);
    EXPECT_FALSE(p_timer->isStarted());
    EXPECT_TRUE(p_timer->needStop());
    EXPECT_EQ(p_timer->name(), "");
    p_timer->~Timer();

    Lines expected;
    for (const char* function :
         {"setProperty", "changeTimeout", "changeType", "changeHandler", "start", "stop",
          "stopNoBlock", "restart", "isStarted", "needStop", "name"}) {
        expected.push_back(timerLine(kLogError, function, "m_impl is NULL.\n"));
    }
    EXPECT_EQ(lines(), expected);
}

struct Expiry {
    TimeoutTime timeout;
    long nowNsec;
    long sec;  // Beyond the second of the start.
    long nsec;
};

void PrintTo(const Expiry& expiry, std::ostream* p_stream) {
    *p_stream << "{" << expiry.timeout.sec << ", " << expiry.timeout.msec << ", "
              << expiry.timeout.usec << "} at ." << expiry.nowNsec;
}

class TimerExpiryTest : public testing::TestWithParam<Expiry> {};

TEST_P(TimerExpiryTest, IsTheStartPlusTheTimeout) {
    // The clock is far ahead at the start, so that the timer stays listed; the scheduler's line
    // tells its expiry.
    constexpr long kSecond = 1000000000;
    const Expiry& expiry = GetParam();
    LogCapture log;
    Timer timer("expiry", expiry.timeout, ignore, nullptr, ONCE);
    {
        const StoppedClock clock({kSecond, expiry.nowNsec});
        ASSERT_EQ(timer.start(), 0);
    }

    EXPECT_TRUE(log.waitFor("Waiting for timer('expiry') expired, expiredTime(sec:" +
                            std::to_string(kSecond + expiry.sec) +
                            ", nsec:" + std::to_string(expiry.nsec) + ").\n"));
    EXPECT_EQ(timer.stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Sums, TimerExpiryTest,
    testing::Values(Expiry{{0, 0, 0}, 0, 0, 0}, Expiry{{0, 0, 0}, 999999999, 0, 999999999},
                    Expiry{{0, 1500, 2500}, 0, 1, 502500000},
                    Expiry{{1, 1500, 2500}, 0, 2, 502500000},
                    Expiry{{0, 999, 999}, 999999999, 1, 999998999},
                    Expiry{{0, 0, 1}, 999999000, 1, 0}, Expiry{{0, 0, 999999}, 0, 0, 999999000},
                    Expiry{{0, 0, 1999999}, 0, 1, 999999000}, Expiry{{7, 1000, 1000000}, 5, 9, 5},
                    // Division truncates towards zero.
                    Expiry{{2, -1500, 0}, 900000000, 1, 400000000},
                    Expiry{{2, -1500, 0}, 0, 1, -500000000}, Expiry{{1, 1, -1500}, 0, 1, -500000},
                    Expiry{{-5, 0, 0}, 1, -5, 1}));

TEST(TimerExpiryTest, SumsBeyondAllNumbersDoNoHarm) {
    LogCapture log(kLogError);
    for (const std::int32_t extreme : {INT32_MAX, INT32_MIN}) {
        Timer timer("extreme", {extreme, extreme, extreme}, ignore, nullptr, ONCE);
        EXPECT_EQ(timer.start(), 0);
        EXPECT_EQ(timer.stop(), 0);
    }
}

}  // namespace

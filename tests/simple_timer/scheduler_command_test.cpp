// Which changes of the list are commands in the scheduler's pipe, counted where they are written.

#include <gtest/gtest.h>

#include "simple_timer/simple_timer_fixtures.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::LogCapture;
using test::When;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;

// Everything that any thread writes: there is nothing else to write, for the log is captured.
class SchedulerCommandTest : public testing::Test {
protected:
    static When everyWrite() { return When().anyThread().everyTime(); }

    LogCapture m_log{kLogError};
    Runs m_runs;
};

TEST_F(SchedulerCommandTest, ThePeriodsOfALoneTimerAreNone) {
    Timer timer("beat", kSoon, m_runs.handler(), nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(m_runs.waitFor(1));

    const test::CountCalls writes(Call::Write, everyWrite());
    EXPECT_TRUE(m_runs.waitFor(m_runs.runs().size() + 5));

    EXPECT_EQ(writes.seen(), 0);
    (void)timer.stop();
}

TEST_F(SchedulerCommandTest, ThePeriodsOfAHeadThatIsHeadAgainAreNone) {
    Timer late("late", kFar, ignore, nullptr, ONCE);
    ASSERT_EQ(late.start(), 0);
    Timer timer("beat", kSoon, m_runs.handler(), nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(m_runs.waitFor(1));

    const test::CountCalls writes(Call::Write, everyWrite());
    EXPECT_TRUE(m_runs.waitFor(m_runs.runs().size() + 5));

    EXPECT_EQ(writes.seen(), 0);
    (void)timer.stop();
    (void)late.stop();
}

TEST_F(SchedulerCommandTest, TheEndOfATimerThatFiresOnceIsNone) {
    Timer timer("once", kSoon, m_runs.handler(), nullptr, ONCE);
    const test::CountCalls writes(Call::Write, everyWrite());

    ASSERT_EQ(timer.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(timer.stop(), 0);

    EXPECT_EQ(writes.seen(), 1);  // The start's.
}

TEST_F(SchedulerCommandTest, EachChangeOfTheHeadByAClientIsOne) {
    Timer late("late", kFar, ignore, nullptr, ONCE);
    Timer later("later", {2000000, 0, 0}, ignore, nullptr, ONCE);
    Timer early("early", {500000, 0, 0}, ignore, nullptr, ONCE);
    const test::CountCalls writes(Call::Write, everyWrite());

    (void)late.start();  // Into the empty list.
    EXPECT_EQ(writes.seen(), 1);
    (void)later.start();  // Behind the head.
    EXPECT_EQ(writes.seen(), 1);
    (void)early.start();  // Before the head.
    EXPECT_EQ(writes.seen(), 2);
    (void)early.start();  // Started already.
    EXPECT_EQ(writes.seen(), 2);
    (void)later.stop();  // Not the head.
    EXPECT_EQ(writes.seen(), 2);
    (void)later.stopNoBlock();  // Stopped already.
    EXPECT_EQ(writes.seen(), 2);
    (void)early.stopNoBlock();  // The head.
    EXPECT_EQ(writes.seen(), 3);
    (void)late.stop();  // The head, and the last one.
    EXPECT_EQ(writes.seen(), 4);
}

}  // namespace

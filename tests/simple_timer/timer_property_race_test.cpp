// Properties are changed by one thread while another has the scheduler read them. What is seen is
// compared, but a lock that is missing is what the thread sanitizer sees: nothing else that it
// knows of orders the two threads.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "simple_timer/simple_timer_fixtures.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;

/// Runs @p change on one thread and then start() on another, which only a relaxed flag tells that
/// it may begin.
void startUnorderedAfter(const std::function<void()>& change, Timer* p_timer) {
    std::atomic<bool> isChanged{false};
    test::runAtOnce(2, [&](int i) {
        if (i == 0) {
            change();
            isChanged.store(true, std::memory_order_relaxed);
        } else {
            while (!isChanged.load(std::memory_order_relaxed)) std::this_thread::yield();
            EXPECT_EQ(p_timer->start(), 0);
        }
    });
}

// No line is written: the log's lock would order the threads.
class TimerPropertyRaceTest : public testing::Test {
protected:
    LogCapture m_log{0};
    Runs m_runs;
};

TEST_F(TimerPropertyRaceTest, AStartAfterAChangeOfTheTypeGoesByIt) {
    Timer timer("type", kSoon, m_runs.handler(), nullptr, CONTINUE);

    startUnorderedAfter([&] { EXPECT_EQ(timer.changeType(ONCE), 0); }, &timer);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_FALSE(m_runs.runs()[0].isStarted);
    EXPECT_EQ(timer.stop(), 0);
}

TEST_F(TimerPropertyRaceTest, AStartAfterAChangeOfTheTimeoutGoesByIt) {
    Timer timer("timeout", kFar, m_runs.handler(), nullptr, CONTINUE);

    startUnorderedAfter([&] { EXPECT_EQ(timer.changeTimeout(kSoon), 0); }, &timer);

    EXPECT_TRUE(m_runs.waitFor(2));  // The second period is the scheduler's reading.
    EXPECT_EQ(timer.stop(), 0);
}

TEST_F(TimerPropertyRaceTest, AStartAfterAChangeOfTheHandlerGoesByIt) {
    int data = 0;
    Timer timer("handler", kSoon, ignore, nullptr, ONCE);

    startUnorderedAfter([&] { EXPECT_EQ(timer.changeHandler(m_runs.handler(), &data), 0); },
                        &timer);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(m_runs.runs()[0].p_data, &data);
    EXPECT_EQ(timer.stop(), 0);
}

TEST_F(TimerPropertyRaceTest, AStartAfterAChangeOfAllGoesByIt) {
    int data = 0;
    Timer timer("all", kFar, ignore, nullptr, CONTINUE);

    startUnorderedAfter(
        [&] { EXPECT_EQ(timer.setProperty(kSoon, m_runs.handler(), &data, ONCE), 0); }, &timer);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(m_runs.runs()[0].p_data, &data);
    EXPECT_FALSE(m_runs.runs()[0].isStarted);
    EXPECT_EQ(timer.stop(), 0);
}

// A change that meets the moment between the end of a timer and its next start.
TEST_F(TimerPropertyRaceTest, ChangesWhileOthersStartAndFireAreRefusedOrTakenWhole) {
    constexpr int kRounds = 3000;
    Timer timer("storm", {0, 0, 50}, m_runs.handler(), nullptr, ONCE);
    std::atomic<bool> isOver{false};
    test::runAtOnce(2, [&](int i) {
        if (i == 0) {
            for (int n = 0; n < kRounds; ++n) {
                EXPECT_EQ(timer.start(), 0);
                if (n % 8 == 0) {
                    EXPECT_EQ(timer.stopNoBlock(), 0);
                }
                std::this_thread::yield();
            }
            isOver = true;
            return;
        }
        for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) {
            (void)timer.changeType(n % 2 == 0 ? CONTINUE : ONCE);
            (void)timer.changeTimeout({0, 0, 50 + n % 50});
            (void)timer.changeHandler(m_runs.handler(), nullptr);
            (void)timer.setProperty({0, 0, 50}, m_runs.handler(), nullptr, ONCE);
        }
    });
    EXPECT_EQ(timer.stop(), 0);

    EXPECT_EQ(timer.changeType(ONCE), 0);
    const std::size_t before = m_runs.runs().size();
    EXPECT_EQ(timer.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(before + 1));
    EXPECT_EQ(timer.stop(), 0);
}

}  // namespace

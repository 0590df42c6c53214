// Starting and stopping a timer: what it returns, and what it writes.

#include "base/simple_timer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

#include "simple_timer/simple_timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

using Lines = std::vector<LogEntry>;

class TimerTest : public testing::Test {
protected:
    LogCapture m_log{kLogError};
    Runs m_runs;
};

TEST_F(TimerTest, IsStoppedAtFirst) {
    Timer timer("first", kFar, m_runs.handler(), nullptr, ONCE);

    EXPECT_FALSE(timer.isStarted());
    EXPECT_FALSE(timer.needStop());
    EXPECT_EQ(timer.name(), "first");
}

TEST_F(TimerTest, NamesMayBeAnything) {
    const std::string name(1000, '%');
    Timer timer(name, kSoon, m_runs.handler(), nullptr, ONCE);
    EXPECT_EQ(timer.name(), name);
    EXPECT_EQ(timer.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(1));
    Timer unnamed("", kFar, m_runs.handler(), nullptr, ONCE);
    EXPECT_EQ(unnamed.name(), "");
    (void)timer.stop();
}

TEST_F(TimerTest, OnceFiresOnceAndIsStoppedInItsHandler) {
    int data = 0;
    Timer timer("once", kSoon, m_runs.handler(), &data, ONCE);

    EXPECT_EQ(timer.start(), 0);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(m_runs.runs()[0].p_timer, &timer);
    EXPECT_EQ(m_runs.runs()[0].p_data, &data);
    EXPECT_FALSE(m_runs.runs()[0].isStarted);
    EXPECT_FALSE(timer.isStarted());
    EXPECT_EQ(timer.stop(), 0);

    EXPECT_EQ(timer.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(2));
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_EQ(m_runs.runs().size(), 2U);
}

TEST_F(TimerTest, ContinueFiresUntilItIsStopped) {
    Timer timer("beat", kSoon, m_runs.handler(), nullptr, CONTINUE);
    EXPECT_EQ(timer.start(), 0);

    ASSERT_TRUE(m_runs.waitFor(5));
    EXPECT_TRUE(timer.isStarted());
    EXPECT_TRUE(m_runs.runs()[0].isStarted);

    EXPECT_EQ(timer.stop(), 0);
    EXPECT_FALSE(timer.isStarted());
}

TEST_F(TimerTest, NothingFiresBeforeItsTime) {
    Timer timer("late", {0, 20, 30000}, m_runs.handler(), nullptr, ONCE);

    const double started = monotonicNow();
    EXPECT_EQ(timer.start(), 0);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_GE(m_runs.runs()[0].at, started + 0.05);
    (void)timer.stop();
}

TEST_F(TimerTest, NoPeriodIsShorterThanTheTimeout) {
    Timer timer("beat", {0, 10, 0}, m_runs.handler(), nullptr, CONTINUE);

    const double started = monotonicNow();
    EXPECT_EQ(timer.start(), 0);
    ASSERT_TRUE(m_runs.waitFor(4));
    (void)timer.stop();

    for (int n = 0; n < 4; ++n) {
        EXPECT_GE(m_runs.runs()[static_cast<std::size_t>(n)].at, started + 0.01 * (n + 1));
    }
}

TEST_F(TimerTest, HandlersRunOnThreadsOfTheirOwn) {
    std::set<std::thread::id> threads;
    std::mutex mutex;
    test::Countdown entered(3);
    test::Event release;
    Timer timer(
        "beat", kSoon,
        [&](Timer*, void*) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                threads.insert(std::this_thread::get_id());
            }
            entered.arrive();
            (void)release.wait();
        },
        nullptr, CONTINUE);
    EXPECT_EQ(timer.start(), 0);

    EXPECT_TRUE(entered.wait());  // Three at once: a slow handler overlaps with itself.
    (void)timer.stopNoBlock();
    release.set();

    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_GE(threads.size(), 3U);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

TEST_F(TimerTest, ASlowHandlerDelaysNoOtherTimer) {
    HeldHandler held;
    Timer slow("slow", kSoon, held.handler(), nullptr, ONCE);
    EXPECT_EQ(slow.start(), 0);
    ASSERT_TRUE(held.waitUntilEntered());

    Timer quick("quick", kSoon, m_runs.handler(), nullptr, ONCE);
    EXPECT_EQ(quick.start(), 0);

    EXPECT_TRUE(m_runs.waitFor(1));
    held.letGo();
    (void)quick.stop();
}

TEST_F(TimerTest, AStoppedTimerDoesNotFire) {
    Timer stopped("stopped", {0, 5, 0}, m_runs.handler(), nullptr, ONCE);
    Timer later("later", {0, 10, 0}, m_runs.handler(), nullptr, ONCE);
    EXPECT_EQ(stopped.start(), 0);
    // Whatever the load: it is stopped, or has fired already and counts.
    const bool wasPending = stopped.isStarted();
    EXPECT_EQ(stopped.stop(), 0);
    EXPECT_EQ(later.start(), 0);
    ASSERT_TRUE(m_runs.waitFor(1));
    (void)later.stop();
    if (wasPending && m_runs.runs().size() == 1) {
        EXPECT_EQ(m_runs.runs()[0].p_timer, &later);
    }
    EXPECT_FALSE(stopped.isStarted());
}

TEST_F(TimerTest, NeedStopIsSetByStoppingAndClearedByStarting) {
    Timer timer("advice", kFar, m_runs.handler(), nullptr, ONCE);
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_TRUE(timer.needStop());
    EXPECT_EQ(timer.start(), 0);
    EXPECT_FALSE(timer.needStop());
    EXPECT_EQ(timer.start(), 0);
    EXPECT_FALSE(timer.needStop());
    EXPECT_EQ(timer.stopNoBlock(), 0);
    EXPECT_TRUE(timer.needStop());
    EXPECT_EQ(timer.restart(), 0);
    EXPECT_FALSE(timer.needStop());
    (void)timer.stop();
}

TEST_F(TimerTest, ALongHandlerCanAskWhetherToStop) {
    test::Event entered;
    Timer timer(
        "long", kSoon,
        [&](Timer* p_timer, void*) {
            entered.set();
            while (!p_timer->needStop()) std::this_thread::yield();
        },
        nullptr, ONCE);
    EXPECT_EQ(timer.start(), 0);
    ASSERT_TRUE(entered.wait());

    EXPECT_EQ(timer.stop(), 0);
}

TEST_F(TimerTest, AHandlerMayStopAndRestartItsTimer) {
    test::Event stopped;
    Timer timer(
        "self", kSoon,
        [&](Timer* p_timer, void*) {
            EXPECT_EQ(p_timer->stopNoBlock(), 0);
            EXPECT_FALSE(p_timer->isStarted());
            stopped.set();
        },
        nullptr, CONTINUE);
    EXPECT_EQ(timer.start(), 0);
    ASSERT_TRUE(stopped.wait());
    EXPECT_EQ(timer.stop(), 0);

    Timer again(
        "again", kSoon,
        [&](Timer* p_timer, void* p_data) {
            m_runs.add(p_timer, p_data);
            if (m_runs.runs().size() < 3) {
                EXPECT_EQ(p_timer->start(), 0);
            }
        },
        nullptr, ONCE);
    EXPECT_EQ(again.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(3));
}

TEST_F(TimerTest, FailingToStartForWantOfAClockIsReported) {
    Timer timer("blind", kFar, m_runs.handler(), nullptr, ONCE);
    const LogEntry failure = timerLine(kLogError, "start", "Fail to start timer:'blind'.\n");
    const LogEntry clock = timerLine(kLogError, "caculateExpiredTime",
                                     "Fail to get now time, errorno(5):'Input/output error'.\n");
    {
        test::FailCall noClock(Call::ClockGettime, EIO);
        EXPECT_EQ(timer.start(), -1);
    }
    EXPECT_EQ(clientLines(m_log), (Lines{clock, failure, failure}));
    EXPECT_FALSE(timer.isStarted());
    m_log.clear();
    {
        test::FailCall noClock(Call::ClockGettime, EIO);
        EXPECT_EQ(timer.restart(), -1);
    }
    EXPECT_EQ(
        clientLines(m_log),
        (Lines{timerLine(kLogAlways, "stop", "Before wait timer:'blind' stop.\n"),
               timerLine(kLogAlways, "stop", "After wait timer:'blind' stop.\n"), clock, failure,
               failure, timerLine(kLogError, "restart", "Fail to start timer:'blind'.\n")}));
    EXPECT_FALSE(timer.isStarted());

    EXPECT_EQ(timer.start(), 0);
    (void)timer.stop();
}

TEST_F(TimerTest, RestartOfAnInvalidTimerFails) {
    Timer timer("mute", kFar, nullptr, nullptr, ONCE);

    EXPECT_EQ(timer.restart(), -1);

    const Lines expected = {
        timerLine(kLogError, "start", "Property of timer('mute') is invalid, cannot start.\n"),
        timerLine(kLogError, "restart", "Fail to start timer:'mute'.\n")};
    Lines errors = clientLines(m_log);
    errors.erase(errors.begin(), errors.begin() + 2);  // The two around the wait.
    EXPECT_EQ(errors, expected);
}

// The lines of a client's call, whole and in order. A first timer that never fires keeps the
// list from being empty, and the scheduler asleep.
class TimerLogTest : public testing::Test {
protected:
    TimerLogTest() {
        const StoppedClock clock({500000000, 0});
        EXPECT_EQ(m_head.start(), 0);
        m_log.clear();
    }

    LogCapture m_log;
    Timer m_head{"head", kFar, ignore, nullptr, ONCE};
    Timer m_timer{"t", {1000000000, 0, 0}, ignore, nullptr, ONCE};
};

Lines startLines(const std::string& name) {
    return {
        traceIn("start"), traceOut("start"),
        timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'" + name + "'.\n"),
        timerLine(kLogDebug, "InsterTimer", "Insert timer:'" + name + "' to normal position.\n")};
}

TEST_F(TimerLogTest, Start) {
    EXPECT_EQ(m_timer.start(), 0);
    EXPECT_EQ(clientLines(m_log), startLines("t"));

    m_log.clear();
    EXPECT_EQ(m_timer.start(), 0);
    EXPECT_EQ(clientLines(m_log), Lines{});
}

TEST_F(TimerLogTest, Stop) {
    EXPECT_EQ(m_timer.start(), 0);
    m_log.clear();

    EXPECT_EQ(m_timer.stop(), 0);

    const Lines announced = {timerLine(kLogDebug, "stop", "Stop timer:'t'.\n")};
    EXPECT_EQ(clientLines(m_log), announced + removeLines("t", false) + waitLines("t"));
    m_log.clear();
    EXPECT_EQ(m_timer.stop(), 0);
    EXPECT_EQ(clientLines(m_log), announced + waitLines("t"));
}

TEST_F(TimerLogTest, StopOfTheHead) {
    EXPECT_EQ(m_head.stop(), 0);

    EXPECT_EQ(clientLines(m_log), Lines{timerLine(kLogDebug, "stop", "Stop timer:'head'.\n")} +
                                      removeLines("head", true) + waitLines("head"));
}

TEST_F(TimerLogTest, StopNoBlock) {
    EXPECT_EQ(m_timer.start(), 0);
    m_log.clear();

    EXPECT_EQ(m_timer.stopNoBlock(), 0);

    const Lines begin = {traceIn("stopNoBlock"),
                         timerLine(kLogInfo, "stopNoBlock", "m_impl is not NULL.\n")};
    const Lines end = {traceOut("stopNoBlock")};
    EXPECT_EQ(clientLines(m_log), begin + removeLines("t", false) + end);
    m_log.clear();
    EXPECT_EQ(m_timer.stopNoBlock(), 0);
    EXPECT_EQ(clientLines(m_log), begin + end);
}

TEST_F(TimerLogTest, Restart) {
    EXPECT_EQ(m_timer.start(), 0);
    m_log.clear();

    EXPECT_EQ(m_timer.restart(), 0);

    EXPECT_EQ(clientLines(m_log), Lines{timerLine(kLogDebug, "stop", "Stop timer:'t'.\n")} +
                                      removeLines("t", false) + waitLines("t") + startLines("t"));
    EXPECT_TRUE(m_timer.isStarted());
}

TEST_F(TimerLogTest, DestructionOfAStartedTimer) {
    {
        Timer timer("d", {1000000000, 0, 0}, ignore, nullptr, ONCE);
        EXPECT_EQ(timer.start(), 0);
        m_log.clear();
    }
    EXPECT_EQ(clientLines(m_log),
              Lines({traceIn("~Timer"), timerLine(kLogDebug, "~Timer", "Destroy timer:'d'.\n")}) +
                  removeLines("d", false) + waitLines("d") + Lines{traceOut("~Timer")});
}

TEST_F(TimerLogTest, DestructionOfAStoppedTimer) {
    {
        Timer timer("d", kFar, ignore, nullptr, ONCE);
        m_log.clear();
    }
    EXPECT_EQ(clientLines(m_log),
              Lines({traceIn("~Timer"), timerLine(kLogDebug, "~Timer", "Destroy timer:'d'.\n")}) +
                  waitLines("d") + Lines{traceOut("~Timer")});
}

TEST_F(TimerLogTest, TheRestIsSilent) {
    (void)m_timer.isStarted();
    (void)m_timer.needStop();
    (void)m_timer.name();
    EXPECT_EQ(m_timer.setProperty(kFar, ignore, nullptr, CONTINUE), 0);
    EXPECT_EQ(m_timer.changeHandler(ignore, nullptr), 0);
    EXPECT_EQ(m_timer.changeTimeout(kSoon), 0);
    EXPECT_EQ(m_timer.changeType(ONCE), 0);
    const Timer another("silent", kFar, ignore, nullptr, ONCE);

    EXPECT_EQ(clientLines(m_log), Lines{});
}

}  // namespace

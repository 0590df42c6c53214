#include "base/threading/runnable.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>

#include "base/logging/log_level.h"
#include "support/log_capture.h"
#include "threading/runnable_fixtures.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

class RunnableTest : public testing::Test {
protected:
    /// Tells when run() has begun to wait for the end of a pause.
    class Waiting {
    public:
        [[nodiscard]] bool wait() { return m_entered.wait(); }

    private:
        test::Event m_entered;
        test::RunAtCall m_atWait{Call::PthreadCondWait, [this] { m_entered.set(); },
                                 When().anyThread()};
    };

    LogCapture m_log{kLogError};
    HeldSleeps m_sleeps;
    CountingRunnable m_runnable;
};

TEST_F(RunnableTest, SleepsBeforeEachRound) {
    Runner runner(m_runnable);
    ASSERT_TRUE(m_sleeps.waitFor(1));
    EXPECT_EQ(m_runnable.rounds, 0);

    m_sleeps.letPass(1);
    ASSERT_TRUE(m_sleeps.waitFor(2));
    EXPECT_EQ(m_runnable.rounds, 1);

    m_sleeps.letPass(2);
    ASSERT_TRUE(m_sleeps.waitFor(3));
    EXPECT_EQ(m_runnable.rounds, 2);

    m_runnable.stop();
    m_sleeps.letAllPass();
}

struct Interval {
    std::int32_t milliseconds;
    time_t sec;
    long nsec;
};

// Its bytes would show what lies between the members, too.
void PrintTo(const Interval& interval, std::ostream* p_stream) {
    *p_stream << interval.milliseconds << " ms";
}

class RunnableIntervalTest : public testing::TestWithParam<Interval> {};

TEST_P(RunnableIntervalTest, IsSplitIntoSecondsAndNanoseconds) {
    LogCapture log(kLogError);
    HeldSleeps sleeps;
    CountingRunnable runnable(GetParam().milliseconds);
    Runner runner(runnable);
    ASSERT_TRUE(sleeps.waitFor(1));

    runnable.stop();
    sleeps.letAllPass();

    EXPECT_EQ(sleeps.requests().front().tv_sec, GetParam().sec);
    EXPECT_EQ(sleeps.requests().front().tv_nsec, GetParam().nsec);
}

INSTANTIATE_TEST_SUITE_P(Lengths, RunnableIntervalTest,
                         testing::Values(Interval{1500, 1, 500000000}, Interval{10, 0, 10000000},
                                         Interval{0, 0, 0}, Interval{1000, 1, 0},
                                         Interval{999, 0, 999000000},
                                         Interval{-1500, -1, -500000000},
                                         Interval{INT32_MAX, 2147483, 647000000},
                                         Interval{INT32_MIN, -2147483, -648000000}));

TEST_F(RunnableTest, ARefusedSleepIsNone) {
    m_sleeps.failWith(EINVAL);  // As for a negative interval.
    m_sleeps.letPass(3);
    Runner runner(m_runnable);

    ASSERT_TRUE(m_sleeps.waitFor(4));
    EXPECT_EQ(m_runnable.rounds, 3);

    m_runnable.stop();
    m_sleeps.letAllPass();
}

TEST_F(RunnableTest, AnInterruptedSleepIsNotResumed) {
    m_sleeps.failWith(EINTR);
    m_sleeps.letPass(1);
    Runner runner(m_runnable);

    ASSERT_TRUE(m_sleeps.waitFor(2));
    EXPECT_EQ(m_runnable.rounds, 1);

    m_runnable.stop();
    m_sleeps.letAllPass();
}

TEST(RunnableTimeTest, ANegativeIntervalRunsWithoutDelay) {
    LogCapture log(kLogError);
    test::Countdown rounds(3);
    CountingRunnable runnable(-1);
    runnable.onExecute = [&] { rounds.arrive(); };
    Runner runner(runnable);

    EXPECT_TRUE(rounds.wait());
    runnable.stop();
}

TEST_F(RunnableTest, StopDoesNotCutASleepShort) {
    Runner runner(m_runnable);
    ASSERT_TRUE(m_sleeps.waitFor(1));

    m_runnable.stop();
    EXPECT_FALSE(runner.hasReturned());
    m_sleeps.letPass(1);

    EXPECT_TRUE(runner.waitForReturn());
    EXPECT_EQ(runner.result(), 0);
    EXPECT_EQ(m_runnable.rounds, 0);
}

TEST_F(RunnableTest, StopDuringARoundIsNoticedAfterTheNextSleep) {
    test::Event entered;
    test::Event release;
    m_runnable.onExecute = [&] {
        entered.set();
        (void)release.wait();
    };
    m_sleeps.letPass(1);
    Runner runner(m_runnable);
    ASSERT_TRUE(entered.wait());

    m_runnable.stop();
    release.set();
    ASSERT_TRUE(m_sleeps.waitFor(2));
    EXPECT_FALSE(runner.hasReturned());
    m_sleeps.letPass(2);

    EXPECT_TRUE(runner.waitForReturn());
    EXPECT_EQ(runner.result(), 0);
    EXPECT_EQ(m_runnable.rounds, 1);
}

TEST_F(RunnableTest, StopWhilePausedReturnsWithoutARound) {
    Waiting waiting;
    m_runnable.pause();
    m_sleeps.letPass(1);
    Runner runner(m_runnable);
    ASSERT_TRUE(waiting.wait());
    EXPECT_FALSE(runner.hasReturned());

    m_runnable.stop();

    EXPECT_TRUE(runner.waitForReturn());
    EXPECT_EQ(runner.result(), 0);
    EXPECT_EQ(m_runnable.rounds, 0);
}

TEST_F(RunnableTest, ResumeGoesOnWithTheRound) {
    Waiting waiting;
    m_runnable.pause();
    m_sleeps.letPass(1);
    Runner runner(m_runnable);
    ASSERT_TRUE(waiting.wait());
    EXPECT_EQ(m_runnable.rounds, 0);

    m_runnable.resume();

    ASSERT_TRUE(m_sleeps.waitFor(2));  // No sleep between the pause and the round.
    EXPECT_EQ(m_runnable.rounds, 1);
    m_runnable.stop();
    m_sleeps.letAllPass();
}

TEST_F(RunnableTest, APauseAfterStopHangsUntilResume) {
    Waiting waiting;
    Runner runner(m_runnable);
    ASSERT_TRUE(m_sleeps.waitFor(1));
    m_runnable.stop();
    m_runnable.pause();
    m_sleeps.letAllPass();
    ASSERT_TRUE(waiting.wait());
    EXPECT_FALSE(runner.hasReturned());
    EXPECT_FALSE(m_runnable.running());

    m_runnable.resume();

    EXPECT_TRUE(runner.waitForReturn());
    EXPECT_EQ(runner.result(), 0);
    EXPECT_EQ(m_runnable.rounds, 0);
    EXPECT_FALSE(m_runnable.running());
}

TEST_F(RunnableTest, AWakeUpWithoutResumeChangesNothing) {
    test::FailCall wakeUp(Call::PthreadCondWait, 0, When().anyThread().times(2));
    test::Event thirdWait;
    test::RunAtCall atThird(
        Call::PthreadCondWait, [&] { thirdWait.set(); }, When().anyThread().nth(3));
    m_runnable.pause();
    m_sleeps.letPass(1);
    Runner runner(m_runnable);

    ASSERT_TRUE(thirdWait.wait());
    EXPECT_EQ(wakeUp.hits(), 2);
    EXPECT_EQ(m_runnable.rounds, 0);
    EXPECT_FALSE(runner.hasReturned());

    m_runnable.stop();
}

TEST_F(RunnableTest, AStoppedOneIsNotRestarted) {
    m_runnable.stop();
    m_runnable.resume();
    m_sleeps.letAllPass();

    EXPECT_EQ(m_runnable.run(), 0);
    EXPECT_EQ(m_runnable.run(), 0);

    EXPECT_EQ(m_runnable.rounds, 0);
    EXPECT_EQ(m_sleeps.requests().size(), 2U);
}

TEST_F(RunnableTest, ARoundMayStopAndPauseItself) {
    Waiting waiting;
    m_sleeps.letAllPass();
    m_runnable.onExecute = [&] {
        if (m_runnable.rounds == 1) {
            m_runnable.pause();
        } else {
            m_runnable.stop();
        }
    };
    Runner runner(m_runnable);
    ASSERT_TRUE(waiting.wait());
    EXPECT_EQ(m_runnable.rounds, 1);

    m_runnable.resume();

    EXPECT_TRUE(runner.waitForReturn());
    EXPECT_EQ(m_runnable.rounds, 2);
}

TEST_F(RunnableTest, RunningIsFalseWhilePausedAndOnceStopped) {
    EXPECT_TRUE(m_runnable.running());
    m_runnable.pause();
    EXPECT_FALSE(m_runnable.running());
    m_runnable.pause();
    EXPECT_FALSE(m_runnable.running());
    m_runnable.resume();
    EXPECT_TRUE(m_runnable.running());
    m_runnable.resume();
    EXPECT_TRUE(m_runnable.running());
    m_runnable.stop();
    EXPECT_FALSE(m_runnable.running());
    m_runnable.resume();
    EXPECT_FALSE(m_runnable.running());
}

/// The last lock that @p action takes.
template <typename Action>
const void* lockTakenBy(Action action) {
    const void* p_lock = nullptr;
    const test::ReplaceCall<int(pthread_mutex_t*)> atLock(Call::PthreadMutexLock,
                                                          [&](pthread_mutex_t* p_mutex) {
                                                              p_lock = p_mutex;
                                                              return pthread_mutex_lock(p_mutex);
                                                          });
    action();
    return p_lock;
}

TEST_F(RunnableTest, AllItsCallsTakeOneLock) {
    const void* const p_lock = lockTakenBy([&] { m_runnable.pause(); });

    EXPECT_EQ(lockTakenBy([&] { (void)m_runnable.running(); }), p_lock);
    EXPECT_EQ(lockTakenBy([&] { m_runnable.resume(); }), p_lock);
    EXPECT_EQ(lockTakenBy([&] { m_runnable.stop(); }), p_lock);
}

TEST_F(RunnableTest, APausedOneThatIsStoppedDoesNotRunInBetween) {
    const void* const p_lock = lockTakenBy([&] { m_runnable.resume(); });
    m_runnable.pause();
    bool isRunning = true;
    test::Event asks;
    std::thread asker;
    const test::RunAtCall atSignal(Call::PthreadCondSignal, [&] {  // The pause has just ended.
        asker = std::thread([&] {
            const test::RunAtCall atLock(
                Call::PthreadMutexLock, [&] { asks.set(); }, When().on(p_lock));
            isRunning = m_runnable.running();
            asks.set();
        });
        (void)asks.wait();
    });

    m_runnable.stop();

    asker.join();
    EXPECT_FALSE(isRunning);
}

TEST_F(RunnableTest, OnlyTheEndOfAPauseIsSignalled) {
    test::CountCalls signals(Call::PthreadCondSignal);

    m_runnable.pause();
    EXPECT_EQ(signals.seen(), 0);
    m_runnable.resume();
    EXPECT_EQ(signals.seen(), 1);
    m_runnable.resume();
    EXPECT_EQ(signals.seen(), 2);
    m_runnable.stop();
    EXPECT_EQ(signals.seen(), 2);
    m_runnable.pause();
    m_runnable.stop();
    EXPECT_EQ(signals.seen(), 3);
}

// What the flags say when the loop looks at them after its sleep, for every sequence of calls
// during that sleep.
class RunnableOrdersTest : public testing::TestWithParam<std::string> {};

TEST_P(RunnableOrdersTest, LeadWhereTheLastOnesSay) {
    LogCapture log(kLogError);
    HeldSleeps sleeps;
    CountingRunnable runnable;
    test::Event waited;
    test::RunAtCall atWait(
        Call::PthreadCondWait, [&] { waited.set(); }, When().anyThread());
    Runner runner(runnable);
    ASSERT_TRUE(sleeps.waitFor(1));

    bool isPaused = false;
    bool isStopped = false;
    for (const char call : GetParam()) {
        if (call == 'p') runnable.pause();
        if (call == 'r') runnable.resume();
        if (call == 's') runnable.stop();
        isPaused = call == 'p';
        isStopped = isStopped || call == 's';
    }
    EXPECT_EQ(runnable.running(), !isPaused && !isStopped);
    sleeps.letPass(1);

    if (isPaused) {
        ASSERT_TRUE(waited.wait());
        EXPECT_FALSE(runner.hasReturned());
        EXPECT_EQ(runnable.rounds, 0);
        runnable.resume();
    }
    if (isStopped) {
        EXPECT_TRUE(runner.waitForReturn());
        EXPECT_EQ(runnable.rounds, 0);
        EXPECT_EQ(runner.result(), 0);
    } else {
        EXPECT_TRUE(sleeps.waitFor(2));
        EXPECT_EQ(runnable.rounds, 1);
    }
    EXPECT_EQ(waited.isSet(), isPaused);
    runnable.stop();
    sleeps.letAllPass();
}

std::vector<std::string> sequences(std::size_t longest) {
    std::vector<std::string> all = {""};
    for (std::size_t i = 0; all[i].size() < longest; ++i) {
        for (const char call : {'p', 'r', 's'}) all.push_back(all[i] + call);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(Of, RunnableOrdersTest, testing::ValuesIn(sequences(3)));

class RunnableLogTest : public testing::Test {
protected:
    LogCapture m_log;
};

TEST_F(RunnableLogTest, EveryCallIsLogged) {
    HeldSleeps sleeps;
    sleeps.letAllPass();
    {
        CountingRunnable runnable(-7);
        runnable.pause();
        runnable.resume();
        runnable.stop();
        EXPECT_FALSE(runnable.running());
        EXPECT_EQ(runnable.run(), 0);
    }
    std::vector<LogEntry> entries = m_log.entries();
    ASSERT_EQ(entries.size(), 6U);
    entries.back().text = test::withoutLineNumber(entries.back().text);

    EXPECT_EQ(entries, (std::vector<LogEntry>{
                           {4000, "[B-LOG] runnable.cpp:9:Runnable(): called, interval: -7\n\n"},
                           {4000, "[B-LOG] runnable.cpp:46:pause(): called\n\n"},
                           {4000, "[B-LOG] runnable.cpp:52:resume(): called\n\n"},
                           {4000, "[B-LOG] runnable.cpp:36:stop(): called\n\n"},
                           {4000, "[B-LOG] runnable.cpp:21:run(): called\n\n"},
                           {4000, "[B-LOG] runnable.cpp:#:~Runnable(): called\n\n"}}));
}

TEST_F(RunnableLogTest, RoundsAreNotLogged) {
    HeldSleeps sleeps;
    CountingRunnable runnable;
    sleeps.letPass(3);
    m_log.clear();
    Runner runner(runnable);
    ASSERT_TRUE(sleeps.waitFor(4));

    EXPECT_EQ(m_log.entries(),
              (std::vector<LogEntry>{{4000, "[B-LOG] runnable.cpp:21:run(): called\n\n"}}));
    runnable.stop();
    sleeps.letAllPass();
}

TEST(RunnableTimeTest, NoRoundComesBeforeItsInterval) {
    LogCapture log(kLogError);
    test::Event done;
    CountingRunnable runnable(30);
    std::chrono::steady_clock::time_point end;
    runnable.onExecute = [&] {
        if (runnable.rounds < 2) return;
        end = std::chrono::steady_clock::now();
        runnable.stop();
        done.set();
    };

    const auto begin = std::chrono::steady_clock::now();
    Runner runner(runnable);
    ASSERT_TRUE(done.wait());

    EXPECT_GE(end - begin, std::chrono::milliseconds(60));
}

TEST(RunnableTrafficTest, ManyThreadsSteerOne) {
    LogCapture log(kLogError);
    CountingRunnable runnable(-1);
    test::Countdown rounds(20);
    runnable.onExecute = [&] { rounds.arrive(); };
    {
        Runner runner(runnable);
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                for (int n = 0; n < 300; ++n) {
                    runnable.pause();
                    (void)runnable.running();
                    runnable.resume();
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_TRUE(rounds.wait());
        runnable.stop();
        EXPECT_TRUE(runner.waitForReturn());
        EXPECT_EQ(runner.result(), 0);
    }
    EXPECT_FALSE(runnable.running());
}

}  // namespace

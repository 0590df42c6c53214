// What wakes the thread. Its timed waits are made to last an hour, for otherwise it wakes by itself
// before long, and whoever forgets to wake it is merely late.

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::When;

using ClockWait = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
using ReadClock = int(clockid_t, timespec*);

constexpr int kHourMs = 3600 * 1000;

/// While it lives, timed waits of other threads end with a wake-up or after an hour. Outlives the
/// threads that wait.
class EndlessWaits {
public:
    EndlessWaits()
        : m_wait(
              Call::PthreadCondClockwait,
              [this](pthread_cond_t* p_cond, pthread_mutex_t* p_mutex, clockid_t clock,
                     const timespec* p_deadline) {
                  if (pthread_equal(m_self, pthread_self()) != 0) {
                      return pthread_cond_clockwait(p_cond, p_mutex, clock, p_deadline);
                  }
                  timespec late = {};
                  (void)clock_gettime(clock, &late);
                  late.tv_sec += 3600;
                  noteBegin();
                  return pthread_cond_clockwait(p_cond, p_mutex, clock, &late);
              },
              When().anyThread().everyTime()) {}

    /// Blocks until so many have begun, in all; false when test::kPatience ran out first. Whoever
    /// takes the lock that the wait releases comes after its beginning.
    [[nodiscard]] bool waitForBegun(int count) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_grown.wait_for(lock, test::kPatience, [&] { return m_begun >= count; });
    }

private:
    void noteBegin() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_begun;
        m_grown.notify_all();
    }

    const pthread_t m_self = pthread_self();
    std::mutex m_mutex;
    std::condition_variable m_grown;
    int m_begun = 0;  // Guarded by m_mutex.
    // Last: it uses the rest.
    test::ReplaceCall<ClockWait> m_wait;
};

class TimerThreadWakeTest : public testing::Test {
protected:
    void post(int number, int delayMs) {
        m_thread.postTask(makeTask([this, number] { m_fires.add(number); }), delayMs);
    }

    test::LogCapture m_log{kLogError};
    FireLog m_fires;
    EndlessWaits m_waits;
    TimerThread m_thread;
};

TEST_F(TimerThreadWakeTest, EachPostIntoTheEmptyQueueDoes) {
    m_thread.start();
    for (int n = 1; n <= 5; ++n) {
        ASSERT_TRUE(m_waits.waitForBegun(n));
        post(n, 0);
        ASSERT_TRUE(m_fires.waitFor(static_cast<std::size_t>(n)));
    }
}

TEST_F(TimerThreadWakeTest, AnEarlierTaskDoes) {
    post(1, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));

    post(2, 0);

    ASSERT_TRUE(m_fires.waitFor(1));
    EXPECT_EQ(m_fires.fired(), std::vector<int>{2});
}

// It would only sleep on.
TEST_F(TimerThreadWakeTest, ALaterTaskDoesNot) {
    post(1, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));
    const test::CountCalls signals(Call::PthreadCondSignal);

    post(2, 2 * kHourMs);

    EXPECT_EQ(signals.seen(), 0);
}

TEST_F(TimerThreadWakeTest, ATaskLaterThanTheNextLookAtTheEmptyQueueDoesNot) {
    m_thread.start();
    ASSERT_TRUE(m_waits.waitForBegun(1));
    const test::CountCalls signals(Call::PthreadCondSignal);

    post(1, kHourMs);

    EXPECT_EQ(signals.seen(), 0);
}

// Zero is a time like any other, not that of a clock that cannot be read.
TEST_F(TimerThreadWakeTest, NorDoesItWhereTheClockHasJustBegun) {
    const test::ReplaceCall<ReadClock> start(
        Call::ClockGettime,
        [](clockid_t, timespec* p_time) {
            *p_time = {};
            return 0;
        },
        When().anyThread().everyTime());
    m_thread.start();
    ASSERT_TRUE(m_waits.waitForBegun(1));
    const test::CountCalls signals(Call::PthreadCondSignal);

    post(1, kHourMs);

    EXPECT_EQ(signals.seen(), 0);
}

TEST_F(TimerThreadWakeTest, ATaskThatIsDueDoesBehindOthersThatAreNot) {
    post(1, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));

    post(2, 2 * kHourMs);
    post(3, kHourMs / 2);
    post(4, 3 * kHourMs);
    post(5, 0);

    ASSERT_TRUE(m_fires.waitFor(1));
    EXPECT_EQ(m_fires.fired(), std::vector<int>{5});
    EXPECT_EQ(m_thread.taskCount(), 4);
}

TEST_F(TimerThreadWakeTest, AnyPostDoesBehindACancelledTask) {
    const auto cancelled = makeTask([&] { m_fires.add(1); });
    m_thread.postTask(cancelled, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));
    m_thread.cancelTaskBySessionId(cancelled->sessionId());
    EXPECT_EQ(m_thread.taskCount(), 1);

    post(2, 2 * kHourMs);

    ASSERT_TRUE(m_waits.waitForBegun(2));  // It has dropped the one, and waits for the other.
    EXPECT_EQ(m_thread.taskCount(), 1);
    EXPECT_EQ(cancelled.use_count(), 1);
}

// Who reads the debug lines sees the thread look at its queue after each post.
TEST_F(TimerThreadWakeTest, AnyPostDoesWhereTheLogTells) {
    post(1, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));
    test::setLogLevel(kLogDebug);
    m_log.clear();

    post(2, 2 * kHourMs);

    ASSERT_TRUE(m_waits.waitForBegun(2));
    EXPECT_EQ(linesOf("run", m_log.entriesWithoutLineNumbers()),
              std::vector<test::LogEntry>{threadLine(
                  kLogDebug, "run", "[" + address(&m_thread) + "]: Not timeout, continue.\n")});
}

TEST_F(TimerThreadWakeTest, AnIdleThreadThatIsWokenLooksAtTheQueueAnew) {
    m_thread.start();
    ASSERT_TRUE(m_waits.waitForBegun(1));
    test::setLogLevel(kLogDebug);
    m_log.clear();

    post(1, kHourMs);

    ASSERT_TRUE(m_waits.waitForBegun(2));
    EXPECT_EQ(linesOf("run", m_log.entriesWithoutLineNumbers()),
              std::vector<test::LogEntry>{threadLine(
                  kLogDebug, "run", "[" + address(&m_thread) + "]: Not timeout, continue.\n")});
}

TEST_F(TimerThreadWakeTest, APostDoesWhereTheThreadCouldNotReadTheClock) {
    const pthread_t self = pthread_self();
    const test::ReplaceCall<ReadClock> noClock(
        Call::ClockGettime,
        [self](clockid_t clock, timespec* p_time) {
            if (pthread_equal(self, pthread_self()) != 0) return clock_gettime(clock, p_time);
            *p_time = {};
            errno = EIO;
            return -1;
        },
        When().anyThread().everyTime());
    m_thread.start();
    ASSERT_TRUE(m_waits.waitForBegun(1));

    m_thread.postTask(makeTask([&] { m_fires.add(1); }, -2.0));  // Due, for now is -1.0.
    EXPECT_TRUE(m_fires.waitFor(1));
    ASSERT_TRUE(m_waits.waitForBegun(2));
    post(2, 0);
    // It looks once more: the task seems far away to it.
    EXPECT_TRUE(m_waits.waitForBegun(3));
    m_thread.stop();
}

TEST_F(TimerThreadWakeTest, AStopDoes) {
    post(1, kHourMs);
    ASSERT_TRUE(m_waits.waitForBegun(1));

    test::Event stopped;
    std::thread stopping([&] {
        m_thread.stop();
        stopped.set();
    });
    const bool hasStopped = stopped.wait();
    EXPECT_TRUE(hasStopped);
    if (!hasStopped) post(2, 0);  // Wakes it for the stop.
    stopping.join();

    EXPECT_EQ(m_thread.taskCount(), 1);
}

}  // namespace

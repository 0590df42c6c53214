// What a TimerThread fires, when, and in which order.

#include "base/timer/timer_thread.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <numeric>
#include <thread>

#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::LogCapture;

constexpr double kFar = 1e6;  // Seconds from now that no test lives to see.

class TimerThreadTest : public testing::Test {
protected:
    std::shared_ptr<TestTask> numbered(int number, double fireTime, std::int32_t id = 0) {
        return makeTask([this, number] { m_fires.add(number); }, fireTime, id);
    }

    /// Posts, on a held thread, tasks 0, 1, ... for @p times, milliseconds on the clock, and
    /// returns the order of firing.
    std::vector<int> orderOf(const std::vector<double>& times) {
        EXPECT_TRUE(m_holder.hold(m_thread));
        for (std::size_t i = 0; i < times.size(); ++i) {
            m_thread.postTask(numbered(static_cast<int>(i), times[i] * 1e-3));
        }
        m_holder.letGo();
        EXPECT_TRUE(m_fires.waitFor(times.size()));
        return m_fires.fired();
    }

    void TearDown() override { m_holder.letGo(); }

    LogCapture m_log{kLogError};
    FireLog m_fires;
    Holder m_holder;
    TimerThread m_thread;  // Last: its thread uses the rest.
};

TEST_F(TimerThreadTest, IsIdleAtFirst) {
    EXPECT_FALSE(m_thread.hasTask());
    EXPECT_EQ(m_thread.taskCount(), 0);
    EXPECT_FALSE(m_thread.isBusy());
    EXPECT_EQ(m_thread.threadId(), -1);
}

TEST_F(TimerThreadTest, MakesNoThreadUntilTheFirstPost) {
    test::CountCalls created(test::Call::PthreadCreate);
    TimerThread thread;
    EXPECT_EQ(created.seen(), 0);

    thread.postTask(numbered(1, 0.0), 0);
    thread.postTask(numbered(2, 0.0), 0);

    EXPECT_TRUE(m_fires.waitFor(2));
    EXPECT_EQ(created.seen(), 1);
}

TEST_F(TimerThreadTest, FiresOnItsOwnThread) {
    std::int32_t fireThread = 0;
    test::Event fired;
    m_thread.postTask(makeTask([&] {
                          fireThread = currentThread();
                          fired.set();
                      }),
                      0);

    ASSERT_TRUE(fired.wait());
    EXPECT_EQ(fireThread, m_thread.threadId());
    EXPECT_NE(fireThread, currentThread());
}

TEST_F(TimerThreadTest, NothingFiresBeforeItsTime) {
    double firedAt = 0.0;
    test::Event fired;
    const auto note = [&] {
        firedAt = monotonicNow();
        fired.set();
    };

    const double posted = monotonicNow();
    m_thread.postTask(makeTask(note), 250);
    ASSERT_TRUE(fired.wait());
    EXPECT_GE(firedAt, posted + 0.25);

    fired.reset();
    const double due = monotonicNow() + 0.05;
    m_thread.postTask(makeTask(note, due));
    ASSERT_TRUE(fired.wait());
    EXPECT_GE(firedAt, due);
}

TEST_F(TimerThreadTest, TimesOfNowAndBeforeFireAtOnce) {
    m_thread.postTask(numbered(1, 0.0), 0);
    m_thread.postTask(numbered(2, 0.0), -1000);
    m_thread.postTask(numbered(3, -5.0));
    m_thread.postTask(numbered(4, 0.0));
    m_thread.postTask(numbered(5, 0.0), std::numeric_limits<std::int32_t>::min());

    EXPECT_TRUE(m_fires.waitFor(5));
}

TEST_F(TimerThreadTest, ADelaySetsTheFireTime) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    for (const std::int32_t delayMs : {0, 1, 1500, -2500, 86400000}) {
        const auto task = numbered(0, 0.0);
        const double before = monotonicNow();
        m_thread.postTask(task, delayMs);
        const double after = monotonicNow();

        EXPECT_GE(task->getNextFireTime(), before + delayMs / 1000.0);
        EXPECT_LE(task->getNextFireTime(), after + delayMs / 1000.0);
        m_thread.cancelTaskBySessionId(task->sessionId());
    }
}

TEST_F(TimerThreadTest, AFireTimeThatIsNotSetBecomesNow) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = numbered(1, 0.0);

    const double before = monotonicNow();
    m_thread.postTask(task);

    EXPECT_GE(task->getNextFireTime(), before);
    EXPECT_LE(task->getNextFireTime(), monotonicNow());
}

TEST_F(TimerThreadTest, FiresInOrderOfTime) {
    EXPECT_EQ(orderOf({30, 10, 20, 5, 40}), (std::vector<int>{3, 1, 2, 0, 4}));
}

TEST_F(TimerThreadTest, EqualTimesFireInTheOrderOfPosting) {
    EXPECT_EQ(orderOf({7, 7, 7, 7, 3}), (std::vector<int>{4, 0, 1, 2, 3}));
}

TEST_F(TimerThreadTest, NegativeTimesComeFirst) {
    EXPECT_EQ(orderOf({1, -1, -1, -3, 2}), (std::vector<int>{3, 1, 2, 0, 4}));
}

TEST_F(TimerThreadTest, AnEarlierTaskShortensTheWait) {
    m_thread.postTask(numbered(1, monotonicNow() + kFar));
    m_thread.postTask(numbered(2, 0.0), 10);

    EXPECT_TRUE(m_fires.waitFor(1));
    EXPECT_EQ(m_fires.fired(), std::vector<int>{2});
    EXPECT_EQ(m_thread.taskCount(), 1);
}

TEST_F(TimerThreadTest, ATaskMayPostAndCancelOnItsOwnThread) {
    const auto last = numbered(3, 0.0);
    const auto cancelled = numbered(2, monotonicNow() + kFar);
    m_thread.postTask(cancelled);
    m_thread.postTask(makeTask([&] {
                          m_fires.add(1);
                          m_thread.cancelTaskBySessionId(cancelled->sessionId());
                          m_thread.postTask(last, 0);
                      }),
                      0);

    EXPECT_TRUE(m_fires.waitFor(2));
    EXPECT_EQ(m_fires.fired(), (std::vector<int>{1, 3}));
    EXPECT_EQ(cancelled->getNextFireTime(), 0.0);
}

TEST_F(TimerThreadTest, ATaskMayPostItselfAgain) {
    std::shared_ptr<TestTask> task;
    int rounds = 0;
    task = makeTask([&] {
        m_fires.add(++rounds);
        if (rounds < 3) m_thread.postTask(task, 1);
    });

    m_thread.postTask(task, 0);

    EXPECT_TRUE(m_fires.waitFor(3));
    m_thread.stop();
    EXPECT_EQ(m_fires.fired(), (std::vector<int>{1, 2, 3}));
    task.reset();
}

TEST_F(TimerThreadTest, ATaskMayBeQueuedTwice) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = numbered(1, 0.05);

    m_thread.postTask(task);
    m_thread.postTask(task);
    EXPECT_EQ(m_thread.taskCount(), 2);
    m_holder.letGo();

    EXPECT_TRUE(m_fires.waitFor(2));
}

TEST_F(TimerThreadTest, AFiredTaskIsLetGoOf) {
    const auto task = numbered(1, 0.0);
    m_thread.postTask(task, 0);
    ASSERT_TRUE(m_fires.waitFor(1));

    m_thread.stop();

    EXPECT_EQ(task.use_count(), 1);
}

TEST_F(TimerThreadTest, IsBusyExactlyWhileATaskFires) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    EXPECT_TRUE(m_thread.isBusy());
    EXPECT_FALSE(m_thread.hasTask());  // The task in hand is not queued any more.

    m_holder.letGo();
    m_thread.stop();

    EXPECT_FALSE(m_thread.isBusy());
}

TEST_F(TimerThreadTest, CountsWhatIsQueued) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    m_thread.postTask(numbered(1, 0.10));
    EXPECT_TRUE(m_thread.hasTask());
    EXPECT_EQ(m_thread.taskCount(), 1);
    m_thread.postTask(numbered(2, 0.10));
    EXPECT_EQ(m_thread.taskCount(), 2);

    m_holder.letGo();
    ASSERT_TRUE(m_fires.waitFor(2));
    EXPECT_FALSE(m_thread.hasTask());
    EXPECT_EQ(m_thread.taskCount(), 0);
}

TEST_F(TimerThreadTest, CancellingBySessionIdMeetsOneTask) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto kept = numbered(1, 0.10, 5);
    const auto cancelled = numbered(2, 0.10, 5);
    m_thread.postTask(kept);
    m_thread.postTask(cancelled);
    m_thread.postTask(numbered(3, 0.10, 5));

    m_thread.cancelTaskBySessionId(cancelled->sessionId());
    EXPECT_EQ(cancelled->getNextFireTime(), 0.0);
    EXPECT_EQ(kept->getNextFireTime(), 0.10);
    EXPECT_EQ(m_thread.taskCount(), 3);  // It keeps its place until it is at the front.
    m_holder.letGo();

    ASSERT_TRUE(m_fires.waitFor(2));
    EXPECT_EQ(m_fires.fired(), (std::vector<int>{1, 3}));
    m_thread.stop();
    EXPECT_EQ(m_thread.taskCount(), 0);
    EXPECT_EQ(cancelled.use_count(), 1);
}

TEST_F(TimerThreadTest, CancellingByTaskIdMeetsAllOfThem) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    m_thread.postTask(numbered(1, 0.10, 5));
    m_thread.postTask(numbered(2, 0.11, 6));
    m_thread.postTask(numbered(3, 0.12, 5));
    m_thread.postTask(numbered(4, 0.13));

    m_thread.cancelTaskByTaskId(5);
    m_holder.letGo();

    ASSERT_TRUE(m_fires.waitFor(2));
    EXPECT_EQ(m_fires.fired(), (std::vector<int>{2, 4}));
}

TEST_F(TimerThreadTest, TaskIdZeroIsThatOfTasksWithout) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    m_thread.postTask(numbered(1, 0.10));
    m_thread.postTask(numbered(2, 0.11, 6));
    m_thread.postTask(numbered(3, 0.12));

    m_thread.cancelTaskByTaskId(0);
    m_holder.letGo();

    ASSERT_TRUE(m_fires.waitFor(1));
    m_thread.stop();
    EXPECT_EQ(m_fires.fired(), std::vector<int>{2});
}

// But for the debug lines.
TEST_F(TimerThreadTest, CancellingNeedsNoMemory) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = numbered(1, 0.10, 5);
    m_thread.postTask(task);
    m_thread.postTask(numbered(2, 0.10, 5));
    const test::CountCalls allocations(test::Call::New);

    m_thread.cancelTaskBySessionId(task->sessionId());
    m_thread.cancelTaskByTaskId(5);

    EXPECT_EQ(allocations.seen(), 0);
}

TEST_F(TimerThreadTest, TheTaskInHandIsNotCancelled) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const double fireTime = m_holder.task()->getNextFireTime();

    m_thread.cancelTaskBySessionId(m_holder.task()->sessionId());
    m_thread.cancelTaskByTaskId(m_holder.task()->taskId());

    EXPECT_EQ(m_holder.task()->getNextFireTime(), fireTime);
}

TEST_F(TimerThreadTest, ACancelledTaskMayBePostedAgain) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = numbered(1, 0.10);
    m_thread.postTask(task);
    m_thread.cancelTaskBySessionId(task->sessionId());

    task->setNextFireTime(0.20);
    m_thread.postTask(task);
    m_holder.letGo();

    EXPECT_TRUE(m_fires.waitFor(1));
}

TEST_F(TimerThreadTest, CancelledTasksAreWalkedOver) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto cancelled = numbered(2, 0.20);
    m_thread.postTask(numbered(1, 0.10));
    m_thread.postTask(cancelled);
    m_thread.postTask(numbered(3, 0.30));
    m_thread.cancelTaskBySessionId(cancelled->sessionId());

    const auto added = numbered(4, 0.15);
    m_thread.postTask(added);

    // By the walk, 0.15 goes before 0.30, the first that is greater, and so behind the cancelled
    // one.
    EXPECT_NE(m_thread.popFirstTask(), nullptr);
    EXPECT_EQ(m_thread.popFirstTask(), cancelled);
    EXPECT_EQ(m_thread.popFirstTask(), added);
}

TEST_F(TimerThreadTest, TheStepsLookAtTheFrontOfTheQueue) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    EXPECT_EQ(m_thread.getNextFiringInterval(), 0.0);
    EXPECT_EQ(m_thread.popFirstTask(), nullptr);
    const auto late = numbered(1, monotonicNow() + kFar);
    const auto early = numbered(2, monotonicNow() - 100);
    m_thread.postTask(late);

    EXPECT_GT(m_thread.getNextFiringInterval(), kFar - 1000);
    EXPECT_LE(m_thread.getNextFiringInterval(), kFar);
    m_thread.postTask(early);
    EXPECT_LE(m_thread.getNextFiringInterval(), -100);
    EXPECT_EQ(m_thread.popFirstTask(), early);
    EXPECT_EQ(m_thread.popFirstTask(), late);
    EXPECT_EQ(m_thread.popFirstTask(), nullptr);
    EXPECT_EQ(m_thread.taskCount(), 0);
}

TEST_F(TimerThreadTest, TheWaitReturnsAtOnceWhenSomethingIsDueOrCancelled) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = numbered(1, monotonicNow() - 1);
    m_thread.postTask(task);
    test::CountCalls waits(test::Call::PthreadCondClockwait);

    m_thread.waitNextTaskWithTimeOut(kFar);
    m_thread.cancelTaskBySessionId(task->sessionId());
    m_thread.waitNextTaskWithTimeOut(kFar);

    EXPECT_EQ(waits.seen(), 0);
}

TEST_F(TimerThreadTest, TheWaitLastsUntilTheFirstTaskIsDueOrTheTimeIsOver) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto waitFor = [&](double seconds) {
        const double before = monotonicNow();
        m_thread.waitNextTaskWithTimeOut(seconds);
        return monotonicNow() - before;
    };
    // Each wait may end early only by a wake-up, and nobody wakes.
    EXPECT_GE(waitFor(0.05), 0.05);

    m_thread.postTask(numbered(1, monotonicNow() + kFar));
    EXPECT_GE(waitFor(0.05), 0.05);

    const double due = monotonicNow() + 0.05;
    m_thread.postTask(numbered(2, due));
    m_thread.waitNextTaskWithTimeOut(kFar);
    EXPECT_GE(monotonicNow(), due);
}

TEST_F(TimerThreadTest, OneWaitIsOnTheMonotonicClock) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    timespec deadline{};
    clockid_t clock = -1;
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> wait(
        test::Call::PthreadCondClockwait,
        [&](pthread_cond_t*, pthread_mutex_t*, clockid_t id, const timespec* p_deadline) {
            clock = id;
            deadline = *p_deadline;
            return 0;
        });

    const double before = monotonicNow();
    m_thread.waitNextTaskWithTimeOut(500.0);

    EXPECT_EQ(wait.hits(), 1);  // A wake-up without a reason returns, too.
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    const double at =
        static_cast<double>(deadline.tv_sec) + 1e-9 * static_cast<double>(deadline.tv_nsec);
    EXPECT_GE(at, before + 500.0 - 1e-6);
    EXPECT_LE(at, monotonicNow() + 500.0 + 1e-6);
}

// Else the thread would look, and wait, once more before its task is due.
TEST_F(TimerThreadTest, OneWaitIsRoundedUpToWholeNanoseconds) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    timespec deadline{};
    test::ReplaceCall<int(clockid_t, timespec*)> stoppedClock(test::Call::ClockGettime,
                                                              [](clockid_t, timespec* p_time) {
                                                                  *p_time = {1000, 500};
                                                                  return 0;
                                                              });
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> wait(
        test::Call::PthreadCondClockwait,
        [&](pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec* p_deadline) {
            deadline = *p_deadline;
            return ETIMEDOUT;
        });

    m_thread.waitNextTaskWithTimeOut(1.5e-9);

    EXPECT_EQ(deadline.tv_sec, 1000);
    EXPECT_EQ(deadline.tv_nsec, 502);
}

// What a failed reading has left behind is no time.
TEST_F(TimerThreadTest, WithoutAClockThereIsNoWait) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    timespec deadline = {-1, -1};
    test::ReplaceCall<int(clockid_t, timespec*)> noClock(test::Call::ClockGettime,
                                                         [](clockid_t, timespec* p_time) {
                                                             *p_time = {1000, 500};
                                                             errno = EINVAL;
                                                             return -1;
                                                         });
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> wait(
        test::Call::PthreadCondClockwait,
        [&](pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec* p_deadline) {
            deadline = *p_deadline;
            return ETIMEDOUT;
        });

    m_thread.waitNextTaskWithTimeOut(1.5);

    EXPECT_EQ(deadline.tv_sec, 0);
    EXPECT_EQ(deadline.tv_nsec, 0);
}

TEST_F(TimerThreadTest, TimesBeyondAllClocksAreWaitedFor) {
    // Neither fired nor waited for in the past.
    m_thread.postTask(numbered(1, 1e300));
    m_thread.postTask(numbered(2, std::numeric_limits<double>::infinity()));
    m_thread.postTask(numbered(3, 0.0), 20);

    EXPECT_TRUE(m_fires.waitFor(1));
    m_thread.stop();
    EXPECT_EQ(m_fires.fired(), std::vector<int>{3});
    EXPECT_EQ(m_thread.taskCount(), 2);
}

TEST_F(TimerThreadTest, ATimeThatIsNoNumberGoesToTheEndAndFiresAtOnce) {
    EXPECT_EQ(orderOf({std::nan(""), 20, 10}), (std::vector<int>{0, 2, 1}));
    EXPECT_EQ(m_thread.taskCount(), 0);
}

TEST_F(TimerThreadTest, TheWallClockIsNotLookedAt) {
    std::atomic<int> reads{0};
    test::ReplaceCall<int(clockid_t, timespec*)> wallClock(
        test::Call::ClockGettime,
        [&](clockid_t clock, timespec* p_time) {
            if (clock == CLOCK_MONOTONIC) return clock_gettime(clock, p_time);
            ++reads;
            *p_time = {reads % 2 == 0 ? 0 : 1L << 30, 0};  // Set back, and forth.
            return 0;
        },
        test::When().anyThread().everyTime());
    test::CountCalls waits(test::Call::PthreadCondTimedwait, test::When().anyThread());

    ASSERT_TRUE(m_holder.hold(m_thread));
    const double now = monotonicNow();
    m_thread.postTask(numbered(1, now + 0.03));
    m_thread.postTask(numbered(2, now + 0.001));
    m_holder.letGo();

    EXPECT_TRUE(m_fires.waitFor(2));
    EXPECT_EQ(m_fires.fired(), (std::vector<int>{2, 1}));
    EXPECT_EQ(reads, 0);
    EXPECT_EQ(waits.seen(), 0);
}

TEST_F(TimerThreadTest, AWakeUpWithoutAReasonFiresNothing) {
    test::FailCall wakeUps(test::Call::PthreadCondClockwait, 0, test::When().anyThread().times(20));
    double firedAt = 0.0;
    test::Event fired;

    const double due = monotonicNow() + 0.02;
    m_thread.postTask(makeTask(
        [&] {
            firedAt = monotonicNow();
            fired.set();
        },
        due));

    ASSERT_TRUE(fired.wait());
    EXPECT_GE(firedAt, due);
}

/// CPU seconds of the calling thread that @p work takes.
template <typename Work>
double cpuSecondsOf(Work work) {
    const auto now = [] {
        timespec time{};
        (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const double before = now();
    work();
    return now() - before;
}

TEST_F(TimerThreadTest, PostingDoesNotWalkALongQueue) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    constexpr int kFew = 4000;
    constexpr int kTimesMore = 16;
    const auto idle = [](double time) { return makeTask([] {}, time); };
    double time = 0.1;
    const auto post = [&](int count) {
        for (int i = 0; i < count; ++i) m_thread.postTask(idle(time += 1e-6));
    };
    const double few = cpuSecondsOf([&] { post(kFew); });

    const double many = cpuSecondsOf([&] { post(kFew * kTimesMore); });

    // A walk costs the square: 17 times as many steps for each of 16 times as many posts.
    EXPECT_LT(many, few * kTimesMore * 5);
}

}  // namespace

// A TimerThread whose clock, mutex or thread creation fails.

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;
using test::When;

class TimerThreadFailureTest : public testing::Test {
protected:
    void TearDown() override { m_holder.letGo(); }

    /// What posting throws; empty when nothing.
    std::string errorOfPosting(const std::shared_ptr<TimerTaskBase>& task) {
        try {
            m_thread.postTask(task);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    LogCapture m_log{kLogError};
    Holder m_holder;
    TimerThread m_thread;
};

TEST_F(TimerThreadFailureTest, WithoutAClockNowIsMinusOne) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto notSet = makeTask([] {});
    const auto delayed = makeTask([] {});
    const auto late = makeTask([] {}, 1e9);
    FailCall noClock(Call::ClockGettime, EIO, When().everyTime());

    m_thread.postTask(notSet);
    EXPECT_EQ(notSet->getNextFireTime(), -1.0);
    EXPECT_EQ(m_thread.getNextFiringInterval(), 0.0);

    m_thread.postTask(delayed, 1500);
    EXPECT_EQ(delayed->getNextFireTime(), 0.5);

    EXPECT_EQ(m_thread.popFirstTask(), notSet);
    EXPECT_EQ(m_thread.popFirstTask(), delayed);
    m_thread.postTask(late);
    EXPECT_EQ(m_thread.getNextFiringInterval(), 1e9 + 1.0);
}

TEST_F(TimerThreadFailureTest, WithoutAClockNegativeTimesFireStill) {
    test::Event fired;
    FailCall noClock(Call::ClockGettime, EIO, When().anyThread().everyTime());

    m_thread.postTask(makeTask([&] { fired.set(); }));

    EXPECT_TRUE(fired.wait());
    m_thread.stop();
}

TEST_F(TimerThreadFailureTest, WithoutAClockEveryOtherTimeIsFarAway) {
    test::Event fired;
    bool dueFired = false;
    const auto due = makeTask([&] { dueFired = true; }, 0.25);
    {
        FailCall noClock(Call::ClockGettime, EIO, When().anyThread().everyTime());
        m_thread.postTask(due);
        m_thread.postTask(makeTask([&] { fired.set(); }, -2.0));
        ASSERT_TRUE(fired.wait());
        m_thread.stop();
    }

    EXPECT_FALSE(dueFired);
    EXPECT_EQ(m_thread.taskCount(), 1);
}

TEST_F(TimerThreadFailureTest, AThreadThatCannotBeMadeFailsThePost) {
    const auto task = makeTask([] {}, 0.25);
    {
        FailCall noThread(Call::PthreadCreate, EAGAIN);
        EXPECT_EQ(errorOfPosting(task), "Thread initialization failed");
    }
    EXPECT_EQ(m_thread.taskCount(), 0);
    EXPECT_EQ(m_thread.threadId(), -1);
    EXPECT_EQ(task.use_count(), 1);

    // The next post tries again.
    test::Event fired;
    m_thread.postTask(makeTask([&] { fired.set(); }), 0);
    EXPECT_TRUE(fired.wait());
}

TEST_F(TimerThreadFailureTest, StartThrowsWhenThereIsNoThreadToBeHad) {
    FailCall noThread(Call::PthreadCreate, EAGAIN);
    try {
        m_thread.start();
        ADD_FAILURE() << "did not throw";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Thread initialization failed");
    }
    m_thread.stop();
}

TEST_F(TimerThreadFailureTest, AFailedLockIsLoggedAndTheOperationGoesOn) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto task = makeTask([] {}, 0.25);
    m_log.clear();
    const auto failLock = [&](const std::function<void()>& operation) {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().afterTheCall());
        operation();
        EXPECT_EQ(fail.hits(), 1);
    };

    failLock([&] { m_thread.postTask(task); });
    failLock([&] { EXPECT_TRUE(m_thread.hasTask()); });
    failLock([&] { EXPECT_EQ(m_thread.taskCount(), 1); });
    failLock([&] { EXPECT_TRUE(m_thread.isBusy()); });
    failLock([&] { EXPECT_LE(m_thread.getNextFiringInterval(), 0.0); });
    failLock([&] { m_thread.cancelTaskBySessionId(task->sessionId()); });
    failLock([&] { m_thread.cancelTaskByTaskId(12345); });
    failLock([&] { EXPECT_EQ(m_thread.popFirstTask(), task); });

    const LogEntry line{kLogError,
                        "[B-LOG] auto_lock.h:31:AutoLock(): An runtime_error has been caught:" +
                            std::string(std::system_error(EINVAL, std::generic_category()).what()) +
                            ".\n"};
    EXPECT_EQ(m_log.entries(), std::vector<LogEntry>(8, line));
    EXPECT_EQ(task->getNextFireTime(), 0.0);
}

/// A task that another thread can use the timer thread beside, while it is destroyed.
class WitnessTask : public TimerTaskBase {
public:
    explicit WitnessTask(std::function<void()> atEnd) : m_atEnd(std::move(atEnd)) {}
    ~WitnessTask() override { m_atEnd(); }

    WitnessTask(const WitnessTask&) = delete;
    WitnessTask& operator=(const WitnessTask&) = delete;

    void fire() override {}

private:
    const std::function<void()> m_atEnd;
};

TEST_F(TimerThreadFailureTest, ATaskThatThereIsNoMemoryForIsDestroyedUnlocked) {
    TimerThread other;  // Its queue has no room yet.
    other.start();
    test::Event used;
    std::thread user;
    auto task = std::make_shared<WitnessTask>([&] {
        user = std::thread([&] {
            (void)other.hasTask();
            used.set();
        });
        EXPECT_TRUE(used.wait());
    });
    task->setNextFireTime(monotonicNow() + 3600);
    {
        FailCall fail(Call::New, 0);
        EXPECT_THROW(other.postTask(std::move(task)), std::bad_alloc);
        EXPECT_EQ(fail.hits(), 1);
    }
    EXPECT_TRUE(used.isSet());
    EXPECT_FALSE(other.hasTask());
    user.join();
}

}  // namespace

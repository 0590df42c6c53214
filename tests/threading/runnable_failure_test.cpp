// A Runnable whose mutex or condition variable fails.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>

#include "base/logging/log_level.h"
#include "support/log_capture.h"
#include "threading/runnable_fixtures.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;
using test::When;

/// What @p action throws; empty when nothing. errno is EDOM when it begins: the calls return
/// their error and do not set it.
template <typename Action>
std::string errorOf(Action action) {
    errno = EDOM;
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

std::string withErrno(const std::string& prefix) {
    return prefix + std::strerror(EDOM);
}

class RunnableFailureTest : public testing::Test {
protected:
    /// Whether another thread gets the lock.
    static bool isUnlocked(CountingRunnable& runnable) {
        test::Event answered;
        std::thread([&] {
            (void)runnable.running();
            answered.set();
        }).join();
        return answered.isSet();
    }

    LogCapture m_log;
};

TEST_F(RunnableFailureTest, WithoutAMutexThereIsNone) {
    FailCall fail(Call::PthreadMutexInit, ENOMEM);

    EXPECT_EQ(errorOf([] { CountingRunnable runnable; }), withErrno("Mutex init error: "));
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(RunnableFailureTest, WithoutAConditionVariableTheMutexIsDestroyed) {
    FailCall fail(Call::PthreadCondInit, ENOMEM);
    test::CountCalls made(Call::PthreadMutexInit);
    test::CountCalls destroyed(Call::PthreadMutexDestroy);

    EXPECT_EQ(errorOf([] { CountingRunnable runnable; }),
              withErrno("ConditionVariable init error: "));
    EXPECT_EQ(made.seen(), 1);
    EXPECT_EQ(destroyed.seen(), 1);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(RunnableFailureTest, AFailedWaitLeavesRunAndTheLock) {
    HeldSleeps sleeps;
    sleeps.letAllPass();
    CountingRunnable runnable;
    runnable.pause();
    FailCall fail(Call::PthreadCondWait, EPERM);

    EXPECT_EQ(errorOf([&] { runnable.run(); }), withErrno("ConditionVariable cond_wait error: "));
    EXPECT_TRUE(isUnlocked(runnable));
    EXPECT_EQ(runnable.rounds, 0);
}

TEST_F(RunnableFailureTest, AFailedSignalLeavesResumeAndTheLock) {
    CountingRunnable runnable;
    runnable.pause();
    FailCall fail(Call::PthreadCondSignal, EINVAL);

    EXPECT_EQ(errorOf([&] { runnable.resume(); }),
              withErrno("ConditionVariable notify_one error: "));
    EXPECT_TRUE(isUnlocked(runnable));
    EXPECT_TRUE(runnable.running());
}

TEST_F(RunnableFailureTest, AFailedSignalLeavesStopUndone) {
    CountingRunnable runnable;
    runnable.pause();
    FailCall fail(Call::PthreadCondSignal, EINVAL);

    EXPECT_EQ(errorOf([&] { runnable.stop(); }), withErrno("ConditionVariable notify_one error: "));
    EXPECT_TRUE(isUnlocked(runnable));
    EXPECT_TRUE(runnable.running());  // The pause has ended, and nothing is stopped.
}

TEST_F(RunnableFailureTest, LockFailuresAreLoggedAndTheCallGoesOn) {
    CountingRunnable runnable;
    m_log.clear();
    {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().afterTheCall());
        errno = EDOM;
        runnable.pause();
    }
    {
        FailCall fail(Call::PthreadMutexUnlock, EINVAL, When().afterTheCall());
        errno = EDOM;
        runnable.resume();
    }

    EXPECT_EQ(
        m_log.entries(),
        (std::vector<LogEntry>{
            {4000, "[B-LOG] runnable.cpp:46:pause(): called\n\n"},
            {1000, "[B-LOG] unique_lock.h:33:UniqueLock(): An runtime_error has been caught:" +
                       withErrno("Mutex lock error: ") + ".\n"},
            {4000, "[B-LOG] runnable.cpp:52:resume(): called\n\n"},
            {1000, "[B-LOG] unique_lock.h:47:~UniqueLock(): An runtime_error has been caught:" +
                       withErrno("Mutex unlock error: ") + ".\n"}}));
    EXPECT_TRUE(runnable.running());
}

}  // namespace

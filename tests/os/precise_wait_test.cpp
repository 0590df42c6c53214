#include "os/precise_wait.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <cerrno>
#include <thread>

#include "support/fault_injection.h"

namespace {

using tevalon::base::PreciseWait;

int slack() {
    return prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
}

// A thread of its own, for the slack is the thread's.
template <typename Work>
void onNewThread(Work work) {
    std::thread(work).join();
}

TEST(PreciseWaitTest, HasNoSlackAndGivesTheThreadsOwnBack) {
    onNewThread([] {
        ASSERT_EQ(prctl(PR_SET_TIMERSLACK, 12345UL, 0, 0, 0), 0);
        {
            const PreciseWait precise;
            EXPECT_EQ(slack(), 1);
        }
        EXPECT_EQ(slack(), 12345);
    });
}

TEST(PreciseWaitTest, GivesTheLeastSlackBackToo) {
    onNewThread([] {
        ASSERT_EQ(prctl(PR_SET_TIMERSLACK, 1UL, 0, 0, 0), 0);
        { const PreciseWait precise; }
        EXPECT_EQ(slack(), 1);
    });
}

TEST(PreciseWaitTest, GivesTheDefaultBackWhereTheThreadsOwnCannotBeRead) {
    onNewThread([] {
        const int byDefault = slack();
        ASSERT_EQ(prctl(PR_SET_TIMERSLACK, 12345UL, 0, 0, 0), 0);
        {
            const test::FailCall unreadable(test::Call::Prctl, EINVAL);
            const PreciseWait precise;
        }
        EXPECT_EQ(slack(), byDefault);
    });
}

TEST(PreciseWaitTest, KeepsErrno) {
    onNewThread([] {
        const test::FailCall failing(test::Call::Prctl, EINVAL, test::When().everyTime());
        errno = EXDEV;
        { const PreciseWait precise; }
        EXPECT_EQ(errno, EXDEV);
        errno = EXDEV;
        {
            const PreciseWait precise;
            EXPECT_EQ(errno, EXDEV);
        }
    });
}

}  // namespace

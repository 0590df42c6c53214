#include "os/precise_wait.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <cerrno>
#include <thread>

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

TEST(PreciseWaitTest, KeepsErrno) {
    onNewThread([] {
        errno = EXDEV;
        { const PreciseWait precise; }
        EXPECT_EQ(errno, EXDEV);
    });
}

}  // namespace

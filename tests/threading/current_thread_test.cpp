#include "base/threading/current_thread.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <set>
#include <thread>

namespace {

using tevalon::base::currentThread;

TEST(CurrentThreadTest, IsTheKernelsThreadId) {
    EXPECT_EQ(currentThread(), syscall(SYS_gettid));
}

TEST(CurrentThreadTest, OfTheFirstThreadIsTheProcessId) {
    EXPECT_EQ(currentThread(), getpid());
}

TEST(CurrentThreadTest, TellsThreadsApart) {
    std::int32_t other = 0;
    long asked = 0;
    std::thread([&] {
        other = currentThread();
        asked = syscall(SYS_gettid);
    }).join();

    EXPECT_NE(other, currentThread());
    EXPECT_EQ(other, asked);
}

TEST(CurrentThreadTest, IsRightInAForkedChild) {
    const std::int32_t before = currentThread();  // A remembered one would be the parent's.
    EXPECT_EQ(before, getpid());

    EXPECT_EXIT(_exit(currentThread() == getpid() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace

// The descriptors of the scheduler's pipe.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "simple_timer/scheduler_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::LogCapture;

TEST(SchedulerDescriptorTest, AreClosedOnExec) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        PipeWitness witness;
        const Timer timer("first", kFar, ignore, nullptr, ONCE);

        for (const int descriptor : {witness.readEnd(), witness.writeEnd()}) {
            const int flags = fcntl(descriptor, F_GETFD);
            ASSERT_NE(flags, -1);
            EXPECT_NE(flags & FD_CLOEXEC, 0);
        }
    });
}

/// Makes every descriptor below @p first taken; false when the system does not allow it.
bool occupyDescriptorsBelow(int first) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
    const rlim_t wanted = static_cast<rlim_t>(first) + 64;
    if (limit.rlim_cur < wanted) {
        limit.rlim_cur = wanted;
        if (limit.rlim_max < wanted || setrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
    }
    for (;;) {
        const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) return false;
        if (descriptor + 1 >= first) return true;
    }
}

class HighDescriptorTest : public testing::TestWithParam<int> {};

// At the edge of an fd_set, beyond it, and at the edges of its words.
TEST_P(HighDescriptorTest, AreWaitedFor) {
    const int first = GetParam();
#ifdef TEVALON_TEST_EMULATED
    if (first >= FD_SETSIZE) GTEST_SKIP() << "The emulator's select() stops at FD_SETSIZE.";
#endif
    EXPECT_HOLDS_IN_FRESH_PROCESS([first] {
        LogCapture log(kLogError);
        if (!occupyDescriptorsBelow(first)) return;
        PipeWitness witness;
        Runs runs;
        Timer once("once", kSoon, runs.handler(), nullptr, ONCE);
        EXPECT_GE(witness.readEnd(), first);

        for (std::size_t n = 1; n <= 3; ++n) {
            EXPECT_EQ(once.start(), 0);
            EXPECT_TRUE(runs.waitFor(n));
            EXPECT_EQ(once.stop(), 0);
        }
        // A command shortens a wait, too.
        Timer far("far", kFar, ignore, nullptr, ONCE);
        EXPECT_EQ(far.start(), 0);
        EXPECT_EQ(once.start(), 0);
        EXPECT_TRUE(runs.waitFor(4));
        EXPECT_EQ(once.stop(), 0);
        for (const test::LogEntry& entry : log.entries())
            EXPECT_NE(entry.level, kLogError) << entry;
    });
}

INSTANTIATE_TEST_SUITE_P(From, HighDescriptorTest,
                         testing::Values(FD_SETSIZE - 2, FD_SETSIZE - 1, FD_SETSIZE, FD_SETSIZE + 1,
                                         FD_SETSIZE + 63, FD_SETSIZE + 64, 4 * FD_SETSIZE));

}  // namespace

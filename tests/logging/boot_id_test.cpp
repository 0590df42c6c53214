#include "base/logging/boot_id.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "support/fault_injection.h"
#include "support/threads.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::bootID;

using Clock = test::ReplaceCall<int(clockid_t, timespec*)>;

/// The value is made once per process, so each of these tests is about a process of its own.
class BootIdDeathTest : public testing::Test {
protected:
    static void expect(std::uint32_t actual, std::uint32_t expected) {
        if (actual == expected) return;
        std::fprintf(stderr, "bootID is %u instead of %u\n", actual, expected);
        std::_Exit(1);
    }
    [[noreturn]] static void succeed() { std::_Exit(0); }
};

TEST_F(BootIdDeathTest, IsTheNanosecondsOfTheFirstCallForEver) {
    EXPECT_EXIT(
        {
            long nanoseconds = 123456788;
            Clock clock(Call::ClockGettime, [&](clockid_t id, timespec* p_time) {
                *p_time = {99, id == CLOCK_MONOTONIC ? ++nanoseconds : 1};
                return 0;
            });
            expect(bootID(), 123456789);
            expect(bootID(), 123456789);
            succeed();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(BootIdDeathTest, Is4660WhenTheClockCannotBeRead) {
    EXPECT_EXIT(
        {
            {
                test::FailCall fail(Call::ClockGettime, EINVAL);
                expect(bootID(), 4660);
                expect(static_cast<std::uint32_t>(fail.hits()), 1);
            }
            expect(bootID(), 4660);
            succeed();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(BootIdDeathTest, IsReadAgainAfterAReadingOfExactlyZero) {
    EXPECT_EXIT(
        {
            long nanoseconds = 0;
            Clock clock(Call::ClockGettime, [&](clockid_t, timespec* p_time) {
                *p_time = {99, nanoseconds};
                return 0;
            });
            expect(bootID(), 0);
            expect(bootID(), 0);
            nanoseconds = 999999999;
            expect(bootID(), 999999999);
            nanoseconds = 5;
            expect(bootID(), 999999999);
            succeed();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(BootIdDeathTest, SettlesOnOneOfTheValuesThatRacingThreadsSaw) {
    EXPECT_EXIT(
        {
            std::vector<std::uint32_t> seen(4);
            test::runAtOnce(4, [&](int i) { seen[static_cast<std::size_t>(i)] = bootID(); });
            const std::uint32_t settled = bootID();
            bool wasSeen = false;
            for (const std::uint32_t value : seen) wasSeen = wasSeen || value == settled;
            expect(wasSeen ? 1 : 0, 1);
            expect(bootID(), settled);
            succeed();
        },
        testing::ExitedWithCode(0), "");
}

TEST(BootIdTest, IsTheSameOnEveryCallAndBelowASecond) {
    std::uint32_t first = bootID();
    while (first == 0) first = bootID();

    EXPECT_EQ(bootID(), first);
    EXPECT_LT(first, 1000000000U);
}

}  // namespace

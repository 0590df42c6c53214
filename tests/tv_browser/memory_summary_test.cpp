#include "memory_summary.h"

#include <gtest/gtest.h>

namespace tv_browser {
namespace {

TEST(MemorySummaryTest, HasTheMemoryInMebibytes) {
    EXPECT_EQ(summariseMemory("MemTotal:         509440 kB\n"
                              "MemFree:           11264 kB\n"
                              "MemAvailable:     219135 kB\n"),
              "finds 497 MiB of memory, 213 MiB available");
}

TEST(MemorySummaryTest, TheOrderOfTheLinesDoesNotMatter) {
    EXPECT_EQ(summariseMemory("MemAvailable: 1024 kB\nSwapTotal: 1 kB\nMemTotal: 2048 kB"),
              "finds 2 MiB of memory, 1 MiB available");
}

TEST(MemorySummaryTest, IsEmptyWhereAFigureIsMissing) {
    EXPECT_EQ(summariseMemory(""), "");
    EXPECT_EQ(summariseMemory("MemTotal: 2048 kB\n"), "");
    EXPECT_EQ(summariseMemory("MemTotal: 2048 kB\nMemAvailable:\n"), "");
    EXPECT_EQ(summariseMemory("XMemTotal: 2048 kB\nMemAvailable: 1024 kB\n"), "");
}

}  // namespace
}  // namespace tv_browser

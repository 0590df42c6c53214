#include "base/logging/log_level.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::ReplaceCall;

TEST(LogLevelTest, LevelsHaveThePlatformsNumbers) {
    EXPECT_EQ(kLogAlways, 1);
    EXPECT_EQ(kLogError, 1000);
    EXPECT_EQ(kLogWarn, 3000);
    EXPECT_EQ(kLogInfo, 4000);
    EXPECT_EQ(kLogDebug, 5000);
    EXPECT_EQ(kBlogModule, 0x5F);
}

TEST(LogLevelTest, RecordIsTwelveBytesWithTheLevelWordFirst) {
    EXPECT_EQ(sizeof(DebugLevelRecord), 12U);
    EXPECT_EQ(offsetof(DebugLevelRecord, level), 0U);
    EXPECT_EQ(offsetof(DebugLevelRecord, module), 2U);
    EXPECT_EQ(offsetof(DebugLevelRecord, frame), 4U);
    EXPECT_EQ(offsetof(DebugLevelRecord, chunk), 8U);

    const struct {
        std::uint16_t level;
        std::uint32_t word;
    } kWords[] = {{1, 0x005F0001},
                  {1000, 0x005F03E8},
                  {3000, 0x005F0BB8},
                  {4000, 0x005F0FA0},
                  {5000, 0x005F1388}};
    for (const auto& [level, expected] : kWords) {
        const DebugLevelRecord record = {level, kBlogModule, 0, 0};
        std::uint32_t word = 0;
        std::memcpy(&word, &record, sizeof word);
        EXPECT_EQ(word, expected);
    }
}

TEST(LogLevelTest, IsLogOnAsksThePlatformWithAFreshRecord) {
    std::vector<DebugLevelRecord> asked;
    ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(Call::ZorDebugCheckLevel,
                                                          [&](DebugLevelRecord* p_record) {
                                                              asked.push_back(*p_record);
                                                              p_record->frame = 1;
                                                              p_record->chunk = 2;
                                                              return 1;
                                                          });

    EXPECT_TRUE(isLogOn(kLogInfo));
    EXPECT_TRUE(isLogOn(kLogInfo));

    ASSERT_EQ(asked.size(), 2U);
    for (const DebugLevelRecord& record : asked) {
        EXPECT_EQ(record.level, 4000);
        EXPECT_EQ(record.module, 0x5F);
        EXPECT_EQ(record.frame, 0U);
        EXPECT_EQ(record.chunk, 0U);
    }
}

TEST(LogLevelTest, AnyAnswerButZeroIsOn) {
    std::int32_t answer = 0;
    ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(
        Call::ZorDebugCheckLevel, [&](DebugLevelRecord*) { return answer; });

    EXPECT_FALSE(isLogOn(kLogError));
    answer = 1;
    EXPECT_TRUE(isLogOn(kLogError));
    answer = -1;
    EXPECT_TRUE(isLogOn(kLogError));
    answer = 0x10000;
    EXPECT_TRUE(isLogOn(kLogError));
}

TEST(LogLevelTest, FollowsThePlatformsThresholdAtEachCall) {
    const test::LogCapture log(kLogWarn);

    EXPECT_TRUE(isLogOn(kLogAlways));
    EXPECT_TRUE(isLogOn(kLogWarn));
    EXPECT_FALSE(isLogOn(kLogInfo));
    test::setLogLevel(kLogDebug);
    EXPECT_TRUE(isLogOn(kLogInfo));
}

}  // namespace

#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "base/logging/entry_points.h"
#include "base/logging/log_level.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::LogCapture;
using test::LogEntry;

/// The monotonic clock stands still while this lives.
class StoppedClock {
public:
    explicit StoppedClock(long nanoseconds)
        : m_clock(Call::ClockGettime, [nanoseconds](clockid_t clock, timespec* p_time) {
              *p_time = {1234, clock == CLOCK_MONOTONIC ? nanoseconds : 1};
              return 0;
          }) {}

private:
    test::ReplaceCall<int(clockid_t, timespec*)> m_clock;
};

std::vector<unsigned char> bytes(std::size_t count) {
    std::vector<unsigned char> result(count);
    std::iota(result.begin(), result.end(), static_cast<unsigned char>(0));
    return result;
}

/// The pieces of a dump with the identifier 0000007B.
std::vector<LogEntry> dumpOf(const std::vector<std::string>& lines) {
    std::vector<LogEntry> entries;
    for (const std::string& line : lines) {
        entries.push_back({kLogDebug, "[]:0::"});
        entries.push_back({kLogDebug, "DUMPMEM(0000007Bd):, " + line});
        entries.push_back({kLogDebug, "\n"});
    }
    return entries;
}

const char* const kSixteen = "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F ";

class DumpMemoryTest : public testing::Test {
protected:
    LogCapture m_log;
    StoppedClock m_clock{123};
};

TEST_F(DumpMemoryTest, OfNoBytesIsItsTitle) {
    dump_memory("title", bytes(16).data(), 0);

    EXPECT_EQ(m_log.entries(), dumpOf({"title"}));
}

TEST_F(DumpMemoryTest, OfANegativeLengthIsItsTitle) {
    dump_memory("title", bytes(16).data(), -1);
    dump_memory("title", bytes(16).data(), INT_MIN);

    EXPECT_EQ(m_log.entries(), dumpOf({"title", "title"}));
}

TEST_F(DumpMemoryTest, OfOneByteIsOneShortLine) {
    const unsigned char byte = 0xFE;

    dump_memory("title", &byte, 1);

    EXPECT_EQ(m_log.entries(), dumpOf({"title", "FE "}));
}

TEST_F(DumpMemoryTest, OfSixteenBytesIsOneWholeLine) {
    dump_memory("title", bytes(16).data(), 16);

    EXPECT_EQ(m_log.entries(), dumpOf({"title", kSixteen}));
    EXPECT_EQ(std::string(kSixteen).size(), 48U);
}

TEST_F(DumpMemoryTest, BeginsANewLineAfterSixteenBytes) {
    dump_memory("title", bytes(17).data(), 17);

    EXPECT_EQ(m_log.entries(), dumpOf({"title", kSixteen, "10 "}));
}

TEST_F(DumpMemoryTest, OfTwentyBytesIsThreeLines) {
    dump_memory("title", bytes(20).data(), 20);

    EXPECT_EQ(m_log.entries(), dumpOf({"title", kSixteen, "10 11 12 13 "}));
}

TEST_F(DumpMemoryTest, ShowsEveryByteAsTwoUpperCaseDigits) {
    const std::vector<unsigned char> all = bytes(256);
    std::vector<std::string> lines = {"all"};
    for (unsigned i = 0; i < 256; ++i) {
        if (i % 16 == 0) lines.emplace_back();
        lines.back() += {"0123456789ABCDEF"[i / 16], "0123456789ABCDEF"[i % 16], ' '};
    }

    dump_memory("all", all.data(), 256);

    EXPECT_EQ(m_log.entries(), dumpOf(lines));
}

TEST_F(DumpMemoryTest, ShowsANullTitleAsNull) {
    dump_memory(nullptr, bytes(1).data(), 1);

    EXPECT_EQ(m_log.entries(), dumpOf({"(null)", "00 "}));
}

TEST_F(DumpMemoryTest, OfNullDataIsItsTitle) {
    dump_memory("title", nullptr, 16);

    EXPECT_EQ(m_log.entries(), dumpOf({"title"}));
}

TEST_F(DumpMemoryTest, ShowsPercentSignsOfTheTitleAsTheyAre) {
    dump_memory("50%s", nullptr, 0);

    EXPECT_EQ(m_log.entries(), dumpOf({"50%s"}));
}

TEST_F(DumpMemoryTest, WritesNothingWhenTheDebugLevelIsOff) {
    test::setLogLevel(kLogInfo);

    dump_memory("title", bytes(16).data(), 16);

    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(DumpMemoryTest, AsksJustOnceWhenTheDebugLevelIsOff) {
    test::setLogLevel(kLogInfo);
    const test::CountCalls checks(Call::ZorDebugCheckLevel);
    const test::CountCalls readings(Call::ClockGettime);

    dump_memory("title", bytes(4096).data(), 4096);

    EXPECT_EQ(checks.seen(), 1);
    EXPECT_EQ(readings.seen(), 0);
}

TEST_F(DumpMemoryTest, AsksBeforeEachPieceOfEachLine) {
    const test::CountCalls checks(Call::ZorDebugCheckLevel);

    dump_memory("title", bytes(40).data(), 40);

    EXPECT_EQ(checks.seen(), 1 + 3 * 4);
}

TEST_F(DumpMemoryTest, AsksWithARecordWhoseFrameAndChunkAreZero) {
    int asked = 0;
    const test::ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(
        Call::ZorDebugCheckLevel, [&](DebugLevelRecord* p_record) {
            ++asked;
            EXPECT_EQ(p_record->level, kLogDebug);
            EXPECT_EQ(p_record->module, 0x5F);
            EXPECT_EQ(p_record->frame, 0U);
            EXPECT_EQ(p_record->chunk, 0U);
            return 1;
        });

    dump_memory("title", bytes(40).data(), 40);

    EXPECT_EQ(asked, 1 + 3 * 4);
}

TEST_F(DumpMemoryTest, WritesJustThePiecesWhoseCheckSaysSo) {
    // Off for the title's end, the first line's front, the second one's bytes, the third one's end.
    const std::string checks = "1110011101110";
    std::size_t check = 0;
    test::ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(
        Call::ZorDebugCheckLevel,
        [&](DebugLevelRecord*) { return static_cast<std::int32_t>(checks.at(check++) == '1'); });

    dump_memory("title", bytes(33).data(), 33);

    EXPECT_EQ(check, 13U);
    const std::string front = "DUMPMEM(0000007Bd):, ";
    EXPECT_EQ(m_log.texts(),
              (std::vector<std::string>{"[]:0::", front + "title", front + kSixteen, "\n",
                                        "[]:0::", "\n", "[]:0::", front + "20 "}));
}

TEST_F(DumpMemoryTest, WritesWhatPrintfWouldOfBytesOfAnyKindAndNumber) {
    std::mt19937 random(20240611);
    for (std::size_t length = 0; length < 300; ++length) {
        std::vector<unsigned char> data(length);
        for (unsigned char& byte : data) byte = static_cast<unsigned char>(random());
        std::vector<std::string> lines = {"random"};
        for (std::size_t i = 0; i < length; ++i) {
            char hex[4];
            std::snprintf(hex, sizeof(hex), "%02X ", static_cast<unsigned>(data[i]));
            if (i % 16 == 0) lines.emplace_back();
            lines.back() += hex;
        }
        test::setLogLevel(kLogDebug);
        m_log.clear();

        dump_memory("random", data.data(), static_cast<int>(length));

        ASSERT_EQ(m_log.entries(), dumpOf(lines)) << length;
    }
}

TEST(DumpMemoryIdTest, IsTheNanosecondsInEightUpperCaseDigits) {
    LogCapture log;
    const StoppedClock clock(999999999);

    dump_memory("title", nullptr, 0);

    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"[]:0::", "DUMPMEM(3B9AC9FFd):, title", "\n"}));
}

TEST(DumpMemoryIdTest, IsTheSameForAllLinesOfOneDump) {
    LogCapture log;
    long nanoseconds = 0;
    test::ReplaceCall<int(clockid_t, timespec*)> clock(Call::ClockGettime,
                                                       [&](clockid_t, timespec* p_time) {
                                                           *p_time = {1, ++nanoseconds};
                                                           return 0;
                                                       });

    dump_memory("one", bytes(17).data(), 17);
    dump_memory("two", nullptr, 0);

    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 12U);
    EXPECT_EQ(texts[1], "DUMPMEM(00000001d):, one");
    EXPECT_EQ(texts[4], std::string("DUMPMEM(00000001d):, ") + kSixteen);
    EXPECT_EQ(texts[7], "DUMPMEM(00000001d):, 10 ");
    EXPECT_EQ(texts[10], "DUMPMEM(00000002d):, two");
}

TEST(DumpMemoryIdTest, AClockThatCannotBeReadStillDumps) {
    LogCapture log;
    test::FailCall fail(Call::ClockGettime, EPERM, test::When().everyTime());

    dump_memory("title", bytes(1).data(), 1);

    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 6U);
    EXPECT_EQ(texts[1].substr(0, 8), "DUMPMEM(");
    EXPECT_EQ(texts[1].substr(16), "d):, title");
    EXPECT_EQ(texts[4], texts[1].substr(0, 16) + "d):, 00 ");
}

TEST(DumpMemoryWithoutClockTest, HasTheNumberZero) {
    const LogCapture log;
    const test::FailCall noClock(Call::ClockGettime, EINVAL);

    dump_memory("title", nullptr, 0);

    EXPECT_EQ(log.entries().at(1).text, "DUMPMEM(00000000d):, title");
}

}  // namespace

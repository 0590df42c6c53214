#include <dlfcn.h>
#include <gtest/gtest.h>

#include <climits>
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

using PrintLog = void (*)(int, const char*, const char*, int, const char*, const char*, ...);

struct EntryPoint {
    const char* name;
    PrintLog print;
};

/// Both entry points, which differ in nothing but their name.
class PrintLogTest : public testing::TestWithParam<EntryPoint> {
protected:
    const PrintLog m_print = GetParam().print;
};

TEST_P(PrintLogTest, IsExportedUnderItsPlainName) {
    EXPECT_EQ(reinterpret_cast<void*>(m_print), dlsym(RTLD_DEFAULT, GetParam().name));
}

TEST_P(PrintLogTest, WritesHeaderMessageAndLineEndAsThreePieces) {
    LogCapture log;

    m_print(1, "tag", "x/y/file.cpp", 42, "start", "%s=%d", "x", 5);

    const std::vector<LogEntry> expected = {
        {kLogError, "[tag]file.cpp:42:start:"}, {kLogError, "x=5"}, {kLogError, "\n"}};
    EXPECT_EQ(log.entries(), expected);
}

TEST_P(PrintLogTest, ShowsNullTagFileAndFunctionAsNothing) {
    LogCapture log;

    m_print(1, nullptr, nullptr, 7, nullptr, "x=%d", 5);

    EXPECT_EQ(log.texts(), (std::vector<std::string>{"[]:7::", "x=5", "\n"}));
}

TEST_P(PrintLogTest, NullFormatNeitherAsksNorWrites) {
    LogCapture log;
    test::CountCalls checks(Call::ZorDebugCheckLevel);

    m_print(1, "tag", "file", 7, "function", nullptr);

    EXPECT_EQ(checks.seen(), 0);
    EXPECT_TRUE(log.entries().empty());
}

TEST_P(PrintLogTest, TakesTheLevelFromItsIndex) {
    const std::uint16_t levels[] = {1, 1000, 3000, 4000, 5000};
    for (int index = 0; index < 5; ++index) {
        LogCapture log;

        m_print(index, "t", "f", 1, "g", "m");

        const std::uint16_t level = levels[index];
        const std::vector<LogEntry> expected = {{level, "[t]f:1:g:"}, {level, "m"}, {level, "\n"}};
        EXPECT_EQ(log.entries(), expected);
    }
}

TEST_P(PrintLogTest, WritesNothingForAnIndexOutsideTheTable) {
    for (const int index : {-1, 5, 6, 1000, INT_MIN, INT_MAX}) {
        LogCapture log;

        m_print(index, "t", "f", 1, "g", "m");

        EXPECT_TRUE(log.entries().empty()) << index;
    }
}

TEST_P(PrintLogTest, WritesNothingWhenItsLevelIsOff) {
    LogCapture log(kLogInfo);

    m_print(4, "t", "f", 1, "g", "m");

    EXPECT_TRUE(log.entries().empty());
}

TEST_P(PrintLogTest, ChecksOneRecordBeforeEachPiece) {
    const LogCapture log;
    std::vector<DebugLevelRecord*> addresses;
    std::vector<DebugLevelRecord> records;
    test::ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(Call::ZorDebugCheckLevel,
                                                                [&](DebugLevelRecord* p_record) {
                                                                    addresses.push_back(p_record);
                                                                    records.push_back(*p_record);
                                                                    p_record->frame = 17;
                                                                    return 1;
                                                                });

    m_print(2, "t", "f", 1, "g", "m");

    ASSERT_EQ(addresses.size(), 3U);
    EXPECT_EQ(addresses[1], addresses[0]);
    EXPECT_EQ(addresses[2], addresses[0]);
    EXPECT_EQ(records[0].level, 3000);
    EXPECT_EQ(records[0].module, 0x5F);
    EXPECT_EQ(records[0].frame, 0U);
    EXPECT_EQ(records[0].chunk, 0U);
    EXPECT_EQ(records[1].frame, 17U);
}

TEST_P(PrintLogTest, WritesJustThePiecesWhoseCheckSaysSo) {
    const std::vector<std::string> pieces = {"[t]f:1:g:", "m", "\n"};
    for (unsigned on = 0; on < 8; ++on) {
        LogCapture log;
        unsigned check = 0;
        std::vector<std::string> expected;
        for (unsigned i = 0; i < 3; ++i) {
            if ((on >> i & 1U) != 0) expected.push_back(pieces[i]);
        }
        test::ReplaceCall<std::int32_t(DebugLevelRecord*)> platform(
            Call::ZorDebugCheckLevel,
            [&](DebugLevelRecord*) { return static_cast<std::int32_t>(on >> check++ & 1U); });

        m_print(1, "t", "f", 1, "g", "m");

        EXPECT_EQ(log.texts(), expected) << "on: " << on;
    }
}

TEST_P(PrintLogTest, WritesPercentSignsOfTheHeaderAsTheyAre) {
    LogCapture log;

    m_print(1, "%s", "%d", -1, "%n", "100%%");

    EXPECT_EQ(log.texts(), (std::vector<std::string>{"[%s]%d:-1:%n:", "100%", "\n"}));
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, PrintLogTest,
                         testing::Values(EntryPoint{"print_browser_log", &print_browser_log},
                                         EntryPoint{"print_hbbtv_controller_log",
                                                    &print_hbbtv_controller_log}),
                         [](const testing::TestParamInfo<EntryPoint>& parameter) {
                             return std::string(parameter.index == 0 ? "Browser"
                                                                     : "HbbtvController");
                         });

}  // namespace

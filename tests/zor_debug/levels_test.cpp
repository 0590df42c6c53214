#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "probe.h"
#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using test::ChildResult;
using test::probe;

const std::string kAccepted =
    "accepted are off, error, warn, info, debug or 0 to 65535, for one module as in 0x5f=debug, "
    "separated by commas; error is used\n";

// Which of a module's levels 1, 1000, 3000, 4000 and 5000 are on, as five digits.
std::string levelsShown(const std::string& setting, const std::string& module = "95") {
    return probe("levels", {module + ":1", module + ":1000", module + ":3000", module + ":4000",
                            module + ":5000"})
        .variable("ZOR_DEBUG", setting)
        .run()
        .output;
}

bool isOn(std::uint16_t level, std::uint16_t module) {
    DebugLevelRecord record = {level, module, 0, 0};
    return zorDebugCheckLevelGetFrameAndChunk(&record) != 0;
}

class LevelsTest : public ::testing::Test {
protected:
    ~LevelsTest() override { (void)zorDebugSetLevels(nullptr); }
};

TEST_F(LevelsTest, TheRecordIsTwelveBytesWithTheLevelWordFirst) {
    EXPECT_EQ(sizeof(DebugLevelRecord), 12U);
    EXPECT_EQ(offsetof(DebugLevelRecord, level), 0U);
    EXPECT_EQ(offsetof(DebugLevelRecord, module), 2U);
    EXPECT_EQ(offsetof(DebugLevelRecord, frame), 4U);
    EXPECT_EQ(offsetof(DebugLevelRecord, chunk), 8U);
}

TEST_F(LevelsTest, NamesInTheEnvironmentSetTheThreshold) {
    EXPECT_EQ(levelsShown(""), "11000");
    EXPECT_EQ(levelsShown("off"), "00000");
    EXPECT_EQ(levelsShown("error"), "11000");
    EXPECT_EQ(levelsShown("warn"), "11100");
    EXPECT_EQ(levelsShown("info"), "11110");
    EXPECT_EQ(levelsShown("debug"), "11111");
}

TEST_F(LevelsTest, NumbersInTheEnvironmentSetTheThreshold) {
    EXPECT_EQ(levelsShown("0"), "00000");
    EXPECT_EQ(levelsShown("1"), "10000");
    EXPECT_EQ(levelsShown("2999"), "11000");
    EXPECT_EQ(levelsShown("3000"), "11100");
    EXPECT_EQ(levelsShown("0xbb8"), "11100");
    EXPECT_EQ(levelsShown("65535"), "11111");
}

TEST_F(LevelsTest, AModuleInTheEnvironmentHasItsOwnThreshold) {
    EXPECT_EQ(levelsShown("warn,0x5f=debug"), "11111");
    EXPECT_EQ(levelsShown("warn,0x5f=debug", "94"), "11100");
    EXPECT_EQ(levelsShown("debug,95=off"), "00000");
    EXPECT_EQ(levelsShown("95=info"), "11110");
    EXPECT_EQ(levelsShown("95=info", "94"), "11000");
}

TEST_F(LevelsTest, ModulesThatShareALowByteAreToldApart) {
    EXPECT_EQ(levelsShown("error,0x5f=debug", "351"), "11000");
    EXPECT_EQ(levelsShown("error,0x15f=debug", "351"), "11111");
    EXPECT_EQ(levelsShown("error,0x15f=debug", "95"), "11000");
    EXPECT_EQ(levelsShown("debug,0x15f=error", "351"), "11000");
    EXPECT_EQ(levelsShown("debug,0x15f=error", "95"), "11111");
    EXPECT_EQ(levelsShown("debug,0x15f=off", "351"), "00000");
}

TEST_F(LevelsTest, TheLastOfSeveralItemsForTheSameHolds) {
    EXPECT_EQ(levelsShown("debug,warn"), "11100");
    EXPECT_EQ(levelsShown("95=debug,95=warn"), "11100");
}

TEST_F(LevelsTest, ASettingThatMakesNoSenseIsReportedAndTheDefaultIsUsed) {
    for (const std::string bad : {"loud", "Debug", "-1", "65536", "0x", "0x10000", "12a", " warn",
                                  "95=", "=debug", "95=loud", "65536=debug", "5f=debug", "a=b"}) {
        const ChildResult result =
            probe("levels", {"95:1000", "95:3000"}).variable("ZOR_DEBUG", bad).run();
        EXPECT_EQ(result.output, "10") << bad;
        EXPECT_EQ(result.errors, "zor-debug: ZOR_DEBUG: cannot use '" + bad + "'; " + kAccepted);
    }
}

TEST_F(LevelsTest, OnlyTheItemThatMakesNoSenseIsNamed) {
    const ChildResult result =
        probe("levels", {"95:3000"}).variable("ZOR_DEBUG", "debug,,0x5f=warn").run();

    EXPECT_EQ(result.output, "0");
    EXPECT_EQ(result.errors, "zor-debug: ZOR_DEBUG: cannot use ''; " + kAccepted);
}

TEST_F(LevelsTest, RoomIsForSixtyFourModules) {
    std::string setting = "error";
    for (int module = 1; module <= 64; ++module) setting += "," + std::to_string(module) + "=warn";

    EXPECT_EQ(zorDebugSetLevels(setting.c_str()), 0);
    EXPECT_EQ(zorDebugGetLevel(64), 3000);
    EXPECT_EQ(zorDebugSetLevels((setting + ",64=debug").c_str()), 0);
    EXPECT_EQ(zorDebugSetLevels((setting + ",65=debug").c_str()), -1);
    EXPECT_EQ(zorDebugGetLevel(64), 5000);
}

TEST_F(LevelsTest, LevelsCanBeChangedAtRunTime) {
    EXPECT_EQ(zorDebugSetLevels("warn,7=debug"), 0);
    EXPECT_TRUE(isOn(3000, 95));
    EXPECT_FALSE(isOn(3001, 95));
    EXPECT_TRUE(isOn(5000, 7));
    EXPECT_EQ(zorDebugGetLevel(7), 5000);

    EXPECT_EQ(zorDebugSetLevels("off"), 0);
    EXPECT_FALSE(isOn(1, 95));
    EXPECT_FALSE(isOn(1, 7));

    EXPECT_EQ(zorDebugSetLevels(""), 0);
    EXPECT_TRUE(isOn(1000, 7));
    EXPECT_FALSE(isOn(1001, 7));
}

TEST_F(LevelsTest, ASettingThatMakesNoSenseAtRunTimeChangesNothing) {
    ASSERT_EQ(zorDebugSetLevels("info"), 0);

    EXPECT_EQ(zorDebugSetLevels("debug,nonsense"), -1);

    EXPECT_EQ(zorDebugGetLevel(95), 4000);
}

// Its entry comes and goes, and moves behind others that do.
TEST_F(LevelsTest, ALevelThatStaysOnIsNeverReadAsOff) {
    constexpr int kChanges = 30000;
    std::string others = "error";
    for (int module = 1; module < 64; ++module) others += "," + std::to_string(module) + "=warn";
    const std::string settings[] = {"debug", others + ",95=debug", "error,95=debug"};
    ASSERT_EQ(zorDebugSetLevels("debug"), 0);
    std::atomic<bool> stop{false};
    std::atomic<int> readings{0};
    std::atomic<int> off{0};
    std::thread reader([&] {
        while (!stop) {
            if (!isOn(5000, 95)) ++off;
            ++readings;
        }
    });

    for (int i = 0; i < kChanges || readings == 0; ++i) {
        EXPECT_EQ(zorDebugSetLevels(settings[i % 3].c_str()), 0);
    }
    stop = true;
    reader.join();

    EXPECT_EQ(off, 0) << "of " << readings;
}

}  // namespace

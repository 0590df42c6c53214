#include <gtest/gtest.h>

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "probe.h"
#include "support/fault_injection.h"
#include "support/scratch_folder.h"
#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using test::ChildResult;
using test::probe;

const std::string kAccepted =
    "accepted are off, errors-only, error, warn, info, debug or 0 to 65535, for one module as in "
    "0x5f=debug, separated by commas; error is used\n";

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

TEST_F(LevelsTest, ErrorsOnlySilencesWhatAlwaysShows) {
    EXPECT_EQ(levelsShown("errors-only"), "01000");
    EXPECT_EQ(levelsShown("debug,95=errors-only"), "01000");
    EXPECT_EQ(levelsShown("debug,95=errors-only", "94"), "11111");
    EXPECT_EQ(levelsShown("errors-only,95=debug"), "11111");
    // Modules that share a low byte.
    EXPECT_EQ(levelsShown("errors-only,0x15f=debug", "351"), "11111");
    EXPECT_EQ(levelsShown("errors-only,0x15f=debug"), "01000");
    EXPECT_EQ(levelsShown("warn,0x15f=errors-only"), "11100");
    ASSERT_EQ(zorDebugSetLevels("errors-only"), 0);
    EXPECT_FALSE(isOn(999, 95));
    EXPECT_TRUE(isOn(1000, 95));
    EXPECT_FALSE(isOn(1001, 95));
    EXPECT_EQ(zorDebugGetLevel(95), 1000);
}

TEST_F(LevelsTest, NamesMayBeInCapitalsAndBlanksStandAroundItems) {
    EXPECT_EQ(levelsShown("ERROR"), "11000");
    EXPECT_EQ(levelsShown("warning"), "11100");
    EXPECT_EQ(levelsShown("Warning"), "11100");
    EXPECT_EQ(levelsShown("Errors-Only"), "01000");
    EXPECT_EQ(levelsShown("error, 0x5f=DEBUG"), "11111");
    EXPECT_EQ(levelsShown("error, 0X5F=DEBUG"), "11111");
    EXPECT_EQ(levelsShown(" warn ,\t7=debug "), "11100");
}

TEST_F(LevelsTest, NumbersInTheEnvironmentSetTheThreshold) {
    EXPECT_EQ(levelsShown("0"), "00000");
    EXPECT_EQ(levelsShown("1"), "10000");
    EXPECT_EQ(levelsShown("2999"), "11000");
    EXPECT_EQ(levelsShown("3000"), "11100");
    EXPECT_EQ(levelsShown("0xbb8"), "11100");
    EXPECT_EQ(levelsShown("0Xbb8"), "11100");
    EXPECT_EQ(levelsShown("03000"), "11100");  // Not octal.
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
    for (const std::string bad : {"loud", "debugs", "-1", "65536", "0x", "0X", "0b1", "0x10000",
                                  "12a", "wa rn", "95=", "95 =debug", "95= debug", "warning-only",
                                  "=debug", "95=loud", "65536=debug", "5f=debug", "a=b"}) {
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
    EXPECT_FALSE(isOn(0, 7));  // There is no such level.
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

class LevelsFileTest : public LevelsTest {
protected:
    LevelsFileTest() { (void)zorDebugSetFile(m_reports.c_str()); }
    ~LevelsFileTest() override {
        (void)zorDebugSetLevelsFile(nullptr);
        (void)zorDebugSetFile(nullptr);
    }

    std::string reports() const {
        std::ifstream file(m_reports);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    void waitForReports(std::ptrdiff_t count) const {
        while (true) {
            (void)isOn(5000, 95);
            const std::string text = reports();
            if (std::count(text.begin(), text.end(), '\n') >= count) return;
        }
    }

    // Renamed into place: never seen half written.
    void write(const std::string& text, mode_t mode = 0600) {
        const std::string aside = m_folder.file("aside", text);
        (void)chmod(aside.c_str(), mode);
        (void)rename(aside.c_str(), m_path.c_str());
    }

    // Looks now: naming a file is a look.
    void look() { ASSERT_EQ(zorDebugSetLevelsFile(m_path.c_str()), 0); }

    static std::string complaint(const std::string& bad, const std::string& why) {
        return "zor-debug: ZOR_DEBUG_LEVELS_FILE: cannot use '" + bad + "'" + why +
               "; the levels stay as they are\n";
    }

    const test::ScratchFolder m_folder;
    const std::string m_path = m_folder.path("levels");
    const std::string m_reports = m_folder.path("reports");
};

TEST_F(LevelsFileTest, AFileChangesTheLevelsOfARunningProcess) {
    ASSERT_EQ(zorDebugSetLevels("error"), 0);
    look();
    EXPECT_FALSE(isOn(3000, 95));
    write("warn, 7=debug\n");

    while (!isOn(3000, 95)) std::this_thread::yield();

    EXPECT_EQ(zorDebugGetLevel(7), 5000);
    write("off\n");
    while (isOn(1, 95)) std::this_thread::yield();
    EXPECT_EQ(reports(), "");
}

TEST_F(LevelsFileTest, AFileIsLookedAtOnceASecondAtMost) {
    write("error\n");
    const auto before = std::chrono::steady_clock::now();
    look();
    write("debug\n");

    while (!isOn(5000, 95)) std::this_thread::yield();

    EXPECT_GE((std::chrono::steady_clock::now() - before).count(), 1000000000);
}

TEST_F(LevelsFileTest, TheEnvironmentNamesAFile) {
    write("debug");

    const ChildResult result = probe("levels", {"95:5000", "95:5001"})
                                   .variable("ZOR_DEBUG", "off")
                                   .variable("ZOR_DEBUG_LEVELS_FILE", m_path)
                                   .run();

    EXPECT_EQ(result.output, "10");
    EXPECT_EQ(result.errors, "");
}

TEST_F(LevelsFileTest, ACallHoldsUntilTheFileChanges) {
    write("debug");
    look();
    ASSERT_EQ(zorDebugSetLevels("error"), 0);
    EXPECT_FALSE(isOn(5000, 95));

    EXPECT_EQ(zorDebugSetLevelsFile(nullptr), 0);

    EXPECT_FALSE(isOn(5000, 95));
    EXPECT_TRUE(isOn(1000, 95));
}

TEST_F(LevelsFileTest, AFileThatOthersCanWriteIsIgnoredAndReportedOnce) {
    ASSERT_EQ(zorDebugSetLevels("error"), 0);
    write("debug", 0620);
    look();
    write("debug", 0602);
    waitForReports(2);

    EXPECT_FALSE(isOn(5000, 95));
    const std::string expected = complaint(m_path, ": others can write it");
    EXPECT_EQ(reports(), expected + expected);
}

TEST_F(LevelsFileTest, WhatIsNoFileOfOnesOwnIsIgnoredAndReported) {
    ASSERT_EQ(zorDebugSetLevels("error"), 0);
    const std::string folder = m_folder.folder("folder");
    ASSERT_EQ(zorDebugSetLevelsFile(folder.c_str()), 0);
    ASSERT_EQ(zorDebugSetLevelsFile("/dev/null"), 0);
    write("debug");
    const std::string link = m_folder.link("link", m_path);
    ASSERT_EQ(zorDebugSetLevelsFile(link.c_str()), 0);

    EXPECT_FALSE(isOn(5000, 95));
    EXPECT_EQ(reports(), complaint(folder, ": it is no file") +
                             complaint("/dev/null", ": it is no file") +
                             complaint(link, ": Too many levels of symbolic links"));
}

TEST_F(LevelsFileTest, AnotherUsersFileIsIgnoredAndReported) {
    if (geteuid() != 0) GTEST_SKIP() << "Only root can give a file away.";
    write("debug");
    ASSERT_EQ(chown(m_path.c_str(), 1, 1), 0);

    look();

    EXPECT_FALSE(isOn(5000, 95));
    EXPECT_EQ(reports(), complaint(m_path, ": it is another user's"));
}

TEST_F(LevelsFileTest, AnErrorThatStaysIsReportedOnce) {
    time_t laterBy = 0;
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime, [&](clockid_t id, timespec* p_now) {
            const int result = clock_gettime(id, p_now);
            p_now->tv_sec += laterBy;
            return result;
        });
    const std::string link = m_folder.link("link", "nowhere");
    ASSERT_EQ(zorDebugSetLevelsFile(link.c_str()), 0);

    for (int i = 0; i < 3; ++i) {
        laterBy += 2;
        EXPECT_FALSE(isOn(5000, 95));
    }
    EXPECT_EQ(reports(), complaint(link, ": Too many levels of symbolic links"));

    // It was looked at each time, and is once more.
    (void)unlink(link.c_str());
    (void)m_folder.file("link", "debug");
    (void)chmod(link.c_str(), 0600);
    laterBy += 2;
    EXPECT_TRUE(isOn(5000, 95));
}

TEST_F(LevelsFileTest, ATextThatMakesNoSenseIsReportedOnceAndChangesNothing) {
    ASSERT_EQ(zorDebugSetLevels("warn"), 0);
    write("debug,loud\n");
    look();
    write(std::string(5000, 'x'));
    waitForReports(2);

    EXPECT_EQ(zorDebugGetLevel(95), 3000);
    EXPECT_EQ(reports(),
              complaint("loud",
                        "; accepted are off, errors-only, error, warn, info, debug or 0 to 65535, "
                        "for one module as in 0x5f=debug, separated by commas") +
                  complaint(m_path, ": it is too long"));
}

TEST_F(LevelsFileTest, ANameThatIsTooLongIsRefused) {
    const std::string path(5000, 'x');

    EXPECT_EQ(zorDebugSetLevelsFile(path.c_str()), -1);
    const ChildResult result =
        probe("levels", {"95:1"}).variable("ZOR_DEBUG_LEVELS_FILE", path).run();

    EXPECT_EQ(result.errors, "zor-debug: ZOR_DEBUG_LEVELS_FILE: cannot use '" +
                                 path.substr(0, 200) +
                                 "': File name too long; no file is looked at\n");
}

TEST_F(LevelsFileTest, ManyThreadsLookAtOnce) {
    look();
    std::vector<std::thread> readers;
    readers.reserve(4);
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([] {
            while (!isOn(5000, 95)) std::this_thread::yield();
        });
    }
    write("debug");

    for (std::thread& reader : readers) reader.join();

    EXPECT_EQ(reports(), "");
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

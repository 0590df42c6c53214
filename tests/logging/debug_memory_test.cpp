#include "base/logging/debug_memory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <regex>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "base/logging/boot_id.h"
#include "base/logging/log_level.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"
#include "support/open_descriptors.h"
#include "support/scratch_folder.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base::debug;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;
using test::ScratchFolder;
using test::When;
using tevalon::base::kLogAlways;
using tevalon::base::kLogError;

using Clock = test::ReplaceCall<int(clockid_t, timespec*)>;
using Allocator = test::ReplaceCall<void*(std::size_t)>;

static_assert(sizeof g_webengine_memory_debug_enabled == sizeof(bool));
static_assert(sizeof g_webengine_memory_debug_info == sizeof(char*));

constexpr const char* kVariable = "SHOW_MEMORY_DEBUG_INFO";

/// What @p work writes to standard output.
std::string outputOf(const std::function<void()>& work) {
    (void)std::fflush(stdout);
    std::FILE* const file = std::tmpfile();
    const int before = dup(STDOUT_FILENO);
    (void)dup2(fileno(file), STDOUT_FILENO);
    work();
    (void)std::fflush(stdout);
    (void)dup2(before, STDOUT_FILENO);
    (void)close(before);
    std::rewind(file);
    std::string text;
    for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file)) text += static_cast<char>(c);
    (void)std::fclose(file);
    return text;
}

std::string wholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Whatever runs after debug_init().

class ShowFileContentsTest : public testing::Test {
protected:
    // The clock shows 12.5 s, and the boot identifier is known before.
    ShowFileContentsTest()
        : m_bootId(static_cast<int>(tevalon::base::bootID())),
          m_clock(
              Call::ClockGettime,
              [](clockid_t clock, timespec* p_time) {
                  EXPECT_EQ(clock, CLOCK_MONOTONIC);
                  *p_time = {12, 500000000};
                  return 0;
              },
              test::When().everyTime().anyThread()) {
        (void)debug_init();
    }

    std::string report(const std::string& title, const std::string& text,
                       const std::string& time = "12.500000") const {
        return "{" + std::to_string(m_bootId) + "-" + time +
               "}[B-LOG] debug_memory.cpp:79:showFileContents(): ==" + title + "==\n " + text +
               "\n";
    }

    /// Expects the text in both places.
    void expectShown(const std::string& path, const std::string& text) const {
        LogCapture log;
        EXPECT_EQ(outputOf([&] { showFileContents("Title:", path.c_str()); }),
                  report("Title:", text));
        const std::vector<LogEntry> expected = {{kLogAlways, report("Title:", text)}};
        EXPECT_EQ(log.entries(), expected);
    }

    static void expectError(const std::string& path, const std::string& line) {
        LogCapture log;
        EXPECT_EQ(outputOf([&] { showFileContents("Title:", path.c_str()); }), "");
        const std::vector<LogEntry> expected = {{kLogError, "[B-LOG] debug_memory.cpp:" + line}};
        EXPECT_EQ(log.entries(), expected);
    }

    std::string fileOf(const std::string& text) const { return m_scratch.file("file", text); }

    const ScratchFolder m_scratch;
    const int m_bootId;
    const Clock m_clock;
};

TEST_F(ShowFileContentsTest, ShowsAFileWithoutItsLastByte) {
    expectShown(fileOf("first\nsecond\n"), "first\nsecond");
    expectShown(fileOf("no line end"), "no line en");
    expectShown(fileOf("two line ends\n\n"), "two line ends\n");
    expectShown(fileOf("ab"), "a");
}

TEST_F(ShowFileContentsTest, ShowsAFileOfOneByteAsNothing) {
    expectShown(fileOf("\n"), "");
    expectShown(fileOf("x"), "");
}

TEST_F(ShowFileContentsTest, ShowsTheBeginningOfALongFile) {
    const auto text = [](std::size_t size) {
        std::string result;
        while (result.size() < size) result += std::to_string(result.size()) + " ";
        return result.substr(0, size);
    };

    expectShown(fileOf(text(4094)), text(4093));
    expectShown(fileOf(text(4095)), text(4094));
    expectShown(fileOf(text(4096)), text(4094));
    expectShown(fileOf(text(5000)), text(4094));
    expectShown(fileOf(text(1000000)), text(4094));
}

TEST_F(ShowFileContentsTest, ShowsNothingOfALongerFileBefore) {
    expectShown(fileOf(std::string(3000, 'x')), std::string(2999, 'x'));
    expectShown(fileOf("short\n"), "short");
}

TEST_F(ShowFileContentsTest, EndsAtAZeroByte) {
    expectShown(fileOf(std::string("ab\0cd\n", 6)), "ab");
}

TEST_F(ShowFileContentsTest, TakesNothingForAFormat) {
    const std::string path = m_scratch.file("%s%n", "100%s%n%d\n");

    expectShown(path, "100%s%n%d");
    const std::string output = outputOf([&] { showFileContents("%s%n", path.c_str()); });
    EXPECT_EQ(output, report("%s%n", "100%s%n%d"));
}

TEST_F(ShowFileContentsTest, TakesAnEmptyTitle) {
    const std::string path = fileOf("text\n");

    EXPECT_EQ(outputOf([&] { showFileContents("", path.c_str()); }), report("", "text"));
}

TEST_F(ShowFileContentsTest, KeepsWhatItShowsInItsBuffer) {
    expectShown(fileOf("kept\n"), "kept");

    EXPECT_STREQ(g_webengine_memory_debug_info.load(), "kept");
}

TEST_F(ShowFileContentsTest, ShowsFilesOfUnknownSize) {
    const std::string version = wholeFile("/proc/version");
    ASSERT_FALSE(version.empty());
    struct stat status = {};
    ASSERT_EQ(stat("/proc/version", &status), 0);
    ASSERT_EQ(status.st_size, 0);

    expectShown("/proc/version", version.substr(0, version.size() - 1));
}

TEST_F(ShowFileContentsTest, ReadsAPipeThatDeliversPieceByPieceToItsEnd) {
    const std::string path = m_scratch.path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::thread writer([&] {
        std::ofstream pipe(path, std::ios::binary);
        for (int i = 0; i < 100; ++i) pipe << "piece " << std::flush;
    });
    std::string text;
    for (int i = 0; i < 100; ++i) text += "piece ";

    expectShown(path, text.substr(0, text.size() - 1));

    writer.join();
}

TEST_F(ShowFileContentsTest, ReportsAFileThatCannotBeOpened) {
    const std::string missing = m_scratch.path("missing%s");

    expectError(missing, "68:showFileContents(): Error opening " + missing + "\n");
    expectError("", "68:showFileContents(): Error opening \n");
}

TEST_F(ShowFileContentsTest, ReportsAFileThatHoldsOrGivesNothing) {
    const std::string empty = fileOf("");

    expectError(empty, "73:showFileContents(): Error reading " + empty + "\n");
    expectError("/dev/null", "73:showFileContents(): Error reading /dev/null\n");
    expectError(m_scratch.path(),
                "73:showFileContents(): Error reading " + m_scratch.path() + "\n");
}

TEST_F(ShowFileContentsTest, DoesNothingWithoutTitleOrPath) {
    const std::string path = fileOf("text\n");
    LogCapture log;

    const std::string output = outputOf([&] {
        showFileContents(nullptr, path.c_str());
        showFileContents("Title:", nullptr);
        showFileContents(nullptr, nullptr);
    });

    EXPECT_EQ(output, "");
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(ShowFileContentsTest, PrintsEvenWhenTheLogIsOff) {
    const std::string path = fileOf("text\n");
    LogCapture log(0);

    const std::string output = outputOf([&] {
        showFileContents("Title:", path.c_str());
        showFileContents("Title:", "/missing/path");
        showFileContents("Title:", "/dev/null");
    });

    EXPECT_EQ(output, report("Title:", "text"));
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(ShowFileContentsTest, NeedsTheMostImportantLevelAlone) {
    const std::string path = fileOf("text\n");
    LogCapture log(kLogAlways);

    (void)outputOf([&] {
        showFileContents("Title:", path.c_str());
        showFileContents("Title:", "/missing/path");
    });

    EXPECT_EQ(log.texts(), std::vector<std::string>{report("Title:", "text")});
}

TEST_F(ShowFileContentsTest, LeavesNoDescriptorOpen) {
    const std::string path = fileOf("text\n");
    const std::string empty = m_scratch.file("empty", "");
    const long before = test::openDescriptors();

    (void)outputOf([&] {
        for (int i = 0; i < 20; ++i) {
            showFileContents("Title:", path.c_str());
            showFileContents("Title:", empty.c_str());
            showFileContents("Title:", "/missing/path");
        }
    });

    EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(ShowFileContentsTest, MayBeCalledByManyThreads) {
    constexpr int kThreads = 4;
    const std::string path = fileOf("text of all\n");
    LogCapture log;

    const std::string output = outputOf([&] {
        test::runAtOnce(kThreads, [&](int) {
            for (int i = 0; i < 50; ++i) showFileContents("Title:", path.c_str());
        });
    });

    const std::vector<std::string> lines(50U * kThreads, report("Title:", "text of all"));
    EXPECT_EQ(log.texts(), lines);
    EXPECT_EQ(output, std::accumulate(lines.begin(), lines.end(), std::string()));
}

TEST_F(ShowFileContentsTest, ShowsTheSystemsMemory) {
    LogCapture log;

    const std::string output = outputOf([] { debug_dump_system_memory_status(); });

    const std::string head = report("System MemInfo:", "MemTotal:");
    EXPECT_EQ(output.substr(0, head.size() - 1), head.substr(0, head.size() - 1));
    EXPECT_NE(output.find("\nMemFree: "), std::string::npos);
    EXPECT_NE(output[output.size() - 2], '\n');
    const std::vector<LogEntry> expected = {{kLogAlways, output}};
    EXPECT_EQ(log.entries(), expected);
}

TEST_F(ShowFileContentsTest, ThereAreNoAllocatorStatistics) {
    LogCapture log;
    bool isInitialised = false;

    const std::string output = outputOf([&] {
        isInitialised = debug_init_tcmalloc_extension();
        debug_dump_tcmalloc_status();
    });

    EXPECT_TRUE(isInitialised);
    EXPECT_EQ(output, "");
    EXPECT_TRUE(log.entries().empty());
}

// What needs a process without a history.

class DebugMemoryDeathTest : public testing::Test {};

TEST_F(DebugMemoryDeathTest, DoesNothingBeforeItsInitialisation) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        LogCapture log;

        const std::string output = outputOf([] {
            showFileContents("Title:", "/proc/version");
            showFileContents("Title:", "/missing/path");
            debug_dump_system_memory_status();
        });

        EXPECT_EQ(output, "");
        EXPECT_TRUE(log.entries().empty());
        EXPECT_EQ(g_webengine_memory_debug_info.load(), nullptr);
        EXPECT_FALSE(debug_memory_debug_enabled());
        EXPECT_FALSE(g_webengine_memory_debug_enabled.load());
    });
}

TEST_F(DebugMemoryDeathTest, WorksWithoutTheVariableOnceInitialised) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        (void)unsetenv(kVariable);
        LogCapture log;

        EXPECT_FALSE(debug_init());

        EXPECT_TRUE(log.entries().empty());
        EXPECT_NE(g_webengine_memory_debug_info.load(), nullptr);
        EXPECT_FALSE(debug_memory_debug_enabled());
        const std::string output = outputOf([] { debug_dump_system_memory_status(); });
        const std::regex format(
            "^\\{-?[0-9]+-[0-9]+\\.[0-9]{6}\\}\\[B-LOG\\] debug_memory\\.cpp:79:"
            "showFileContents\\(\\): ==System MemInfo:==\n MemTotal: ");
        EXPECT_TRUE(std::regex_search(output, format)) << output;
    });
}

TEST_F(DebugMemoryDeathTest, IsEnabledByThreeValues) {
    for (const char* value : {"TRUE", "1", "true"}) {
        EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
            (void)setenv(kVariable, value, 1);

            EXPECT_TRUE(debug_init());

            EXPECT_TRUE(debug_memory_debug_enabled());
            EXPECT_TRUE(g_webengine_memory_debug_enabled.load());
        });
    }
}

TEST_F(DebugMemoryDeathTest, IsEnabledByNoOtherValue) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        for (const char* value : {"", "0", "True", "tRUE", "TRUE ", " TRUE", "TRUE\n", "true1",
                                  "11", "1 ", "01", "yes", "on", "FALSE", "T"}) {
            (void)setenv(kVariable, value, 1);
            EXPECT_FALSE(debug_init()) << value;
            EXPECT_FALSE(debug_memory_debug_enabled()) << value;
        }
        EXPECT_NE(g_webengine_memory_debug_info.load(), nullptr);
    });
}

TEST_F(DebugMemoryDeathTest, StaysEnabledAndKeepsItsBuffer) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        (void)setenv(kVariable, "1", 1);
        EXPECT_TRUE(debug_init());
        const char* const buffer = g_webengine_memory_debug_info;

        (void)setenv(kVariable, "0", 1);
        EXPECT_FALSE(debug_init());
        (void)unsetenv(kVariable);
        EXPECT_FALSE(debug_init());

        EXPECT_TRUE(debug_memory_debug_enabled());
        EXPECT_EQ(g_webengine_memory_debug_info.load(), buffer);
    });
}

TEST_F(DebugMemoryDeathTest, IsInitialisedByManyThreadsAtOnce) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        (void)setenv(kVariable, "true", 1);
        std::vector<char*> buffers(8);

        test::runAtOnce(8, [&](int i) {
            EXPECT_TRUE(debug_init());
            EXPECT_TRUE(debug_memory_debug_enabled());
            buffers[static_cast<std::size_t>(i)] = g_webengine_memory_debug_info;
        });

        EXPECT_NE(buffers.front(), nullptr);
        EXPECT_EQ(buffers, std::vector<char*>(8, buffers.front()));
    });
}

TEST_F(DebugMemoryDeathTest, TwoThreadsThatInitialiseItTogetherAllocateOneBuffer) {
    if (!test::isSupported(Call::Malloc)) GTEST_SKIP() << "malloc is the sanitizer's";
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::Event isOtherThere;  // At the lock, or at an allocation of its own.
        std::atomic<int> buffers{0};
        std::thread other;
        {
            const Allocator allocator(
                Call::Malloc,
                [&](std::size_t size) -> void* {
                    if (size == 4096 && ++buffers == 1) {
                        other = std::thread([&] {
                            const test::RunAtCall atLock(Call::PthreadMutexLock,
                                                         [&] { isOtherThere.set(); });
                            (void)debug_init();
                            isOtherThere.set();
                        });
                        EXPECT_TRUE(isOtherThere.wait());
                    }
                    return std::malloc(size);
                },
                When().everyTime().anyThread());
            (void)debug_init();
            other.join();
        }

        EXPECT_EQ(buffers, 1);
    });
}

TEST_F(DebugMemoryDeathTest, HasNoBufferWhenMemoryRunsOut) {
    if (!test::isSupported(Call::Malloc)) GTEST_SKIP() << "malloc is the sanitizer's";
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        (void)setenv(kVariable, "1", 1);
        long refusals = 0;
        bool wasAskedFor = false;
        {
            Allocator allocator(Call::Malloc, [&](std::size_t size) -> void* {
                if (size != 4096) return std::malloc(size);
                ++refusals;
                errno = ENOMEM;
                return nullptr;
            });
            wasAskedFor = debug_init();
        }

        EXPECT_TRUE(wasAskedFor);
        EXPECT_EQ(refusals, 1);
        EXPECT_TRUE(debug_memory_debug_enabled());
        EXPECT_EQ(g_webengine_memory_debug_info.load(), nullptr);
        EXPECT_EQ(outputOf([] { showFileContents("Title:", "/proc/version"); }), "");
        EXPECT_TRUE(debug_init());
        EXPECT_NE(g_webengine_memory_debug_info.load(), nullptr);
    });
}

TEST_F(DebugMemoryDeathTest, ShowsMinusOneWhenTheClockCannotBeRead) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const ScratchFolder scratch;
        const std::string path = scratch.file("file", "text\n");
        (void)debug_init();
        LogCapture log;
        const FailCall fail(Call::ClockGettime, EINVAL, When().everyTime());

        const std::string output = outputOf([&] { showFileContents("Title:", path.c_str()); });

        EXPECT_EQ(output,
                  "{4660--1.000000}[B-LOG] debug_memory.cpp:79:showFileContents(): ==Title:==\n"
                  " text\n");
        EXPECT_EQ(log.texts(), std::vector<std::string>{output});
    });
}

TEST_F(DebugMemoryDeathTest, WritesTheSameIdentifierTwiceEvenOneThatIsNotKept) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const ScratchFolder scratch;
        const std::string path = scratch.file("file", "text\n");
        (void)debug_init();
        LogCapture log;
        int readings = 0;
        // One reading for the time, and then one for each look at the identifier.
        const Clock clock(Call::ClockGettime, [&](clockid_t, timespec* p_time) {
            *p_time = {7, ++readings <= 2 ? 0 : 5};
            return 0;
        });

        const std::string output = outputOf([&] { showFileContents("Title:", path.c_str()); });

        EXPECT_EQ(output,
                  "{0-7.000000}[B-LOG] debug_memory.cpp:79:showFileContents(): ==Title:==\n"
                  " text\n");
        EXPECT_EQ(log.texts(), std::vector<std::string>{output});
    });
}

TEST_F(DebugMemoryDeathTest, TakesTheTimeStampBeforeTheIdentifier) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const ScratchFolder scratch;
        const std::string path = scratch.file("file", "text\n");
        (void)debug_init();
        int readings = 0;
        const Clock clock(Call::ClockGettime, [&](clockid_t, timespec* p_time) {
            ++readings;
            *p_time = {readings, 10 * readings};
            return 0;
        });

        const std::string output = outputOf([&] { showFileContents("Title:", path.c_str()); });

        EXPECT_EQ(output,
                  "{20-1.000000}[B-LOG] debug_memory.cpp:79:showFileContents(): ==Title:==\n"
                  " text\n");
    });
}

TEST_F(DebugMemoryDeathTest, ShowsTheBootIdentifierAsASignedNumber) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const ScratchFolder scratch;
        const std::string path = scratch.file("file", "text\n");
        (void)debug_init();
        const Clock clock(Call::ClockGettime, [](clockid_t, timespec* p_time) {
            *p_time = {7, -2};
            return 0;
        });

        const std::string output = outputOf([&] { showFileContents("Title:", path.c_str()); });

        EXPECT_EQ(output,
                  "{-2-7.000000}[B-LOG] debug_memory.cpp:79:showFileContents(): ==Title:==\n"
                  " text\n");
    });
}

}  // namespace

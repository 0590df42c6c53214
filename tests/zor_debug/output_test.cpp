#include <gtest/gtest.h>
#include <pthread.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "probe.h"
#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using test::ChildResult;
using test::probe;

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "zorXXXXXX").string();
        m_path = mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(m_path); }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Runs the probe's "terminal" way with a terminal as its standard error.
std::string onTerminal(const std::string& noColor) {
    int controller = -1;
    const pid_t child = forkpty(&controller, nullptr, nullptr, nullptr);
    if (child == 0) {
        (void)setenv("ZOR_DEBUG", "debug", 1);
        (void)setenv("TERM", "xterm", 1);
        (void)setenv("NO_COLOR", noColor.c_str(), 1);
        char program[] = ZOR_DEBUG_PROBE, way[] = "terminal";
        char* const arguments[] = {program, way, nullptr};
        (void)execv(program, arguments);
        _exit(127);
    }
    std::string text;
    char piece[256];
    for (ssize_t got = 0; (got = read(controller, piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    (void)close(controller);
    (void)waitpid(child, nullptr, 0);
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

TEST(OutputTest, TextIsWrittenAsItStands) {
    EXPECT_EQ(probe("write", {"a\n\n", "b%d", "c"}).run().errors, "a\n\nb%dc");
}

TEST(OutputTest, EmptyTextWritesNothing) {
    EXPECT_EQ(probe("write", {""}).variable("ZOR_DEBUG_PREFIX", "time").run().errors, "");
}

TEST(OutputTest, ALineOfAnyLengthIsWrittenWhole) {
    EXPECT_EQ(probe("long-line").run().errors, std::string(100000, 'x') + "|\n");
}

TEST(OutputTest, NoOtherLineLandsInALineThatIsBegun) {
    EXPECT_EQ(probe("interleave").run().errors, "whole\nbegun ended\n");
}

TEST(OutputTest, ALineThatItsThreadLeftIncompleteIsNotGluedToTheNext) {
    EXPECT_EQ(probe("abandon").run().errors, "abandoned\nnext\n");
}

TEST(OutputTest, ManyThreadsTearNoLine) {
    const std::regex whole(R"(<[0-3] \d+>|\([0-3] \d+\))");

    const std::vector<std::string> lines = linesOf(probe("storm").run().errors);

    EXPECT_EQ(lines.size(), 4U * 300U * 2U);
    for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, whole)) << line;
}

TEST(OutputTest, ManyThreadsPrefixEachLineOnce) {
    const std::regex whole(
        R"(\[ *\d+\.\d{6}\] \[\d+ zor_debug_probe\] (<[0-3] \d+>|\([0-3] \d+\)))");

    const std::vector<std::string> lines =
        linesOf(probe("storm").variable("ZOR_DEBUG_PREFIX", "thread,time").run().errors);

    EXPECT_EQ(lines.size(), 4U * 300U * 2U);
    for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, whole)) << line;
}

TEST(OutputTest, EachLineOfATextIsPrefixed) {
    const std::regex expected(R"(\[ *\d+\.\d{6}\] one\n\[ *\d+\.\d{6}\] \n\[ *\d+\.\d{6}\] two\n)");

    const ChildResult result =
        probe("write", {"o", "ne\n\nt", "wo\n"}).variable("ZOR_DEBUG_PREFIX", "time").run();

    EXPECT_TRUE(std::regex_match(result.errors, expected)) << result.errors;
}

TEST(OutputTest, APrefixThatMakesNoSenseIsReportedAndLeftOut) {
    const ChildResult result =
        probe("write", {"line\n", "line\n"}).variable("ZOR_DEBUG_PREFIX", "time,tiem").run();

    EXPECT_EQ(result.errors,
              "zor-debug: ZOR_DEBUG_PREFIX: cannot use 'tiem'; accepted are time and thread, "
              "separated by a comma; no prefix is used\nline\nline\n");
}

TEST(OutputTest, AFileIsAppendedTo) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    for (const char* text : {"one\n", "two\n"}) {
        const ChildResult result = probe("write", {text}).variable("ZOR_DEBUG_FILE", path).run();
        EXPECT_EQ(result.errors, "");
    }

    EXPECT_EQ(contentsOf(path), "one\ntwo\n");
}

TEST(OutputTest, AFileThatCannotBeOpenedIsReportedAndStandardErrorUsed) {
    const TemporaryFolder folder;
    const std::string path = folder / "missing/log";

    const ChildResult result = probe("write", {"line\n"}).variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.errors,
              "zor-debug: ZOR_DEBUG_FILE: cannot use '" + path +
                  "': No such file or directory; accepted is a file to append to, %p in its name "
                  "being the process id; standard error is used\nline\n");
}

TEST(OutputTest, APipeThatNobodyReadsIsReportedNotWaitedFor) {
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);

    const ChildResult result = probe("write", {"line\n"}).variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_NE(result.errors.find("No such device or address"), std::string::npos);
}

TEST(OutputTest, TheDestinationCanBeChangedAtRunTime) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(zorDebugSetFile(path.c_str()), 0);
    zorDebugOutput0("file\n");
    EXPECT_EQ(zorDebugSetFile((folder / "missing/log").c_str()), -1);
    zorDebugOutput0("still file\n");
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);
    zorDebugOutput0("standard error\n");

    EXPECT_EQ(contentsOf(path), "file\nstill file\n");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "standard error\n");
}

TEST(OutputTest, ThePrefixCanBeChangedAtRunTime) {
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(zorDebugSetPrefix("thread"), 0);
    zorDebugOutput0("a\n");
    EXPECT_EQ(zorDebugSetPrefix("time,"), -1);
    zorDebugOutput0("b\n");
    EXPECT_EQ(zorDebugSetPrefix(""), 0);
    zorDebugOutput0("c\n");

    const std::string written = ::testing::internal::GetCapturedStderr();
    const std::regex expected(R"(\[\d+ [^\]]+\] a\n\[\d+ [^\]]+\] b\nc\n)");
    EXPECT_TRUE(std::regex_match(written, expected)) << written;
}

TEST(OutputTest, ProblemsWithOtherSettingsAreReportedInTheFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result = probe("write", {"line\n"})
                                   .variable("ZOR_DEBUG_FILE", path)
                                   .variable("ZOR_DEBUG", "loud")
                                   .run();

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(contentsOf(path).substr(0, 42), "zor-debug: ZOR_DEBUG: cannot use 'loud'; a");
}

TEST(OutputTest, AForkedChildWritesToItsOwnFile) {
    const TemporaryFolder folder;

    const ChildResult result =
        probe("fork-in-line").variable("ZOR_DEBUG_FILE", folder / "%p-%p.log").run();

    ASSERT_EQ(result.exitStatus, 0);
    long parent = 0;
    long child = 0;
    ASSERT_EQ(std::sscanf(result.output.c_str(), "%ld %ld", &parent, &child), 2);
    const auto file = [&folder](long id) {
        return folder / (std::to_string(id) + "-" + std::to_string(id) + ".log");
    };
    EXPECT_EQ(contentsOf(file(parent)), "parent goes on\n");
    EXPECT_EQ(contentsOf(file(child)), "child\n");
}

TEST(OutputTest, ForksWhileOthersWriteNeitherHangNorTear) {
    const ChildResult result = probe("fork-storm").run();

    EXPECT_EQ(result.exitStatus, 0);
    const std::vector<std::string> lines = linesOf(result.errors);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "<child>"), 40);
    EXPECT_EQ(static_cast<std::size_t>(std::count(lines.begin(), lines.end(), "<parent>")),
              lines.size() - 40);
}

TEST(OutputTest, AForkDuringAnotherThreadsFirstCallLeavesAChildThatCanFork) {
    const ChildResult result = probe("fork-in-first-call").run();

    EXPECT_EQ(result.exitStatus, 0);
    std::vector<std::string> lines = linesOf(result.errors);
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (std::vector<std::string>{"child", "grandchild", "thread"}));
}

// Beside one another, as not to standard error.
TEST(OutputTest, ManyThreadsTearNoLineOfAFile) {
    for (const std::string prefix : {"", "thread,time"}) {
        const TemporaryFolder folder;
        const std::string path = folder / "log";
        const std::regex whole(
            (prefix.empty() ? std::string() : R"(\[ *\d+\.\d{6}\] \[\d+ zor_debug_probe\] )") +
            R"((<[0-3] \d+>|\([0-3] \d+\)))");

        const ChildResult result = probe("storm")
                                       .variable("ZOR_DEBUG_FILE", path)
                                       .variable("ZOR_DEBUG_PREFIX", prefix)
                                       .run();

        EXPECT_EQ(result.exitStatus, 0);
        const std::vector<std::string> lines = linesOf(contentsOf(path));
        EXPECT_EQ(lines.size(), 4U * 300U * 2U);
        for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, whole)) << line;
    }
}

TEST(OutputTest, ForksWhileOthersWriteToAFileNeitherHangNorTear) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "A thread that the child does not have may hold a lock of the sanitizer's own.";
#endif
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result = probe("fork-storm").variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    const std::vector<std::string> lines = linesOf(contentsOf(path));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "<child>"), 40);
    EXPECT_EQ(static_cast<std::size_t>(std::count(lines.begin(), lines.end(), "<parent>")),
              lines.size() - 40);
}

// Under the address sanitizer and the thread sanitizer, a file that is closed under a writer shows.
TEST(OutputTest, NoLineIsLostWhileTheDestinationChanges) {
    constexpr int kThreads = 3;
    constexpr int kLines = 2000;
    const TemporaryFolder folder;
    const std::string paths[] = {folder / "one", folder / "two"};
    ASSERT_EQ(zorDebugSetFile(paths[0].c_str()), 0);
    std::atomic<int> atWork{kThreads};
    std::vector<std::thread> writers;
    for (int i = 0; i < kThreads; ++i) {
        writers.emplace_back([&atWork] {
            for (int line = 0; line < kLines; ++line)
                zorDebugOutput0(line % 2 ? "<%d>\n" : "<%d", 1);
            --atWork;
        });
    }

    for (int i = 0; atWork > 0; ++i) EXPECT_EQ(zorDebugSetFile(paths[i % 2].c_str()), 0);
    for (std::thread& writer : writers) writer.join();
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);

    const std::vector<std::string> lines = linesOf(contentsOf(paths[0]) + contentsOf(paths[1]));
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kLines / 2));
    for (const std::string& line : lines) EXPECT_EQ(line, "<1<1>");
}

TEST(OutputTest, ThePrefixFollowsTheNameOfAThreadThatNamesItself) {
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(zorDebugSetPrefix("thread"), 0);

    std::thread([] {
        for (const char* p_name : {"first", "second"}) {
            (void)pthread_setname_np(pthread_self(), p_name);
            zorDebugOutput0("\n");
        }
    }).join();
    EXPECT_EQ(zorDebugSetPrefix(""), 0);

    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(std::regex_match(written, std::regex(R"(\[\d+ first\] \n\[\d+ second\] \n)")))
        << written;
}

TEST(OutputTest, WhatIsWrittenWhileTheProcessExitsIsNotLost) {
    EXPECT_EQ(probe("late-exit").run().errors, "main without endatexit\nstatic destructor\n");
}

TEST(OutputTest, WhatIsWrittenAfterTheLibrarysOwnDestructorIsNotLost) {
    const ChildResult result =
        probe("write", {"kept back, "}).variable("PROBE_LAST_WORDS", "1").run();

    EXPECT_EQ(result.errors, "kept back, last words");
}

TEST(OutputTest, WritingBeforeMainWorks) {
    const ChildResult result = probe("write", {"main\n"}).variable("PROBE_BEFORE_MAIN", "1").run();

    EXPECT_EQ(result.errors, "before main\nmain\n");
}

TEST(OutputTest, ErrnoIsKeptAndShown) {
    const ChildResult result = probe("keep-errno").run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "No such file or directory\n");
}

TEST(OutputTest, APipeWhoseReaderHasGoneDoesNotEndTheProcess) {
    const ChildResult result = probe("broken-pipe").run();

    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(OutputTest, AnExitDoesNotWaitForAWriterWhomNobodyReads) {
    const ChildResult result = probe("exit-beside-stuck-writer").run();

    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "exits");
}

TEST(OutputTest, AnExitThatIsStuckDropsWhatFollows) {
    const ChildResult result =
        probe("exit-beside-stuck-writer").variable("PROBE_LAST_WORDS", "1").run();

    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(OutputTest, AnExitDoesNotWaitForAReaderOfWhatWasKeptBack) {
    const ChildResult result = probe("exit-with-text-that-nobody-reads").run();

    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "exits");
}

TEST(OutputTest, AFullDiskDoesNotHoldUpTheProcess) {
    const ChildResult result =
        probe("write", {"line\n"}).variable("ZOR_DEBUG_FILE", "/dev/full").run();

    EXPECT_EQ(result.exitStatus, 0);
}

TEST(OutputTest, TheFileNeverTakesThePlaceOfAClosedStandardError) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result =
        probe("closed-standard-error").variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(contentsOf(path), "kept\n");
}

TEST(OutputTest, ACancelledThreadHoldsNobodyUp) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "The address sanitizer takes a cancelled thread's stack for an overrun one.";
#endif
    const ChildResult result = probe("cancel").run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(linesOf(result.errors).back(), "<after>");
}

TEST(OutputTest, ATerminalGetsColoursByLevel) {
    EXPECT_EQ(onTerminal(""),
              "\033[1mlevel 1\033[0m\n\033[31mlevel 1000\033[0m\n\033[33mlevel 3000\033[0m\n"
              "\033[36mlevel 4000\033[0m\n\033[2mlevel 5000\033[0m\n");
}

TEST(OutputTest, NoColorTurnsColoursOff) {
    EXPECT_EQ(onTerminal("1"), "level 1\nlevel 1000\nlevel 3000\nlevel 4000\nlevel 5000\n");
}

}  // namespace

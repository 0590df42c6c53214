#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <pty.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utmp.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
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

/// What the output says when it is written to again.
std::string lost(int lines, const std::string& why) {
    return "zor-debug: lines that could not be written: " + std::to_string(lines) + why;
}

/// A terminal. It stays open for longer than programs have it: with the last of them the system may
/// drop what was not read yet.
class Terminal {
public:
    Terminal() {
        if (openpty(&m_controller, &m_end, m_name, nullptr, nullptr) != 0) {
            throw std::runtime_error("no terminal");
        }
        (void)fcntl(m_controller, F_SETFD, FD_CLOEXEC);
        (void)fcntl(m_end, F_SETFD, FD_CLOEXEC);
    }
    ~Terminal() {
        (void)close(m_end);
        (void)close(m_controller);
    }

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    const char* name() const { return m_name; }
    /// In a forked child: makes it the child's terminal, and all of its standard descriptors.
    void use() const { (void)login_tty(m_end); }
    /// What programs that have ended have written to it, without the returns.
    std::string text() const {
        constexpr char kLast = '\0';
        (void)!write(m_end, &kLast, 1);
        std::string text;
        char next = kLast;
        while (read(m_controller, &next, 1) == 1 && next != kLast) text += next;
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
        return text;
    }

private:
    int m_controller = -1;
    int m_end = -1;
    char m_name[64] = "";
};

void setOrUnset(const char* p_variable, const char* p_value) {
    (void)(p_value != nullptr ? setenv(p_variable, p_value, 1) : unsetenv(p_variable));
}

// Runs the probe in that way, with a terminal as its standard error. Null leaves a variable unset.
std::string onTerminal(const char* p_noColor, const char* p_way = "terminal",
                       const char* p_terminal = "xterm", const std::string& argument = "") {
    const Terminal terminal;
    const pid_t child = fork();
    if (child == 0) {
        terminal.use();
        (void)setenv("ZOR_DEBUG", "debug", 1);
        setOrUnset("TERM", p_terminal);
        setOrUnset("NO_COLOR", p_noColor);
        char program[] = ZOR_DEBUG_PROBE;
        std::string way = p_way;
        std::string more = argument;
        char* const arguments[] = {program, way.data(), more.data(), nullptr};
        (void)execv(program, arguments);
        _exit(127);
    }
    (void)waitpid(child, nullptr, 0);
    return terminal.text();
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

    EXPECT_EQ(
        result.errors,
        "zor-debug: ZOR_DEBUG_PREFIX: cannot use 'tiem'; accepted are wall, time, level, module "
        "and thread, separated by commas; no prefix is used\nline\nline\n");
}

TEST(OutputTest, TheLevelIsALetter) {
    const std::string expected =
        "[A] level 1\n[E] level 1000\n[W] level 3000\n[I] level 4000\n[D] level 5000\n";
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    // To a file, threads write beside one another.
    for (const std::string& file : {std::string(), path}) {
        const ChildResult result = probe("write-at-levels")
                                       .variable("ZOR_DEBUG", "debug")
                                       .variable("ZOR_DEBUG_FILE", file)
                                       .variable("ZOR_DEBUG_PREFIX", "level")
                                       .run();
        EXPECT_EQ(file.empty() ? result.errors : contentsOf(path), expected);
    }
}

TEST(OutputTest, ALineBeforeAnyQuestionForALevelHasNone) {
    const ChildResult result =
        probe("write", {"line\n"}).variable("ZOR_DEBUG_PREFIX", "LEVEL").run();

    EXPECT_EQ(result.errors, "[-] line\n");
}

TEST(OutputTest, TheModuleIsItsNumber) {
    const ChildResult result = probe("write-as-modules", {"0x5f", "7", "0xabcd"})
                                   .variable("ZOR_DEBUG_PREFIX", "module")
                                   .run();

    EXPECT_EQ(result.errors, "[0x5f] module 95\n[0x07] module 7\n[0xabcd] module 43981\n");
}

// What the C library makes of it.
std::time_t wallTimeIn(const std::string& line, std::string* p_zone) {
    std::tm parts = {};
    const char* p_end = strptime(line.c_str(), "[%Y-%m-%dT%H:%M:%S", &parts);
    if (p_end == nullptr) return -1;
    *p_zone = std::string(p_end).substr(7);  // Behind the microseconds.
    return timegm(&parts);
}

TEST(OutputTest, TheWallTimeHasDateAndZone) {
    const struct {
        const char* p_name;
        const char* p_shown;
        int seconds;
    } kZones[] = {
        {"UTC", "+00:00", 0}, {"XXX-5:45", "+05:45", 20700}, {"XXX3:30", "-03:30", -12600}};
    for (const auto& zone : kZones) {
        const std::time_t before = std::time(nullptr);
        const ChildResult result = probe("write", {"line\n"})
                                       .variable("TZ", zone.p_name)
                                       .variable("ZOR_DEBUG_PREFIX", "wall")
                                       .run();

        const std::regex whole(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d\] line\n)");
        EXPECT_TRUE(std::regex_match(result.errors, whole)) << result.errors;
        std::string shown;
        const std::time_t time = wallTimeIn(result.errors, &shown) - zone.seconds;
        EXPECT_EQ(shown, std::string(zone.p_shown) + "] line\n");
        EXPECT_GE(time, before);
        EXPECT_LE(time, std::time(nullptr));
    }
}

TEST(OutputTest, TheWallTimesDateIsThatOfTheCalendar) {
    const struct {
        const char* p_seconds;
        const char* p_zone;
        const char* p_shown;
    } kDates[] = {
        {"0", "UTC", "1970-01-01T00:00:00.000007+00:00"},
        {"0", "XXX3:30", "1969-12-31T20:30:00.000007-03:30"},
        {"951782399", "UTC", "2000-02-28T23:59:59.000007+00:00"},
        {"951782400", "UTC", "2000-02-29T00:00:00.000007+00:00"},
        {"1709251199", "UTC", "2024-02-29T23:59:59.000007+00:00"},
        {"1709251200", "UTC", "2024-03-01T00:00:00.000007+00:00"},
        {"1735689599", "UTC", "2024-12-31T23:59:59.000007+00:00"},
        {"1735689599", "XXX-1", "2025-01-01T00:59:59.000007+01:00"},
        {"2147483647", "UTC", "2038-01-19T03:14:07.000007+00:00"},
#if __SIZEOF_POINTER__ == 8
        {"4107542399", "UTC", "2100-02-28T23:59:59.000007+00:00"},
        {"4107542400", "UTC", "2100-03-01T00:00:00.000007+00:00"},
#endif
    };
    for (const auto& date : kDates) {
        const ChildResult result = probe("write", {"line\n"})
                                       .variable("TZ", date.p_zone)
                                       .variable("PROBE_WALL_SECONDS", date.p_seconds)
                                       .variable("ZOR_DEBUG_PREFIX", "wall")
                                       .run();
        EXPECT_EQ(result.errors, std::string("[") + date.p_shown + "] line\n");
    }
}

// From Central European winter to summer time, in the middle of a second's work.
TEST(OutputTest, TheZoneChangesWithTheTimeOfYear) {
    const ChildResult result = probe("write-across", {"1774745999", "1774746000"})
                                   .variable("TZ", "CET-1CEST,M3.5.0,M10.5.0/3")
                                   .variable("ZOR_DEBUG_PREFIX", "wall")
                                   .run();

    EXPECT_EQ(result.errors,
              "[2026-03-29T01:59:59.000007+01:00] line\n[2026-03-29T03:00:00.000007+02:00] line\n");
}

TEST(OutputTest, PrefixesStandInOneOrder) {
    const std::regex whole(
        R"(\[\d{4}-\d\d-\d\dT[\d:.]{15}[+-]\d\d:\d\d\] \[ *\d+\.\d{6}\] \[A\] \[0x5f\] )"
        R"(\[\d+ zor_debug_probe\] module 95\n)");

    const ChildResult result = probe("write-as-modules", {"0x5f"})
                                   .variable("ZOR_DEBUG_PREFIX", "thread, module,LEVEL,time,wall")
                                   .run();

    EXPECT_TRUE(std::regex_match(result.errors, whole)) << result.errors;
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

TEST(OutputTest, ANameThatIsTooLongIsReportedAndStandardErrorUsed) {
    const TemporaryFolder folder;
    const std::string long1 = folder / std::string(5000, 'x');
    std::string long2 = folder / "";
    for (int i = 0; i < 1000; ++i) long2 += "%p/";  // Once the number is in place of it.
    for (const std::string& path : {long1, long2 + std::string(4000 - long2.size(), 'x')}) {
        const ChildResult result =
            probe("write", {"line\n"}).variable("ZOR_DEBUG_FILE", path).run();

        EXPECT_EQ(result.errors,
                  "zor-debug: ZOR_DEBUG_FILE: cannot use '" + path.substr(0, 200) +
                      "': File name too long; accepted is a file to append to, %p in its name "
                      "being the process id; standard error is used\nline\n");
    }
}

TEST(OutputTest, OtherLettersBehindAPercentSignStandForThemselves) {
    const TemporaryFolder folder;
    const std::string path = folder / "log%d%";

    const ChildResult result = probe("write", {"line\n"}).variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(contentsOf(path), "line\n");
}

TEST(OutputTest, ALineBreakWithinATextEndsALineOfAFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result = probe("write", {"warm\n", "one\ntwo", " ends\n\nnext", "\n"})
                                   .variable("ZOR_DEBUG_FILE", path)
                                   .run();

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(contentsOf(path), "warm\none\ntwo ends\n\nnext\n");
}

// What is pending stays so, blocked as it is, and none is left behind by a write that fails.
TEST(OutputTest, ASignalOfABrokenPipeThatIsPendingStaysPending) {
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ASSERT_EQ(zorDebugSetFile(path.c_str()), 0);
    sigset_t pipe;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &pipe, &before), 0);
    (void)close(reader);

    zorDebugOutput0("to nobody\n");
    (void)sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    (void)raise(SIGPIPE);
    zorDebugOutput0("to nobody\n");
    (void)sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);

    const timespec noWait = {};
    EXPECT_EQ(sigtimedwait(&pipe, nullptr, &noWait), SIGPIPE);
    EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
    const std::string after = folder / "log";
    EXPECT_EQ(zorDebugSetFile(after.c_str()), 0);
    zorDebugOutput0("read\n");
    EXPECT_EQ(contentsOf(after), lost(2, ", for: Broken pipe\n") + "read\n");
    EXPECT_EQ(zorDebugSetFile(""), 0);
}

TEST(OutputTest, ASocketIsWrittenToAsAPipeIs) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(ends[1], STDERR_FILENO);
        (void)unsetenv("ZOR_DEBUG_FILE");
        char program[] = ZOR_DEBUG_PROBE;
        char way[] = "write";
        char line[] = "line\n";
        char* const arguments[] = {program, way, line, nullptr};
        (void)execv(program, arguments);
        _exit(127);
    }
    (void)close(ends[1]);
    std::string text;
    char piece[256];
    for (ssize_t got = 0; (got = read(ends[0], piece, sizeof(piece))) > 0;) {
        text.append(piece, static_cast<std::size_t>(got));
    }
    (void)close(ends[0]);
    (void)waitpid(child, nullptr, 0);

    EXPECT_EQ(text, "line\n");
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

TEST(OutputTest, WhatIsWrittenAfterTheLibrarysOwnDestructorHasItsPrefix) {
    const ChildResult result = probe("write", {"line\n"})
                                   .variable("PROBE_LAST_WORDS", "1")
                                   .variable("ZOR_DEBUG_PREFIX", "level")
                                   .run();

    EXPECT_EQ(result.errors, "[-] line\n[-] last words");
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

constexpr const char* kDiskIsFull = ", for: No space left on device\n";

TEST(OutputTest, LostLinesAreCountedAndToldWhenWritingGoesAgain) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    for (const char* p_prefix : {"", "level"}) {
        ASSERT_EQ(zorDebugSetPrefix(p_prefix), 0);
        ASSERT_EQ(zorDebugSetFile("/dev/full"), 0);
        zorDebugOutput0("one\n");
        zorDebugOutput0("two\nthree\n");
        zorDebugOutput0("four, ");
        zorDebugOutput0("its end\n");
        EXPECT_EQ(zorDebugSetPrefix(nullptr), 0);
        ASSERT_EQ(zorDebugSetFile(path.c_str()), 0);
        zorDebugOutput0("after\n");
        zorDebugOutput0("and more\n");
    }
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);

    const std::string once = lost(4, kDiskIsFull) + "after\nand more\n";
    EXPECT_EQ(contentsOf(path), once + once);
}

TEST(OutputTest, LostLinesOfManyThreadsAreAllCounted) {
    constexpr int kThreads = 4;
    constexpr int kLines = 500;
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    ASSERT_EQ(zorDebugSetFile("/dev/full"), 0);
    std::vector<std::thread> writers;
    writers.reserve(kThreads);
    for (int i = 0; i < kThreads; ++i) {
        writers.emplace_back([] {
            for (int line = 0; line < kLines; ++line) zorDebugOutput0("line\n");
        });
    }
    for (std::thread& writer : writers) writer.join();

    ASSERT_EQ(zorDebugSetFile(path.c_str()), 0);
    zorDebugOutput0("after\n");
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);

    EXPECT_EQ(contentsOf(path), lost(kThreads * kLines, kDiskIsFull) + "after\n");
}

TEST(OutputTest, LinesAreLostWhileAReaderIsGone) {
    const TemporaryFolder folder;
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(zorDebugSetFile(path.c_str()), 0);
    (void)close(reader);

    for (int i = 0; i < 3; ++i) zorDebugOutput0("lost\n");
    reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    zorDebugOutput0("read\n");
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);

    char text[256] = "";
    EXPECT_GT(read(reader, text, sizeof(text) - 1), 0);
    (void)close(reader);
    EXPECT_EQ(text, lost(3, ", for: Broken pipe\n") + "read\n");
}

TEST(OutputTest, ATornLineIsEndedBeforeTheNext) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result = probe("limit-file-size").variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(contentsOf(path), "12345678\nabc\n" + lost(2, ", for: File too large\n") + "after\n");
}

// The part that was written ends with a line.
TEST(OutputTest, NoLineIsTornWhereTheDiskTakesTheFirstOfSeveral) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result =
        probe("limit-file-size-between-lines").variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(contentsOf(path), "12345678\nab\n" + lost(1, ", for: File too large\n") + "after\n");
}

TEST(OutputTest, LostLinesAreToldAtTheEndOfTheProcess) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    const ChildResult result =
        probe("limit-file-size", {"and end"}).variable("ZOR_DEBUG_FILE", path).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(contentsOf(path), "12345678\nabc\n" + lost(2, ", for: File too large\n"));
}

TEST(OutputTest, ALimitedFileKeepsOnePredecessor) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    std::ofstream(path) << "earlier line\n";

    const ChildResult result =
        probe("write", {"one\n", "two, ", "and its end\n", "three\n", "four is long\n", "five\n"})
            .variable("ZOR_DEBUG_FILE", path)
            .variable("ZOR_DEBUG_FILE_BYTES", "20")
            .run();

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(contentsOf(path), "five\n");
    EXPECT_EQ(contentsOf(path + ".1"), "three\nfour is long\n");
}

TEST(OutputTest, ALimitIsKeptFromTheSizeThatTheFileHas) {
    const TemporaryFolder folder;
    const std::string path = folder / "%p.log";
    ASSERT_EQ(zorDebugSetFile(path.c_str()), 0);
    zorDebugOutput0("0123456789\n");

    EXPECT_EQ(zorDebugSetFileLimit("15"), 0);
    zorDebugOutput0("abcdefghi\n");
    EXPECT_EQ(zorDebugSetFileLimit(nullptr), 0);
    for (int i = 0; i < 5; ++i) zorDebugOutput0("unlimited\n");
    EXPECT_EQ(zorDebugSetFile(nullptr), 0);

    const std::string mine = folder / (std::to_string(getpid()) + ".log");
    EXPECT_EQ(contentsOf(mine + ".1"), "0123456789\n");
    EXPECT_EQ(contentsOf(mine).substr(0, 19), "abcdefghi\nunlimited");
    EXPECT_EQ(linesOf(contentsOf(mine)).size(), 6U);
}

TEST(OutputTest, ALineLongerThanTheLimitIsWrittenWhole) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    (void)probe("write", {"a\n", "a line that is long\n", "b\n"})
        .variable("ZOR_DEBUG_FILE", path)
        .variable("ZOR_DEBUG_FILE_BYTES", "4")
        .run();

    EXPECT_EQ(contentsOf(path + ".1"), "a line that is long\n");
    EXPECT_EQ(contentsOf(path), "b\n");
}

TEST(OutputTest, AnEmptyFileTakesALineLongerThanTheLimit) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    (void)probe("write", {"a line that is long\n", "b\n"})
        .variable("ZOR_DEBUG_FILE", path)
        .variable("ZOR_DEBUG_FILE_BYTES", "4")
        .run();

    EXPECT_EQ(contentsOf(path + ".1"), "a line that is long\n");
    EXPECT_EQ(contentsOf(path), "b\n");
}

TEST(OutputTest, ALimitOfBlanksIsRefused) {
    EXPECT_NE(zorDebugSetFileLimit("  "), 0);
    EXPECT_EQ(zorDebugSetFileLimit(""), 0);
}

TEST(OutputTest, ALimitHasUnits) {
    for (const char* p_good : {"1", "64K", "10M", "2G", " 5M "}) {
        EXPECT_EQ(zorDebugSetFileLimit(p_good), 0) << p_good;
    }
    for (const char* p_bad : {"0", "-1", "K", "1T", "1 K", "0x10", "1.5M", "99999999999999999999",
                              "18446744073709551615K", "5MB"}) {
        EXPECT_EQ(zorDebugSetFileLimit(p_bad), -1) << p_bad;
    }
    EXPECT_EQ(zorDebugSetFileLimit(""), 0);
}

TEST(OutputTest, ALimitThatMakesNoSenseIsReportedAndLeftOut) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";

    (void)probe("write", {"line\n"})
        .variable("ZOR_DEBUG_FILE", path)
        .variable("ZOR_DEBUG_FILE_BYTES", "much")
        .run();

    EXPECT_EQ(
        contentsOf(path),
        "zor-debug: ZOR_DEBUG_FILE_BYTES: cannot use 'much'; accepted is a number of bytes, with "
        "K, M or G behind it where it is of these; the file is not limited\nline\n");
}

TEST(OutputTest, AFileThatCannotBeRenamedGrowsOnAndSaysSoOnce) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    std::filesystem::create_directories(path + ".1/in the way");

    (void)probe("write", {"one\n", "two\n", "three\n", "four\n"})
        .variable("ZOR_DEBUG_FILE", path)
        .variable("ZOR_DEBUG_FILE_BYTES", "5")
        .run();

    EXPECT_EQ(contentsOf(path), "one\nzor-debug: cannot begin '" + path +
                                    "' anew: Is a directory; it grows on\ntwo\nthree\nfour\n");
}

TEST(OutputTest, ManyThreadsTearNoLineOfALimitedFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    const std::regex whole(R"(<[0-3] \d+>|\([0-3] \d+\))");

    (void)probe("storm")
        .variable("ZOR_DEBUG_FILE", path)
        .variable("ZOR_DEBUG_FILE_BYTES", "4K")
        .run();

    for (const std::string& name : {path, path + ".1"}) {
        EXPECT_LE(std::filesystem::file_size(name), 4096U);
        for (const std::string& line : linesOf(contentsOf(name))) {
            EXPECT_TRUE(std::regex_match(line, whole)) << line;
        }
    }
    EXPECT_GT(std::filesystem::file_size(path + ".1"), 4000U);
}

TEST(OutputTest, AForkedChildDoesNotLimitItsParentsFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "log";
    std::ofstream(path) << "earlier\n";

    const ChildResult result = probe("fork-in-line")
                                   .variable("ZOR_DEBUG_FILE", path)
                                   .variable("ZOR_DEBUG_FILE_BYTES", "4")
                                   .run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(contentsOf(path + ".1"), "earlier\nchild\n");
    EXPECT_EQ(contentsOf(path), "parent goes on\n");
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

constexpr const char* kLevelsInColours =
    "\033[1mlevel 1\033[0m\n\033[31mlevel 1000\033[0m\n\033[33mlevel 3000\033[0m\n"
    "\033[36mlevel 4000\033[0m\n\033[2mlevel 5000\033[0m\n";

TEST(OutputTest, ATerminalGetsColoursByLevel) {
    EXPECT_EQ(onTerminal(""), kLevelsInColours);
    EXPECT_EQ(onTerminal(nullptr), kLevelsInColours);
}

TEST(OutputTest, ATerminalThatIsTheFileGetsColoursByLevel) {
    const Terminal terminal;

    const ChildResult result = probe("write-at-levels")
                                   .variable("ZOR_DEBUG", "debug")
                                   .variable("ZOR_DEBUG_FILE", terminal.name())
                                   .variable("TERM", "xterm")
                                   .variable("NO_COLOR", "")
                                   .run();

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(terminal.text(), kLevelsInColours);
}

// Ten modules in one log: each has its own colour, which are all of the palette's.
TEST(OutputTest, ATerminalShowsModulesInTheirColours) {
    (void)setenv("ZOR_DEBUG_PREFIX", "module,level", 1);
    const std::string text = onTerminal("", "terminal-modules");
    (void)unsetenv("ZOR_DEBUG_PREFIX");

    const std::vector<std::string> lines = linesOf(text);
    ASSERT_EQ(lines.size(), 10U);
    std::set<std::string> colours;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::smatch parts;
        const std::regex whole(
            "\033\\[1m\\[A\\] \033\\[0;38;5;(\\d+)m\\[0x6(\\d)\\] \033\\[0m\033\\[1mmodule "
            "(\\d+)\033\\[0m");
        ASSERT_TRUE(std::regex_match(lines[i], parts, whole)) << lines[i];
        EXPECT_EQ(parts[3], std::to_string(0x60 + i));
        colours.insert(parts[1]);
    }
    EXPECT_EQ(colours.size(), 10U);
}

TEST(OutputTest, ATerminalThatIsDumbGetsNoColoursAndOneWithoutANameDoes) {
    EXPECT_EQ(onTerminal("", "terminal", "dumb"),
              "level 1\nlevel 1000\nlevel 3000\nlevel 4000\nlevel 5000\n");
    EXPECT_EQ(onTerminal("", "terminal", nullptr), onTerminal(""));
}

TEST(OutputTest, WhatIsWrittenToATerminalWhileTheProcessExitsIsNotLost) {
    EXPECT_EQ(onTerminal("1", "late-exit"), "main without endatexit\nstatic destructor\n");
    // Kept back until then, and more than a terminal takes at once for sure.
    const std::string line(1000, 'x');
    EXPECT_EQ(onTerminal("1", "write", "xterm", line), line);
}

TEST(OutputTest, NoColorTurnsColoursOff) {
    EXPECT_EQ(onTerminal("1"), "level 1\nlevel 1000\nlevel 3000\nlevel 4000\nlevel 5000\n");
}

}  // namespace

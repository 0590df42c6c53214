#include "base/diagnostics/state_report.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "base/logging/boot_id.h"
#include "base/simple_timer.h"
#include "base/utils/monotonic_time.h"
#include "recordings.h"
#include "state_reports.h"
#include "support/fresh_process.h"

namespace {

using namespace tevalon::base::diagnostics;
using test::stateReport;
using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;

std::string headPattern() {
    return "process " + std::to_string(getpid()) + " '" + program_invocation_short_name +
           "', boot id " + std::to_string(tevalon::base::bootID()) +
           "\n"
           "build id of the program [0-9a-f]{40}, of the library [0-9a-f]{40}\n"
           "at [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} UTC, "
           "monotonic [0-9]+\\.[0-9]{9}\n";
}

// Of a process that uses nothing of the library.
constexpr const char* kNothing =
    "hubs: none\n"
    "waits: none\n"
    "timers: none\n"
    "timer runs: none\n"
    "task threads: none\n"
    "watches: none\n"
    "locks held: none\n";

void expectMatch(const std::string& text, const std::string& pattern) {
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text << "is not\n" << pattern;
}

TEST(StateReportTest, TellsOfProcessTimeAndRecorder) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        expectMatch(stateReport(), headPattern() + "recorder: nothing was recorded\n" + kNothing);
        ASSERT_EQ(startRecording(test::optionsOf(32 * 1024)), Status::Ok);
        expectMatch(stateReport(),
                    headPattern() +
                        "recorder: recording, 3[0-9]{4} bytes, from monotonic [0-9]+\\.[0-9]{9}, "
                        "0 records lost\n" +
                        kNothing);
        ASSERT_EQ(stopRecording(), Status::Ok);
        expectMatch(stateReport(),
                    headPattern() +
                        "recorder: stopped, 3[0-9]{4} bytes, from monotonic [0-9]+\\.[0-9]{9}, "
                        "0 records lost\n" +
                        kNothing);
    });
}

TEST(StateReportTest, ItsDateIsTheCalendars) {
    timespec now = {};
    const test::ReplaceCall<int(clockid_t, timespec*)> atTime(
        test::Call::ClockGettime, [&](clockid_t clock, timespec* p_now) {
            if (clock != CLOCK_REALTIME)
                return static_cast<int>(syscall(SYS_clock_gettime, clock, p_now));
            *p_now = now;
            return 0;
        });
    // The ends of months and years, leap years and none among them, and a second before and after.
    for (const time_t seconds :
         {0, 1, 68255999, 68256000, 94694399, 94694400, 951782399, 951782400, 951868800, 1709164799,
          1709164800, 1709251200, 1735689599, 1735689600, 2147483647}) {
        now = {seconds, 7'000'000};
        tm date = {};
        ASSERT_NE(gmtime_r(&seconds, &date), nullptr);
        char expected[64];
        ASSERT_GT(strftime(expected, sizeof(expected), "\nat %Y-%m-%d %H:%M:%S.007 UTC, ", &date),
                  0U);

        const std::string report = stateReport();

        EXPECT_NE(report.find(expected), std::string::npos) << expected << "is not in\n" << report;
    }
}

TEST(StateReportTest, TellsSinceWhenItRecords) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const double before = tevalon::base::monotonicSeconds();
        ASSERT_EQ(startRecording(test::optionsOf(32 * 1024)), Status::Ok);
        const double after = tevalon::base::monotonicSeconds();

        const std::string report = stateReport();

        std::smatch found;
        ASSERT_TRUE(std::regex_search(report, found, std::regex("from monotonic ([0-9.]+), ")));
        const double start = std::stod(found[1]);
        EXPECT_GE(start, before - 1e-6);
        EXPECT_LE(start, after + 1e-6);
    });
}

TEST(StateReportTest, UsesNoHeap) {
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const test::CountCalls news(test::Call::New, test::When().everyTime());
    const test::CountCalls mallocs(test::Call::Malloc, test::When().everyTime());

    EXPECT_EQ(writeState(fd), Status::Ok);

    EXPECT_EQ(news.seen(), 0);
    EXPECT_EQ(mallocs.seen(), 0);
    (void)close(fd);
}

// Of what changes all the time is told only what does not between two looks.
TEST(StateReportTest, LooksTwiceTenMillisecondsApart) {
    using Sleep = int(clockid_t, int, const timespec*, timespec*);
    const test::ReplaceCall<Sleep> sleep(
        test::Call::ClockNanosleep,
        [](clockid_t clock, int flags, const timespec* p_time, timespec*) {
            EXPECT_EQ(clock, CLOCK_MONOTONIC);
            EXPECT_EQ(flags, 0);
            EXPECT_EQ(p_time->tv_sec, 0);
            EXPECT_EQ(p_time->tv_nsec, 10'000'000);
            return 0;
        });

    (void)stateReport();

    EXPECT_EQ(sleep.hits(), 1);
}

/// Of the process's address space.
long mappedPages() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages;
}

TEST(StateReportTest, LeavesNothingMapped) {
    constexpr long kReports = 300;
    constexpr long kPagesOfOneText = 4;  // At least.
    const test::ReplaceCall<int(clockid_t, int, const timespec*, timespec*)> noSleep(
        test::Call::ClockNanosleep, [](clockid_t, int, const timespec*, timespec*) { return 0; });
    const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(writeState(fd), Status::Ok);
    const long before = mappedPages();
    ASSERT_GT(before, 0);

    for (long i = 0; i < kReports; ++i) EXPECT_EQ(writeState(fd), Status::Ok);

    EXPECT_LT(mappedPages() - before, kReports * kPagesOfOneText);
    (void)close(fd);
}

TEST(StateReportTest, SaysWhatCannotBeWritten) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(writeState(full), Status::WriteFailed);
    EXPECT_EQ(errno, ENOSPC);
    (void)close(full);
    EXPECT_EQ(writeState(-1), Status::WriteFailed);
    EXPECT_EQ(errno, EBADF);
}

#ifndef TEVALON_TEST_EMULATED  // The emulator keeps no such limit.
TEST(StateReportTest, SaysThatMemoryRanOut) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const int fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
        const rlimit none = {0, RLIM_INFINITY};
        rlimit before = {};
        ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
        ASSERT_EQ(setrlimit(RLIMIT_AS, &none), 0);
        const Status status = writeState(fd);
        ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
        EXPECT_EQ(status, Status::NoMemory);
    });
}
#endif

// It interrupts the writer once the pipe is full, with part of the report in it.
TEST(StateReportTest, AWriteThatASignalCutsShortGoesOnWhereItEnded) {
    constexpr int kTimers = 400;
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < kTimers; ++i) {
        timers.push_back(std::make_unique<Timer>(("number " + std::to_string(i)).c_str(),
                                                 TimeoutTime{3600, 0, 0}, [](Timer*, void*) {},
                                                 nullptr, tevalon::base::simple_timer::ONCE));
        ASSERT_EQ(timers.back()->start(), 0);
    }
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    ASSERT_GT(room, 0);
    struct sigaction before = {};
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR2, &action, &before), 0);
    std::thread writer([&] {
        StateOptions options;
        options.isWhole = true;
        EXPECT_EQ(writeState(ends[1], options), Status::Ok);
        (void)close(ends[1]);
    });

    for (int waiting = 0; waiting < room; std::this_thread::yield()) {
        ASSERT_EQ(ioctl(ends[0], FIONREAD, &waiting), 0);
    }
    ASSERT_EQ(pthread_kill(writer.native_handle(), SIGUSR2), 0);
    std::string report;
    char piece[4096];
    for (ssize_t count = 0; (count = read(ends[0], piece, sizeof(piece))) > 0;) {
        report.append(piece, static_cast<std::size_t>(count));
    }

    writer.join();
    (void)close(ends[0]);
    (void)sigaction(SIGUSR2, &before, nullptr);
    for (int i = 0; i < kTimers; ++i) {
        EXPECT_NE(report.find("'number " + std::to_string(i) + "'"), std::string::npos) << i;
    }
}

}  // namespace

// A scheduler whose pipe, waits, clock or threads fail.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include "simple_timer/scheduler_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;
using test::When;

using Lines = std::vector<LogEntry>;

Lines errorLines(const LogCapture& log) {
    Lines lines = log.entriesWithoutLineNumbers();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const LogEntry& entry) { return entry.level != kLogError; }),
                lines.end());
    return lines;
}

std::string described(const std::string& what, int error) {
    return what + "(" + std::to_string(error) + "):'" + std::strerror(error) + "'";
}

TEST(SchedulerFailureTest, WithoutAPipeThereIsNoScheduler) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        test::CountCalls threads(Call::PthreadCreate, When().anyThread());
        test::CountCalls pipes(Call::Pipe2, When().everyTime());
        {
            FailCall noPipe(Call::Pipe2, EMFILE);
            const Timer timer("first", kFar, ignore, nullptr, ONCE);
            EXPECT_EQ(noPipe.hits(), 1);
        }
        EXPECT_EQ(errorLines(log),
                  Lines{timerLine(kLogError, "StartTimerThreadOnce",
                                  described("Fail to create pipe, errno", EMFILE) + ".\n")});

        // It is not tried again.
        const Timer second("second", kFar, ignore, nullptr, ONCE);
        EXPECT_EQ(pipes.seen(), 1);
        EXPECT_EQ(threads.seen(), 0);
    });
}

TEST(SchedulerFailureTest, WithoutAPipeCommandsGoToDescriptorZero) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        int own[2] = {-1, -1};
        ASSERT_EQ(pipe2(own, O_NONBLOCK), 0);
        ASSERT_EQ(dup2(own[1], 0), 0);
        std::unique_ptr<Timer> timer;
        {
            FailCall noPipe(Call::Pipe2, EMFILE);
            timer = std::make_unique<Timer>("t", kAtOnce, ignore, nullptr, ONCE);
        }
        log.clear();

        EXPECT_EQ(timer->start(), 0);
        EXPECT_TRUE(timer->isStarted());  // It never fires.
        EXPECT_EQ(timer->stop(), 0);

        int commands[3] = {};
        EXPECT_EQ(read(own[0], commands, sizeof(commands)), 2 * static_cast<int>(sizeof(int)));
        EXPECT_EQ(commands[0], 1);
        EXPECT_EQ(commands[1], 2);
        EXPECT_EQ(errorLines(log), Lines{});
    });
}

TEST(SchedulerFailureTest, ACommandThatCannotBeWrittenIsReported) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        Timer timer("t", kFar, ignore, nullptr, ONCE);
        Timer next("next", kSoon, runs.handler(), nullptr, ONCE);
        EXPECT_TRUE(log.waitFor("No timer, wait for ever."));
        const LogEntry failure =
            timerLine(kLogError, "SendCmd", described("Fail to wrtie data, errno", EIO) + ".\n");
        {
            FailCall noWrite(Call::Write, EIO);
            EXPECT_EQ(timer.start(), 0);
            EXPECT_EQ(errorLines(log), Lines{failure});
        }
        EXPECT_TRUE(timer.isStarted());
        {
            FailCall noWrite(Call::Write, EIO);
            EXPECT_EQ(timer.stop(), 0);
            EXPECT_EQ(errorLines(log), (Lines{failure, failure}));
        }

        // The scheduler notices at its next wake.
        EXPECT_EQ(timer.start(), 0);
        EXPECT_EQ(next.start(), 0);
        EXPECT_TRUE(runs.waitFor(1));
    });
}

TEST(SchedulerFailureTest, ACommandThatCannotBeReadWakesItAllTheSame) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        Timer timer("t", kSoon, runs.handler(), nullptr, ONCE);
        ASSERT_TRUE(log.waitFor("No timer, wait for ever."));
        log.clear();
        {
            FailCall noRead(Call::Read, EIO, When().anyThread());
            EXPECT_EQ(timer.start(), 0);
            EXPECT_TRUE(runs.waitFor(1));
            EXPECT_EQ(noRead.hits(), 1);
        }
        const Lines lines = schedulerLines(log);
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[0],
                  timerLine(kLogInfo, "HandleTimerThread", "Has new timer, begin work.\n"));
        EXPECT_EQ(lines[1], timerLine(kLogInfo, "HandleTimerThread", "cmd:0.\n"));
    });
}

class SelectFailureTest : public testing::TestWithParam<int> {};

TEST_P(SelectFailureTest, IsReportedAndTriedAgain) {
    const int error = GetParam();
    EXPECT_HOLDS_IN_FRESH_PROCESS([error] {
        const LogEntry failure = timerLine(kLogError, "HandleTimerThread",
                                           described("Fail to select, errno", error) + ".\n");
        const LogEntry idle =
            timerLine(kLogInfo, "HandleTimerThread", "No timer, wait for ever.\n");
        LogCapture log;
        Runs runs;
        std::unique_ptr<Timer> timer;
        {
            // The wait without a timer.
            FailCall noSelect(Call::Select, error, When().anyThread().times(2));
            timer = std::make_unique<Timer>("t", kFar, runs.handler(), nullptr, ONCE);
            while (noSelect.seen() < 3) std::this_thread::yield();
        }
        EXPECT_EQ(schedulerLines(log), (Lines{idle, failure, idle, failure, idle}));
        log.clear();
        {
            // The wait for a timer.
            FailCall noSelect(Call::Select, error, When().anyThread());
            EXPECT_EQ(timer->start(), 0);
            while (noSelect.seen() < 2) std::this_thread::yield();
        }
        const Lines lines = schedulerLines(log);
        ASSERT_EQ(lines.size(), 5U);  // Awake, its command, waiting, the failure, waiting.
        EXPECT_EQ(lines[3], failure);
        EXPECT_EQ(lines[2], lines[4]);

        EXPECT_EQ(timer->stop(), 0);
        EXPECT_EQ(timer->changeTimeout(kSoon), 0);
        EXPECT_EQ(timer->start(), 0);
        EXPECT_TRUE(runs.waitFor(1));
    });
}

INSTANTIATE_TEST_SUITE_P(Errors, SelectFailureTest, testing::Values(EINTR, EBADF, ENOMEM));

TEST(SchedulerFailureTest, WithoutAClockForTheWaitThePassIsRepeated) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        SchedulerClock clock([](int reading) { return reading == 1; });
        Timer timer("t", kAtOnce, runs.handler(), nullptr, ONCE);
        EXPECT_TRUE(log.waitFor("No timer, wait for ever."));
        log.clear();
        EXPECT_EQ(timer.start(), 0);

        EXPECT_TRUE(runs.waitFor(1));
        EXPECT_EQ(errorLines(log), Lines{timerLine(kLogError, "CaculateSelectTimeout",
                                                   described("Fail to get now time, errorno", EIO) +
                                                       ", timeout is 0.\n")});
        const Lines lines = schedulerLines(log);
        ASSERT_GE(lines.size(), 5U);
        EXPECT_EQ(lines[2], lines[4]);  // Waiting, the failure, waiting.
    });
}

TEST(SchedulerFailureTest, WithoutAClockAtExpiryNothingFiresInThatPass) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        SchedulerClock clock([](int reading) { return reading == 2; });
        Timer timer("t", kAtOnce, runs.handler(), nullptr, ONCE);
        EXPECT_TRUE(log.waitFor("No timer, wait for ever."));
        log.clear();
        EXPECT_EQ(timer.start(), 0);

        EXPECT_TRUE(runs.waitFor(1));
        const LogEntry failure = timerLine(kLogError, "HandleTimeout",
                                           described("Fail to get now time, errorno", EIO) + ".\n");
        EXPECT_EQ(errorLines(log), Lines{failure});
        const Lines lines = schedulerLines(log);
        const auto failed = std::find(lines.begin(), lines.end(), failure);
        ASSERT_GE(lines.end() - failed, 2);
        EXPECT_EQ(*(failed - 1), timerLine(kLogDebug, "HandleTimerThread", "Timeout.\n"));
        EXPECT_NE((failed + 1)->text.find("Waiting for timer('t')"), std::string::npos);
    });
}

TEST(SchedulerFailureTest, WithoutAClockForTheNextPeriodTheOldExpiryStays) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        // Wait, expiry, period; the period's second reading, in the same wake, is far ahead.
        std::atomic<int> reading{0};
        test::ReplaceCall<int(clockid_t, timespec*)> clock(
            Call::ClockGettime,
            [&, client = pthread_self()](clockid_t id, timespec* p_time) {
                const int result = clock_gettime(id, p_time);
                if (pthread_equal(client, pthread_self()) != 0) {
                    p_time->tv_sec -= 10;  // Due long since at the start.
                    return result;
                }
                const int number = ++reading;
                if (number == 3) {
                    errno = EIO;
                    return -1;
                }
                if (number == 4) p_time->tv_sec += 1000000;
                return result;
            },
            When().anyThread().everyTime());
        Timer timer("t", {1, 0, 0}, runs.handler(), nullptr, CONTINUE);
        EXPECT_EQ(timer.start(), 0);

        // With its expiry unchanged it is due still, and fires again at once.
        EXPECT_TRUE(runs.waitFor(2));
        EXPECT_EQ(errorLines(log),
                  Lines{timerLine(kLogError, "caculateExpiredTime",
                                  described("Fail to get now time, errorno", EIO) + ".\n")});
        EXPECT_TRUE(timer.isStarted());
        EXPECT_EQ(timer.stop(), 0);
    });
}

TEST(SchedulerFailureTest, AHandlerThreadThatCannotBeMadeCostsThatRun) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        Runs runs;
        Timer once("once", kSoon, runs.handler(), nullptr, ONCE);
        Timer beat("beat", kSoon, runs.handler(), nullptr, CONTINUE);
        {
            FailCall noThread(Call::PthreadCreate, EAGAIN, When().anyThread());
            EXPECT_EQ(once.start(), 0);
            while (noThread.hits() < 1) std::this_thread::yield();
            EXPECT_TRUE(log.waitFor("timer.cpp"));
        }
        // The state is as if it had fired.
        EXPECT_FALSE(once.isStarted());
        EXPECT_EQ(once.stop(), 0);
        EXPECT_TRUE(runs.runs().empty());
        ASSERT_EQ(errorLines(log).size(), 1U);
        EXPECT_NE(errorLines(log)[0].text.find("[B-LOG] timer.cpp:#:"), std::string::npos);

        log.clear();
        {
            FailCall noThread(Call::PthreadCreate, EAGAIN, When().anyThread().times(3));
            EXPECT_EQ(beat.start(), 0);
            EXPECT_TRUE(runs.waitFor(2));
            EXPECT_EQ(noThread.hits(), 3);
        }
        EXPECT_TRUE(beat.isStarted());
        EXPECT_EQ(beat.stop(), 0);
        EXPECT_EQ(errorLines(log).size(), 3U);

        EXPECT_EQ(once.start(), 0);
        const std::size_t before = runs.runs().size();
        EXPECT_TRUE(runs.waitFor(before + 1));
        EXPECT_EQ(once.stop(), 0);
    });
}

TEST(SchedulerFailureTest, ATimerWhoseRunWasLostIsDestroyedWithoutWaiting) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        Runs runs;
        {
            Timer timer("lost", kSoon, runs.handler(), nullptr, ONCE);
            FailCall noThread(Call::PthreadCreate, EAGAIN, When().anyThread());
            EXPECT_EQ(timer.start(), 0);
            EXPECT_TRUE(log.waitFor("timer.cpp"));
        }
        EXPECT_TRUE(runs.runs().empty());
    });
}

TEST(SchedulerDeathTest, AnEmptyHandlerEndsTheProcess) {
    EXPECT_EXIT(
        {
            (void)alarm(60);
            Timer timer("mute", kAtOnce, nullptr, nullptr, ONCE);
            (void)timer.setProperty(kAtOnce, nullptr, nullptr, ONCE);
            (void)timer.start();
            for (;;) (void)pause();
        },
        testing::KilledBySignal(SIGABRT), "bad_function_call");
}

}  // namespace

// Commands that are lost, and threads that are cancelled where they would send one.

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

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

std::vector<LogEntry> linesOf(const std::string& function, const LogCapture& log) {
    Lines lines = log.entriesWithoutLineNumbers();
    const std::string mark = ":#:" + function + "(): ";
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [&](const LogEntry& entry) {
                                   return entry.text.find(mark) == std::string::npos;
                               }),
                lines.end());
    return lines;
}

LogEntry insertLine(const std::string& message) {
    return timerLine(kLogDebug, "InsterTimer", message);
}

TEST(SchedulerLostCommandTest, TheNextStartMakesUpForALostCommand) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        Timer first("first", kSoon, runs.handler(), nullptr, ONCE);
        Timer second("second", kFar, ignore, nullptr, ONCE);
        ASSERT_TRUE(log.waitFor("No timer, wait for ever."));
        {
            FailCall lost(Call::Write, EIO);
            ASSERT_EQ(first.start(), 0);
            ASSERT_EQ(lost.hits(), 1);
        }
        EXPECT_EQ(linesOf("SendCmd", log),
                  Lines{timerLine(kLogError, "SendCmd",
                                  "Fail to wrtie data, errno(5):'" +
                                      std::string(std::strerror(EIO)) + "'.\n")});
        log.clear();

        ASSERT_EQ(second.start(), 0);

        EXPECT_EQ(linesOf("InsterTimer", log),
                  (Lines{insertLine("Begin inster timer:'second'.\n"),
                         insertLine("Insert timer:'second' to normal position.\n"),
                         insertLine("Send CMD_RESCHEDULE(2) because of timer('second').\n")}));
        EXPECT_TRUE(runs.waitFor(1));
    });
}

// Also once it has obeyed one, and sleeps until the timer that this one has started is due.
TEST(SchedulerLostCommandTest, TheNextStartMakesUpForOneThatWasLostBetweenTwo) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Runs runs;
        Timer waited("waited", kFar, ignore, nullptr, ONCE);
        Timer first("first", kSoon, runs.handler(), nullptr, ONCE);
        Timer second("second", {2000000, 0, 0}, ignore, nullptr, ONCE);
        ASSERT_EQ(waited.start(), 0);
        ASSERT_TRUE(log.waitFor("Waiting for timer('waited') expired"));
        {
            FailCall lost(Call::Write, EIO);
            ASSERT_EQ(first.start(), 0);
            ASSERT_EQ(lost.hits(), 1);
        }
        log.clear();

        ASSERT_EQ(second.start(), 0);

        EXPECT_EQ(linesOf("InsterTimer", log),
                  (Lines{insertLine("Begin inster timer:'second'.\n"),
                         insertLine("Insert timer:'second' to normal position.\n"),
                         insertLine("Send CMD_RESCHEDULE(2) because of timer('second').\n")}));
        EXPECT_TRUE(runs.waitFor(1));
    });
}

// Of a command that is on its way no second one is sent.
TEST(SchedulerLostCommandTest, NothingIsMadeUpForWhatWasNotLost) {
    LogCapture log;
    Timer first("first", kFar, ignore, nullptr, ONCE);
    Timer second("second", {2000000, 0, 0}, ignore, nullptr, ONCE);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(first.start(), 0);
        test::CountCalls commands(Call::Write, When().everyTime());

        ASSERT_EQ(second.start(), 0);
        EXPECT_EQ(second.stop(), 0);

        EXPECT_EQ(commands.seen(), 0);
        EXPECT_EQ(first.stop(), 0);
    }
}

/// Runs @p work on a thread whose cancellation is pending; returns whether it was cancelled only
/// after the work.
bool survivesPendingCancellation(const std::function<void()>& work) {
    struct Job {
        const std::function<void()>& work;
        bool isDone;
    };
    Job job = {work, false};
    pthread_t thread = {};
    const auto run = [](void* p_job) -> void* {
        auto* const self = static_cast<Job*>(p_job);
        (void)pthread_cancel(pthread_self());
        self->work();
        self->isDone = true;
        pthread_testcancel();
        return nullptr;
    };
    if (pthread_create(&thread, nullptr, run, &job) != 0) return false;
    void* p_result = nullptr;
    (void)pthread_join(thread, &p_result);
    return job.isDone && p_result == PTHREAD_CANCELED;
}

TEST(SchedulerLostCommandTest, ACancelledThreadStartsItsTimerAllTheSame) {
    Runs runs;
    Timer timer("t", kSoon, runs.handler(), nullptr, ONCE);

    EXPECT_TRUE(survivesPendingCancellation([&] { EXPECT_EQ(timer.start(), 0); }));

    EXPECT_TRUE(runs.waitFor(1));
}

TEST(SchedulerLostCommandTest, ACancelledThreadStopsItsTimerAllTheSame) {
    Timer timer("t", kFar, ignore, nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(survivesPendingCancellation([&] { EXPECT_EQ(timer.stopNoBlock(), 0); }));

    EXPECT_FALSE(timer.isStarted());
}

TEST(SchedulerLostCommandTest, ACancelledThreadDestroysItsTimer) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        EXPECT_TRUE(survivesPendingCancellation([] {
            HeldHandler held;
            auto timer = std::make_unique<Timer>("t", kSoon, held.handler(), nullptr, CONTINUE);
            EXPECT_EQ(timer->start(), 0);
            int stateBefore = 0;
            (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &stateBefore);
            EXPECT_TRUE(held.waitUntilEntered());
            held.letGo();
            (void)pthread_setcancelstate(stateBefore, nullptr);
            timer.reset();
        }));
    });
}

TEST(SchedulerLostCommandTest, ATimeoutBelowZeroFiresOnceInAMillisecond) {
    for (const TimeoutTime& timeout : {TimeoutTime{0, 0, -5}, TimeoutTime{1, -1000, 0}}) {
        constexpr int kRuns = 20;
        test::CountCalls threads(Call::PthreadCreate, When().anyThread());
        Runs runs;
        Runs others;
        Timer other("other", kSoon, others.handler(), nullptr, ONCE);
        Timer timer("negative", timeout, runs.handler(), nullptr, CONTINUE);
        const double start = monotonicNow();

        ASSERT_EQ(timer.start(), 0);
        ASSERT_EQ(other.start(), 0);

        EXPECT_TRUE(runs.waitFor(kRuns));
        EXPECT_TRUE(others.waitFor(1));
        EXPECT_EQ(timer.stop(), 0);
        const double elapsed = monotonicNow() - start;
        EXPECT_GE(elapsed, (kRuns - 1) * 0.001);
        EXPECT_LE(static_cast<double>(threads.seen()), elapsed * 1000 + 3);
    }
}

// Counted from when it is scheduled anew, if that comes late.
TEST(SchedulerLostCommandTest, ATimeoutBelowZeroIsKeptOnceThatIsLater) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr long kSecond = 1000000000;
        LogCapture log;
        Runs runs;
        std::atomic<bool> isStarting{true};
        std::atomic<int> readings{0};
        const pthread_t self = pthread_self();
        const test::ReplaceCall<int(clockid_t, timespec*)> clock(
            Call::ClockGettime,
            [&](clockid_t id, timespec* p_time) {
                const bool isOwn = pthread_equal(self, pthread_self()) != 0;
                if (isOwn && !isStarting) return clock_gettime(id, p_time);
                *p_time = {kSecond, 500000000};
                // The scheduler's for its wait, for its wake, and then, late, for the period.
                if (!isOwn && ++readings > 2) p_time->tv_sec += 5;
                return 0;
            },
            When().anyThread().everyTime());
        Timer timer("negative", {0, 0, -5}, runs.handler(), nullptr, CONTINUE);

        ASSERT_EQ(timer.start(), 0);
        isStarting = false;

        EXPECT_TRUE(log.waitFor("Waiting for timer('negative') expired, expiredTime(sec:" +
                                std::to_string(kSecond + 5) + ", nsec:499995000).\n"));
        timer.stop();
    });
}

// A period above zero is kept, however short: the next expiry is so much later.
TEST(SchedulerLostCommandTest, AMicrosecondIsAPeriod) {
    for (const TimeoutTime& timeout : {TimeoutTime{0, 0, 1}, TimeoutTime{1, -999, -999}}) {
        EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
            constexpr long kSecond = 1000000000;
            const timespec shown = {kSecond, 999999000};
            LogCapture log;
            Runs runs;
            std::atomic<bool> isStarting{true};
            const pthread_t self = pthread_self();
            const test::ReplaceCall<int(clockid_t, timespec*)> clock(
                Call::ClockGettime,
                [&](clockid_t id, timespec* p_time) {
                    const bool isOwn = pthread_equal(self, pthread_self()) != 0;
                    if (isOwn && !isStarting) return clock_gettime(id, p_time);
                    *p_time = shown;
                    if (isOwn) p_time->tv_sec -= 5;  // So that it is due at once.
                    return 0;
                },
                When().anyThread().everyTime());
            Timer timer("short", timeout, runs.handler(), nullptr, CONTINUE);

            ASSERT_EQ(timer.start(), 0);
            isStarting = false;

            ASSERT_TRUE(runs.waitFor(1));
            EXPECT_TRUE(log.waitFor("Waiting for timer('short') expired, expiredTime(sec:" +
                                    std::to_string(kSecond + 1) + ", nsec:0).\n"));
            timer.stop();
        });
    }
}

TEST(SchedulerLostCommandTest, APeriodWhoseClockFailsDoesNotFireWithoutEnd) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        test::CountCalls threads(Call::PthreadCreate, When().anyThread());
        Runs runs;
        Timer timer("t", kSoon, runs.handler(), nullptr, CONTINUE);
        // The scheduler reads it for its wait, for its wake, and then for each period.
        const SchedulerClock clock([](int reading) { return reading >= 3 && reading < 13; });
        const double start = monotonicNow();

        ASSERT_EQ(timer.start(), 0);

        EXPECT_TRUE(runs.waitFor(5));
        EXPECT_EQ(timer.stop(), 0);
        const double elapsed = monotonicNow() - start;
        EXPECT_GE(elapsed, 0.004);
        EXPECT_LE(static_cast<double>(threads.seen()), elapsed * 1000 + 3);
    });
}

TEST(SchedulerLostCommandTest, APassNeedsNoMemory) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        const std::string name(100, 'n');  // Beyond what a string holds without allocating.
        Runs runs;
        Timer timer(name, kSoon, runs.handler(), nullptr, CONTINUE);
        ASSERT_TRUE(log.waitFor("No timer, wait for ever."));
        {
            FailCall noMemory(Call::New, ENOMEM, When().anyThread().everyTime());
            const test::PassCalls pass;
            ASSERT_EQ(timer.start(), 0);
            // Without memory there is no thread for the handler; the passes go on.
            EXPECT_TRUE(log.waitFor("Fail to create handler thread of timer:'" + name));
            EXPECT_EQ(noMemory.hits() > 0, true);
        }

        EXPECT_TRUE(runs.waitFor(1));
    });
}

}  // namespace

// Every line of the scheduler, whole and in order. Each test has a process of its own, for what
// the scheduler writes depends on all that went before.

#include <gtest/gtest.h>

#include "simple_timer/scheduler_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

using Lines = std::vector<LogEntry>;

const Lines kIdle = {timerLine(kLogInfo, "HandleTimerThread", "No timer, wait for ever.\n")};
const Lines kNothingLeft = {timerLine(kLogDebug, "HandleTimerThread", "No timer need handle.\n")};
const Lines kReschedule = {
    timerLine(kLogDebug, "HandleTimerThread", "Need reschedule, continue.\n")};
const Lines kTimeout = {timerLine(kLogDebug, "HandleTimerThread", "Timeout.\n")};

Lines awake(int cmd) {
    return {timerLine(kLogInfo, "HandleTimerThread", "Has new timer, begin work.\n"),
            timerLine(kLogInfo, "HandleTimerThread", "cmd:" + std::to_string(cmd) + ".\n")};
}

Lines waitingFor(const std::string& name, long sec, long nsec) {
    return {timerLine(kLogDebug, "HandleTimerThread",
                      "Waiting for timer('" + name + "') expired, expiredTime(sec:" +
                          std::to_string(sec) + ", nsec:" + std::to_string(nsec) + ").\n")};
}

Lines firedOnce(const std::string& name) {
    return {
        timerLine(kLogDebug, "HandleTimeout", "Timer:'" + name + "' type is ONCE, stop now.\n")};
}

/// Lines without those of passes that ended a little early and changed nothing.
Lines withoutEarlyPasses(Lines lines) {
    for (std::size_t i = 2; i + 1 < lines.size();) {
        const bool isRepeated =
            lines[i] == kTimeout[0] && lines[i + 1] == lines[i - 1];  // "Waiting" again.
        if (isRepeated) {
            lines.erase(lines.begin() + static_cast<long>(i),
                        lines.begin() + static_cast<long>(i) + 2);
        } else {
            ++i;
        }
    }
    return lines;
}

/// What the insertion wrote.
Lines linesOfInsert(const LogCapture& log) {
    Lines lines = clientLines(log);
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const LogEntry& entry) {
                                   return entry.text.find(":#:InsterTimer(): ") ==
                                          std::string::npos;
                               }),
                lines.end());
    return lines;
}

/// Blocks until the scheduler has written as much as is expected; false when test::kPatience ran
/// out first.
bool waitForLines(const LogCapture& log, const Lines& expected) {
    const test::PassCalls pass;
    for (const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
         std::chrono::steady_clock::now() < deadline; std::this_thread::yield()) {
        if (withoutEarlyPasses(schedulerLines(log)).size() >= expected.size()) return true;
    }
    return false;
}

#define EXPECT_SCHEDULER_LINES(log, expected)                              \
    do {                                                                   \
        const Lines expectedLines = expected;                              \
        EXPECT_TRUE(waitForLines(log, expectedLines));                     \
        EXPECT_EQ(withoutEarlyPasses(schedulerLines(log)), expectedLines); \
    } while (false)

TEST(SchedulerLogTest, TheFirstTimerMakesTheSchedulerOnce) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        test::CountCalls pipes(Call::Pipe2, When().anyThread());
        test::CountCalls threads(Call::PthreadCreate, When().anyThread());
        const Timer first("first", kFar, ignore, nullptr, ONCE);
        EXPECT_EQ(clientLines(log),
                  (Lines{traceIn("StartTimerThreadOnce"), traceOut("StartTimerThreadOnce")}));

        const Timer second("second", kFar, ignore, nullptr, ONCE);

        EXPECT_EQ(pipes.seen(), 1);
        EXPECT_EQ(threads.seen(), 1);
        EXPECT_SCHEDULER_LINES(log, kIdle);
    });
}

TEST(SchedulerLogTest, StartIntoTheEmptyListAndStopOfTheHead) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Timer timer("t", {5, 250, 0}, ignore, nullptr, ONCE);
        EXPECT_SCHEDULER_LINES(log, kIdle);
        log.clear();
        {
            const StoppedClock clock({1000000000, 800000000});
            EXPECT_EQ(timer.start(), 0);
        }
        EXPECT_EQ(clientLines(log),
                  (Lines{traceIn("start"), traceOut("start"),
                         timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'t'.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Has no timer yet, insert timer:'t' to head.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Send CMD_START(1) because of timer('t').\n")}));
        const Lines started = awake(1) + waitingFor("t", 1000000006, 50000000);
        EXPECT_SCHEDULER_LINES(log, started);

        EXPECT_EQ(timer.stop(), 0);

        EXPECT_SCHEDULER_LINES(log, started + kReschedule + kNothingLeft + kIdle);
    });
}

TEST(SchedulerLogTest, AnEarlierTimerReschedulesAndALaterOneDoesNot) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        const StoppedClock clock({1000000000, 0});
        Timer middle("middle", {20, 0, 0}, ignore, nullptr, ONCE);
        Timer early("early", {10, 0, 0}, ignore, nullptr, ONCE);
        Timer late("late", {30, 0, 0}, ignore, nullptr, ONCE);
        Timer equal("equal", {10, 0, 0}, ignore, nullptr, ONCE);
        EXPECT_SCHEDULER_LINES(log, kIdle);
        log.clear();

        EXPECT_EQ(middle.start(), 0);
        Lines expected = awake(1) + waitingFor("middle", 1000000020, 0);
        EXPECT_SCHEDULER_LINES(log, expected);

        const auto inserted = [&](Timer& timer) {
            const std::size_t before = clientLines(log).size();
            EXPECT_EQ(timer.start(), 0);
            Lines lines = clientLines(log);
            lines.erase(lines.begin(), lines.begin() + static_cast<long>(before) + 2);
            return lines;
        };
        EXPECT_EQ(inserted(early),
                  (Lines{timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'early'.\n"),
                         timerLine(kLogDebug, "InsterTimer", "Insert timer:'early' to head.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Send CMD_RESCHEDULE(2) because of timer('early').\n")}));
        expected = expected + kReschedule + waitingFor("early", 1000000010, 0);
        EXPECT_SCHEDULER_LINES(log, expected);

        for (Timer* const p_timer : {&late, &equal}) {
            EXPECT_EQ(
                inserted(*p_timer),
                (Lines{timerLine(kLogDebug, "InsterTimer",
                                 "Begin inster timer:'" + p_timer->name() + "'.\n"),
                       timerLine(kLogDebug, "InsterTimer",
                                 "Insert timer:'" + p_timer->name() + "' to normal position.\n")}));
        }

        // Neither these nor the removal of one that is not the head wakes the scheduler.
        EXPECT_EQ(late.stop(), 0);
        EXPECT_EQ(early.stop(), 0);
        expected = expected + kReschedule + waitingFor("equal", 1000000010, 0);
        EXPECT_SCHEDULER_LINES(log, expected);
        EXPECT_EQ(equal.stop(), 0);
        expected = expected + kReschedule + waitingFor("middle", 1000000020, 0);
        EXPECT_SCHEDULER_LINES(log, expected);
        EXPECT_EQ(middle.stop(), 0);
        EXPECT_SCHEDULER_LINES(log, expected + kReschedule + kNothingLeft + kIdle);
    });
}

TEST(SchedulerLogTest, OneThatFiresOnce) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        Runs runs;
        LogCapture log;
        Timer timer("t", kAtOnce, runs.handler(), nullptr, ONCE);
        EXPECT_SCHEDULER_LINES(log, kIdle);
        log.clear();
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        {
            const StoppedClock clock(now);
            EXPECT_EQ(timer.start(), 0);
        }
        EXPECT_TRUE(runs.waitFor(1));

        EXPECT_SCHEDULER_LINES(log, awake(1) + waitingFor("t", now.tv_sec, now.tv_nsec) + kTimeout +
                                        firedOnce("t") + kNothingLeft + kIdle);
        EXPECT_EQ(timer.stop(), 0);
    });
}

TEST(SchedulerLogTest, AllThatAreDueFireInOneWake) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        Runs runs;
        LogCapture log;
        Timer once("once", kAtOnce, runs.handler(), nullptr, ONCE);
        Timer beat("beat", {0, 1, 0}, runs.handler(), nullptr, CONTINUE);
        Timer last("last", {0, 1, 0}, runs.handler(), nullptr, ONCE);
        EXPECT_SCHEDULER_LINES(log, kIdle);
        log.clear();
        timespec past{};
        (void)clock_gettime(CLOCK_MONOTONIC, &past);
        past.tv_sec -= 1;
        past.tv_nsec = 0;
        test::Event started;
        std::atomic<pthread_t> scheduler{0};
        int reads = 0;
        // From its second expiry the period is far away, so that it ends there. Runs read the clock
        // as well.
        test::ReplaceCall<int(clockid_t, timespec*)> clock(
            Call::ClockGettime,
            [&, self = pthread_self()](clockid_t id, timespec* p_time) {
                const int result = clock_gettime(id, p_time);
                if (pthread_equal(self, pthread_self()) != 0) {
                    *p_time = past;
                    return result;
                }
                pthread_t first = 0;
                (void)scheduler.compare_exchange_strong(first, pthread_self());
                if (scheduler != pthread_self()) return result;
                // The first pass: the wait, the expiry, then the new period.
                if (++reads == 3) p_time->tv_sec += 1000000;
                return result;
            },
            When().anyThread().everyTime());
        {
            test::RunAtCall hold(
                Call::Read, [&] { (void)started.wait(); }, When().anyThread());
            EXPECT_EQ(once.start(), 0);
            EXPECT_EQ(beat.start(), 0);
            EXPECT_EQ(last.start(), 0);
            log.clear();
            started.set();
        }
        EXPECT_TRUE(runs.waitFor(3));
        EXPECT_TRUE(log.waitFor("Waiting for timer('beat') expired"));

        const Lines lines = schedulerLines(log);
        const auto begin = std::find(lines.begin(), lines.end(), kTimeout[0]);
        ASSERT_GE(lines.end() - begin, 5);
        EXPECT_EQ(Lines(begin, begin + 4),
                  kTimeout + firedOnce("once") +
                      Lines{timerLine(kLogDebug, "HandleTimeout",
                                      "Timer:'beat' type is CONTINUE, reschedule it.\n")} +
                      firedOnce("last"));
        // Put back without a command: the scheduler itself would read it.
        const Lines inserted = linesOfInsert(log);
        EXPECT_EQ(inserted,
                  (Lines{timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'beat'.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Insert timer:'beat' to normal position.\n")}));
        EXPECT_EQ(beat.stop(), 0);
    });
}

// A thread that comes while the first one reads the clock.
TEST(SchedulerLogTest, OfTwoStartsAtOnceOneIsInserted) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Timer timer("once", kFar, ignore, nullptr, ONCE);
        const test::RunAtCall another(Call::ClockGettime, [&] { EXPECT_EQ(timer.start(), 0); });

        EXPECT_EQ(timer.start(), 0);

        EXPECT_EQ(another.hits(), 1);
        EXPECT_TRUE(timer.isStarted());
        EXPECT_EQ(linesOfInsert(log),
                  (Lines{timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'once'.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Has no timer yet, insert timer:'once' to head.\n"),
                         timerLine(kLogDebug, "InsterTimer",
                                   "Send CMD_START(1) because of timer('once').\n")}));
    });
}

}  // namespace

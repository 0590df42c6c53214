// Every line that a TimerThread writes, whole.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "base/logging/blog.h"
#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::LogCapture;
using test::LogEntry;
using test::When;

std::string seconds(double value) {
    char text[400];
    (void)std::snprintf(text, sizeof(text), "%f", value);
    return text;
}

/// "(0x1234 - id:7)" or, with square brackets, "[0x1234 - id:7]".
std::string named(const TimerTaskBase& task, char open = '(') {
    return open + address(&task) + " - id:" + std::to_string(task.taskId()) +
           (open == '(' ? ')' : ']');
}

/// Stops every clock but the test's own at @p time.
class StoppedClock {
public:
    explicit StoppedClock(timespec time)
        : m_read(
              test::Call::ClockGettime,
              [time](clockid_t, timespec* p_time) {
                  *p_time = time;
                  return 0;
              },
              When().anyThread().everyTime()) {}

private:
    test::ReplaceCall<int(clockid_t, timespec*)> m_read;
};

class TimerThreadLogTest : public testing::Test {
protected:
    void TearDown() override { m_holder.letGo(); }

    std::vector<LogEntry> lines() const { return m_log.entriesWithoutLineNumbers(); }

    Holder m_holder;
    LogCapture m_log;
    std::unique_ptr<TimerThread> m_thread = std::make_unique<TimerThread>();
    const std::string m_self = "[" + address(m_thread.get()) + "]:";
};

TEST_F(TimerThreadLogTest, ConstructionIsTraced) {
    EXPECT_EQ(
        lines(),
        (std::vector<LogEntry>{threadTrace("tevalon::base::timer::TimerThread::TimerThread()")}));
}

TEST_F(TimerThreadLogTest, DestructionOfOneThatNeverRan) {
    m_log.clear();

    m_thread.reset();

    EXPECT_EQ(lines(), (std::vector<LogEntry>{
                           threadTrace("tevalon::base::timer::TimerThread::~TimerThread()"),
                           threadTrace("void tevalon::base::timer::TimerThread::stop()"),
                           threadTrace("void tevalon::base::timer::TimerThread::stop()"),
                           threadLine(kLogAlways, "~TimerThread", "Destroy TimerThread:-1.\n")}));
}

TEST_F(TimerThreadLogTest, AnEmptyTaskIsRefused) {
    m_log.clear();

    m_thread->postTask(nullptr);

    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{threadLine(kLogError, "postTask", "Invalid Empty task\n")}));
    EXPECT_FALSE(m_thread->hasTask());
    EXPECT_EQ(m_thread->threadId(), -1);
}

TEST_F(TimerThreadLogTest, ThePostingThreadWritesWhatItDoes) {
    const auto task = makeTask([] {}, monotonicNow() + 1e6, 7);
    m_log.clear();

    m_thread->postTask(task);

    // The new thread writes among them.
    std::vector<LogEntry> written = lines();
    written.erase(std::remove_if(written.begin(), written.end(),
                                 [](const LogEntry& entry) {
                                     return entry.text.find(":run(): ") != std::string::npos;
                                 }),
                  written.end());
    EXPECT_EQ(
        written,
        (std::vector<LogEntry>{
            threadLine(kLogAlways, "postTask", m_self + "Need start TimerThread.\n"),
            threadTrace("void tevalon::base::timer::TimerThread::start()"),
            threadTrace("void tevalon::base::timer::TimerThread::start()"),
            threadLine(kLogInfo, "postTask", m_self + "Insert new task:" + named(*task) + ".\n")}));
}

// The worker stays, or the stop goes before.
TEST_F(TimerThreadLogTest, APostThatDoesNotStartTheThreadDoesNotSaySo) {
    const auto task = makeTask([] {}, monotonicNow() + 1e6, 7);
    const std::vector<LogEntry> expected = {
        threadLine(kLogInfo, "postTask", m_self + "Insert new task:" + named(*task) + ".\n")};
    const auto linesOfPost = [&] {
        m_log.clear();
        m_thread->postTask(task);
        return linesOf("postTask", lines());
    };
    test::Event isDone;
    std::vector<LogEntry> afterItsStop;
    m_thread->postTask(makeTask([&] {
                           m_thread->stop();
                           afterItsStop = linesOfPost();
                           isDone.set();
                       }),
                       0);
    ASSERT_TRUE(isDone.wait());
    std::vector<LogEntry> duringAStop;
    {
        const test::RunAtCall atJoin(test::Call::PthreadJoin, [&] {
            std::thread([&] { duringAStop = linesOfPost(); }).join();
        });
        m_thread->stop();
    }

    EXPECT_EQ(afterItsStop, expected);
    EXPECT_EQ(duringAStop, expected);
}

TEST_F(TimerThreadLogTest, AFireTimeThatIsNotSetIsAWarning) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    const auto task = makeTask([] {}, 0.0, 7);
    m_log.clear();

    m_thread->postTask(task);

    EXPECT_EQ(
        lines(),
        (std::vector<LogEntry>{
            threadLine(kLogWarn, "postTask",
                       m_self + "Forgot to set Firing Time?default to now(). task:" + named(*task) +
                           ".\n"),
            threadLine(kLogInfo, "postTask", m_self + "Insert new task:" + named(*task) + ".\n")}));
}

TEST_F(TimerThreadLogTest, TheWorkerWritesWhatItDoes) {
    test::Event fired;
    const auto task = makeTask([&] { fired.set(); }, 2.5, 7);
    m_log.clear();
    {
        // The clock is stopped, so that the line with the times is known; it is stopped before
        // the thread starts, and the wait for a first task then ends at once, in the past.
        const StoppedClock clock({3, 250000000});
        m_thread->postTask(task);
        ASSERT_TRUE(fired.wait());
        m_thread->stop();
    }

    EXPECT_EQ(
        linesOf("run", lines()),
        (std::vector<LogEntry>{
            threadLine(kLogDebug, "run", m_self + "TimerThread begin run.\n"),
            threadLine(kLogAlways, "run",
                       "Starting TimerThread:" + std::to_string(m_thread->threadId()) + ".\n"),
            threadLine(kLogDebug, "run",
                       m_self + "Find a task:" + named(*task, '[') + " to fire.\n"),
            threadLine(kLogDebug, "run", m_self + "fireTime:2.500000, nowTime:3.250000\n"),
            threadLine(kLogAlways, "run", m_self + "Begin fire task:" + named(*task) + ".\n"),
            threadLine(kLogAlways, "run", m_self + "Finish fire task:" + named(*task) + ".\n"),
            threadLine(kLogAlways, "run", m_self + "Exiting Timer Thread...\n")}));
}

TEST_F(TimerThreadLogTest, BeginAndFinishStandAroundTheFiring) {
    test::Event fired;
    const auto task = makeTask([&] {
        BLOG(kLogAlways, "in hand\n");
        fired.set();
    });
    m_thread->postTask(task, 0);
    ASSERT_TRUE(fired.wait());
    m_thread->stop();

    std::vector<std::string> order;
    for (const std::string& text : m_log.texts(kLogAlways)) {
        for (const char* part : {"Begin fire", "in hand", "Finish fire"}) {
            if (text.find(part) != std::string::npos) order.push_back(part);
        }
    }
    EXPECT_EQ(order, (std::vector<std::string>{"Begin fire", "in hand", "Finish fire"}));
}

TEST_F(TimerThreadLogTest, ATaskThatIsNotDueIsWaitedFor) {
    m_log.clear();

    m_thread->postTask(makeTask([] {}), 3600 * 1000);

    ASSERT_TRUE(m_log.waitFor(" Not timeout, continue."));
    const std::vector<LogEntry> written = linesOf("run", lines());
    ASSERT_GE(written.size(), 3U);
    EXPECT_EQ(written[2], threadLine(kLogDebug, "run", m_self + " Not timeout, continue.\n"));
}

TEST_F(TimerThreadLogTest, ATaskThatIsDueAtThisVeryMomentIsTakenAtOnce) {
    const StoppedClock clock({1000, 0});
    FireLog fires;
    m_thread->postTask(makeTask([&] { fires.add(1); }, 1000.0));

    ASSERT_TRUE(fires.waitFor(1));

    EXPECT_TRUE(linesOf("getNextFiringInterval", lines()).empty());
    m_thread.reset();
}

TEST_F(TimerThreadLogTest, StoppingAThreadThatWaits) {
    m_thread->postTask(makeTask([] {}), 3600 * 1000);
    ASSERT_TRUE(m_log.waitFor("Starting TimerThread"));
    m_log.clear();

    m_thread->stop();

    std::vector<LogEntry> written = lines();
    written.erase(std::remove_if(written.begin(), written.end(),
                                 [](const LogEntry& entry) {
                                     return entry.text.find(":run(): ") != std::string::npos ||
                                            entry.text.find("Request Exit") != std::string::npos;
                                 }),
                  written.end());
    const LogEntry trace = threadTrace("void tevalon::base::timer::TimerThread::stop()");
    // Two trace points of its own, and two of the stop() that comes with the join.
    EXPECT_EQ(written,
              (std::vector<LogEntry>{trace, threadLine(kLogDebug, "stop", "Wakeup worker\n"), trace,
                                     trace, trace}));
    EXPECT_EQ(linesOf("run", lines()).back(),
              threadLine(kLogAlways, "run", m_self + "Exiting Timer Thread...\n"));
}

TEST_F(TimerThreadLogTest, DestructionNamesTheThread) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    m_holder.letGo();
    const std::int32_t id = m_thread->threadId();

    m_thread.reset();

    const std::vector<LogEntry> written = lines();
    EXPECT_EQ(written.back(), threadLine(kLogAlways, "~TimerThread",
                                         "Destroy TimerThread:" + std::to_string(id) + ".\n"));
}

TEST_F(TimerThreadLogTest, DestructionByATaskOfItsOwn) {
    std::int32_t id = 0;
    const auto task = makeTask([&] {
        id = currentThread();
        m_log.clear();
        m_thread.reset();
    });
    m_thread->postTask(task, 0);

    ASSERT_TRUE(m_log.waitFor("Exiting Timer Thread..."));
    const LogEntry stop = threadTrace("void tevalon::base::timer::TimerThread::stop()");
    // The second stop() comes with the end of the thread's handle, which is not joined.
    EXPECT_EQ(
        lines(),
        (std::vector<LogEntry>{
            threadTrace("tevalon::base::timer::TimerThread::~TimerThread()"), stop, stop,
            threadLine(kLogAlways, "~TimerThread",
                       "Destroy TimerThread:" + std::to_string(id) + ".\n"),
            stop, stop,
            threadLine(kLogAlways, "run", m_self + "Finish fire task:" + named(*task) + ".\n"),
            threadLine(kLogAlways, "run", m_self + "Exiting Timer Thread...\n")}));
}

TEST_F(TimerThreadLogTest, RunWithoutAStartReturnsAtOnce) {
    m_log.clear();

    EXPECT_EQ(m_thread->run(), 0);

    EXPECT_EQ(m_thread->threadId(), currentThread());
    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{
                  threadLine(kLogDebug, "run", m_self + "TimerThread begin run.\n"),
                  threadLine(kLogAlways, "run",
                             "Starting TimerThread:" + std::to_string(currentThread()) + ".\n"),
                  threadLine(kLogAlways, "run", m_self + "Exiting Timer Thread...\n")}));
}

TEST_F(TimerThreadLogTest, WaitingIsRefusedWhenNotRunning) {
    m_log.clear();

    m_thread->waitNextTaskWithTimeOut(1e6);

    EXPECT_EQ(lines(), (std::vector<LogEntry>{threadLine(kLogWarn, "waitNextTaskWithTimeOut",
                                                         "Request Exit before wait.\n")}));
}

TEST_F(TimerThreadLogTest, WaitingIsSilentWhenRunning) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    m_log.clear();

    m_thread->waitNextTaskWithTimeOut(0.001);  // For any task.
    m_thread->postTask(makeTask([] {}, monotonicNow() + 1e6));
    m_thread->waitNextTaskWithTimeOut(0.001);  // For that one.
    m_thread->postTask(makeTask([] {}, 0.5));
    m_thread->waitNextTaskWithTimeOut(0.001);  // It is due.

    EXPECT_EQ(linesOf("waitNextTaskWithTimeOut", lines()), std::vector<LogEntry>{});
}

TEST_F(TimerThreadLogTest, NobodyWaitsForATaskThatIsDueAtThisVeryMoment) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    const StoppedClock clock({200, 0});
    m_thread->postTask(makeTask([] {}, 200.0));
    const test::CountCalls waits(test::Call::PthreadCondClockwait);

    m_thread->waitNextTaskWithTimeOut(1.0);

    EXPECT_EQ(waits.seen(), 0);
}

TEST_F(TimerThreadLogTest, AnEmptyQueueHasNoInterval) {
    m_log.clear();

    EXPECT_EQ(m_thread->getNextFiringInterval(), 0.0);

    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{threadLine(kLogDebug, "getNextFiringInterval", "No Task\n")}));
}

TEST_F(TimerThreadLogTest, TheQueriesAndStepsAreSilent) {
    m_log.clear();

    (void)m_thread->hasTask();
    (void)m_thread->taskCount();
    (void)m_thread->isBusy();
    (void)m_thread->threadId();
    (void)m_thread->popFirstTask();
    m_thread->debugIterateTaskQueue("title");

    EXPECT_TRUE(lines().empty());
}

class TimerThreadCancelLogTest : public TimerThreadLogTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_holder.hold(*m_thread));
        for (const auto& task : {m_first, m_second, m_third}) m_thread->postTask(task);
        m_log.clear();
    }

    static constexpr timespec kNow{1000, 500000000};
    std::shared_ptr<TestTask> m_first = makeTask([] {}, 100.25, 7);
    std::shared_ptr<TestTask> m_second = makeTask([] {}, 200.0, 8);
    std::shared_ptr<TestTask> m_third = makeTask([] {}, 2000.0, 7);
};

TEST_F(TimerThreadCancelLogTest, BySessionId) {
    const StoppedClock clock(kNow);

    m_thread->cancelTaskBySessionId(m_second->sessionId());

    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{
                  threadLine(kLogDebug, "cancelTaskBySessionId",
                             "CancelTask " + std::to_string(m_second->sessionId()) +
                                 ": taskid: 8,firetime:200.000000(-800.500000)\n"),
                  threadLine(kLogDebug, "cancelTaskBySessionId", "Canceled Task Count: 1\n")}));
}

TEST_F(TimerThreadCancelLogTest, ByTaskId) {
    const StoppedClock clock(kNow);

    m_thread->cancelTaskByTaskId(7);

    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{
                  threadLine(kLogDebug, "cancelTaskByTaskId",
                             "CancelTask 7,Session:" + std::to_string(m_first->sessionId()) +
                                 " firetime:100.250000(-900.250000)\n"),
                  threadLine(kLogDebug, "cancelTaskByTaskId",
                             "CancelTask 7,Session:" + std::to_string(m_third->sessionId()) +
                                 " firetime:2000.000000(999.500000)\n"),
                  threadLine(kLogDebug, "cancelTaskByTaskId", "Canceled Task Count: 2\n")}));
}

TEST_F(TimerThreadCancelLogTest, OfNothing) {
    m_thread->cancelTaskBySessionId(-1);
    m_thread->cancelTaskByTaskId(12345);

    EXPECT_EQ(lines(),
              (std::vector<LogEntry>{
                  threadLine(kLogDebug, "cancelTaskBySessionId", "Canceled Task Count: 0\n"),
                  threadLine(kLogDebug, "cancelTaskByTaskId", "Canceled Task Count: 0\n")}));
}

TEST_F(TimerThreadCancelLogTest, ACancelledTaskIsMetAgainUntilItIsDropped) {
    m_thread->cancelTaskByTaskId(7);
    m_log.clear();
    const StoppedClock clock(kNow);

    m_thread->cancelTaskBySessionId(m_first->sessionId());

    EXPECT_EQ(lines().front(), threadLine(kLogDebug, "cancelTaskBySessionId",
                                          "CancelTask " + std::to_string(m_first->sessionId()) +
                                              ": taskid: 7,firetime:0.000000(-1000.500000)\n"));
    EXPECT_EQ(lines().back(),
              threadLine(kLogDebug, "cancelTaskBySessionId", "Canceled Task Count: 1\n"));
}

TEST_F(TimerThreadCancelLogTest, ACancelledTaskIsDropped) {
    m_thread->cancelTaskBySessionId(m_first->sessionId());
    m_log.clear();

    m_holder.letGo();
    ASSERT_TRUE(m_log.waitFor("is a canceled task"));

    const std::vector<LogEntry> written = lines();
    const auto found =
        std::find(written.begin(), written.end(),
                  threadLine(kLogDebug, "run",
                             m_self + "Find a task:" + named(*m_first, '[') + " to fire.\n"));
    ASSERT_NE(found, written.end());
    EXPECT_EQ(*(found - 1), threadLine(kLogDebug, "getNextFiringInterval", "No Task\n"));
    EXPECT_EQ(*(found + 1), threadLine(kLogDebug, "run",
                                       m_self + "task:" + named(*m_first, '[') +
                                           " fireTime is 0, is a canceled task.\n"));
}

// The next two need a thread that is between two of its steps: they act on the worker itself,
// when it asks whether the debug level is on.
class TimerThreadRecheckTest : public TimerThreadLogTest {
protected:
    using Check = test::ReplaceCall<std::int32_t(DebugLevelRecord*)>;

    /// Whether the calling thread is the worker, writing a debug line.
    bool isWorkerAtDebugLine(const DebugLevelRecord& record) const {
        return record.level == kLogDebug && currentThread() == m_thread->threadId();
    }
};

TEST_F(TimerThreadRecheckTest, ATaskPoppedTooEarlyIsPutBack) {
    test::Event warmUp;
    m_thread->postTask(makeTask([&] { warmUp.set(); }), 0);
    ASSERT_TRUE(warmUp.wait());
    ASSERT_TRUE(m_log.waitFor("Finish fire task"));
    // The worker's clock is ahead until it has taken the task off the queue.
    std::atomic<bool> isAhead{true};
    const double fireTime = monotonicNow() + 1000.0;
    const std::int32_t worker = m_thread->threadId();
    test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime,
        [&](clockid_t id, timespec* p_time) {
            const int result = clock_gettime(id, p_time);
            if (isAhead && currentThread() == worker) p_time->tv_sec += 2000;
            return result;
        },
        When().anyThread().everyTime());
    Check check(
        test::Call::ZorDebugCheckLevel,
        [&](DebugLevelRecord* p_record) {
            if (isWorkerAtDebugLine(*p_record)) isAhead = false;
            return zorDebugCheckLevelGetFrameAndChunk(p_record);
        },
        When().anyThread().everyTime());
    bool hasFired = false;
    const auto task = makeTask([&] { hasFired = true; }, fireTime, 7);

    m_thread->postTask(task);
    ASSERT_TRUE(m_log.waitFor("back to queue"));
    ASSERT_TRUE(m_log.waitFor(" Not timeout, continue."));

    EXPECT_EQ(m_thread->taskCount(), 1);
    EXPECT_EQ(task->getNextFireTime(), fireTime);
    m_thread->stop();
    EXPECT_FALSE(hasFired);
    const std::vector<LogEntry> warnings = linesAt(kLogWarn, linesOf("run", lines()));
    ASSERT_EQ(warnings.size(), 1U);
    const std::string expected = m_self + "Put the task" + named(*task, '[') +
                                 " back to queue because (fireTime:" + seconds(fireTime) +
                                 " > nowTime:";
    const std::string text = warnings[0].text;
    const std::size_t begin = text.find(expected);
    ASSERT_NE(begin, std::string::npos) << text;
    double now = 0.0;
    int end = 0;
    ASSERT_EQ(std::sscanf(text.c_str() + begin + expected.size(), "%lf).\n%n", &now, &end), 1);
    EXPECT_LT(now, fireTime);
    EXPECT_EQ(text.substr(begin + expected.size()), seconds(now) + ").\n");
}

// The one look that the worker takes at the clock does not hold for another time.
TEST_F(TimerThreadRecheckTest, ATaskPutOffWhileItIsTakenIsPutBack) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    test::setLogLevel(kLogWarn);
    const double later = monotonicNow() + 1000.0;
    bool hasFired = false;
    const auto task = makeTask([&] { hasFired = true; }, 0.5, 7);
    m_thread->postTask(task);
    Check check(
        test::Call::ZorDebugCheckLevel,
        [&](DebugLevelRecord* p_record) {
            const bool isTaken = isWorkerAtDebugLine(*p_record) && task.use_count() > 1 &&
                                 m_thread->taskCount() == 0;
            if (isTaken) task->setNextFireTime(later);
            return zorDebugCheckLevelGetFrameAndChunk(p_record);
        },
        When().anyThread().everyTime());

    m_holder.letGo();

    ASSERT_TRUE(m_log.waitFor("back to queue"));
    m_thread->stop();
    EXPECT_EQ(m_thread->taskCount(), 1);
    EXPECT_FALSE(hasFired);
}

// Nor does it say anything where the clock has not been read.
TEST_F(TimerThreadRecheckTest, EachTaskIsComparedWithAClockReadForIt) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    test::setLogLevel(kLogWarn);
    const std::int32_t worker = m_thread->threadId();
    std::atomic<int> reads{0};
    test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime,
        [&](clockid_t id, timespec* p_time) {
            if (currentThread() != worker) return clock_gettime(id, p_time);
            ++reads;
            *p_time = {4, 500'000'000};  // The last task is due at this very moment.
            return 0;
        },
        When().anyThread().everyTime());
    constexpr int kTasks = 5;
    std::vector<int> readsAtTask;
    test::Event done;
    for (int i = 0; i < kTasks; ++i) {
        m_thread->postTask(makeTask(
            [&] {
                readsAtTask.push_back(reads);
                if (readsAtTask.size() == kTasks) done.set();
            },
            0.5 + i));
    }

    m_holder.letGo();

    ASSERT_TRUE(done.wait());
    m_thread->stop();
    EXPECT_EQ(readsAtTask, (std::vector<int>{1, 2, 3, 4, 5}));
}

// Then it waits for the next one, but for a stop.
TEST_F(TimerThreadRecheckTest, ATaskTakenByAnotherIsMissedBeforeAStop) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    const auto task = makeTask([] {}, 0.5);
    m_thread->postTask(task);
    m_thread->cancelTaskBySessionId(task->sessionId());
    Check check(
        test::Call::ZorDebugCheckLevel,
        [&](DebugLevelRecord* p_record) {
            if (isWorkerAtDebugLine(*p_record) && m_thread->popFirstTask() != nullptr) {
                m_thread->stop();
            }
            return zorDebugCheckLevelGetFrameAndChunk(p_record);
        },
        When().anyThread().everyTime());
    m_log.clear();

    m_holder.letGo();
    ASSERT_TRUE(m_log.waitFor("Exiting Timer Thread..."));

    EXPECT_EQ(linesOf("waitNextTaskWithTimeOut", lines()),
              (std::vector<LogEntry>{
                  threadLine(kLogWarn, "waitNextTaskWithTimeOut", "Request Exit before wait.\n")}));
}

TEST_F(TimerThreadRecheckTest, ATaskTakenByAnotherIsMissed) {
    ASSERT_TRUE(m_holder.hold(*m_thread));
    const auto task = makeTask([] {}, 0.5);
    m_thread->postTask(task);
    m_thread->cancelTaskBySessionId(task->sessionId());
    // For a cancelled task the worker writes "No Task", and takes it off the queue then.
    std::atomic<bool> isTaken{false};
    Check check(
        test::Call::ZorDebugCheckLevel,
        [&](DebugLevelRecord* p_record) {
            if (isWorkerAtDebugLine(*p_record) && m_thread->popFirstTask() != nullptr) {
                isTaken = true;
            }
            return zorDebugCheckLevelGetFrameAndChunk(p_record);
        },
        When().anyThread().everyTime());
    m_log.clear();

    m_holder.letGo();
    ASSERT_TRUE(m_log.waitFor("Task Just Removed?"));

    EXPECT_TRUE(isTaken);
    EXPECT_EQ(
        linesAt(kLogError, lines()),
        (std::vector<LogEntry>{threadLine(kLogError, "run", "Task Just Removed? continue.\n")}));
    test::Event fired;
    m_thread->postTask(makeTask([&] { fired.set(); }), 0);
    EXPECT_TRUE(fired.wait());
    m_thread->stop();
}

}  // namespace

// What the state report tells of timers, timer threads and watches.

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/diagnostics.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "ends/forked_child.h"
#include "state_reports.h"
#include "support/contention.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base::timer;
using namespace tevalon::base::simple_timer;
using test::expectEntry;
using test::listOf;
using test::stateReport;

const std::string kSeconds = "[0-9]+\\.[0-9]{3} s";
const std::string kThread = "thread [0-9]+ '[^']*'";

class ReportedTimersTest : public testing::Test {
protected:
    ReportedTimersTest() { test::setLogLevel(0); }
};

/// What stays in hand until the test lets it go.
class Busy {
public:
    ~Busy() { letGo(); }
    void operator()() {
        m_isThere.set();
        (void)m_mayGo.wait();
    }
    void waitUntilThere() { EXPECT_TRUE(m_isThere.wait()); }
    void letGo() { m_mayGo.set(); }

private:
    test::Event m_isThere;
    test::Event m_mayGo;
};

/// What the clocks show on all threads while it lives.
class WholeSeconds {
public:
    void advance(time_t seconds) { m_now += seconds; }

private:
    std::atomic<time_t> m_now{1'000'000'000};
    const test::ReplaceCall<int(clockid_t, timespec*)> m_replacement{
        test::Call::ClockGettime,
        [this](clockid_t, timespec* p_time) {
            *p_time = {m_now.load(), 0};
            return 0;
        },
        test::When().anyThread().everyTime()};
};

std::string reportOfWaits() {
    std::string report = stateReport();
    while (listOf(report, "waits").empty()) report = stateReport();
    return report;
}

// ---- simple timers ----

TEST_F(ReportedTimersTest, StartedTimersInTheOrderInWhichTheyAreDue) {
    const TimerHandler nothing = [](Timer*, void*) {};
    Timer late("late", {3600, 0, 0}, nothing, nullptr, ONCE);
    Timer periodic("periodic", {100, 500, 0}, nothing, nullptr, CONTINUE);
    Timer idle("idle", {1, 0, 0}, nothing, nullptr, ONCE);
    ASSERT_EQ(late.start(), 0);
    ASSERT_EQ(periodic.start(), 0);

    const std::vector<std::string> timers = listOf(stateReport(), "timers");

    ASSERT_EQ(timers.size(), 2U);
    EXPECT_EQ(test::countOf({timers[0]}, "'periodic' in (99|100)\\.[0-9]{3} s, every 100.500 s"), 1)
        << timers[0];
    EXPECT_EQ(test::countOf({timers[1]}, "'late' in (3599|3600)\\.[0-9]{3} s"), 1) << timers[1];
    (void)late.stop();
    (void)periodic.stop();
    EXPECT_TRUE(listOf(stateReport(), "timers").empty());
}

TEST_F(ReportedTimersTest, TimersAfterDecades) {
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime, [](clockid_t, timespec* p_time) {
            *p_time = {1'000'000'000, 250'000'000};
            return 0;
        });
    Timer timer(
        "late", {100'000'000, 0, 0}, [](Timer*, void*) {}, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);

    expectEntry(stateReport(), "timers", "'late' in 100000000.000 s");
}

TEST_F(ReportedTimersTest, ALongPeriodToTheMillisecond) {
    Timer timer(
        "rare", {2'000'000, 0, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);

    expectEntry(stateReport(), "timers", "'rare' in [0-9.]+ s, every 2000000.000 s");
}

TEST_F(ReportedTimersTest, RunsThatGoOn) {
    Busy busy;
    Timer timer(
        "blink", {0, 0, 1}, [&](Timer*, void*) { busy(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    busy.waitUntilThere();

    expectEntry(stateReport(), "timer runs", "'blink': thread [0-9]+ 'T:blink', for " + kSeconds);

    ASSERT_EQ(timer.changeTimeout({3600, 0, 0}), 0);
    ASSERT_EQ(timer.start(), 0);
    expectEntry(stateReport(), "timers", "'blink' in [0-9]+\\.[0-9]{3} s, 1 run going on");
    busy.letGo();
}

TEST_F(ReportedTimersTest, SeveralRunsThatGoOn) {
    Busy first;
    Busy second;
    std::atomic<int> runs{0};
    Timer timer(
        "blink", {0, 0, 1}, [&](Timer*, void*) { ++runs == 1 ? first() : second(); }, nullptr,
        ONCE);
    ASSERT_EQ(timer.start(), 0);
    first.waitUntilThere();
    ASSERT_EQ(timer.start(), 0);
    second.waitUntilThere();
    ASSERT_EQ(timer.changeTimeout({3600, 0, 0}), 0);
    ASSERT_EQ(timer.start(), 0);

    const std::string report = stateReport();

    expectEntry(report, "timers", "'blink' in [0-9]+\\.[0-9]{3} s, 2 runs going on");
    EXPECT_EQ(test::countOf(listOf(report, "timer runs"), "'blink': .*"), 2);
    (void)timer.stopNoBlock();
    first.letGo();
    second.letGo();
}

TEST_F(ReportedTimersTest, HowLongARunGoesOn) {
    WholeSeconds clock;
    Busy busy;
    Timer timer(
        "blink", {0, 0, 0}, [&](Timer*, void*) { busy(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    busy.waitUntilThere();
    clock.advance(5);

    expectEntry(stateReport(), "timer runs", "'blink': " + kThread + ", for 5.000 s");
    busy.letGo();
}

TEST_F(ReportedTimersTest, ARunThatForksIsNoneOfTheChilds) {
    std::atomic<pid_t> child{-1};
    test::Event isForked;
    Timer timer(
        "forks", {0, 0, 1},
        [&](Timer*, void*) {
            const pid_t pid = test::forkQuietly();
            if (pid == 0) {
                (void)alarm(test::kLongestChildSeconds);
                CHECK_IN_CHILD(listOf(stateReport(), "timer runs").empty());
                _exit(0);
            }
            child = pid;
            isForked.set();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(isForked.wait());

    EXPECT_EQ(test::statusOf(child), 0);
}

// Who waits for the end of a run may go on as soon as that is told.
TEST_F(ReportedTimersTest, ARunWhoseEndIsToldIsOver) {
    test::Event isTold;
    test::Event mayGo;
    test::RunAtCall hold(
        test::Call::PthreadCondBroadcast,
        [&] {
            isTold.set();
            (void)mayGo.wait();
        },
        test::When().anyThread());
    Timer timer(
        "blink", {0, 0, 1}, [](Timer*, void*) {}, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(isTold.wait());

    EXPECT_TRUE(listOf(stateReport(), "timer runs").empty());
    mayGo.set();
}

TEST_F(ReportedTimersTest, OfALongNameTheBeginning) {
    const std::string shown(39, 'n');
    Busy busy;
    Timer timer(
        shown + "ot shown", {0, 0, 1}, [&](Timer*, void*) { busy(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    busy.waitUntilThere();
    ASSERT_EQ(timer.changeTimeout({3600, 0, 0}), 0);
    ASSERT_EQ(timer.start(), 0);

    const std::string report = stateReport();

    expectEntry(report, "timers", "'" + shown + "' in [0-9]+\\.[0-9]{3} s, 1 run going on");
    expectEntry(report, "timer runs", "'" + shown + "': " + kThread + ", for " + kSeconds);
    (void)timer.stopNoBlock();
    busy.letGo();
}

TEST_F(ReportedTimersTest, TimersByTheThousand) {
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < 2000; ++i) {
        timers.push_back(std::make_unique<Timer>(
            "t" + std::to_string(i), TimeoutTime{3600 + i, 0, 0}, [](Timer*, void*) {}, nullptr,
            ONCE));
        ASSERT_EQ(timers.back()->start(), 0);
    }

    const std::vector<std::string> few = listOf(stateReport(), "timers");
    const std::vector<std::string> all = listOf(stateReport(true), "timers");

    ASSERT_EQ(few.size(), 11U);
    EXPECT_EQ(few.back(), "and 1990 more");
    EXPECT_EQ(few.front().substr(0, 4), "'t0'");
    ASSERT_EQ(all.size(), 2000U);
    EXPECT_EQ(all.back().substr(0, 7), "'t1999'");
}

TEST_F(ReportedTimersTest, WhoWaitsInAStopOfATimer) {
    Busy busy;
    Timer timer(
        "blink", {0, 0, 1}, [&](Timer*, void*) { busy(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    busy.waitUntilThere();
    std::thread waiter([&] { EXPECT_EQ(timer.stop(), 0); });

    const std::string report = reportOfWaits();

    expectEntry(report, "waits",
                kThread + ", in a stop, for thread [0-9]+ 'T:blink' of timer 'blink'");
    expectEntry(report, "who waits for whom", kThread + " -> timer 'blink'");
    busy.letGo();
    waiter.join();
    EXPECT_TRUE(listOf(stateReport(), "waits").empty());
}

TEST_F(ReportedTimersTest, WhoWaitsInAStopOfATimerWaitsForNoOtherTimersRun) {
    Busy busy;
    Busy busyToo;
    Timer timer(
        "blink", {0, 0, 1}, [&](Timer*, void*) { busy(); }, nullptr, ONCE);
    Timer other(
        "other", {0, 0, 1}, [&](Timer*, void*) { busyToo(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    busy.waitUntilThere();
    ASSERT_EQ(other.start(), 0);  // Its run is the younger one.
    busyToo.waitUntilThere();
    std::thread waiter([&] { EXPECT_EQ(timer.stop(), 0); });

    const std::string report = reportOfWaits();

    expectEntry(report, "waits",
                kThread + ", in a stop, for thread [0-9]+ 'T:blink' of timer 'blink'");
    busy.letGo();
    busyToo.letGo();
    waiter.join();
}

TEST_F(ReportedTimersTest, ARunThatDestroysItsTimerWaitsForTheOtherRun) {
    // Its thread may be in it when the test has ended.
    const auto isDestroyed = std::make_shared<test::Event>();
    test::Event isStarted;
    Busy busy;
    std::atomic<int> runs{0};
    std::unique_ptr<Timer> timer;
    timer = std::make_unique<Timer>(
        "blink", TimeoutTime{0, 0, 1},
        [&, isDestroyed](Timer*, void*) {
            if (++runs == 1) return busy();
            (void)isStarted.wait();
            timer.reset();
            isDestroyed->set();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    busy.waitUntilThere();
    ASSERT_EQ(timer->start(), 0);
    isStarted.set();

    const std::string report = reportOfWaits();

    expectEntry(
        report, "waits",
        "thread ([0-9]+) 'T:blink', in a destructor, for thread (?!\\1 )[0-9]+ 'T:blink' of "
        "timer 'blink'");
    expectEntry(report, "who waits for whom", "timer 'blink' -> timer 'blink'");
    busy.letGo();
    EXPECT_TRUE(isDestroyed->wait());
}

TEST_F(ReportedTimersTest, WhoWaitsInTheDestructorOfATimer) {
    Busy first;
    Busy second;
    std::atomic<int> runs{0};
    // Two runs overlap, and the first to end ends a stop: the destructor waits for the other.
    auto timer = std::make_unique<Timer>(
        "blink", TimeoutTime{0, 1, 0},
        [&](Timer* p_timer, void*) {
            const int run = ++runs;
            if (run == 1) return first();
            if (run == 2) {
                (void)p_timer->stopNoBlock();
                second();
            }
        },
        nullptr, CONTINUE);
    ASSERT_EQ(timer->start(), 0);
    first.waitUntilThere();
    second.waitUntilThere();
    std::thread waiter([&] { timer.reset(); });
    (void)reportOfWaits();
    first.letGo();

    const auto isInDestructor = [&](const std::string& report) {
        return test::countOf(listOf(report, "waits"),
                             kThread +
                                 ", in a destructor, for thread [0-9]+ 'T:blink' of timer "
                                 "'blink'") == 1;
    };
    while (!isInDestructor(stateReport())) {
    }
    second.letGo();
    waiter.join();
}

TEST_F(ReportedTimersTest, AListOfTimersThatStaysLocked) {
    Timer timer(
        "blink", {3600, 0, 0}, [](Timer*, void*) {}, nullptr, ONCE);
    test::Event isHeld;
    test::Event mayGo;
    std::thread holder([&] {
        // The command to the scheduler is written with the list locked.
        test::RunAtCall hold(test::Call::Write, [&] {
            isHeld.set();
            (void)mayGo.wait();
        });
        EXPECT_EQ(timer.start(), 0);
    });
    ASSERT_TRUE(isHeld.wait());

    const std::string report = stateReport();

    EXPECT_NE(report.find("timers: locked by thread "), std::string::npos) << report;
    expectEntry(report, "locks held", "list of timers by " + kThread);
    mayGo.set();
    holder.join();
}

TEST_F(ReportedTimersTest, ATimerThatStaysLocked) {
    test::Event isHeld;
    test::Event mayGo;
    // The end of a run is told with the timer locked.
    test::RunAtCall hold(
        test::Call::PthreadCondBroadcast,
        [&] {
            isHeld.set();
            (void)mayGo.wait();
        },
        test::When().anyThread());
    Timer timer(
        "blink", {0, 100, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
    EXPECT_EQ(timer.start(), 0);
    ASSERT_TRUE(isHeld.wait());

    const std::string report = stateReport();

    expectEntry(report, "timers",
                "'blink' in -?[0-9.]+ s, every 0.100 s, locked by thread [0-9]+ 'T:blink'");
    mayGo.set();
}

TEST_F(ReportedTimersTest, ATimerThatStaysLockedBehindOneThatDoesNot) {
    test::Event isHeld;
    test::Event mayGo;
    test::RunAtCall hold(
        test::Call::PthreadCondBroadcast,
        [&] {
            isHeld.set();
            (void)mayGo.wait();
        },
        test::When().anyThread());
    Timer free(
        "free", {1800, 0, 0}, [](Timer*, void*) {}, nullptr, ONCE);
    Timer timer(
        "blink", {0, 0, 1}, [](Timer*, void*) {}, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(isHeld.wait());
    ASSERT_EQ(timer.changeTimeout({3600, 0, 0}), 0);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_EQ(free.start(), 0);

    const std::string report = stateReport();

    expectEntry(report, "timers", "'free' in " + kSeconds);
    expectEntry(report, "timers", "'blink' in " + kSeconds + ", locked by " + kThread);
    expectEntry(report, "locks held", "runs of timer 'blink' by thread [0-9]+ 'T:blink'");
    mayGo.set();
}

// ---- timer threads ----

class NumberedTask : public TimerTaskBase {
public:
    NumberedTask(std::int32_t id, std::function<void()> work) : m_work(std::move(work)) {
        setTaskId(id);
    }
    void fire() override { m_work(); }
    using TimerTaskBase::setTaskId;

private:
    std::function<void()> m_work;
};

std::shared_ptr<TimerTaskBase> makeTask(
    std::int32_t id, std::function<void()> work = [] {}) {
    return std::make_shared<NumberedTask>(id, std::move(work));
}

TEST_F(ReportedTimersTest, ATaskInHandAndThoseThatAreQueued) {
    (void)tevalon::base::diagnostics::nameTask(8, "scan");
    Busy busy;
    TimerThread thread;
    const auto task = makeTask(8, [&] { busy(); });
    thread.postTask(task, 0);
    busy.waitUntilThere();
    thread.postTask(makeTask(9), 500'000);
    thread.postTask(makeTask(9), 900'000);

    expectEntry(
        stateReport(), "task threads",
        "'TimerThread': thread [0-9]+ 'TimerThread', 2 queued, first in (499|500)\\.[0-9]{3} "
        "s, in task 8 'scan' of session " +
            std::to_string(task->sessionId()) + " for " + kSeconds);

    thread.cancelTaskByTaskId(9);
    expectEntry(stateReport(), "task threads", ".*, 2 queued, first cancelled, in task 8.*");
    busy.letGo();
}

TEST_F(ReportedTimersTest, OfAThreadThatHasTakenTheNextTaskMeanwhileNoTimeIsTold) {
    WholeSeconds clock;
    const struct {
        std::int32_t nextId;
        bool isSameTask;
        time_t laterBy;
    } kDifferences[] = {{9, true, 0}, {8, false, 0}, {8, true, 1}, {8, true, -1}};
    for (const auto& difference : kDifferences) {
        Busy first;
        Busy second;
        std::atomic<int> fired{0};
        const auto work = [&] { ++fired == 1 ? first() : second(); };
        const auto task = std::make_shared<NumberedTask>(8, work);
        const auto next = difference.isSameTask ? task : std::make_shared<NumberedTask>(8, work);
        TimerThread thread;
        thread.postTask(task, 0);
        first.waitUntilThere();
        const test::RunAtCall between(test::Call::ClockNanosleep, [&] {
            clock.advance(difference.laterBy);
            next->setTaskId(difference.nextId);
            thread.postTask(next, 0);
            first.letGo();
            second.waitUntilThere();
        });

        expectEntry(stateReport(), "task threads", "'TimerThread': .*, 0 queued, at work");

        second.letGo();
    }
}

// The clock's time takes all the bits that a time may have.
TEST_F(ReportedTimersTest, SinceWhenATaskIsInHand) {
    std::atomic<time_t> seconds{(time_t{1} << 30) + 12345};
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime,
        [&](clockid_t, timespec* p_now) {
            *p_now = {seconds, 654'321'000};
            return 0;
        },
        test::When().anyThread().everyTime());
    Busy busy;
    TimerThread thread;
    thread.postTask(makeTask(8, [&] { busy(); }), 0);
    busy.waitUntilThere();
    seconds += 7;

    expectEntry(stateReport(), "task threads", ".*, in task 8.* of session [0-9]+ for 7\\.000 s");
    busy.letGo();
}

TEST_F(ReportedTimersTest, AFirstTaskThatIsCancelledThoughItIsTheOnlyOne) {
    Busy busy;
    TimerThread thread;
    thread.postTask(makeTask(8, [&] { busy(); }), 0);
    busy.waitUntilThere();
    thread.postTask(makeTask(9), 500'000);
    thread.cancelTaskByTaskId(9);

    expectEntry(stateReport(), "task threads", ".*, 1 queued, first cancelled, in task 8.*");
    busy.letGo();
}

TEST_F(ReportedTimersTest, ATimerThreadWhoseQueueStaysLocked) {
    Busy busy;
    TimerThread thread;
    thread.postTask(makeTask(8, [&] { busy(); }), 0);
    busy.waitUntilThere();
    test::UnorderedTurn turn;
    std::thread holder([&] {
        const test::RunAtCall hold(test::Call::PthreadMutexUnlock, [&] { turn.give(); });
        thread.postTask(makeTask(9), 500'000);
    });

    std::string report;
    turn.use([&] { report = stateReport(); });

    expectEntry(report, "task threads",
                "'TimerThread': " + kThread + ", queue locked, in task 8.*for " + kSeconds);
    expectEntry(report, "locks held", "queue.*'TimerThread' by " + kThread);
    holder.join();
    busy.letGo();
}

TEST_F(ReportedTimersTest, AnIdleTimerThread) {
    test::Event isDone;
    TimerThread thread;
    thread.postTask(makeTask(8, [&] { isDone.set(); }), 0);
    ASSERT_TRUE(isDone.wait());
    const std::string idle = "'TimerThread': thread [0-9]+ 'TimerThread', 0 queued, idle";

    while (test::countOf(listOf(stateReport(), "task threads"), idle) == 0) {
    }

    thread.stop();
    EXPECT_TRUE(listOf(stateReport(), "task threads").empty());
}

TEST_F(ReportedTimersTest, ATimerThreadIsIdleUntilItsFirstTaskIsDue) {
    TimerThread thread;
    thread.postTask(makeTask(8), 500'000);
    // Its thread may not have come so far yet.
    std::vector<std::string> threads = listOf(stateReport(), "task threads");
    while (threads.empty()) threads = listOf(stateReport(), "task threads");

    EXPECT_EQ(test::countOf(threads,
                            "'TimerThread': thread [0-9]+ 'TimerThread', 1 queued, first in "
                            "(499|500)\\.[0-9]{3} s, idle"),
              1)
        << threads[0];
}

TEST_F(ReportedTimersTest, WhoWaitsInAStopOfATimerThread) {
    Busy busy;
    TimerThread thread;
    thread.postTask(makeTask(8, [&] { busy(); }), 0);
    busy.waitUntilThere();
    std::thread waiter([&] { thread.stop(); });

    const std::string report = reportOfWaits();

    expectEntry(
        report, "waits",
        kThread + ", in a stop, for thread [0-9]+ 'TimerThread' of task thread 'TimerThread'");
    expectEntry(report, "who waits for whom",
                kThread + " -> task thread 'TimerThread', in task 8.*for " + kSeconds);
    busy.letGo();
    waiter.join();
}

// What a thread's own objects do at its end comes after all else.
TEST_F(ReportedTimersTest, WhoWaitsForAThreadThatIsAboutToEnd) {
    static Busy* s_p_end;
    struct AtEnd {
        ~AtEnd() { (*s_p_end)(); }
    };
    Busy end;
    s_p_end = &end;
    test::Event isDone;
    TimerThread thread;
    thread.postTask(makeTask(8,
                             [&] {
                                 thread_local const AtEnd atEnd;
                                 (void)&atEnd;
                                 isDone.set();
                             }),
                    0);
    ASSERT_TRUE(isDone.wait());
    std::thread waiter([&] { thread.stop(); });
    end.waitUntilThere();

    const std::string report = reportOfWaits();

    expectEntry(report, "waits", kThread + ", in a stop");
    expectEntry(report, "who waits for whom", kThread + " -> a thread that is about to end");
    end.letGo();
    waiter.join();
}

TEST_F(ReportedTimersTest, ATimerThreadThatItsTaskDestroysIsNotLookedAt) {
    const auto busy = std::make_shared<Busy>();  // The worker may be the last in it.
    auto* const p_thread = new TimerThread();
    p_thread->postTask(makeTask(8,
                                [busy, p_thread] {
                                    delete p_thread;
                                    (*busy)();
                                }),
                       0);
    busy->waitUntilThere();

    EXPECT_TRUE(listOf(stateReport(), "task threads").empty());
    busy->letGo();
}

// ---- watches ----

TEST_F(ReportedTimersTest, WatchesThatAreLeftAndOverdue) {
    WatchDog dog;
    dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) {}, nullptr);
    dog.beginWatch(WatchDog::eWatchID_StartUp, 1000);
    dog.beginWatch(WatchDog::eWatchID_app_show, -5);
    dog.beginWatch(WatchDog::eWatchID_app_hide, 5);
    dog.stopWatch(WatchDog::eWatchID_app_hide);
    // Its thread may not have come so far yet.
    std::string report = stateReport();
    while (listOf(report, "watches").empty()) report = stateReport();

    EXPECT_EQ(report.find("a watchdog:"), std::string::npos) << report;
    EXPECT_EQ(listOf(report, "watches").size(), 2U);
    expectEntry(report, "watches",
                "1 'eWatchID_StartUp': (999|1000)\\.[0-9]{3} s left of 1000.000 s");
    expectEntry(report, "watches",
                "20 'eWatchID_app_show': overdue by " + kSeconds + " of -5.000 s");
}

TEST_F(ReportedTimersTest, TheFirstOfAllWatchesAndTheLast) {
    WatchDog dog;
    dog.beginWatch(WatchDog::eWatchIDNull, 1000);
    dog.beginWatch(WatchDog::eWatchID_doTaskLaunchNew2, 1000);
    std::vector<std::string> watches = listOf(stateReport(), "watches");
    while (watches.empty()) watches = listOf(stateReport(), "watches");

    ASSERT_EQ(watches.size(), 2U);
    EXPECT_EQ(watches[0].substr(0, 17), "0 'eWatchIDNull':");
    EXPECT_EQ(watches[1].substr(0, 31), "53 'eWatchID_doTaskLaunchNew2':");
}

TEST_F(ReportedTimersTest, AWatchThatWasReportedIsOverdueSinceItsBeginning) {
    WholeSeconds clock;
    WatchDog dog;
    dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) {}, nullptr);
    dog.beginWatch(WatchDog::eWatchID_StartUp, 2);
    while (listOf(stateReport(), "watches").empty()) {
    }
    clock.advance(3);
    (void)dog.checkTimers();
    clock.advance(1);

    expectEntry(stateReport(), "watches", "1 'eWatchID_StartUp': overdue by 2.000 s of 2.000 s");
}

TEST_F(ReportedTimersTest, WhatBeginsBetweenTheTwoLooksHasNoLockThatIsHeld) {
    Busy told;
    Busy busy;
    Busy late;
    // The end of a run is told with the timer locked.
    const test::RunAtCall hold(
        test::Call::PthreadCondBroadcast, [&] { told(); }, test::When().anyThread());
    Timer timer(
        "blink", {0, 0, 1}, [](Timer*, void*) {}, nullptr, ONCE);
    TimerThread thread;
    std::optional<WatchDog> dog;
    const test::RunAtCall between(test::Call::ClockNanosleep, [&] {
        EXPECT_EQ(timer.start(), 0);
        told.waitUntilThere();
        EXPECT_EQ(timer.changeTimeout({3600, 0, 0}), 0);
        EXPECT_EQ(timer.start(), 0);
        thread.postTask(makeTask(8, [&] { busy(); }), 0);
        busy.waitUntilThere();
        dog.emplace();
        dog->setTimeoutCallback(
            [](void* p_late, WatchDog::WATCH_ID, double) { (*static_cast<Busy*>(p_late))(); },
            &late);
        dog->beginWatch(WatchDog::eWatchID_StartUp, -5);
        late.waitUntilThere();
    });

    const std::string report = stateReport();

    expectEntry(report, "timers", "'blink' in " + kSeconds + ", locked by " + kThread);
    expectEntry(report, "task threads", "'TimerThread': .*, 0 queued, at work");
    EXPECT_EQ(listOf(report, "watches").size(), 1U);
    EXPECT_TRUE(listOf(report, "locks held").empty()) << report;
    told.letGo();
    busy.letGo();
    late.letGo();
}

TEST_F(ReportedTimersTest, AWatchDogThatStaysLocked) {
    WatchDog dog;
    dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) {}, nullptr);
    dog.beginWatch(WatchDog::eWatchID_StartUp, 1000);
    while (listOf(stateReport(), "watches").empty()) {
    }
    test::Event isHeld;
    test::Event mayGo;
    std::thread holder([&] {
        const test::RunAtCall hold(test::Call::PthreadMutexUnlock, [&] {
            isHeld.set();
            (void)mayGo.wait();
        });
        dog.beginWatch(WatchDog::eWatchID_app_show, 1000);
    });
    ASSERT_TRUE(isHeld.wait());

    const std::string report = stateReport();

    EXPECT_NE(report.find("a watchdog: locked by thread "), std::string::npos) << report;
    EXPECT_TRUE(listOf(report, "watches").empty());
    expectEntry(report, "locks held", "watches by " + kThread);
    mayGo.set();
    holder.join();
}

TEST_F(ReportedTimersTest, WhoWaitsInTheDestructorOfAWatchDog) {
    Busy busy;
    auto dog = std::make_unique<WatchDog>();
    dog->setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID, double) { (*static_cast<Busy*>(p_context))(); },
        &busy);
    dog->beginWatch(WatchDog::eWatchID_StartUp, -5);
    busy.waitUntilThere();
    dog->stopWatch(WatchDog::eWatchID_StartUp);
    std::thread waiter([&] { dog.reset(); });

    const std::string report = reportOfWaits();

    expectEntry(report, "waits",
                kThread + ", in a destructor, for thread [0-9]+ 'WatchDog' of watchdog");
    expectEntry(report, "who waits for whom", kThread + " -> watchdog");
    busy.letGo();
    waiter.join();
}

TEST_F(ReportedTimersTest, AWatchDogThatItsCallbackDestroysIsNotLookedAt) {
    struct Context {
        WatchDog* p_dog;
        std::shared_ptr<Busy> busy;
    };
    Context context = {new WatchDog(), std::make_shared<Busy>()};
    context.p_dog->setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID, double) {
            auto* const p_own = static_cast<Context*>(p_context);
            const std::shared_ptr<Busy> busy = p_own->busy;  // This thread may be the last in it.
            delete p_own->p_dog;
            (*busy)();
        },
        &context);
    context.p_dog->beginWatch(WatchDog::eWatchID_StartUp, 0);
    context.busy->waitUntilThere();

    const std::string report = stateReport();

    EXPECT_TRUE(listOf(report, "watches").empty());
    EXPECT_EQ(report.find("a watchdog"), std::string::npos) << report;
    EXPECT_TRUE(listOf(report, "locks held").empty());
    context.busy->letGo();
}

}  // namespace

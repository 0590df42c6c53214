#include "base/timer/watchdog.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "support/contention.h"
#include "support/fresh_process.h"
#include "support/signal_storm.h"
#include "support/threads.h"
#include "timer/watchdog_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::LogCapture;
using test::LogEntry;

using Id = WatchDog::WATCH_ID;
constexpr Id kFirst = WatchDog::eWatchIDNull;
constexpr Id kLaunch = WatchDog::eWatchID_app_launch_new;
constexpr Id kLast = WatchDog::eWatchID_doTaskLaunchNew2;

const char* const kNames[] = {"eWatchIDNull",
                              "eWatchID_StartUp",
                              "eWatchID_onAppStarted",
                              "eWatchID_onAppResumed",
                              "eWatchID_onAppStopped",
                              "eWatchID_onAppPaused",
                              "eWatchID_onAppKeysetChanged",
                              "eWatchID_registerToSystemAPM",
                              "eWatchID_onSTRStopped",
                              "eWatchID_sendMessageToAPM",
                              "eWatchID_cancel_pending_request",
                              "eWatchID_can_accept_keyevent",
                              "eWatchID_oom_notify",
                              "eWatchID_inject_keyevent",
                              "eWatchID_send_message",
                              "eWatchID_app_preload",
                              "eWatchID_app_prepare",
                              "eWatchID_app_launch_new",
                              "eWatchID_app_hide",
                              "eWatchID_put_to_background",
                              "eWatchID_app_show",
                              "eWatchID_bring_to_foreground",
                              "eWatchID_app_stop",
                              "eWatchID_app_stopall",
                              "eWatchID_str_suspend_request",
                              "eWatchID_doTaskStart",
                              "eWatchID_doInjectKey",
                              "eWatchID_doSendMsg",
                              "eWatchID_doOOM",
                              "eWatchID_doCanAcceptKey",
                              "eWatchID_doGetCurrentStatus",
                              "eWatchID_doTaskBringTOFG",
                              "eWatchID_doTaskAppPreload",
                              "eWatchID_doTaskAppPrePare",
                              "eWatchID_doTaskAppStop1",
                              "eWatchID_doTaskAppStop2",
                              "eWatchID_doTaskAppStop3",
                              "eWatchID_doTaskAppStop4",
                              "eWatchID_doTaskAppStop5",
                              "eWatchID_doTaskAppStop6",
                              "eWatchID_doTaskAppStopAll_1",
                              "eWatchID_doTaskAppStopAll_2",
                              "eWatchID_doTaskAppStopAll_3",
                              "eWatchID_doTaskAppStopOther",
                              "eWatchID_doTaskAppShow1",
                              "eWatchID_doTaskAppShow2",
                              "eWatchID_doTaskAppHide",
                              "eWatchID_doTaskPutToBG2",
                              "eWatchID_doTaskPutToBG1",
                              "eWatchID_doTaskLaunchNew1",
                              "eWatchID_doTaskLaunchNewHbbTVBR",
                              "eWatchID_doTaskLaunchNewOpAPP",
                              "eWatchID_doTaskLaunchNewNormalApp",
                              "eWatchID_doTaskLaunchNew2",
                              "eWatchIDCount"};

TEST(WatchIdTest, EveryIdentifierHasItsName) {
    ASSERT_EQ(std::size(kNames), 55U);
    for (int id = 0; id < 55; ++id) {
        EXPECT_STREQ(WatchDog::getWatchIdName(static_cast<Id>(id)), kNames[id]);
    }
}

TEST(WatchIdTest, WhatIsNoneIsUnknown) {
    for (const int id :
         {55, 56, 1000, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_STREQ(WatchDog::getWatchIdName(static_cast<Id>(id)), "Unknown");
    }
}

TEST(WatchIdTest, EnumeratorsHaveTheirValues) {
    EXPECT_EQ(WatchDog::eWatchIDNull, 0);
    EXPECT_EQ(WatchDog::eWatchID_sendMessageToAPM, 9);
    EXPECT_EQ(WatchDog::eWatchID_app_launch_new, 17);
    EXPECT_EQ(WatchDog::eWatchID_doTaskStart, 25);
    EXPECT_EQ(WatchDog::eWatchID_doTaskAppStop6, 39);
    EXPECT_EQ(WatchDog::eWatchID_doTaskPutToBG2, 47);
    EXPECT_EQ(WatchDog::eWatchID_doTaskPutToBG1, 48);
    EXPECT_EQ(WatchDog::eWatchID_doTaskLaunchNew2, 53);
    EXPECT_EQ(WatchDog::eWatchIDCount, 54);
    EXPECT_EQ(sizeof(WatchDog::WATCH_ID), 4U);
}

LogEntry timeoutLine(int id, const std::string& total) {
    return watchLine(kLogError, "checkTimers",
                     "Watch dog Timeout : " + std::to_string(id) + "(" +
                         kNames[static_cast<std::size_t>(id)] + ") ,  " + total + " \n");
}

class WatchDogTest : public testing::Test {
protected:
    /// One check at @p time; the lines that it writes.
    std::vector<LogEntry> checkAt(double time) {
        m_clock.set(time);
        m_log.clear();
        m_ids = m_dog->checkTimers();
        return m_log.entriesWithoutLineNumbers();
    }

    using Lines = std::vector<LogEntry>;
    using Ids = std::vector<int>;

    LogCapture m_log{kLogError};
    TurnedClock m_clock{100.0};
    HeldWatchDog m_dog;
    Ids m_ids;  // What the last check returned.
};

TEST_F(WatchDogTest, NothingIsWatchedAtFirst) {
    EXPECT_EQ(checkAt(1e6), Lines{});
    EXPECT_EQ(m_ids, Ids{});
}

TEST_F(WatchDogTest, AnOverrunIsReportedOncePerPeriodWithAGrowingTotal) {
    m_dog->beginWatch(kLaunch, 0.5);

    EXPECT_EQ(checkAt(100.4), Lines{});
    EXPECT_EQ(checkAt(100.5), Lines{});  // Not longer than allowed.
    EXPECT_EQ(checkAt(100.625), Lines{timeoutLine(17, "0.625000")});
    EXPECT_EQ(m_ids, Ids{17});
    EXPECT_EQ(checkAt(101.0), Lines{});  // A new period began with the report.
    EXPECT_EQ(m_ids, Ids{});
    EXPECT_EQ(checkAt(101.25), Lines{timeoutLine(17, "1.250000")});
    EXPECT_EQ(checkAt(110.0), Lines{timeoutLine(17, "10.000000")});
    EXPECT_EQ(checkAt(110.25), Lines{});
}

TEST_F(WatchDogTest, StoppingEndsTheReports) {
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(101.0).size(), 1U);

    m_dog->stopWatch(kLaunch);

    EXPECT_EQ(checkAt(200.0), Lines{});
}

TEST_F(WatchDogTest, BeginningAnewStartsTheTotalFromZero) {
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(101.0), Lines{timeoutLine(17, "1.000000")});

    m_clock.set(110.0);
    m_dog->beginWatch(kLaunch, 2.0);

    EXPECT_EQ(checkAt(112.0), Lines{});
    EXPECT_EQ(checkAt(112.5), Lines{timeoutLine(17, "2.500000")});
}

TEST_F(WatchDogTest, AStoppedWatchBeginsFromZeroAgain) {
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(101.0).size(), 1U);
    m_dog->stopWatch(kLaunch);

    m_clock.set(110.0);
    m_dog->beginWatch(kLaunch, 0.5);

    EXPECT_EQ(checkAt(111.0), Lines{timeoutLine(17, "1.000000")});
}

TEST_F(WatchDogTest, ReportsComeInAscendingOrder) {
    m_dog->beginWatch(kLast, 1.0);
    m_dog->beginWatch(kLaunch, 5.0);
    m_dog->beginWatch(kFirst, 2.0);

    EXPECT_EQ(checkAt(104.0), (Lines{timeoutLine(0, "4.000000"), timeoutLine(53, "4.000000")}));
    EXPECT_EQ(m_ids, (Ids{0, 53}));
}

TEST_F(WatchDogTest, EveryIdentifierIsWatched) {
    for (int id = 0; id < 54; ++id) m_dog->beginWatch(static_cast<Id>(id), 1.0);

    EXPECT_EQ(checkAt(102.0).size(), 54U);
    ASSERT_EQ(m_ids.size(), 54U);
    for (int id = 0; id < 54; ++id) EXPECT_EQ(m_ids[static_cast<std::size_t>(id)], id);
}

TEST_F(WatchDogTest, ATimeoutOfZeroOrLessIsOverdueAtEveryCheck) {
    for (const double seconds : {0.0, -3.0}) {
        m_clock.set(100.0);
        m_dog->beginWatch(kLaunch, seconds);

        EXPECT_EQ(checkAt(100.0), Lines{});  // There is no total yet.
        EXPECT_EQ(checkAt(100.125), Lines{timeoutLine(17, "0.125000")});
        EXPECT_EQ(checkAt(100.25), Lines{timeoutLine(17, "0.250000")});
    }
}

TEST_F(WatchDogTest, ATimeoutThatIsNoNumberIsNeverOver) {
    m_dog->beginWatch(kLaunch, std::nan(""));
    m_dog->beginWatch(kLast, std::numeric_limits<double>::infinity());

    EXPECT_EQ(checkAt(1e9), Lines{});
}

TEST_F(WatchDogTest, AWatchThatBeginsInTheFirstSecondNeverFires) {
    m_clock.set(1.0);
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(100.0), Lines{});

    m_clock.set(1.5);
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(100.0), Lines{timeoutLine(17, "98.500000")});
}

TEST_F(WatchDogTest, AWatchThatBeginsWithoutAClockNeverFires) {
    m_clock.setFailing(true);
    m_dog->beginWatch(kLaunch, 0.5);
    m_clock.setFailing(false);

    EXPECT_EQ(checkAt(1e6), Lines{});
}

TEST_F(WatchDogTest, ACheckWithoutAClockReportsNothing) {
    m_dog->beginWatch(kLaunch, 0.5);
    m_clock.setFailing(true);
    EXPECT_EQ(checkAt(200.0), Lines{});

    m_clock.setFailing(false);
    EXPECT_EQ(checkAt(200.0), Lines{timeoutLine(17, "100.000000")});
}

TEST_F(WatchDogTest, ACheckWithoutAClockEndsAWatchWithAVeryNegativeTimeout) {
    m_dog->beginWatch(kLaunch, -1000.0);
    m_clock.setFailing(true);
    EXPECT_EQ(checkAt(0.0), Lines{});  // Overdue, with a total below zero.

    m_clock.setFailing(false);
    EXPECT_EQ(checkAt(1e6), Lines{});
}

TEST_F(WatchDogTest, OnlyTheIdentifiersBelowTheCountAreWatchable) {
    m_log.clear();
    for (const int id : {54, 55, -1, 1000}) {
        m_dog->beginWatch(static_cast<Id>(id), 0.5);
        m_dog->stopWatch(static_cast<Id>(id));
    }

    Lines expected;
    for (const char* id : {"54", "55", "-1", "1000"}) {
        for (const char* function : {"beginWatch", "stopWatch"}) {
            expected.push_back(
                watchLine(kLogError, function, std::string("Not supported ID : ") + id + "\n"));
        }
    }
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
    EXPECT_EQ(checkAt(1e6), Lines{});
}

class WatchDogLogTest : public testing::Test {
protected:
    LogCapture m_log;
    TurnedClock m_clock{100.25};
    HeldWatchDog m_dog;
};

TEST_F(WatchDogLogTest, BeginAndStopAreLogged) {
    m_log.clear();

    m_dog->beginWatch(kLaunch, 0.5);
    m_dog->stopWatch(kLaunch);
    m_dog->stopWatch(kFirst);  // Was never watched.
    m_clock.setFailing(true);
    m_dog->beginWatch(kFirst, -2.0);

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(),
              (std::vector<LogEntry>{
                  watchLine(kLogInfo, "beginWatch",
                            "Watching : 17(eWatchID_app_launch_new), 100.250000, 0.500000\n"),
                  watchLine(kLogInfo, "stopWatch", "Stop Watching : 17(eWatchID_app_launch_new)\n"),
                  watchLine(kLogInfo, "stopWatch", "Stop Watching : 0(eWatchIDNull)\n"),
                  watchLine(kLogInfo, "beginWatch",
                            "Watching : 0(eWatchIDNull), -1.000000, -2.000000\n")}));
}

TEST_F(WatchDogLogTest, WhatCannotBeWatchedIsReportedAndNeitherBegunNorStopped) {
    m_log.clear();

    m_dog->beginWatch(WatchDog::eWatchIDCount, 0.5);
    m_dog->stopWatch(WatchDog::eWatchIDCount);

    const std::string reported = "Not supported ID : 54\n";
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(),
              (std::vector<LogEntry>{watchLine(kLogError, "beginWatch", reported),
                                     watchLine(kLogError, "stopWatch", reported)}));
}

TEST_F(WatchDogLogTest, TheRestIsSilent) {
    m_dog->beginWatch(kLaunch, 0.5);
    m_log.clear();

    (void)m_dog->checkTimers();
    m_dog->setTimeoutCallback([](void*, Id, double) {}, nullptr);
    m_clock.set(200.0);
    (void)m_dog->checkTimers();  // Goes to the callback.
    m_dog->stop();

    EXPECT_TRUE(m_log.entries().empty());
}

// Its own thread looks at the watches all the time.
TEST_F(WatchDogTest, WhatChangesAWatchKeepsOthersFromIt) {
    const auto check = [&] { (void)m_dog->checkTimers(); };
    const auto begin = [&] { m_dog->beginWatch(kLaunch, 1000.0); };

    EXPECT_TRUE(test::keepsWaiting(begin, check));
    EXPECT_TRUE(test::keepsWaiting([&] { m_dog->stopWatch(kLaunch); }, check));
    EXPECT_TRUE(test::keepsWaiting([&] { m_dog->setTimeoutCallback(nullptr, nullptr); }, check));
    EXPECT_TRUE(test::keepsWaiting(check, begin));
}

struct Reported {
    void* context;
    Id id;
    double seconds;
};

class WatchDogCallbackTest : public WatchDogTest {
protected:
    static void note(void* p_context, Id id, double seconds) {
        static_cast<WatchDogCallbackTest*>(p_context)->m_reports.push_back(
            {p_context, id, seconds});
    }

    std::vector<Reported> m_reports;
};

TEST_F(WatchDogCallbackTest, TakesTheReportsInsteadOfTheLog) {
    m_dog->setTimeoutCallback(note, this);
    m_dog->beginWatch(kLaunch, 0.5);
    m_dog->beginWatch(kFirst, 0.5);

    EXPECT_EQ(checkAt(101.0), Lines{});
    EXPECT_EQ(m_ids, Ids{});
    EXPECT_EQ(checkAt(102.5), Lines{});

    ASSERT_EQ(m_reports.size(), 4U);
    const Reported expected[] = {
        {this, kFirst, 1.0}, {this, kLaunch, 1.0}, {this, kFirst, 2.5}, {this, kLaunch, 2.5}};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(m_reports[i].context, expected[i].context);
        EXPECT_EQ(m_reports[i].id, expected[i].id);
        EXPECT_DOUBLE_EQ(m_reports[i].seconds, expected[i].seconds);
    }
}

TEST_F(WatchDogCallbackTest, StaysOnceItIsSet) {
    m_dog->setTimeoutCallback(note, this);

    m_dog->setTimeoutCallback([](void*, Id, double) { FAIL() << "replaced"; }, nullptr);
    m_dog->setTimeoutCallback(nullptr, nullptr);

    const LogEntry refusal = watchLine(kLogError, "setTimeoutCallback", "Callback already set.\n");
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), (Lines{refusal, refusal}));
    m_dog->beginWatch(kLaunch, 0.5);
    (void)checkAt(101.0);
    EXPECT_EQ(m_reports.size(), 1U);
}

TEST_F(WatchDogCallbackTest, NullIsNone) {
    m_dog->setTimeoutCallback(nullptr, this);
    m_dog->beginWatch(kLaunch, 0.5);
    EXPECT_EQ(checkAt(101.0), Lines{timeoutLine(17, "1.000000")});

    m_dog->setTimeoutCallback(note, this);

    EXPECT_EQ(checkAt(102.0), Lines{});
    EXPECT_EQ(m_reports.size(), 1U);
}

TEST_F(WatchDogCallbackTest, MayCallTheWatchdog) {
    static HeldWatchDog* s_dog;
    s_dog = &m_dog;
    static int s_calls;
    s_calls = 0;
    m_dog->setTimeoutCallback(
        [](void*, Id id, double) {
            ++s_calls;
            (*s_dog)->stopWatch(id);
            (*s_dog)->beginWatch(kLast, 1000.0);
            (*s_dog)->setTimeoutCallback(nullptr, nullptr);
            EXPECT_TRUE((*s_dog)->checkTimers().empty());
        },
        nullptr);
    m_dog->beginWatch(kLaunch, 0.5);
    test::CountCalls locks(test::Call::PthreadMutexLock);

    (void)checkAt(101.0);

    EXPECT_EQ(s_calls, 1);
    (void)checkAt(102.0);
    EXPECT_EQ(s_calls, 1);
}

TEST(WatchDogThreadTest, ChecksBeforeItsFirstSleepOfATenthOfASecond) {
    LogCapture log(kLogError);
    HeldWatchThread held;
    {
        WatchDog dog;
        ASSERT_TRUE(held.waitUntilAsleep());
        EXPECT_EQ(held.duration().tv_sec, 0);
        EXPECT_EQ(held.duration().tv_nsec, 100000000);
        held.letGo();
    }
}

std::string nameOfThisThread() {
    char name[16] = "";
    (void)pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

TEST(WatchDogThreadTest, RunAfterStopReturnsAtOnce) {
    LogCapture log;
    HeldWatchDog dog;
    dog->stop();
    const std::string name = nameOfThisThread();
    test::CountCalls sleeps(test::Call::Nanosleep);
    test::CountCalls reads(test::Call::ClockGettime);

    EXPECT_EQ(dog->run(), 0);

    EXPECT_EQ(sleeps.seen(), 0);
    EXPECT_EQ(reads.seen(), 0);
    EXPECT_EQ(nameOfThisThread(), name);
}

TEST(WatchDogThreadTest, RunReturnsZeroOnceItIsStopped) {
    LogCapture log;
    WatchDog dog;
    std::thread([&] {
        const test::ReplaceCall<int(const timespec*, timespec*)> sleep(
            test::Call::Nanosleep, [&](const timespec*, timespec*) {
                dog.stop();
                return 0;
            });
        EXPECT_EQ(dog.run(), 0);
        EXPECT_EQ(sleep.hits(), 1);
    }).join();
}

TEST(WatchDogThreadTest, TheThreadEndsAfterItsSleepOnceStopped) {
    LogCapture log(kLogError);
    HeldWatchThread held;
    test::CountCalls sleeps(test::Call::Nanosleep, test::When().anyThread());
    {
        WatchDog dog;
        ASSERT_TRUE(held.waitUntilAsleep());
        dog.stop();
        held.letGo();
    }
    EXPECT_EQ(sleeps.seen(), 1);
}

/// How often a watch thread has read the clock before it sleeps again, where its first sleep has
/// failed.
long readsUntilSecondSleep(int error) {
    LogCapture log(kLogError);
    std::atomic<long> readsBySecondSleep{0};
    test::Event secondSleep;
    test::CountCalls reads(test::Call::ClockGettime, test::When().anyThread());
    test::FailCall failure(test::Call::Nanosleep, error, test::When().anyThread());
    test::RunAtCall second(
        test::Call::Nanosleep,
        [&] {
            readsBySecondSleep = reads.seen();
            secondSleep.set();
        },
        test::When().anyThread().nth(2));
    WatchDog dog;
    EXPECT_TRUE(secondSleep.wait());
    return readsBySecondSleep;
}

TEST(WatchDogThreadTest, AnInterruptedSleepIsGoneOnWith) {
    EXPECT_EQ(readsUntilSecondSleep(EINTR), 54);  // One check, of each watch.
}

TEST(WatchDogThreadTest, ASleepThatFailsOtherwiseIsNotTriedAgainBeforeTheNextCheck) {
    EXPECT_EQ(readsUntilSecondSleep(EINVAL), 108);  // Two checks, of each watch.
}

TEST(WatchDogThreadTest, AnInterruptedSleepGoesOnForWhatIsLeftOfItsTime) {
    // What each interrupted sleep leaves of its time; the one after them is not interrupted.
    constexpr long kLeft[] = {70000000, 30000000, 1};
    LogCapture log(kLogError);
    std::vector<long> slept;  // Filled by the watch thread alone, until nextPeriod.
    test::Event nextPeriod;
    test::Event release;
    test::ReplaceCall<int(const timespec*, timespec*)> sleep(
        test::Call::Nanosleep,
        [&](const timespec* p_duration, timespec* p_left) {
            if (nextPeriod.isSet()) return 0;
            slept.push_back(p_duration->tv_sec * 1000000000L + p_duration->tv_nsec);
            const std::size_t interruptions = slept.size() - 1;
            if (interruptions < std::size(kLeft)) {
                *p_left = {0, kLeft[interruptions]};
                errno = EINTR;
                return -1;
            }
            if (interruptions == std::size(kLeft)) return 0;
            nextPeriod.set();
            (void)release.wait();
            return 0;
        },
        test::When().anyThread().everyTime());
    {
        WatchDog dog;
        EXPECT_TRUE(nextPeriod.wait());
        dog.stop();
        release.set();
    }
    EXPECT_EQ(slept, (std::vector<long>{100000000, 70000000, 30000000, 1, 100000000}));
}

TEST(WatchDogThreadTest, SignalsDoNotShortenItsPeriod) {
    LogCapture log(kLogError);
    test::SignalStorm storm;
    test::CountCalls reads(test::Call::ClockGettime, test::When().anyThread());
    const double begin = monotonicNow();
    {
        WatchDog dog;
        storm.blow(300);
        dog.stop();
    }
    const long checks = reads.seen() / WatchDog::eWatchIDCount;
    EXPECT_LE(static_cast<double>(checks), 1.0 + (monotonicNow() - begin) / 0.1);
}

TEST(WatchDogThreadTest, ReportsByItself) {
    LogCapture log(kLogError);
    WatchDog dog;

    dog.beginWatch(kLaunch, 0.05);
    ASSERT_TRUE(log.waitFor("Watch dog Timeout : 17(eWatchID_app_launch_new) ,  "));
    log.clear();
    ASSERT_TRUE(log.waitFor("Watch dog Timeout : 17(eWatchID_app_launch_new) ,  "));
    dog.stopWatch(kLaunch);

    double total = 0.0;
    const std::string text = log.texts().front();
    ASSERT_EQ(std::sscanf(text.c_str() + text.find(",  "), ",  %lf", &total), 1);
    EXPECT_GE(total, 0.1);  // Two periods, each over its 0.05 s and at the next check only.
}

TEST(WatchDogThreadTest, CallsBackOnItsOwnThreadWhichHasAName) {
    LogCapture log(kLogError);
    struct Seen {
        test::Event reported;
        std::thread::id thread;
        std::string name;
    } seen;
    {
        WatchDog dog;
        dog.setTimeoutCallback(
            [](void* p_context, Id, double) {
                auto* const p_seen = static_cast<Seen*>(p_context);
                if (p_seen->reported.isSet()) return;
                p_seen->name = nameOfThisThread();
                p_seen->thread = std::this_thread::get_id();
                p_seen->reported.set();
            },
            &seen);
        dog.beginWatch(kLaunch, 0.0);
        ASSERT_TRUE(seen.reported.wait());
    }
    EXPECT_NE(seen.thread, std::this_thread::get_id());
    EXPECT_NE(seen.name, nameOfThisThread());
}

TEST(WatchDogThreadTest, TheWallClockIsNotLookedAt) {
    LogCapture log(kLogError);
    std::atomic<int> reads{0};
    test::ReplaceCall<int(clockid_t, timespec*)> clock(
        test::Call::ClockGettime,
        [&](clockid_t id, timespec* p_time) {
            if (id != CLOCK_MONOTONIC) ++reads;
            return clock_gettime(id, p_time);
        },
        test::When().anyThread().everyTime());
    WatchDog dog;
    dog.beginWatch(kLaunch, 0.0);

    ASSERT_TRUE(log.waitFor("Watch dog Timeout"));
    EXPECT_EQ(reads, 0);
}

TEST(WatchDogThreadTest, ManyThreadsWatchAtOnce) {
    LogCapture log(kLogError);
    static std::atomic<int> s_reports;
    s_reports = 0;
    WatchDog dog;
    test::runAtOnce(4, [&](int i) {
        const Id id = static_cast<Id>(i * 10);
        for (int n = 0; n < 300; ++n) {
            dog.beginWatch(id, -1.0);
            if (n == 150) dog.setTimeoutCallback([](void*, Id, double) { ++s_reports; }, nullptr);
            (void)dog.checkTimers();
            dog.stopWatch(id);
        }
    });

    EXPECT_EQ(std::size(log.texts()) > 0, true);
    EXPECT_EQ(dog.checkTimers(), std::vector<int>{});
}

TEST(WatchDogLayoutTest, FieldsAreInTheirOrder) {
    struct Fields {
        WatchDog::TimeoutCallback callback;
        void* p_context;
        double beginTime[54];
        double timeout[54];
        double elapsed[54];
        pthread_mutex_t mutex;
        bool isRunning;
        void* p_owner;
        pthread_t thread;
    };
    EXPECT_EQ(sizeof(WatchDog), sizeof(Fields));
    EXPECT_EQ(sizeof(GLWatchDog), sizeof(WatchDog));
}

TEST(GlobalWatchDogTest, IsOneAndIsMadeOnFirstUse) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        test::CountCalls created(test::Call::PthreadCreate);
        GLWatchDog* const p_dog = GlobalWatchDog();

        EXPECT_NE(p_dog, nullptr);
        EXPECT_EQ(GLWatchDog::GetInstance(), p_dog);
        EXPECT_EQ(GlobalWatchDog(), p_dog);
        EXPECT_EQ(created.seen(), 1);
        p_dog->beginWatch(kLaunch, 0.0);
        EXPECT_TRUE(log.waitFor("Watch dog Timeout"));
    });
}

TEST(GlobalWatchDogTest, AnotherOneOfItsClassEndsAsAnyWatchDogDoes) {
    LogCapture log(kLogError);
    const test::CountCalls joined(test::Call::PthreadJoin);
    {
        GLWatchDog dog;
        dog.beginWatch(kLaunch, 0.0);
        ASSERT_TRUE(log.waitFor("Watch dog Timeout"));
    }
    EXPECT_EQ(joined.seen(), 1);
}

}  // namespace

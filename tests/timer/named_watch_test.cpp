#include "base/timer/named_watch.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/timer/scoped_watch.h"
#include "ends/forked_child.h"
#include "support/contention.h"
#include "support/fresh_process.h"
#include "timer/watchdog_fixtures.h"

namespace {

using namespace std::chrono_literals;
using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::LogCapture;

using Report = std::pair<std::string, double>;

/// A watchdog that the test has check its watches, at times that it sets.
class NamedWatchTest : public testing::Test {
protected:
    /// One check at @p time.
    void checkAt(double time) {
        m_clock.set(time);
        EXPECT_TRUE(m_held->checkTimers().empty());
    }
    WatchDog& dog() { return *m_held.operator->(); }
    NamedWatch::Callback note() {
        return [this](const std::string& name, double seconds) {
            m_reports.emplace_back(name, seconds);
        };
    }
    std::vector<Report> takeReports() { return std::exchange(m_reports, {}); }

    HeldWatchDog m_held;
    TurnedClock m_clock{100};
    std::vector<Report> m_reports;
};

TEST_F(NamedWatchTest, IsReportedToItsCallbackAlone) {
    LogCapture log(kLogDebug);
    const NamedWatch watch(dog(), "tune", 0.5, note());

    checkAt(100.5);
    EXPECT_EQ(takeReports(), std::vector<Report>{});
    checkAt(100.75);

    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 0.75}}));
    EXPECT_TRUE(log.entries().empty());
    EXPECT_EQ(watch.name(), "tune");
}

TEST_F(NamedWatchTest, TheFixedSetsCallbackHearsNothingOfIt) {
    int fixed = 0;
    dog().setTimeoutCallback(
        [](void* p_count, WatchDog::WATCH_ID, double) { ++*static_cast<int*>(p_count); }, &fixed);
    const NamedWatch watch(dog(), "tune", 0.5, note());
    dog().beginWatch(WatchDog::eWatchID_doOOM, 0.5);

    checkAt(101);

    EXPECT_EQ(fixed, 1);
    EXPECT_EQ(takeReports().size(), 1U);
}

TEST_F(NamedWatchTest, IsReportedAgainAfterEveryPeriodWithTheTotal) {
    const NamedWatch watch(dog(), "tune", 1s, note());

    checkAt(101.5);
    checkAt(102.25);
    checkAt(103);

    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 1.5}, {"tune", 3.0}}));
}

TEST_F(NamedWatchTest, ARestartBeginsAnew) {
    NamedWatch watch(dog(), "tune", 1s, note());
    checkAt(101.5);
    (void)takeReports();
    m_clock.set(102);

    watch.restart();

    checkAt(103);
    EXPECT_EQ(takeReports(), std::vector<Report>{});
    checkAt(103.5);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 1.5}}));
}

TEST_F(NamedWatchTest, ARestartKeepsTheOthersAndTheirOrder) {
    NamedWatch first(dog(), "first", 1s, note());
    const NamedWatch second(dog(), "second", 1s, note());
    m_clock.set(101);

    first.restart();

    checkAt(103);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"first", 2}, {"second", 3}}));
}

TEST_F(NamedWatchTest, IsNotReportedAfterItsEnd) {
    std::optional<NamedWatch> first(std::in_place, dog(), "first", 1s, note());
    std::optional<NamedWatch> second(std::in_place, dog(), "second", 1s, note());
    std::optional<NamedWatch> third(std::in_place, dog(), "third", 1s, note());

    second.reset();
    checkAt(102);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"first", 2}, {"third", 2}}));
    first.reset();
    checkAt(104);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"third", 4}}));
    third.reset();
    checkAt(106);
    EXPECT_EQ(takeReports(), std::vector<Report>{});
}

TEST_F(NamedWatchTest, WithoutAPeriodIsReportedOnceAtEveryCheck) {
    const NamedWatch none(dog(), "none", 0.0, note());
    const NamedWatch negative(dog(), "negative", -1s, note());
    const NamedWatch endless(dog(), "endless", std::numeric_limits<double>::infinity(), note());
    const NamedWatch unknown(dog(), "unknown", std::numeric_limits<double>::quiet_NaN(), note());

    checkAt(101);
    checkAt(102);

    EXPECT_EQ(takeReports(),
              (std::vector<Report>{{"none", 1}, {"negative", 1}, {"none", 2}, {"negative", 2}}));
}

TEST_F(NamedWatchTest, IsNotReportedBeforeAnyTimeHasPassed) {
    const NamedWatch negative(dog(), "negative", -1s, note());

    checkAt(100);
    EXPECT_EQ(takeReports(), std::vector<Report>{});
    checkAt(100.5);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"negative", 0.5}}));
}

// A clock that shows less has just begun to run.
TEST_F(NamedWatchTest, IsWatchedFromTheFirstSecondOfTheClockOn) {
    m_clock.set(1);
    const NamedWatch atFirst(dog(), "at first", 1s, note());
    m_clock.set(1.25);
    const NamedWatch later(dog(), "later", 1s, note());

    checkAt(3);

    EXPECT_EQ(takeReports(), (std::vector<Report>{{"later", 1.75}}));
}

TEST_F(NamedWatchTest, WithoutAClockIsNeverReported) {
    m_clock.setFailing(true);
    const NamedWatch watch(dog(), "tune", 1s, note());
    m_clock.setFailing(false);

    checkAt(1000);

    EXPECT_EQ(takeReports(), std::vector<Report>{});
}

TEST_F(NamedWatchTest, ItsCallbackMayEndItAndOthersAndBeginMore) {
    std::unique_ptr<NamedWatch> other;
    std::unique_ptr<NamedWatch> more;
    std::unique_ptr<NamedWatch> watch;
    watch = std::make_unique<NamedWatch>(
        dog(), "tune", 1s, [&, kept = std::string(100, 'x')](const std::string& name, double s) {
            watch.reset();
            other.reset();
            more = std::make_unique<NamedWatch>(dog(), "more", 1s, note());
            m_reports.emplace_back(name + kept.substr(0, 1), s);  // Both are still there.
        });
    other = std::make_unique<NamedWatch>(dog(), "other", 1s, note());

    checkAt(102);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tunex", 2}}));
    checkAt(104);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"more", 2}}));
}

// Or the check might have no end.
TEST_F(NamedWatchTest, WhatACallbackBeginsIsNotLookedAtInTheSameCheck) {
    std::vector<std::unique_ptr<NamedWatch>> more;
    const NamedWatch watch(dog(), "tune", 1s, [&](const std::string& name, double seconds) {
        m_reports.emplace_back(name, seconds);
        more.push_back(std::make_unique<NamedWatch>(dog(), "more", -1s, note()));
        m_clock.set(103);
    });

    checkAt(102);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 2}}));
    checkAt(103);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"more", 1}}));
}

TEST_F(NamedWatchTest, ItsCallbackMayRestartIt) {
    std::optional<NamedWatch> watch;
    watch.emplace(dog(), "tune", 1s, [&](const std::string& name, double seconds) {
        m_reports.emplace_back(name, seconds);
        watch->restart();
    });

    checkAt(102);
    checkAt(104);

    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 2}, {"tune", 2}}));
}

// The memory may be in use again when the callback returns.
TEST_F(NamedWatchTest, ACheckInItsCallbackDoesNotReportItAgain) {
    bool isFirst = true;
    const NamedWatch watch(dog(), "tune", 1s, [&](const std::string& name, double seconds) {
        m_reports.emplace_back(name, seconds);
        if (std::exchange(isFirst, false)) checkAt(103);
    });

    checkAt(101.5);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 1.5}}));

    checkAt(104);
    EXPECT_EQ(takeReports(), (std::vector<Report>{{"tune", 4}}));
}

TEST_F(NamedWatchTest, IsNotTouchedOnceItsCallbackHasDestroyedIt) {
    alignas(NamedWatch) std::array<unsigned char, sizeof(NamedWatch)> memory;
    std::array<unsigned char, sizeof(NamedWatch)> others;
    others.fill(0xAB);
    NamedWatch* p_watch = nullptr;
    p_watch = ::new (memory.data()) NamedWatch(dog(), "tune", 1s, [&](const std::string&, double) {
        p_watch->~NamedWatch();
        memory = others;
    });

    checkAt(102);

    EXPECT_EQ(memory, others);
}

// Watchdogs share one list.
TEST_F(NamedWatchTest, WhatChangesTheListKeepsOthersFromIt) {
    NamedWatch watch(dog(), "tune", 1h, note());
    NamedWatch other(dog(), "other", 1h, note());
    const auto restart = [&] { watch.restart(); };
    const auto restartOther = [&] { other.restart(); };
    const void* p_lock = nullptr;
    {
        const test::ReplaceCall<int(pthread_mutex_t*)> atLock(
            test::Call::PthreadMutexLock, [&](pthread_mutex_t* p_mutex) {
                p_lock = p_mutex;
                return pthread_mutex_lock(p_mutex);
            });
        restart();
    }
    const auto atStep = [&](long number) { return test::When().on(p_lock).nth(number); };

    EXPECT_TRUE(test::keepsWaiting(restart, restartOther));
    // A check counts itself, and then looks.
    EXPECT_TRUE(test::keepsWaiting([&] { checkAt(101); }, restartOther, atStep(1)));
    EXPECT_TRUE(test::keepsWaiting([&] { checkAt(102); }, restartOther, atStep(2)));
}

// On the real thread from here on.

TEST(NamedWatchThreadTest, IsReportedOnTheThreadOfTheFixedSet) {
    WatchDog dog;
    test::Event isReported;
    std::int32_t by = 0;
    static std::int32_t s_fixedBy = 0;
    static test::Event s_isFixedReported;
    dog.setTimeoutCallback(
        [](void*, WatchDog::WATCH_ID, double) {
            s_fixedBy = currentThread();
            s_isFixedReported.set();
        },
        nullptr);
    const ScopedWatch fixed(dog, WatchDog::eWatchID_doOOM, 1ms);

    const NamedWatch watch(dog, "tune", 1ms, [&](const std::string&, double seconds) {
        if (isReported.isSet()) return;
        by = currentThread();
        EXPECT_GE(seconds, 0.001);
        isReported.set();
    });

    ASSERT_TRUE(isReported.wait());
    ASSERT_TRUE(s_isFixedReported.wait());
    EXPECT_EQ(by, s_fixedBy);
    EXPECT_NE(by, currentThread());
}

TEST(NamedWatchThreadTest, ItsEndWaitsForAReportThatGoesOn) {
    WatchDog dog;
    test::Event entered;
    test::Event release;
    auto watch = std::make_unique<NamedWatch>(dog, "tune", 1ms, [&](const std::string&, double) {
        entered.set();
        EXPECT_TRUE(release.wait());
    });
    ASSERT_TRUE(entered.wait());
    test::Event isWaiting;
    bool hasReturned = false;
    {
        test::RunAtCall atWait(test::Call::PthreadCondWait, [&] {
            isWaiting.set();
            EXPECT_FALSE(hasReturned);
            release.set();
        });
        watch.reset();
        hasReturned = true;
    }
    EXPECT_TRUE(isWaiting.isSet());
}

/// A watch that is just being reported, until whoever ends it waits.
class WatchInReport {
public:
    WatchInReport() { EXPECT_TRUE(m_entered.wait()); }
    ~WatchInReport() { m_release.set(); }

    void end() { m_watch.reset(); }
    /// Of the thread that has ended it.
    int cancelStateInWait() const { return m_cancelState; }

private:
    WatchDog m_dog;
    test::Event m_entered;
    test::Event m_release;
    int m_cancelState = -1;
    const test::RunAtCall m_atWait{test::Call::PthreadCondWait, [this] {
                                       (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE,
                                                                    &m_cancelState);
                                       (void)pthread_setcancelstate(m_cancelState, nullptr);
                                       m_release.set();
                                   }};
    std::unique_ptr<NamedWatch> m_watch =
        std::make_unique<NamedWatch>(m_dog, "tune", 1ms, [this](const std::string&, double) {
            m_entered.set();
            (void)m_release.wait();
        });
};

TEST(NamedWatchThreadTest, AnEndThatHasWaitedGivesItsLockBackOnce) {
    WatchInReport watch;
    const test::CountCalls locked(test::Call::PthreadMutexLock);
    const test::CountCalls unlocked(test::Call::PthreadMutexUnlock);

    watch.end();

    EXPECT_EQ(locked.seen(), 1);
    EXPECT_EQ(unlocked.seen(), 1);
}

// The wait is a cancellation point, and a destructor that is cancelled ends the process.
TEST(NamedWatchThreadTest, AnEndThatWaitsIsNotCancelled) {
    WatchInReport watch;

    watch.end();

    EXPECT_EQ(watch.cancelStateInWait(), PTHREAD_CANCEL_DISABLE);
}

TEST(NamedWatchThreadTest, ACallbackThatEndsItsThreadDoesNotKeepTheEndWaiting) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        auto dog = std::make_unique<WatchDog>();
        test::Event entered;
        auto watch =
            std::make_unique<NamedWatch>(*dog, "tune", 1ms, [&](const std::string&, double) {
                entered.set();
                pthread_exit(nullptr);
            });
        ASSERT_TRUE(entered.wait());
        watch.reset();
        dog.reset();
    });
}

TEST(NamedWatchThreadTest, IsNotWatchedInAForkedChildUntilItIsRestarted) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    WatchDog dog;
    test::Event entered;
    test::Event release;
    test::Event again;
    const pid_t parent = getpid();
    std::optional<NamedWatch> watch;
    std::optional<NamedWatch> other;
    std::atomic<bool> isLastReported{false};
    watch.emplace(dog, "tune", 1ms, [&](const std::string&, double) {
        if (getpid() != parent) {
            again.set();
            return;
        }
        entered.set();
        (void)release.wait();
    });
    other.emplace(dog, "other", 1h, [](const std::string&, double) {});
    const NamedWatch last(dog, "last", 0ms, [&](const std::string&, double) {
        if (getpid() != parent) isLastReported = true;
    });
    ASSERT_TRUE(entered.wait());

    // The parent's report goes on for ever there.
    EXPECT_EQ(test::runInForkedChild([&] {
                  other.reset();
                  watch->restart();
                  CHECK_IN_CHILD(again.wait());
                  watch.reset();
                  CHECK_IN_CHILD(!isLastReported);
              }),
              0);
    release.set();
}

TEST(NamedWatchThreadTest, EndsInAForkedChildWithoutWaitingForTheParentsReport) {
    WatchDog dog;
    test::Event entered;
    test::Event release;
    std::optional<NamedWatch> watch;
    watch.emplace(dog, "tune", 1ms, [&](const std::string&, double) {
        entered.set();
        (void)release.wait();
    });
    ASSERT_TRUE(entered.wait());

    EXPECT_EQ(test::runInForkedChild([&] { watch.reset(); }), 0);
    release.set();
}

// The process's watchdog has a thread that stays: in processes of their own.

TEST(NamedWatchThreadTest, IsReportedByItsOwnWatchDogOnly) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        HeldWatchDog dog;
        TurnedClock clock(100);
        int reports = 0;
        const NamedWatch watch(*dog.operator->(), "elsewhere", 1s,
                               [&](const std::string&, double) { ++reports; });
        clock.set(200);

        (void)GlobalWatchDog()->checkTimers();
        EXPECT_EQ(reports, 0);
        (void)dog->checkTimers();
        EXPECT_EQ(reports, 1);
    });
}

TEST(NamedWatchThreadTest, IsOnTheProcesssWatchDogByDefault) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::Event isReported;
        const NamedWatch never("tune", 1h, [](const std::string&, double) { ADD_FAILURE(); });
        const NamedWatch watch("tune", 0.001,
                               [&](const std::string&, double) { isReported.set(); });
        EXPECT_TRUE(isReported.wait());
        EXPECT_FALSE(std::is_copy_constructible<NamedWatch>::value);
    });
}

}  // namespace

// The order in which timers fire, and the scheduler under load.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <numeric>
#include <random>
#include <set>
#include <thread>

#include "simple_timer/scheduler_fixtures.h"
#include "support/signal_storm.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::simple_timer;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

constexpr char kIdleLine[] = "No timer, wait for ever.";

class SchedulerTest : public testing::Test {
protected:
    /// The names of the ONCE timers in the order in which the scheduler saw to them.
    std::vector<std::string> fireOrder() const {
        static const std::string kBegin = ":#:HandleTimeout(): Timer:'";
        static const std::string kEnd = "' type is ONCE, stop now.\n";
        std::vector<std::string> names;
        for (const test::LogEntry& entry : m_log.entriesWithoutLineNumbers()) {
            const std::size_t begin = entry.text.find(kBegin);
            const std::size_t end = entry.text.find(kEnd);
            if (begin == std::string::npos || end == std::string::npos) continue;
            names.push_back(entry.text.substr(begin + kBegin.size(), end - begin - kBegin.size()));
        }
        return names;
    }

    /// Starts timers "0", "1", ... with the given timeouts, all at one moment soon past, and
    /// waits for them. None can fire until all are started: the scheduler is kept from looking.
    std::vector<std::string> fireOrderOf(const std::vector<TimeoutTime>& timeouts) {
        std::vector<std::unique_ptr<Timer>> timers;
        for (std::size_t i = 0; i < timeouts.size(); ++i) {
            timers.push_back(std::make_unique<Timer>(std::to_string(i), timeouts[i],
                                                     m_runs.handler(), nullptr, ONCE));
        }
        test::Event allStarted;
        {
            test::RunAtCall hold(
                Call::Select, [&] { (void)allStarted.wait(); }, When().anyThread().everyTime());
            timespec now{};
            (void)clock_gettime(CLOCK_MONOTONIC, &now);
            const StoppedClock clock(now);
            for (const auto& timer : timers) EXPECT_EQ(timer->start(), 0);
            allStarted.set();
        }
        EXPECT_TRUE(m_runs.waitFor(timeouts.size()));
        return fireOrder();
    }

    Runs m_runs;
    LogCapture m_log;
};

TEST_F(SchedulerTest, FiresInOrderOfExpiry) {
    EXPECT_EQ(fireOrderOf({{0, 30, 0}, {0, 10, 0}, {0, 20, 0}, {0, 0, 0}, {0, 9, 999}}),
              (std::vector<std::string>{"3", "4", "1", "2", "0"}));
}

TEST_F(SchedulerTest, EqualExpiriesFireInTheOrderOfStarting) {
    EXPECT_EQ(fireOrderOf({{0, 5, 0}, {0, 5, 0}, {0, 0, 5000}, {0, 4, 1000}, {0, 1, 0}}),
              (std::vector<std::string>{"4", "0", "1", "2", "3"}));
}

// Detaching one that may have ended already can touch memory that is gone.
TEST_F(SchedulerTest, HandlersThreadsAreDetachedFromTheStart) {
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    std::atomic<int> state{-1};
    const test::ReplaceCall<Create> create(
        Call::PthreadCreate,
        [&](pthread_t* p_thread, const pthread_attr_t* p_attributes, void* (*p_run)(void*),
            void* p_argument) {
            int detachState = PTHREAD_CREATE_JOINABLE;
            if (p_attributes != nullptr) {
                (void)pthread_attr_getdetachstate(p_attributes, &detachState);
            }
            state = detachState;
            return pthread_create(p_thread, p_attributes, p_run, p_argument);
        },
        When().anyThread());
    Timer timer("detached", {0, 1, 0}, m_runs.handler(), nullptr, ONCE);
    timer.start();

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
}

TEST_F(SchedulerTest, ManyFireInOrder) {
    std::mt19937 random(3);
    std::uniform_int_distribution<std::int32_t> milliseconds(0, 20);
    std::vector<TimeoutTime> timeouts(200);
    for (TimeoutTime& timeout : timeouts) timeout = {0, milliseconds(random), 0};
    std::vector<std::size_t> expected(timeouts.size());
    std::iota(expected.begin(), expected.end(), 0U);
    std::stable_sort(expected.begin(), expected.end(), [&](std::size_t left, std::size_t right) {
        return timeouts[left].msec < timeouts[right].msec;
    });
    std::vector<std::string> names;
    for (const std::size_t i : expected) names.push_back(std::to_string(i));

    EXPECT_EQ(fireOrderOf(timeouts), names);
}

TEST_F(SchedulerTest, ATimerThatIsDueEarlierShortensTheWait) {
    Timer late("late", kFar, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(late.start(), 0);
    ASSERT_TRUE(m_log.waitFor("Waiting for timer('late') expired"));

    Timer early("early", kSoon, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(early.start(), 0);

    ASSERT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(m_runs.runs()[0].p_timer, &early);
    (void)early.stop();
}

TEST_F(SchedulerTest, ATimerIsDueAtItsVeryExpiry) {
    test::setLogLevel(kLogInfo);
    std::atomic<long> nanoseconds{0};
    std::atomic<int> readings{0};
    test::ReplaceCall<int(clockid_t, timespec*)> clock(
        Call::ClockGettime,
        [&](clockid_t id, timespec* p_time) {
            if (id != CLOCK_MONOTONIC) return clock_gettime(id, p_time);
            *p_time = {1000, nanoseconds};
            ++readings;
            return 0;
        },
        When().anyThread().everyTime());
    Timer timer("due", {0, 1, 0}, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);

    // A pass reads the clock twice, for the wait and behind it.
    nanoseconds = 999999;
    const int before = readings;
    while (readings < before + 4 && m_runs.runs().empty()) std::this_thread::yield();
    EXPECT_TRUE(timer.isStarted());
    EXPECT_TRUE(m_runs.runs().empty());
    m_log.clear();
    nanoseconds = 1000000;

    EXPECT_TRUE(m_runs.waitFor(1));
    EXPECT_TRUE(m_log.waitFor(kIdleLine));  // The clock is not read any more.
    (void)timer.stop();
}

TEST_F(SchedulerTest, AContinueTimerDoesNotStarveTheOthers) {
    Timer busy("busy", {0, 0, 1}, ignore, nullptr, CONTINUE);
    ASSERT_EQ(busy.start(), 0);
    Timer once("once", kSoon, m_runs.handler(), nullptr, ONCE);
    ASSERT_EQ(once.start(), 0);

    EXPECT_TRUE(m_runs.waitFor(1));
    (void)once.stop();
}

TEST_F(SchedulerTest, TheWallClockIsNotLookedAt) {
    std::atomic<int> reads{0};
    test::ReplaceCall<int(clockid_t, timespec*)> wallClock(
        Call::ClockGettime,
        [&](clockid_t clock, timespec* p_time) {
            if (clock == CLOCK_MONOTONIC) return clock_gettime(clock, p_time);
            ++reads;
            *p_time = {reads % 2 == 0 ? 0 : 1L << 30, 0};  // Set back, and forth.
            return 0;
        },
        When().anyThread().everyTime());
    Timer timer("beat", kSoon, m_runs.handler(), nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(m_runs.waitFor(5));
    (void)timer.stop();
    EXPECT_EQ(reads, 0);
}

TEST_F(SchedulerTest, ThreadsHaveNames) {
    std::string name;
    test::Event done;
    Timer timer(
        "named", kSoon,
        [&](Timer*, void*) {
            char text[16] = "";
            (void)pthread_getname_np(pthread_self(), text, sizeof(text));
            name = text;
            done.set();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    ASSERT_TRUE(done.wait());

    char own[16] = "";
    (void)pthread_getname_np(pthread_self(), own, sizeof(own));
    EXPECT_FALSE(name.empty());
    EXPECT_NE(name, own);
}

TEST_F(SchedulerTest, AFullPipeNeverBlocksAClient) {
    test::setLogLevel(kLogError);
    Timer timer("wake", kFar, ignore, nullptr, ONCE);
    Timer wake("again", kSoon, m_runs.handler(), nullptr, ONCE);
    test::Event filled;
    test::Event held;
    std::unique_ptr<test::RunAtCall> hold = std::make_unique<test::RunAtCall>(
        Call::Select,
        [&] {
            held.set();
            (void)filled.wait();
        },
        When().anyThread());
    ASSERT_EQ(timer.start(), 0);  // Brings the scheduler to its next select().
    ASSERT_TRUE(held.wait());

    // 64 KiB of commands fill a pipe; these are twice as many, and nobody reads.
    for (int i = 0; i < 16384; ++i) {
        ASSERT_EQ(timer.stop(), 0);
        ASSERT_EQ(timer.start(), 0);
    }
    EXPECT_TRUE(m_log.texts(kLogError).empty());  // A full pipe is no failure.
    EXPECT_EQ(wake.start(), 0);
    filled.set();

    EXPECT_TRUE(m_runs.waitFor(1));
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_EQ(wake.stop(), 0);
}

TEST_F(SchedulerTest, ManyThreadsStartAndStopAsFastAsTheyCan) {
    test::setLogLevel(kLogError);
    constexpr int kThreads = 4;
    constexpr int kRounds = 1500;
    std::vector<Runs> once(kThreads);
    test::runAtOnce(kThreads, [&](int i) {
        Timer far("far", kFar, ignore, nullptr, ONCE);
        Timer beat("beat", {0, 0, 300}, ignore, nullptr, CONTINUE);
        EXPECT_EQ(beat.start(), 0);
        for (int n = 0; n < kRounds; ++n) {
            EXPECT_EQ(far.start(), 0);
            if (n % 16 == 0) {
                EXPECT_EQ(beat.restart(), 0);
            }
            EXPECT_EQ(n % 2 == 0 ? far.stop() : far.stopNoBlock(), 0);
        }
        // None was lost: this one fires.
        Timer last("last", kSoon, once[static_cast<std::size_t>(i)].handler(), nullptr, ONCE);
        EXPECT_EQ(last.start(), 0);
        EXPECT_TRUE(once[static_cast<std::size_t>(i)].waitFor(1));
        (void)last.stop();
    });
}

TEST_F(SchedulerTest, OneTimerIsStartedAndStoppedByManyThreads) {
    test::setLogLevel(kLogError);
    Timer timer("shared", {0, 0, 100}, m_runs.handler(), nullptr, ONCE);
    test::runAtOnce(4, [&](int i) {
        for (int n = 0; n < 400; ++n) {
            switch ((n + i) % 4) {
                case 0:
                    EXPECT_EQ(timer.start(), 0);
                    break;
                case 1:
                    EXPECT_EQ(timer.stop(), 0);
                    break;
                case 2:
                    EXPECT_EQ(timer.stopNoBlock(), 0);
                    break;
                default:
                    (void)timer.isStarted();
            }
        }
    });
    EXPECT_EQ(timer.stop(), 0);
    const std::size_t before = m_runs.runs().size();
    EXPECT_EQ(timer.start(), 0);
    EXPECT_TRUE(m_runs.waitFor(before + 1));
    (void)timer.stop();
}

struct Wait {
    timespec expiry;
    timespec now;
    long sec;
    long usec;
};

void PrintTo(const Wait& wait, std::ostream* p_stream) {
    *p_stream << wait.now.tv_sec << "s " << wait.now.tv_nsec << "ns to " << wait.expiry.tv_sec
              << "s " << wait.expiry.tv_nsec << "ns";
}

/// Remembers how long the scheduler's first wait with a limit is, and has the log begin there.
class WaitWitness : public test::Intervention {
public:
    explicit WaitWitness(LogCapture* p_log)
        : Intervention(Call::Select, When().anyThread().everyTime()), m_log(p_log) {
        startRunning(&WaitWitness::look, this);
    }
    ~WaitWitness() { stop(); }

    [[nodiscard]] bool wait() { return m_seen.wait(); }
    timeval limit() const { return m_limit; }

private:
    static bool look(void* p_self, void*, void* const* pp_arguments) {
        const timeval* const p_limit = *static_cast<timeval* const*>(pp_arguments[4]);
        if (p_limit != nullptr) static_cast<WaitWitness*>(p_self)->noteFirst(*p_limit);
        return false;  // The call is made.
    }

    void noteFirst(const timeval& limit) {
        if (m_seen.isSet()) return;
        m_log->clear();
        m_limit = limit;
        m_seen.set();
    }

    LogCapture* const m_log;
    timeval m_limit = {};  // Not changed any more once m_seen is set.
    test::Event m_seen;
};

class SchedulerWaitTest : public testing::TestWithParam<Wait> {};

TEST_P(SchedulerWaitTest, IsWhatIsLeftInWholeMicroseconds) {
    const Wait& wait = GetParam();
    LogCapture log(kLogInfo);
    Timer timer("wait", kAtOnce, ignore, nullptr, ONCE);
    WaitWitness witness(&log);
    // The timer is started at its expiry, and the scheduler looks at another time.
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(
        Call::ClockGettime,
        [wait, client = pthread_self()](clockid_t id, timespec* p_time) {
            if (id != CLOCK_MONOTONIC) return clock_gettime(id, p_time);
            *p_time = pthread_equal(client, pthread_self()) != 0 ? wait.expiry : wait.now;
            return 0;
        },
        When().anyThread().everyTime());

    ASSERT_EQ(timer.start(), 0);

    EXPECT_TRUE(witness.wait());
    EXPECT_EQ(timer.stop(), 0);
    EXPECT_TRUE(log.waitFor(kIdleLine));  // The clock is not read any more.
    EXPECT_EQ(witness.limit().tv_sec, wait.sec);
    EXPECT_EQ(witness.limit().tv_usec, wait.usec);
}

INSTANTIATE_TEST_SUITE_P(
    From, SchedulerWaitTest,
    testing::Values(Wait{{1000, 500000000}, {1000, 0}, 0, 500000},
                    Wait{{1000, 1999}, {1000, 0}, 0, 1}, Wait{{1000, 999}, {1000, 0}, 0, 0},
                    Wait{{1000, 7}, {1000, 7}, 0, 0}, Wait{{1000, 0}, {1000, 1}, 0, 0},
                    Wait{{999, 999999999}, {1000, 0}, 0, 0}, Wait{{5, 6}, {1000, 5}, 0, 0},
                    Wait{{1001, 0}, {1000, 999999999}, 0, 0},
                    Wait{{1001, 0}, {1000, 999000001}, 0, 999},
                    Wait{{1002, 5}, {1000, 6}, 1, 999999}, Wait{{1002, 6000}, {1000, 5000}, 2, 1},
                    Wait{{1002, 0}, {1000, 0}, 2, 0},
                    Wait{{1000000, 999999999}, {1000, 0}, 999000, 999999}));

/// CPU seconds of the calling thread that @p work takes.
template <typename Work>
double cpuSecondsOf(Work work) {
    const auto now = [] {
        timespec time{};
        (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    const double before = now();
    work();
    return now() - before;
}

TEST_F(SchedulerTest, StartingAndStoppingDoNotWalkALongList) {
    test::setLogLevel(kLogError);
    constexpr int kFew = 1500;
    constexpr int kTimesMore = 16;
    const auto costOf = [](int count) {
        std::vector<std::unique_ptr<Timer>> timers;
        for (int i = 0; i < count; ++i) {
            timers.push_back(std::make_unique<Timer>("many", kFar, ignore, nullptr, ONCE));
        }
        return cpuSecondsOf([&] {
            for (const auto& timer : timers) (void)timer->start();
            // From the back: each is as far from the head as can be.
            for (auto timer = timers.rbegin(); timer != timers.rend(); ++timer) {
                (void)(*timer)->stopNoBlock();
            }
        });
    };
    const double few = costOf(kFew);

    const double many = costOf(kFew * kTimesMore);

    EXPECT_LT(many, few * kTimesMore * 5);  // A walk costs the square.
}

/// A list of so many has room to give back.
constexpr int kManyTimers = 200;

std::vector<std::unique_ptr<Timer>> startedTimers(const TimeoutTime& timeout,
                                                  const TimerHandler& handler) {
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < kManyTimers; ++i) {
        timers.push_back(std::make_unique<Timer>("t", timeout, handler, nullptr, ONCE));
        EXPECT_EQ(timers.back()->start(), 0);
    }
    return timers;
}

// The smaller list is allocated before the larger one is freed.
TEST(SchedulerRoomTest, IsGivenBackWhereTimersAreStopped) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const std::vector<std::unique_ptr<Timer>> timers = startedTimers(kFar, ignore);
        const test::CountCalls blocks(Call::New, When().everyTime());

        for (const std::unique_ptr<Timer>& timer : timers) EXPECT_EQ(timer->stop(), 0);

        EXPECT_GE(blocks.seen(), 1);
    });
}

TEST(SchedulerRoomTest, IsGivenBackWhereTimersHaveFired) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        Timer last("last", kFar, ignore, nullptr, ONCE);
        Timer other("other", kFar, ignore, nullptr, ONCE);
        ASSERT_EQ(last.start(), 0);
        Runs runs;
        const std::vector<std::unique_ptr<Timer>> timers =
            startedTimers({0, 200, 0}, runs.handler());
        ASSERT_TRUE(runs.waitFor(kManyTimers));
        ASSERT_EQ(other.start(), 0);
        const test::CountCalls blocks(Call::New, When().everyTime());

        EXPECT_EQ(other.stop(), 0);

        EXPECT_EQ(blocks.seen(), 0);  // There is nothing left to give back.
    });
}

TEST_F(SchedulerTest, ATimerThatTwoThreadsStartAtOnceIsListedOnce) {
    Timer timer("t", kFar, ignore, nullptr, ONCE);
    int othersResult = -1;
    {
        // In a start that has found the timer stopped.
        const test::RunAtCall overtaken(
            Call::ClockGettime, [&] { std::thread([&] { othersResult = timer.start(); }).join(); });

        EXPECT_EQ(timer.start(), 0);

        EXPECT_EQ(overtaken.hits(), 1);
    }
    EXPECT_EQ(othersResult, 0);
    const std::vector<LogEntry> lines = clientLines(m_log);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         timerLine(kLogDebug, "InsterTimer", "Begin inster timer:'t'.\n")),
              1);
    (void)timer.stop();
}

TEST_F(SchedulerTest, SignalsChangeNothing) {
    test::setLogLevel(kLogAlways);
    test::SignalStorm storm;
    Timer beat("beat", {0, 2, 0}, m_runs.handler(), nullptr, CONTINUE);
    Timer never("never", kFar, m_runs.handler(), nullptr, ONCE);
    const double started = monotonicNow();
    ASSERT_EQ(never.start(), 0);
    ASSERT_EQ(beat.start(), 0);

    storm.blow(300);
    const std::size_t runs = m_runs.runs().size();
    ASSERT_TRUE(m_runs.waitFor(runs + 3));
    (void)beat.stop();
    EXPECT_TRUE(never.isStarted());
    (void)never.stop();

    const std::vector<::Run> all = m_runs.runs();
    // Handlers may overtake each other, but no run begins before its period is over.
    std::vector<double> times;
    for (const ::Run& run : all) {
        EXPECT_EQ(run.p_timer, &beat);
        times.push_back(run.at);
    }
    std::sort(times.begin(), times.end());
    for (std::size_t n = 0; n < times.size(); ++n) {
        EXPECT_GE(times[n], started + 0.002 * static_cast<double>(n + 1));
    }
}

}  // namespace

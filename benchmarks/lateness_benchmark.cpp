// How late a timer or a task of 1 to 50 ms begins. An iteration is one series of them, one after
// the other; the figure is the median or the worst of the series.

#include <sys/prctl.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/simple_timer.h"
#include "schedulers/all.h"
#include "support/arrivals.h"
#include "support/bare_thread.h"
#include "support/rows.h"
#ifdef HAVE_LIBUV
#include "schedulers/uv_scheduler.h"
#endif

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// Waits for the work of another thread, and for how late it began.
class Lateness {
public:
    TimePoint expect(int delayMs) {
        m_arrivals.expect(1);
        return m_due = Clock::now() + std::chrono::milliseconds(delayMs);
    }
    void began() {
        m_seconds = std::chrono::duration<double>(Clock::now() - m_due).count();
        m_arrivals.arrived();
    }
    double waitForSeconds() {
        m_arrivals.waitForAll();
        return m_seconds;
    }

private:
    TimePoint m_due;
    double m_seconds = 0;
    Arrivals m_arrivals;
};

// Each waits once and returns how late it was, in seconds.

template <typename Scheduler>
class TaskWait {
public:
    double operator()(int delayMs) {
        m_lateness.expect(delayMs);
        m_scheduler.post(delayMs, [this] { m_lateness.began(); });
        return m_lateness.waitForSeconds();
    }

private:
    Lateness m_lateness;
    Scheduler m_scheduler;
};

class TimerWait {
public:
    double operator()(int delayMs) {
        using tevalon::base::simple_timer::Timer;
        Timer timer(
            "late", {0, delayMs, 0}, [this](Timer*, void*) { m_lateness.began(); }, nullptr,
            tevalon::base::simple_timer::ONCE);
        m_lateness.expect(delayMs);
        timer.start();
        return m_lateness.waitForSeconds();
    }

private:
    Lateness m_lateness;
};

/// How far the system may put off this thread's waking; it has 50 us by default.
class TimerSlack {
public:
    explicit TimerSlack(unsigned long nanoseconds) {
        (void)prctl(PR_SET_TIMERSLACK, nanoseconds, 0, 0, 0);
    }
    ~TimerSlack() { (void)prctl(PR_SET_TIMERSLACK, 0, 0, 0, 0); }

    TimerSlack(const TimerSlack&) = delete;
    TimerSlack& operator=(const TimerSlack&) = delete;
};

constexpr unsigned long kDefaultSlack = 0;
constexpr unsigned long kNoSlack = 1;

double secondsSince(TimePoint due) {
    return std::chrono::duration<double>(Clock::now() - due).count();
}

template <unsigned long slack>
double sleepUntil(int delayMs) {
    const TimerSlack ofThisThread(slack);
    const TimePoint due = Clock::now() + std::chrono::milliseconds(delayMs);
    const auto count = due.time_since_epoch() / std::chrono::nanoseconds(1);
    const timespec end = {static_cast<time_t>(count / 1000000000),
                          static_cast<long>(count % 1000000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) != 0) {
    }
    return secondsSince(due);
}

template <unsigned long slack>
double waitUntil(int delayMs) {
    const TimerSlack ofThisThread(slack);
    const TimePoint due = Clock::now() + std::chrono::milliseconds(delayMs);
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> lock(mutex);
    while (never.wait_until(lock, due) != std::cv_status::timeout) {
    }
    return secondsSince(due);
}

/// What a simple timer has to do: its handler begins on a new thread.
class NewThreadWait {
public:
    double operator()(int delayMs) {
        m_lateness.expect(delayMs);
        (void)sleepUntil<kNoSlack>(delayMs);
        auto body = [this] { m_lateness.began(); };
        startBareThread(&body);
        return m_lateness.waitForSeconds();
    }

private:
    Lateness m_lateness;
};

constexpr int kLongestMs = 50;

// In a quick run every seventh delay alone.
int stepMs() {
    return isQuick() ? 7 : 1;
}

int seriesLength() {
    return (kLongestMs - 1) / stepMs() + 1;
}

struct SeriesFigures {
    double median;
    double worst;
};

template <typename Wait>
SeriesFigures measureSeries(Wait* p_wait) {
    std::vector<double> series;
    for (int delayMs = 1; delayMs <= kLongestMs; delayMs += stepMs()) {
        series.push_back((*p_wait)(delayMs));
    }
    std::sort(series.begin(), series.end());
    return {series[series.size() / 2], series.back()};
}

/// The two rows of one peer share their series: what either measures serves the other, once.
template <typename Wait>
class SharedSeries {
public:
    explicit SharedSeries(Wait wait) : m_wait(std::move(wait)) {}

    double median() { return take(&m_medians); }
    double worst() { return take(&m_worsts); }

private:
    double take(std::deque<double>* p_values) {
        if (p_values->empty()) {
            const SeriesFigures measured = measureSeries(&m_wait);
            m_medians.push_back(measured.median);
            m_worsts.push_back(measured.worst);
        }
        const double value = p_values->front();
        p_values->pop_front();
        return value;
    }

    Wait m_wait;
    std::deque<double> m_medians;
    std::deque<double> m_worsts;
};

template <typename Make>
void addRows(const std::string& what, const char* peer, Make makeWait) {
    // Made at the first use: a peer's thread is there only where it is measured.
    using Series = SharedSeries<decltype(makeWait())>;
    const auto series = std::make_shared<std::unique_ptr<Series>>();
    const auto get = [=]() -> Series& {
        if (*series == nullptr) *series = std::make_unique<Series>(makeWait());
        return **series;
    };
    const std::string task = "lateness/" + what;
    addTimedRow(task + "/median/unpinned", peer, [=](benchmark::State& state) {
        for (auto _ : state) state.SetIterationTime(get().median());
    })->Iterations(1);
    // Too few for a percentile: the 99th of 50 values would be the worst by another name.
    const std::string worst = "/worst_of_" + std::to_string(seriesLength());
    addTimedRow(task + worst + "/unpinned", peer, [=](benchmark::State& state) {
        for (auto _ : state) state.SetIterationTime(get().worst());
    })->Iterations(1);
}

/// Shared, as it owns threads that know it, by the copies that are made of a callable.
template <typename Wait>
auto sharedWait() {
    return [wait = std::make_shared<Wait>()](int delayMs) { return (*wait)(delayMs); };
}

template <typename Scheduler>
void addSchedulerRows(const std::string& what) {
    addRows(what, Scheduler::kName, sharedWait<TaskWait<Scheduler>>);
}

void addPeerRows(const std::string& what) {
#ifdef HAVE_BOOST
    addSchedulerRows<AsioScheduler>(what);
#endif
#ifdef HAVE_GLIB
    addSchedulerRows<GlibScheduler>(what);
#endif
#ifdef HAVE_LIBEVENT
    addSchedulerRows<LibeventScheduler>(what);
#endif
#ifdef HAVE_LIBUV
    addSchedulerRows<UvScheduler>(what);
#endif
}

// The limits with the system's own slack, and with none: the library chooses its threads' slack.
template <unsigned long slack>
void addLimitRows(const std::string& what) {
    addRows(what, kLimit, [] { return sleepUntil<slack>; });
    addRows(what, kPlain, [] { return waitUntil<slack>; });
}

const bool s_areRowsAdded = [] {
    addSchedulerRows<OurScheduler>("tasks");
    addPeerRows("tasks");
    addLimitRows<kDefaultSlack>("tasks");
    addSchedulerRows<OurScheduler>("tasks_limit_slack_1_ns");
    addLimitRows<kNoSlack>("tasks_limit_slack_1_ns");
    addRows("timers", kOurs, sharedWait<TimerWait>);
    addPeerRows("timers");
    addLimitRows<kDefaultSlack>("timers");
    addRows("timers_limit_new_thread", kOurs, sharedWait<TimerWait>);
    addRows("timers_limit_new_thread", kLimit, sharedWait<NewThreadWait>);
    return true;
}();

}  // namespace
}  // namespace bench

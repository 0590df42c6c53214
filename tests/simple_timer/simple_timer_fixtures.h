// simple_timer_fixtures.h: handlers that remember their runs, threads that begin when the test
// says so, and the lines of the timer's source.

#ifndef TESTS_SIMPLE_TIMER_SIMPLE_TIMER_FIXTURES_H
#define TESTS_SIMPLE_TIMER_SIMPLE_TIMER_FIXTURES_H

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/logging/log_level.h"
#include "base/simple_timer.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;
using tevalon::base::simple_timer::TimerHandler;
using tevalon::base::simple_timer::TimerType_e;

inline constexpr TimeoutTime kAtOnce{0, 0, 0};
inline constexpr TimeoutTime kSoon{0, 1, 0};
inline constexpr TimeoutTime kFar{1000000, 0, 0};  // No test lives to see it.

inline void ignore(Timer*, void*) {}

/// Seconds on the clock of the expiries.
inline double monotonicNow() {
    const test::PassCalls pass;
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Run {
    Timer* p_timer;
    void* p_data;
    double at;
    bool isStarted;
};

/// The runs of handlers, in their order. Outlives the timers it serves.
class Runs {
public:
    TimerHandler handler() {
        return [this](Timer* p_timer, void* p_data) { add(p_timer, p_data); };
    }

    void add(Timer* p_timer, void* p_data) {
        const Run run{p_timer, p_data, monotonicNow(), p_timer->isStarted()};
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_runs.push_back(run);
        m_grown.notify_all();
    }

    /// Blocks until there are @p count; false when test::kPatience ran out first.
    [[nodiscard]] bool waitFor(std::size_t count) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_grown.wait_for(lock, test::kPatience, [&] { return m_runs.size() >= count; });
    }

    std::vector<Run> runs() const {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_runs;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_grown;
    std::vector<Run> m_runs;  // Guarded by m_mutex.
};

/// A handler that stays until it is let go.
class HeldHandler {
public:
    ~HeldHandler() { letGo(); }

    TimerHandler handler() {
        return [this](Timer*, void*) {
            m_entered.set();
            (void)m_release.wait();
            m_hasReturned = true;
        };
    }

    [[nodiscard]] bool waitUntilEntered() { return m_entered.wait(); }
    void letGo() { m_release.set(); }
    bool hasReturned() const { return m_hasReturned; }

private:
    test::Event m_entered;
    test::Event m_release;
    std::atomic<bool> m_hasReturned{false};
};

/// Holds every thread that is created, in any thread, until the test lets it begin.
class HeldStarts {
public:
    HeldStarts()
        : m_create(
              test::Call::PthreadCreate,
              [this](pthread_t* p_handle, const pthread_attr_t* p_attributes,
                     void* (*p_start)(void*), void* p_argument) {
                  return create(p_handle, p_attributes, p_start, p_argument);
              },
              test::When().anyThread().everyTime()) {}
    ~HeldStarts() {
        letBegin(SIZE_MAX);
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_ended == m_created; });
    }

    /// Each blocks until so many have been created, or have ended; false when test::kPatience ran
    /// out first.
    [[nodiscard]] bool waitForCreated(std::size_t count) { return waitFor(m_created, count); }
    [[nodiscard]] bool waitForEnded(std::size_t count) { return waitFor(m_ended, count); }

    /// Lets the first @p count begin, in all.
    void letBegin(std::size_t count) {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_allowed = count;
        m_changed.notify_all();
    }

private:
    struct Start {
        HeldStarts* p_self;
        std::size_t number;
        void* (*p_start)(void*);
        void* p_argument;
    };

    int create(pthread_t* p_handle, const pthread_attr_t* p_attributes, void* (*p_start)(void*),
               void* p_argument) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto* const p_held = new Start{this, m_created + 1, p_start, p_argument};
        const int error = pthread_create(p_handle, p_attributes, begin, p_held);
        if (error != 0) {
            delete p_held;
            return error;
        }
        ++m_created;
        m_changed.notify_all();
        return 0;
    }

    static void* begin(void* p_argument) {
        const std::unique_ptr<Start> start(static_cast<Start*>(p_argument));
        HeldStarts& self = *start->p_self;
        {
            const test::PassCalls pass;
            std::unique_lock<std::mutex> lock(self.m_mutex);
            self.m_changed.wait(lock, [&] { return start->number <= self.m_allowed; });
        }
        void* const p_result = start->p_start(start->p_argument);
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(self.m_mutex);
        ++self.m_ended;
        self.m_changed.notify_all();
        return p_result;
    }

    bool waitFor(const std::size_t& number, std::size_t count) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, test::kPatience, [&] { return number >= count; });
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_created = 0;  // These three are guarded by m_mutex.
    std::size_t m_allowed = 0;
    std::size_t m_ended = 0;
    // Last: it uses the rest.
    test::ReplaceCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> m_create;
};

/// The monotonic clock of the thread that made it stands at @p now.
class StoppedClock {
public:
    explicit StoppedClock(timespec now)
        : m_read(test::Call::ClockGettime, [now](clockid_t, timespec* p_time) {
              *p_time = now;
              return 0;
          }) {}

private:
    test::ReplaceCall<int(clockid_t, timespec*)> m_read;
};

/// A line of the timer's source, as entriesWithoutLineNumbers() has it.
inline test::LogEntry timerLine(std::uint16_t level, const std::string& function,
                                const std::string& message) {
    return {level, "[B-LOG] timer.cpp:#:" + function + "(): " + message};
}

inline test::LogEntry traceIn(const std::string& function) {
    return {tevalon::base::kLogDebug,
            "[TRACE -> " + function + "(IN)] timer.cpp:#:" + function + "() \n"};
}
inline test::LogEntry traceOut(const std::string& function) {
    return {tevalon::base::kLogDebug,
            "[TRACE <- " + function + "(OUT)] timer.cpp:#:" + function + "() \n"};
}

/// What stopping and destroying end in.
inline std::vector<test::LogEntry> waitLines(const std::string& name) {
    using namespace tevalon::base;
    return {timerLine(kLogDebug, "stop", "Will stop timer:'" + name + "'.\n"),
            timerLine(kLogAlways, "stop", "Before wait timer:'" + name + "' stop.\n"),
            timerLine(kLogAlways, "stop", "After wait timer:'" + name + "' stop.\n")};
}

/// What taking a timer off the list writes: off its head, if @p isHead.
inline std::vector<test::LogEntry> removeLines(const std::string& name, bool isHead) {
    using namespace tevalon::base;
    std::vector<test::LogEntry> lines = {
        traceIn("RemoveTimer"),
        timerLine(kLogInfo, "RemoveTimer", "Will remove timer('" + name + "').\n")};
    if (isHead) {
        lines.push_back(
            timerLine(kLogDebug, "RemoveTimer",
                      "Remove timer('" + name + "') from head, send CMD_RESCHEDULE(2).\n"));
    }
    lines.push_back(traceOut("RemoveTimer"));
    return lines;
}

inline std::vector<test::LogEntry> operator+(std::vector<test::LogEntry> left,
                                             const std::vector<test::LogEntry>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Whether the scheduler thread wrote it.
inline bool isOfScheduler(const test::LogEntry& entry) {
    for (const char* function : {"HandleTimerThread", "CaculateSelectTimeout", "HandleTimeout"}) {
        if (entry.text.find(std::string(":") + function + "()") != std::string::npos) return true;
    }
    return false;
}

inline std::vector<test::LogEntry> schedulerLines(const test::LogCapture& log) {
    std::vector<test::LogEntry> entries = log.entriesWithoutLineNumbers();
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [](const test::LogEntry& entry) { return !isOfScheduler(entry); }),
                  entries.end());
    return entries;
}

/// What the threads that use timers wrote.
inline std::vector<test::LogEntry> clientLines(const test::LogCapture& log) {
    std::vector<test::LogEntry> entries = log.entriesWithoutLineNumbers();
    entries.erase(std::remove_if(entries.begin(), entries.end(), isOfScheduler), entries.end());
    return entries;
}

#endif  // TESTS_SIMPLE_TIMER_SIMPLE_TIMER_FIXTURES_H

// timer_fixtures.h: tasks that remember what became of them, and the lines of the timer sources.

#ifndef TESTS_TIMER_TIMER_FIXTURES_H
#define TESTS_TIMER_TIMER_FIXTURES_H

#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/logging/log_level.h"
#include "base/threading/current_thread.h"
#include "base/timer.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

/// Seconds on the clock of the fire times.
inline double monotonicNow() {
    const test::PassCalls pass;
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Which tasks fired, in their order. Outlives the threads it serves.
class FireLog {
public:
    void add(int number) {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_fired.push_back(number);
        m_grown.notify_all();
    }

    /// Blocks until @p count have fired; false when test::kPatience ran out first.
    [[nodiscard]] bool waitFor(std::size_t count) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_grown.wait_for(lock, test::kPatience, [&] { return m_fired.size() >= count; });
    }

    std::vector<int> fired() const {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_fired;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_grown;
    std::vector<int> m_fired;  // Guarded by m_mutex.
};

/// A task of a client's own class.
class TestTask : public tevalon::base::timer::TimerTaskBase {
public:
    explicit TestTask(std::function<void()> work, double fireTime = 0.0, std::int32_t id = 0)
        : m_work(std::move(work)) {
        setNextFireTime(fireTime);
        setTaskId(id);
    }

    void fire() override { m_work(); }

private:
    const std::function<void()> m_work;
};

inline std::shared_ptr<TestTask> makeTask(std::function<void()> work, double fireTime = 0.0,
                                          std::int32_t id = 0) {
    return std::make_shared<TestTask>(std::move(work), fireTime, id);
}

/// A task that holds its thread until it is let go; at the latest when this object goes.
class Holder {
public:
    Holder()
        : m_task(makeTask([state = m_state] {
              state->entered.set();
              (void)state->release.wait();
          })) {}
    ~Holder() { letGo(); }

    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    const std::shared_ptr<TestTask>& task() const { return m_task; }

    /// Posts it for now, and returns when it holds the thread.
    [[nodiscard]] bool hold(tevalon::base::timer::TimerThread& thread) {
        thread.postTask(m_task, 0);
        return waitUntilHeld();
    }
    [[nodiscard]] bool waitUntilHeld() { return m_state->entered.wait(); }
    void letGo() { m_state->release.set(); }

private:
    struct State {
        test::Event entered;
        test::Event release;
    };

    // Shared with the task: its thread may leave the wait after this object has gone.
    const std::shared_ptr<State> m_state = std::make_shared<State>();
    const std::shared_ptr<TestTask> m_task;
};

/// What %p prints.
inline std::string address(const volatile void* p_object) {
    char text[32];
    (void)std::snprintf(text, sizeof(text), "%p", const_cast<const void*>(p_object));
    return text;
}

/// A line as entriesWithoutLineNumbers() has it.
inline test::LogEntry timerLine(std::uint16_t level, const std::string& file,
                                const std::string& function, const std::string& message) {
    return {level, "[B-LOG] " + file + ":#:" + function + "(): " + message};
}

inline test::LogEntry threadLine(std::uint16_t level, const std::string& function,
                                 const std::string& message) {
    return timerLine(level, "timer_thread.cpp", function, message);
}

inline test::LogEntry poolLine(std::uint16_t level, const std::string& function,
                               const std::string& message) {
    return timerLine(level, "timer_thread_pool.cpp", function, message);
}

inline test::LogEntry watchLine(std::uint16_t level, const std::string& function,
                                const std::string& message) {
    return timerLine(level, "watchdog.cpp", function, message);
}

/// A trace point, @p signature within its class.
inline test::LogEntry threadTrace(const std::string& signature) {
    return {tevalon::base::kLogDebug, "[TRACE] timer_thread.cpp:#:" + signature + "\n"};
}

/// The two lines of a traced scope.
inline test::LogEntry traceIn(const std::string& file, const std::string& function) {
    return {tevalon::base::kLogDebug,
            "[TRACE -> " + function + "(IN)] " + file + ":#:" + function + "() \n"};
}
inline test::LogEntry traceOut(const std::string& file, const std::string& function) {
    return {tevalon::base::kLogDebug,
            "[TRACE <- " + function + "(OUT)] " + file + ":#:" + function + "() \n"};
}

/// Those of @p entries that @p function wrote.
inline std::vector<test::LogEntry> linesOf(const std::string& function,
                                           std::vector<test::LogEntry> entries) {
    const std::string mark = ":#:" + function + "(): ";
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const test::LogEntry& entry) {
                                     return entry.text.find(mark) == std::string::npos;
                                 }),
                  entries.end());
    return entries;
}

/// Those of @p entries at @p level.
inline std::vector<test::LogEntry> linesAt(std::uint16_t level,
                                           std::vector<test::LogEntry> entries) {
    entries.erase(std::remove_if(entries.begin(), entries.end(),
                                 [&](const test::LogEntry& entry) { return entry.level != level; }),
                  entries.end());
    return entries;
}

#endif  // TESTS_TIMER_TIMER_FIXTURES_H

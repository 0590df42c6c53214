// task_activity.h: what a timer thread's worker does at this moment.

#ifndef SRC_TIMER_THREAD_TASK_ACTIVITY_H
#define SRC_TIMER_THREAD_TASK_ACTIVITY_H

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "activity/activity.h"
#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

class TaskActivity {
public:
    TaskActivity(const void* /*p_thread*/, void* /*p_state*/) {}

    void beginTask(const TimerTaskBase& /*task*/, double /*now*/) {}
    void endTask() {}
};

#else

/// The task in hand, and since when. Written by the worker alone. Who reads several fields may find
/// some of one task and some of the next: what stays the same for a while is true.
class TaskActivity : public activity::Activity {
public:
    /// @param p_thread  The TimerThread.
    /// @param p_state   Its State, which exists as long as that is not forgotten.
    TaskActivity(const void* p_thread, void* p_state)
        : Activity(activity::Kind::TaskThread, p_thread), m_state(p_state) {}

    /// @param now  In seconds on the monotonic clock; whoever fires tasks knows it.
    void beginTask(const TimerTaskBase& task, double now) {
        m_taskId.store(task.taskId(), std::memory_order_relaxed);
        m_sessionId.store(task.sessionId(), std::memory_order_relaxed);
        std::array<std::uint32_t, 2> halves;
        std::memcpy(halves.data(), &now, sizeof(now));
        m_since[0].store(halves[0], std::memory_order_relaxed);
        m_since[1].store(halves[1], std::memory_order_relaxed);
        m_isBusy.store(true, std::memory_order_relaxed);
    }
    void endTask() { m_isBusy.store(false, std::memory_order_relaxed); }

    void* state() const { return m_state; }
    bool isBusy() const { return m_isBusy.load(std::memory_order_relaxed); }
    std::int32_t taskId() const { return m_taskId.load(std::memory_order_relaxed); }
    std::int32_t sessionId() const { return m_sessionId.load(std::memory_order_relaxed); }
    double since() const {
        const std::array<std::uint32_t, 2> halves = {m_since[0].load(std::memory_order_relaxed),
                                                     m_since[1].load(std::memory_order_relaxed)};
        double since;
        std::memcpy(&since, halves.data(), sizeof(since));
        return since;
    }

private:
    void* const m_state;
    std::atomic<std::int32_t> m_taskId{0};
    std::atomic<std::int32_t> m_sessionId{0};
    // In halves: to write all of it at once takes a loop on the smaller machine.
    std::array<std::atomic<std::uint32_t>, 2> m_since{};
    std::atomic<bool> m_isBusy{false};
    const activity::Listing m_listing{this};
};

#endif

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_ACTIVITY_H

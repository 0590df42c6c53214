// task_slab.h: room for the tasks that a queue holds.

#ifndef SRC_TIMER_THREAD_TASK_SLAB_H
#define SRC_TIMER_THREAD_TASK_SLAB_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

/// Tasks by number: small and trivial where a pointer that owns would have to be moved with care.
/// Room is used again; beyond that for a few tasks it is given back when the last one goes.
///
/// Thread-safety: none.
class TaskSlab {
public:
    using Task = std::shared_ptr<TimerTaskBase>;

    /// The number that the next task gets; makes room for it. May throw, and has then changed
    /// nothing.
    std::uint32_t nextNumber() {
        if (m_free.empty()) grow();
        return m_free.back();
    }

    /// As the number that nextNumber() has just told. Does not throw.
    void put(Task&& task) {
        m_tasks[m_free.back()] = std::move(task);
        m_free.pop_back();
    }

    /// Does not throw.
    Task take(std::uint32_t number) {
        Task task = std::move(m_tasks[number]);
        m_free.push_back(number);
        if (m_free.size() == m_tasks.size() && m_tasks.size() > kKept) clear();
        return task;
    }

    const Task& operator[](std::uint32_t number) const { return m_tasks[number]; }

private:
    static constexpr std::size_t kKept = 64;

    // All room first, and for all numbers to be free one day: nothing after it allocates.
    void grow() {
        if (m_tasks.size() == m_tasks.capacity()) m_tasks.reserve(2 * m_tasks.size() + 1);
        m_free.reserve(m_tasks.capacity());
        m_tasks.emplace_back();
        m_free.push_back(static_cast<std::uint32_t>(m_tasks.size() - 1));
    }

    void clear() {
        std::vector<Task>().swap(m_tasks);
        std::vector<std::uint32_t>().swap(m_free);
    }

    std::vector<Task> m_tasks;
    std::vector<std::uint32_t> m_free;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_SLAB_H

// task_slab.h: a slab of tasks, addressed by small indices.

#ifndef SRC_TIMER_THREAD_TASK_SLAB_H
#define SRC_TIMER_THREAD_TASK_SLAB_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

/// A slab of tasks. The queue stores 4-byte indices, so that its entries are trivially movable.
/// Free slots are reused, last in, first out; the memory of all but a few is returned when the slab
/// becomes empty.
///
/// Thread-safety: none.
class TaskSlab {
public:
    using Task = std::shared_ptr<TimerTaskBase>;

    /// The slot that the next put() uses; reserves it. Throws std::bad_alloc, and has then changed
    /// nothing.
    std::uint32_t reserveSlot() {
        if (m_free.empty()) grow();
        return m_free.back();
    }

    /// Stores @p task in the slot that reserveSlot() has just returned. Does not throw.
    void put(Task&& task) {
        m_tasks[m_free.back()] = std::move(task);
        m_free.pop_back();
    }

    /// Does not throw.
    Task take(std::uint32_t slot) {
        Task task = std::move(m_tasks[slot]);
        m_free.push_back(slot);
        if (m_free.size() == m_tasks.size() && m_tasks.size() > kKept) clear();
        return task;
    }

    const Task& operator[](std::uint32_t slot) const { return m_tasks[slot]; }

private:
    static constexpr std::size_t kKept = 64;

    // All slots of a step at once, and room for all on the free list first, so that neither put()
    // nor take() ever allocates. Lower slots are used first.
    void grow() {
        const std::size_t before = m_tasks.size();
        const std::size_t after = 2 * before + 1;
        m_free.reserve(after);
        m_tasks.resize(after);
        for (std::size_t slot = after; slot > before; --slot) {
            m_free.push_back(static_cast<std::uint32_t>(slot - 1));
        }
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

// task_queue.h: the tasks of a timer thread, in the order in which they are due.

#ifndef SRC_TIMER_THREAD_TASK_QUEUE_H
#define SRC_TIMER_THREAD_TASK_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "base/timer/timer_task.h"
#include "timer_thread/task_slab.h"

namespace tevalon::base::timer {

/// A double-ended queue into which a task goes right before the first one, seen from the front,
/// whose fire time is strictly greater, or at the end: exactly where a walk from the front would
/// put it, without the walk.
///
/// Cancelled tasks keep their place with the fire time 0.0, so the fire times alone are not sorted.
/// What is sorted is their prefix maximum, the latest fire time up to each entry: it exceeds a
/// given time for the first time right at the first entry whose own time does, so a binary search
/// over it finds the place. The entries lie in short blocks, so that an insertion moves few of
/// them, and contiguously within those, so that a scan of all is cheap.
///
/// Thread-safety: none; the owner's lock guards it.
class TaskQueue {
public:
    using Task = TaskSlab::Task;

    TaskQueue() = default;
    ~TaskQueue();

    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    bool empty() const { return m_blocks.empty(); }
    std::size_t size() const { return m_size; }

    /// Places @p task by the fire time that it has now, and returns that. Where it throws
    /// std::bad_alloc, the task stays with the caller, to be destroyed without the owner's lock.
    double insert(Task&& task);

    /// The first task; empty when there is none.
    Task front() const;
    /// The fire time that the first task has now; 0.0 when there is none.
    double frontFireTime() const;
    /// The first task, which is removed; empty when there is none.
    Task popFront();

    /// Calls @p visit with each task, from front to back, and updates the prefix maxima by the fire
    /// times that the visits left. Where a visit throws, the maxima behind it stay as they were.
    template <typename Visit>
    void forEach(Visit visit) {
        forEachWhere([](const Entry&) { return true; }, visit);
    }

    /// The same with the tasks of one session, the others untouched.
    template <typename Visit>
    void forEachOfSession(std::int32_t sessionId, Visit visit) {
        forEachWhere([=](const Entry& entry) { return entry.sessionId == sessionId; }, visit);
    }

private:
    struct Entry {
        double latest;       // Prefix maximum of the fire times; a task's own may change any time.
        std::uint32_t slot;  // The task's, in m_tasks.
        std::int32_t sessionId;
    };

    using Entries = std::vector<Entry>;

    struct Block {
        double latest;    // That of its last entry.
        Entries entries;  // At least one, at most kMaxEntries.
    };
    using Blocks = std::vector<Block>;

    static constexpr double kNone = -std::numeric_limits<double>::infinity();
    static constexpr std::size_t kMaxEntries = 64;

    void append(Entry entry);
    Blocks::iterator split(Blocks::iterator block);
    void updatePrefixMaxima();
    bool updatePrefixMaximum(Entry* p_entry, double latestBefore) const;

    template <typename IsWanted, typename Visit>
    void forEachWhere(IsWanted isWanted, Visit& visit) {
        double latest = kNone;
        bool hasChanged = false;
        for (Block& block : m_blocks) {
            for (Entry& entry : block.entries) {
                const bool isVisited = isWanted(entry);
                if (isVisited) visit(*m_tasks[entry.slot]);
                if (isVisited || hasChanged) hasChanged = updatePrefixMaximum(&entry, latest);
                latest = entry.latest;
            }
            block.latest = latest;
        }
    }

    Blocks m_blocks;
    std::size_t m_size = 0;
    TaskSlab m_tasks;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_QUEUE_H

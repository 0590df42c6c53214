// task_queue.h: tasks in the order in which they are due.

#ifndef SRC_TIMER_THREAD_TASK_QUEUE_H
#define SRC_TIMER_THREAD_TASK_QUEUE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/timer/timer_task.h"
#include "timer_thread/task_slab.h"

namespace tevalon::base::timer {

/// Not set yet; once queued, cancelled.
inline constexpr double kNoFireTime = 0.0;

/// A double-ended queue into which a task goes right before the first one, seen from the front,
/// whose fire time is strictly greater, or at the end: exactly where a walk from the front would
/// put it, without the walk.
///
/// Tasks with a positive time are sorted by it. Whatever else is queued, above all cancelled tasks,
/// whose time is 0.0, keeps its place behind one of those, in a list that hangs on it, or in front
/// of all of them: a walk passes over it, so a task with a positive time goes behind the whole list
/// or before what it hangs on. Only a negative time may have to go into the list at the front.
///
/// The sorted tasks lie in short blocks, so that an insertion moves few of them, with their times
/// contiguous, for the search. A task that is cancelled is found by its session, and its entry by
/// the block that its slot names.
///
/// Its owner takes out what is left before it goes, for a task's destructor may use it.
///
/// Thread-safety: none; the owner's lock guards it.
class TaskQueue {
public:
    using Task = TaskSlab::Task;

    TaskQueue() = default;
    ~TaskQueue() = default;

    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    bool empty() const { return m_size == 0; }
    std::size_t size() const { return m_size; }

    /// Places @p task by the fire time that it has now. Where it throws std::bad_alloc, the task
    /// stays with the caller, to be destroyed without the owner's lock.
    void insert(Task&& task);

    /// The first task; null when there is none.
    const TimerTaskBase* front() const { return empty() ? nullptr : m_first; }
    /// The fire time that the first task has now; 0.0 when there is none.
    double frontFireTime() const { return empty() ? kNoFireTime : timeOf(*m_first); }
    /// The first task, which is removed; empty when there is none.
    Task popFront();

    /// Calls @p cancel with each task of the session, from front to back; it sets the fire time to
    /// 0.0. Where it throws, it has done so.
    template <typename Cancel>
    void cancelSession(std::int32_t session, Cancel& cancel) {
        const Index index = m_tasks.first(session);
        if (index == kNone) return;
        if (m_tasks.next(index) == kNone) {
            unsort(index);
            cancel(*m_tasks[index].task);
        } else {  // A task that is queued several times.
            cancelWhere(&TimerTaskBase::sessionId, session, cancel);
        }
    }

    /// The same for each task whose @p id is this one.
    template <typename Cancel>
    void cancelWhere(std::int32_t (TimerTaskBase::*id)() const, std::int32_t value,
                     Cancel& cancel) {
        UnsortOnExit unsortOnExit(this);
        forEach([&](TimerTaskBase& task) {
            if ((task.*id)() != value) return;
            unsortOnExit.arm();
            cancel(task);
        });
    }

    /// Calls @p visit with each task, from front to back.
    template <typename Visit>
    void forEach(Visit visit) const {
        forEachInList(m_front, visit);
        for (const Sorted& sorted : m_order) {
            const Block& block = *m_blocks[sorted.block];
            for (std::size_t i = block.begin; i < block.end; ++i) {
                visit(*m_tasks[block.tasks[i]].task);
                forEachInList(m_tasks[block.tasks[i]].link, visit);
            }
        }
    }

private:
    using Index = TaskSlab::Index;
    static constexpr Index kNone = TaskSlab::kNone;
    static constexpr std::size_t kMaxEntries = 64;

    /// Entries [begin, end), by time.
    struct Block {
        std::size_t entryFor(double fireTime) const;

        std::uint16_t begin;
        std::uint16_t end;
        Index nextFree = kNone;
        std::array<double, kMaxEntries> times;
        std::array<Index, kMaxEntries> tasks;
    };

    struct Sorted {
        double latest;  // No time in the block is greater, and none in the next block is smaller.
        Index block;
    };

    // Also where a cancellation throws.
    class UnsortOnExit {
    public:
        explicit UnsortOnExit(TaskQueue* p_queue) : m_queue(*p_queue) {}
        ~UnsortOnExit() {
            if (m_isArmed) m_queue.unsortCancelled();
        }
        UnsortOnExit(const UnsortOnExit&) = delete;
        UnsortOnExit& operator=(const UnsortOnExit&) = delete;

        void arm() { m_isArmed = true; }

    private:
        TaskQueue& m_queue;
        bool m_isArmed = false;
    };

    // As TimerTaskBase's own, without a call.
    static double timeOf(const TimerTaskBase& task) {
        return task.m_nextFireTime.load(std::memory_order_relaxed);
    }

    // Lists are circular, linked through the slots, and known by their last: its link is the first.
    // That of a sorted task is its slot's link.
    void append(Index* p_list, Index index);
    void concatenate(Index* p_list, Index list);
    Index removeFirst(Index* p_list);
    template <typename Visit>
    void forEachInList(Index list, Visit& visit) const {
        if (list == kNone) return;
        Index index = list;
        do {
            index = m_tasks[index].link;
            visit(*m_tasks[index].task);
        } while (index != list);
    }

    void findFirst();
    void insertUnsorted(Index index, double fireTime);
    Index* lastList();
    std::size_t positionFor(double fireTime) const;
    Index blockFor(double fireTime);
    Index lastBlock(double latest);
    void makeRoom(std::size_t position);
    Index newBlock(std::size_t position, double latest);
    void freeBlock(Index index);
    std::size_t positionOf(Index block, double time) const;
    void unsort(Index index);
    void unsortCancelled();

    std::vector<Sorted> m_order;                   // The blocks in use, by time; none is empty.
    std::vector<std::unique_ptr<Block>> m_blocks;  // All, by number.
    Index m_freeBlock = kNone;
    Index m_front = kNone;  // The list before all that is sorted.
    std::size_t m_size = 0;
    const TimerTaskBase* m_first = nullptr;  // Where there is any: each post looks at its time.
    TaskSlab m_tasks;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_QUEUE_H

// task_queue.h: the tasks of a timer thread, in the order in which they are due.

#ifndef SRC_TIMER_TASK_QUEUE_H
#define SRC_TIMER_TASK_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "base/timer/timer_task.h"
#include "timer/task_store.h"

namespace tevalon::base::timer {

/// A double-ended queue into which a task goes right before the first one, seen from the
/// front, whose fire time is strictly greater, or at the end: exactly where a walk from the
/// front would put it, without the walk.
///
/// Cancelled tasks stay where they are with the fire time 0.0, so the times alone are not
/// sorted. What is sorted, and serves as well, is the latest time up to each place: it becomes
/// greater than a given one right where the first greater time stands. The places lie in short
/// blocks, so that making room moves little, and side by side in memory, so that looking
/// through all of them is cheap.
///
/// Thread-safety: none; the owner's lock guards it.
class TaskQueue {
public:
    using Task = TaskStore::Task;

    TaskQueue() = default;
    ~TaskQueue();

    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    bool empty() const { return m_blocks.empty(); }
    std::size_t size() const { return m_size; }

    /// Places @p task by the fire time that it has now, and returns that. Where it throws, the task
    /// stays with the caller, to be destroyed without the owner's lock.
    double insert(Task&& task);

    /// The first task; empty when there is none.
    Task front() const;
    /// The fire time that the first task has now; 0.0 when there is none.
    double frontFireTime() const;
    /// The first task, which is removed; empty when there is none.
    Task popFront();

    /// Calls @p visit with each task, from front to back, and then goes by the fire time that
    /// the visit left it with. Where a visit throws, places behind it go by what was before.
    template <typename Visit>
    void forEach(Visit visit) {
        forEachWhere([](const Place&) { return true; }, visit);
    }

    /// The same with the tasks of one session, the others untouched.
    template <typename Visit>
    void forEachOfSession(std::int32_t sessionId, Visit visit) {
        forEachWhere([=](const Place& place) { return place.sessionId == sessionId; }, visit);
    }

private:
    struct Place {
        double latest;         // Of the fire times up to here; the task's own may be set any time.
        std::uint32_t number;  // The task's, in m_tasks.
        std::int32_t sessionId;
    };

    using Places = std::vector<Place>;

    struct Block {
        double latest;  // That of its last place.
        Places places;  // One at least, kMostPlaces at most.
    };
    using Blocks = std::vector<Block>;

    static constexpr double kNone = -std::numeric_limits<double>::infinity();
    static constexpr std::size_t kMostPlaces = 64;

    void append(Place place);
    Blocks::iterator halve(Blocks::iterator block);
    void followFromFront();
    bool follow(Place* p_place, double latestBefore) const;

    template <typename IsWanted, typename Visit>
    void forEachWhere(IsWanted isWanted, Visit& visit) {
        double latest = kNone;
        bool hasChanged = false;
        for (Block& block : m_blocks) {
            for (Place& place : block.places) {
                const bool isVisited = isWanted(place);
                if (isVisited) visit(*m_tasks[place.number]);
                if (isVisited || hasChanged) hasChanged = follow(&place, latest);
                latest = place.latest;
            }
            block.latest = latest;
        }
    }

    Blocks m_blocks;
    std::size_t m_size = 0;
    TaskStore m_tasks;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_TASK_QUEUE_H

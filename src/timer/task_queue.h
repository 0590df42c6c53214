// task_queue.h: the tasks of a timer thread, in the order in which they are due.

#ifndef SRC_TIMER_TASK_QUEUE_H
#define SRC_TIMER_TASK_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

/// A double-ended queue into which a task goes right before the first one, seen from the
/// front, whose fire time is strictly greater, or at the end: exactly where a walk from the
/// front would put it, without the walk.
///
/// Cancelled tasks stay where they are with the fire time 0.0, so the times alone are not
/// sorted. The tasks are kept in a balanced tree, in order of their places, in which each node
/// knows the greatest time below it; that finds the first greater time in logarithmic steps.
/// (A treap: Seidel, Aragon, "Randomized Search Trees", 1996.)
///
/// Thread-safety: none; the owner's lock guards it.
class TaskQueue {
public:
    using Task = std::shared_ptr<TimerTaskBase>;

    TaskQueue() = default;
    ~TaskQueue();

    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    bool empty() const { return m_root == nullptr; }
    std::size_t size() const { return m_size; }

    /// Places @p task by the fire time that it has now, and returns that.
    double insert(Task task);

    /// The first task; empty when there is none.
    Task front() const;
    /// The fire time that the first task has now; 0.0 when there is none.
    double frontFireTime() const;
    /// The first task, which is removed; empty when there is none.
    Task popFront();

    /// Calls @p visit with each task, from front to back, and then goes by the fire time that
    /// the visit left it with.
    template <typename Visit>
    void forEach(Visit visit) {
        forEachBelow(m_root, visit);
    }

private:
    struct Node {
        Task task;
        double fireTime;  // By which the task is placed; the task's own may be set any time.
        double greatest;  // Of this node and all below it.
        Node* p_left = nullptr;
        Node* p_right = nullptr;
        std::uint32_t priority = 0;
    };

    static double comparable(double fireTime);
    static void update(Node* p_node);
    static bool isInFront(const Node* p_node, double fireTime);
    static void split(Node* p_node, double fireTime, Node** pp_front, Node** pp_back);
    static Node* withoutFirst(Node* p_node);

    template <typename Visit>
    static void forEachBelow(Node* p_node, Visit& visit) {
        if (p_node == nullptr) return;
        forEachBelow(p_node->p_left, visit);
        visit(*p_node->task);
        p_node->fireTime = comparable(p_node->task->getNextFireTime());
        forEachBelow(p_node->p_right, visit);
        update(p_node);
    }

    std::uint32_t nextPriority();

    Node* m_root = nullptr;
    Node* m_first = nullptr;  // The leftmost.
    std::size_t m_size = 0;
    std::uint32_t m_random = 0x9E3779B9U;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_TASK_QUEUE_H

// task_handle.h: cancels a callable that was posted to a timer thread.

#ifndef BASE_TIMER_TASK_HANDLE_H
#define BASE_TIMER_TASK_HANDLE_H

#include <memory>
#include <utility>

#include "base/timer/internal/posted_task.h"

namespace tevalon::base::timer {

/// What TimerThread::post() and TimerThreadPool::post() return.
///
///     TaskHandle timeout = thread.post([this] { giveUp(); }, 5s);
///     ...
///     if (timeout.cancel()) ...   // giveUp() is never called.
///
/// Copies stand for the same work. A handle may be dropped, which cancels nothing, and may outlive
/// the thread or pool: it does not keep the work alive.
///
/// Thread-safety: any thread may cancel, the work itself too; an object that two threads use at
/// once needs a lock, or a copy for each.
class TaskHandle {
public:
    /// Of no work: cancel() returns false.
    TaskHandle() = default;

    /// True where this call has kept the work from being done: it never is, and is destroyed, on
    /// the calling thread, before cancel() returns. False where it is done or being done already,
    /// where it was cancelled before, or where the queue has dropped it. Does not wait for work
    /// that is being done, and takes no lock.
    ///
    /// The queue keeps an empty entry until the work would have been due; it counts as queued.
    bool cancel() {
        const std::shared_ptr<TimerTaskBase> task = m_task.lock();
        return task != nullptr && static_cast<internal::CancellableTask&>(*task).cancel();
    }

private:
    friend class TimerThread;
    friend class TimerThreadPool;

    explicit TaskHandle(const std::shared_ptr<internal::CancellableTask>& task) : m_task(task) {}

    // Weak: what the queue drops, with its thread say, is destroyed then. Of the base, for a member
    // of a hidden type would have compilers warn of each class that has a handle.
    std::weak_ptr<TimerTaskBase> m_task;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_TASK_HANDLE_H

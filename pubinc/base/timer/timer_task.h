// timer_task.h: the unit of work of the timer threads.

#ifndef BASE_TIMER_TIMER_TASK_H
#define BASE_TIMER_TIMER_TASK_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>

#include "base/export.h"

namespace tevalon::base::timer {

/// Work that is to be done at a time. Always held by std::shared_ptr<TimerTaskBase>: the queue
/// and the caller may both keep it.
///
/// Lifecycle: constructed; given a time; posted to a TimerThread, which fires it once. It may
/// be posted again then, from fire() too.
///
/// Thread-safety: any thread may call any method. To give a new time to a task that is queued does
/// not move it, and tasks that come later may be placed by either time; post it again instead.
class TEVALON_BASE_EXPORT TimerTaskBase {
public:
    /// Fire time 0.0, task id 0, and the next session id of the process: 1 for the first task.
    TimerTaskBase();
    virtual ~TimerTaskBase();

    TimerTaskBase(const TimerTaskBase&) = delete;
    TimerTaskBase& operator=(const TimerTaskBase&) = delete;

    /// The work. Runs on the timer thread with no lock held; must not throw.
    virtual void fire() = 0;

    /// @param fireTime  Seconds on the monotonic clock. 0.0 is no time: before posting it means
    ///                  as soon as possible, on a queued task that it is cancelled.
    void setNextFireTime(double fireTime);
    /// The fire time, in the same seconds; 0.0 when there is none.
    double getNextFireTime() const;

    std::int32_t sessionId() const;  ///< Tells this task from every other one.
    std::int32_t taskId() const;     ///< What kind of task it is, if a derived class says so.

protected:
    /// To be called before the task is posted.
    void setTaskId(std::int32_t taskId);

private:
    friend class TaskQueue;

    std::atomic<double> m_nextFireTime;
    const std::int32_t m_sessionId;
    std::atomic<std::int32_t> m_taskId;
};

/// A task that calls what it was given.
///
///     thread.postTask(std::make_shared<CallableTimerTask>([] { ... }), 250);
class TEVALON_BASE_EXPORT CallableTimerTask : public TimerTaskBase {
public:
    /// @param work    Called by every fire(); must not be empty, nor throw.
    /// @param taskId  See taskId().
    explicit CallableTimerTask(std::function<void()> work, std::int32_t taskId = 0);
    ~CallableTimerTask() override;

    void fire() override;

private:
    const std::function<void()> m_work;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_TIMER_TASK_H

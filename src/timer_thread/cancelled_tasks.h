// cancelled_tasks.h: what a cancellation has to say, gathered under the lock, logged after it.

#ifndef SRC_TIMER_THREAD_CANCELLED_TASKS_H
#define SRC_TIMER_THREAD_CANCELLED_TASKS_H

#include <cstdint>
#include <vector>

#include "base/logging/log_level.h"
#include "base/timer/timer_task.h"
#include "os/monotonic_time.h"
#include "record/record.h"
#include "timer_thread/task_queue.h"

namespace tevalon::base::timer {

struct CancelledTask {
    std::int32_t sessionId;
    std::int32_t taskId;
    double fireTime;
    double secondsLeft;
};

/// Cancels tasks and keeps what there is to say of each, for when the lock is released.
///
/// Thread-safety: none.
class CancelledTasks {
public:
    void operator()(TimerTaskBase& task) {
        const double fireTime = task.getNextFireTime();
        task.setNextFireTime(kNoFireTime);
        ++m_count;
        if (record::isOn()) record::taskCancelled(&task, task.taskId(), task.sessionId());
        if (!m_isLogged) return;
        m_toLog.push_back(
            {task.sessionId(), task.taskId(), fireTime, fireTime - monotonicSeconds()});
    }

    int count() const { return m_count; }
    /// The cancelled tasks; empty while the debug level is off.
    const std::vector<CancelledTask>& toLog() const { return m_toLog; }

private:
    const bool m_isLogged = isLogOn(kLogDebug);
    int m_count = 0;
    std::vector<CancelledTask> m_toLog;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_CANCELLED_TASKS_H

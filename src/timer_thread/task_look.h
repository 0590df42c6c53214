// task_look.h: what can be seen of a timer thread at one moment.

#ifndef SRC_TIMER_THREAD_TASK_LOOK_H
#define SRC_TIMER_THREAD_TASK_LOOK_H

#include <array>
#include <cstdint>

#include "activity/activity.h"

namespace tevalon::base::timer {

struct TaskThreadLook {
    const void* p_thread;  ///< The TimerThread. Compared alone.
    std::array<char, 16> name;
    std::int32_t threadId;  ///< The worker's kernel id.

    bool isQueueSeen;       ///< Else the queue was locked all the time.
    std::uint32_t queued;   ///< Tasks.
    double firstDueIn;      ///< Seconds, negative where it is overdue. Where there is a task,
    bool isFirstCancelled;  ///< and this tells whether it is dropped instead.

    bool isBusy;  ///< A task runs; the following are of it.
    std::int32_t taskId;
    std::int32_t sessionId;
    double since;  ///< Seconds on the monotonic clock.

    std::int32_t holder;  ///< Of the queue's lock: a kernel id, 0 where it is free.
};

class TaskThreadLooker {
public:
    /// Of the timer thread whose worker @p activity is, with the list of activities locked; false
    /// where that is gone. Waits until @p untilNs on the monotonic clock at most.
    static bool look(const activity::Activity& activity, std::uint64_t untilNs,
                     TaskThreadLook* p_look);
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_LOOK_H

#include "timer_thread/task_look.h"

#include <cstdio>

#include "locks/patient_lock.h"
#include "os/monotonic_time.h"
#include "timer_thread/state.h"

namespace tevalon::base::timer {

bool TaskThreadLooker::look(const activity::Activity& activity, std::uint64_t untilNs,
                            TaskThreadLook* p_look) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    if (activity.object() == nullptr) return false;
    const auto& worker = static_cast<const TaskActivity&>(activity);
    auto& state = *static_cast<TimerThread::State*>(worker.state());
    *p_look = {};
    p_look->p_thread = activity.object();
    (void)std::snprintf(p_look->name.data(), p_look->name.size(), "%s", state.m_name);
    p_look->threadId = worker.threadId();
    p_look->isBusy = worker.isBusy();
    p_look->taskId = worker.taskId();
    p_look->sessionId = worker.sessionId();
    p_look->since = worker.since();
    p_look->holder = state.m_queueMutex.holder();
    const PatientLock lock(state.m_queueMutex.native().native_handle(), untilNs);
    p_look->isQueueSeen = lock.isLocked();
    if (!lock.isLocked()) return true;
    p_look->queued = static_cast<std::uint32_t>(state.m_taskQueue.size());
    const double fireTime = state.m_taskQueue.frontFireTime();
    p_look->isFirstCancelled = p_look->queued > 0 && fireTime == kNoFireTime;
    p_look->firstDueIn = fireTime - monotonicSeconds();
    return true;
}

}  // namespace tevalon::base::timer

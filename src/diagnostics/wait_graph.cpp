#include "diagnostics/wait_graph.h"

#include <tuple>

namespace tevalon::base::diagnostics {
namespace {

/// The thread of the first for which @p isRight holds.
template <typename Look, typename Predicate>
std::int32_t findThread(const Pages<Look>& looks, Predicate isRight) {
    const Look* const p_found = findIn(looks, isRight);
    return p_found != nullptr ? p_found->threadId : 0;
}

}  // namespace

std::int32_t WaitGraph::threadAwaitedBy(const WaitLook& wait) const {
    const auto& [hubs, tasks] = std::tie(m_snapshot.hubs, m_snapshot.taskThreads);
    const void* const p_object = wait.p_object;
    if (wait.kind == activity::Kind::SyncSend) {
        const std::int32_t handler = findThread(
            hubs, [=](const HubLook& hub) { return hub.isBusy && hub.p_event == p_object; });
        if (handler != 0) return handler;
        return findThread(hubs, [&](const HubLook& hub) {
            return hub.module == wait.target && hub.threadId != 0;
        });
    }
    std::int32_t thread =
        findThread(hubs, [=](const HubLook& hub) { return hub.p_hub == p_object; });
    if (thread != 0) return thread;
    thread =
        findThread(tasks, [=](const TaskThreadLook& task) { return task.p_thread == p_object; });
    if (thread != 0) return thread;
    thread = findThread(m_snapshot.watchDogs, [=](const WatchDogThreadLook& watchDog) {
        return watchDog.p_watchDog == p_object;
    });
    if (thread != 0) return thread;
    return findThread(m_snapshot.runs, [&](const RunLook& run) {
        return run.p_timer == p_object && run.threadId != wait.threadId;
    });
}

// The list has the youngest first, and what a thread does last is what it is blocked in.
const WaitLook* WaitGraph::waitOf(std::int32_t threadId) const {
    return findIn(m_snapshot.waits,
                  [=](const WaitLook& wait) { return wait.threadId == threadId; });
}

std::int32_t WaitGraph::next(std::int32_t threadId) const {
    const WaitLook* const p_wait = waitOf(threadId);
    return p_wait != nullptr ? threadAwaitedBy(*p_wait) : 0;
}

bool WaitGraph::isAwaited(std::int32_t threadId) const {
    return nullptr != findIn(m_snapshot.waits, [=](const WaitLook& wait) {
               return threadAwaitedBy(wait) == threadId;
           });
}

bool WaitGraph::isInCircle(std::int32_t threadId) const {
    std::int32_t thread = next(threadId);
    // A way into a circle that this thread is not on never ends.
    for (std::size_t steps = 0; steps < m_snapshot.waits.size() && thread != 0; ++steps) {
        if (thread == threadId) return true;
        thread = next(thread);
    }
    return false;
}

bool WaitGraph::isFirstOfCircle(std::int32_t threadId) const {
    if (!isInCircle(threadId)) return false;
    for (std::int32_t thread = next(threadId); thread != threadId; thread = next(thread)) {
        if (thread < threadId) return false;
    }
    return true;
}

}  // namespace tevalon::base::diagnostics

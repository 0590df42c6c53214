// snapshot.h: what the process's objects and threads are doing at one moment.

#ifndef SRC_DIAGNOSTICS_SNAPSHOT_H
#define SRC_DIAGNOSTICS_SNAPSHOT_H

#include <cstdint>

#include "activity/activity.h"
#include "diagnostics/pages.h"
#include "event_dispatcher/hub_look.h"
#include "timer/timer_look.h"
#include "timer/watch_look.h"
#include "timer_thread/task_look.h"

namespace tevalon::base::diagnostics {

using event_dispatcher::HubLook;
using simple_timer::RunLook;
using simple_timer::TimerLook;
using timer::TaskThreadLook;
using timer::WatchLook;

/// A thread that waits: for a reply, or for the threads that serve an object.
struct WaitLook {
    activity::Kind kind;
    std::int32_t threadId;
    const void* p_object;  ///< The event or the object. Compared alone.

    // Of an event.
    std::int32_t type;
    std::int32_t source;
    std::int32_t target;     ///< kAnyModule where that is not known, as
    std::int32_t handledBy;  ///< the module whose handler began last.
    std::int32_t timeoutMs;  ///< -1: without limit.
    double since;            ///< Seconds on the monotonic clock.
};

struct WatchDogThreadLook {
    const void* p_watchDog;
    std::int32_t threadId;
    timer::WatchDogLook lock;
};

/// Thread-safety: none.
struct Snapshot {
    std::uint32_t nowMs = 0;     ///< See monotonicMilliseconds().
    double nowSeconds = 0;       ///< On the monotonic clock.
    bool isComplete = true;      ///< Else memory ran out.
    bool areThreadsSeen = true;  ///< Else the list of what threads do was locked all the time.
    event_dispatcher::DispatcherLook dispatcher = {};
    simple_timer::SchedulerLook scheduler = {};
    Pages<HubLook> hubs;  ///< The registered ones in their order, then others with a thread.
    Pages<TaskThreadLook> taskThreads;
    Pages<RunLook> runs;
    Pages<TimerLook> timers;  ///< In no order.
    Pages<WatchDogThreadLook> watchDogs;
    Pages<WatchLook> watches;
    Pages<WaitLook> waits;

    /// Takes all in, into an empty one. Waits for locks until @p untilNs on the monotonic clock at
    /// most, in all.
    void take(std::uint64_t untilNs);
};

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_SNAPSHOT_H

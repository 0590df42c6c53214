// timer_look.h: what can be seen of the simple timers at one moment.

#ifndef SRC_TIMER_TIMER_LOOK_H
#define SRC_TIMER_TIMER_LOOK_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "activity/activity.h"

namespace tevalon::base::simple_timer {

struct TimerLook {
    const void* p_timer;  ///< The TimerImpl. Compared alone.
    std::array<char, 40> name;
    std::int64_t dueInNs;  ///< Negative where it is overdue.
    std::int64_t timeoutNs;
    bool isPeriodic;
    bool areRunsSeen;  ///< Else the timer's lock was taken all the time.
    unsigned runs;     ///< Of its handler, that go on.
    std::int32_t holder;
};

/// What takes one look after the other.
class TimerVisitor {
public:
    virtual void visit(const TimerLook& look) = 0;

protected:
    ~TimerVisitor() = default;
};

struct SchedulerLook {
    bool isSeen;          ///< Else its lock was taken all the time.
    std::int32_t holder;  ///< Of that lock; 0 where it is free.
};

/// The started timers, in no order. Waits until @p untilNs on the monotonic clock at most.
SchedulerLook lookAtTimers(std::uint64_t untilNs, TimerVisitor* p_visitor);

struct RunLook {
    const void* p_timer;
    std::array<char, 40> name;
    std::int32_t threadId;  ///< The kernel's.
    std::uint32_t sinceMs;  ///< See monotonicMilliseconds().
};

/// With the list of activities locked; false where the timer is gone.
bool lookAtRun(const activity::Activity& activity, RunLook* p_look);

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_TIMER_LOOK_H

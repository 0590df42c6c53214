// watch_look.h: what can be seen of a watchdog at one moment.

#ifndef SRC_TIMER_WATCH_LOOK_H
#define SRC_TIMER_WATCH_LOOK_H

#include <cstdint>

#include "activity/activity.h"

namespace tevalon::base::timer {

/// A watch that has begun.
struct WatchLook {
    std::int32_t id;
    double allowed;  ///< Seconds.
    double elapsed;  ///< Seconds since it began.
};

/// What takes one look after the other.
class WatchVisitor {
public:
    virtual void visit(const WatchLook& look) = 0;

protected:
    ~WatchVisitor() = default;
};

struct WatchDogLook {
    bool isSeen;          ///< Else its lock was taken all the time.
    std::int32_t holder;  ///< Of that lock; 0 where it is free.
};

class WatchLooker {
public:
    /// The watches of the watchdog that @p activity serves, by id, with the list of activities
    /// locked. Waits until @p untilNs on the monotonic clock at most.
    static WatchDogLook look(const activity::Activity& activity, std::uint64_t untilNs,
                             WatchVisitor* p_visitor);
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_WATCH_LOOK_H

// hub_look.h: what can be seen of the hubs at one moment.

#ifndef SRC_EVENT_DISPATCHER_HUB_LOOK_H
#define SRC_EVENT_DISPATCHER_HUB_LOOK_H

#include <array>
#include <cstdint>

#include "activity/activity.h"

namespace tevalon::base::event_dispatcher {

class EventHubImpl;

/// A hub's locks, in the order in which a HubLook has them.
inline constexpr std::array<const char*, 4> kHubLocks = {"teardown", "thread", "queue", "handlers"};

struct HubLook {
    EventHubImpl* p_hub;  ///< Compared alone.
    std::int32_t module;
    bool isRegistered;
    std::int32_t threadId;  ///< The kernel's; 0 where it has none.

    bool isQueueSeen;       ///< Else the queue was locked all the time.
    std::uint32_t waiting;  ///< Events.

    bool isBusy;  ///< A handler runs; the following are of it.
    const void* p_event;
    std::int32_t type;
    std::int32_t source;
    std::uint32_t readingMs;          ///< When it was known, see coarseMilliseconds(),
    std::uint32_t begunSinceReading;  ///< and how many began between then and this.

    std::array<std::int32_t, kHubLocks.size()> holders;  ///< Kernel ids; 0 where it is free.
};

/// Of the hub that @p activity serves, with the list of activities locked; false where that is
/// gone. Waits for the hub's locks until @p untilNs on the monotonic clock at most.
bool lookAtHubOf(const activity::Activity& activity, std::uint64_t untilNs, HubLook* p_look);

/// What takes one look after the other.
class HubVisitor {
public:
    virtual void visit(const HubLook& look) = 0;

protected:
    ~HubVisitor() = default;
};

struct DispatcherLook {
    bool isSeen;          ///< Else its lock was taken all the time.
    std::int32_t holder;  ///< Of that lock; 0 where it is free.
};

class HubsOfProcess {
public:
    /// The registered hubs in order of registration, without what their threads do.
    static DispatcherLook look(std::uint64_t untilNs, HubVisitor* p_visitor);
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_HUB_LOOK_H

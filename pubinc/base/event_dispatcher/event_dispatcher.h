// event_dispatcher.h: the switchboard between the hubs of one process.

#ifndef BASE_EVENT_DISPATCHER_EVENT_DISPATCHER_H
#define BASE_EVENT_DISPATCHER_EVENT_DISPATCHER_H

#include <cstdint>
#include <memory>

#include "base/event_dispatcher/browser_event.h"
#include "base/export.h"

namespace tevalon::base::event_dispatcher {

class EventHub;

/// Delivers each event to the hubs registered for its target. It queues nothing and owns no
/// thread: delivery is a call of receiveEvent() on each hub, on the sender's thread.
///
/// Lifecycle: one per process, made on first use, never destroyed. Hubs are not owned: a hub
/// must be unregistered before it is destroyed.
///
/// In a forked child its list is empty: sends return -1 until hubs are registered there.
///
/// Thread-safety: any thread may call any method. One lock is held for a whole delivery, so
/// deliveries are in one order for all hubs, and unregisterHub() waits for the one in progress.
class TEVALON_BASE_EXPORT EventDispatcher {
public:
    EventDispatcher();
    ~EventDispatcher();

    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;

    /// @{
    /// The process's dispatcher, made on first use. Any thread.
    static EventDispatcher* GetInstance();
    static EventDispatcher* getInstance();
    /// @}

    /// Adds @p p_hub at the end of the list. Returns 0; 1 when this very hub is listed
    /// already; 2 when it is null. Several hubs may share a module id.
    std::int32_t registerHub(EventHub* p_hub);

    /// Removes @p p_hub and stops its thread, waiting for the handler in hand; from one of its own
    /// handlers it does not wait, and the thread ends with that. Returns 0, also when it was not
    /// listed; 2 when it is null.
    std::int32_t unregisterHub(EventHub* p_hub);

    /// Hands @p event to every hub whose module id is @p target, or to every hub at all for
    /// kAnyModule, in order of registration. Returns what the last of them answered (0 queued,
    /// -1 no handler for it, kEventQueueFull); -1 when there was none; 2 when @p event is null.
    std::int32_t send(std::shared_ptr<BrowserEvent> event, std::int32_t target);

private:
    friend class EventHub;
    friend class HubsOfProcess;
    class HubList;

    /// send(), which leaves an event that is not queued to the caller.
    TEVALON_BASE_LOCAL std::int32_t deliver(std::shared_ptr<BrowserEvent>&& event,
                                            std::int32_t target);
    TEVALON_BASE_LOCAL std::int32_t deliverRecorded(std::shared_ptr<BrowserEvent>&& event,
                                                    std::int32_t target);

    const std::unique_ptr<HubList> m_hubs;
};

/// EventDispatcher::registerHub() of the process's dispatcher.
TEVALON_BASE_EXPORT std::int32_t evtdispch_register_hub(EventHub* p_hub);
/// EventDispatcher::unregisterHub() of the process's dispatcher.
TEVALON_BASE_EXPORT std::int32_t evtdispch_unregister_hub(EventHub* p_hub);
/// EventDispatcher::send() of the process's dispatcher.
TEVALON_BASE_EXPORT std::int32_t evtdispch_send_event(std::shared_ptr<BrowserEvent> event,
                                                      std::int32_t target);

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_EVENT_DISPATCHER_H

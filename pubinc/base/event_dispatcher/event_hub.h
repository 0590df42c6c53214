// event_hub.h: a module's mailbox, and the thread that empties it.

#ifndef BASE_EVENT_DISPATCHER_EVENT_HUB_H
#define BASE_EVENT_DISPATCHER_EVENT_HUB_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "base/event_dispatcher/browser_event.h"
#include "base/export.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::event_dispatcher {

class EventHubImpl;

/// What a send returns where the hub has as many events waiting as it may; see setQueueLimit().
inline constexpr std::int32_t kEventQueueFull = 3;

/// One module's end of the event traffic: it makes and sends the module's events, and runs the
/// module's handlers, one at a time and in order of arrival, on a thread of its own.
///
///     EventHub hub(kMyModule);
///     hub.registerHandler(kKeyPressed, [](std::shared_ptr<BrowserEvent> event) {
///         event->replyResult(0);
///     });
///     evtdispch_register_hub(&hub);
///     ...
///     evtdispch_unregister_hub(&hub);
///
/// Lifecycle: construct, register handlers (the first starts the thread), register the hub
/// with the dispatcher; unregister it, which stops the thread, before it is destroyed. Events
/// that still wait then are destroyed with the hub, unhandled, unless a later registerHandler()
/// starts a new thread: a hub that is unregistered and registered again queues what it is sent,
/// and handles nothing, until a handler is registered.
///
/// Thread-safety: any thread may call any method but the destructor. Handlers run without a
/// lock held and may send, also synchronously to other hubs, and register further handlers. A
/// handler must not send synchronously to its own hub, or throw.
///
/// A handler may unregister or destroy its own hub, or call exit(): whatever would wait for that
/// handler does not. The thread ends when the handler returns, unless one is registered meanwhile,
/// which keeps it running; never do two threads run handlers of one hub at once. A handler that
/// ends its thread (pthread_exit(), cancellation) leaves the hub without one: events are queued,
/// and the next registerHandler() starts a new thread, which handles them.
///
/// In a forked child a hub is not registered with the dispatcher, has its handlers, and none of the
/// parent's events. Its thread starts there when it is registered, or gets a handler or an event.
///
/// A hub whose implementation could not be allocated says so in an error line at each use and
/// answers -1.
class TEVALON_BASE_EXPORT EventHub {
public:
    /// Called on the hub's thread with the event, which it may keep.
    using Handler = std::function<void(std::shared_ptr<BrowserEvent>)>;
    /// What sendAsync() calls: with the reply, and the event that was sent.
    using ReplyCallback = std::function<void(EventResult, const std::shared_ptr<BrowserEvent>&)>;

    /// Starts no thread.
    explicit EventHub(std::int32_t moduleId);
    /// Stops the thread after the handler in hand, then destroys the handlers, then the events that
    /// were not handled. Does not unregister the hub.
    ~EventHub();

    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;

    /// As given at construction.
    std::int32_t moduleId() const;

    /// Registers @p handler for events of @p eventType from any module. Returns 0; 1 when a
    /// registered handler takes these events already; 2 when @p handler is empty; -1 without
    /// an implementation. Handlers are never removed. If the thread cannot be created the
    /// handler is registered all the same, and the next registration tries again.
    std::int32_t registerHandler(std::int32_t eventType, Handler handler);

    /// The same for events from @p srcModule only. A handler for any module that was
    /// registered before takes them already; one registered later takes the rest.
    std::int32_t registerHandler(std::int32_t srcModule, std::int32_t eventType, Handler handler);

    /// Returns a new event from this module, without payload.
    std::shared_ptr<BrowserEvent> createEvent(std::int32_t eventType) const;

    /// Sends without waiting. Returns what evtdispch_send_event() returns.
    /// While many events come from senders on the handler thread's own processor, it takes them in
    /// batches, each some 50 to 100 us after its first.
    std::int32_t sendEvent(std::shared_ptr<BrowserEvent> event, std::int32_t target);

    /// Sends and blocks until a handler replies. Returns the reply; 1 when none came in
    /// time; -1 when the event could not be sent or armed.
    ///
    /// @param event    Null is reported, and answered by -1.
    /// @param target   The receiving module's id, or kAnyModule.
    /// @param timeout  In milliseconds; -1 waits without limit.
    std::int32_t sendEventSync(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                               std::int32_t timeout);

    /// The same for at most @p timeout, whose negative values have passed already; see
    /// toTimeoutMs(). (By a name of its own: it leaves sendEventSync() without an overload.)
    template <typename Rep, typename Period>
    std::int32_t sendEventSyncFor(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                                  std::chrono::duration<Rep, Period> timeout) {
        return sendEventSync(std::move(event), target, toTimeoutMs(timeout));
    }

    /// Sends, and has this hub's thread call @p callback with the event and the reply. Returns what
    /// the send has: 0 and the callback is called exactly once, never from in here; else never (-1
    /// when the event could not be sent or armed, or there is no thread; kEventQueueFull; 2 when
    /// @p event is null or @p callback empty).
    ///
    /// @param event     Not sent before.
    /// @param target    As for sendEvent().
    /// @param timeout   In milliseconds; -1 waits without limit. kEventResultTimeout is the reply
    ///                  when it has passed.
    /// @param callback  Must not throw. Destroyed after its call.
    ///
    /// kEventResultNone is the reply once nobody is left who could give one: all receivers have let
    /// go of the event. So it is where the hub's end comes first: what is still out when the hub is
    /// unregistered is called by its thread before that ends, and what is sent later, or finds no
    /// thread, by ~EventHub(). Who exits without destroying the hub gets no call.
    ///
    /// Starts the hub's thread, like a handler's registration, if it has none; a handler that has
    /// unregistered its own hub is refused. Callbacks take turns with handlers, those of one moment
    /// in order of sending, and may do what handlers may. The event must not be sent again before
    /// the callback, nor waited for. In a forked child the parent's are never called.
    std::int32_t sendAsync(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                           std::int32_t timeout, ReplyCallback callback);

    /// The same for at most @p timeout, as sendEventSyncFor().
    template <typename Rep, typename Period>
    std::int32_t sendAsync(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                           std::chrono::duration<Rep, Period> timeout, ReplyCallback callback) {
        return sendAsync(std::move(event), target, toTimeoutMs(timeout), std::move(callback));
    }

    /// From now on an event that finds @p events waiting here is refused: its send returns
    /// kEventQueueFull (a sendEventSync() -1, with its error line), or what the last hub has
    /// answered if there are several. What waits already stays. Without a limit at first; 0 takes
    /// it away.
    void setQueueLimit(std::uint32_t events);

    /// The events that wait here, that in its handler not among them. As of some moment: senders
    /// and the thread go on.
    std::uint32_t queueLength() const;

    /// For the dispatcher: queues @p event. Returns 0, -1 when no handler takes it, or
    /// kEventQueueFull. A call from
    /// elsewhere must have returned before the hub is destroyed, even by the handler of this event;
    /// for the dispatcher's own calls, unregistering sees to that.
    std::int32_t receiveEvent(std::shared_ptr<BrowserEvent> event);
    /// For the dispatcher: the hub has joined its list.
    void onHubRegistered();
    /// For the dispatcher: the hub has left its list. Stops the thread and waits for it.
    void onHubUnregistered();

private:
    friend class EventDispatcher;

    /// For whatever may be the hub's first use in a forked child, where the dispatcher lists none.
    TEVALON_BASE_LOCAL void renewInForkedChild();
    /// receiveEvent(), which leaves an event that it does not queue to the caller.
    template <bool kIsRecording>
    TEVALON_BASE_LOCAL std::int32_t receive(std::shared_ptr<BrowserEvent>&& event);

    std::shared_ptr<EventHubImpl> m_impl;  // Null only if it could not be allocated.
    std::int32_t m_moduleId;
};

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_EVENT_HUB_H

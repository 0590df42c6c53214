// event_hub_impl.h: the queue, the handlers and the thread behind an EventHub.

#ifndef SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H
#define SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "base/event_dispatcher/browser_event.h"
#include "event_dispatcher/adaptive_spin.h"
#include "event_dispatcher/event_queue.h"
#include "event_dispatcher/handler_table.h"
#include "event_dispatcher/semaphore.h"
#include "os/own_thread.h"

namespace tevalon::base::event_dispatcher {

/// Thread-safety: any thread may call anything but the destructor; see EventHub.
///
/// Lock order: m_teardownMtx, held over a whole teardown, then m_threadMtx, then m_queueMtx;
/// m_handlerMtx is a leaf. None is held while a handler runs or a line is logged, but for
/// m_teardownMtx, which nothing but a teardown ever takes.
///
/// A handler may unregister or destroy its own hub, and a client may register handlers, and
/// tear down, on other threads meanwhile. At most one thread serves a hub at any time: one that
/// was told to leave either stays (staysForNewHandler()) or has left before the next one starts.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): on purpose, see below.
class EventHubImpl {
public:
    using Handler = std::function<void(std::shared_ptr<BrowserEvent>)>;
    using InnerHandler_t = event_dispatcher::InnerHandler_t;

    /// @param moduleId  Names the handler thread.
    explicit EventHubImpl(std::int32_t moduleId);
    ~EventHubImpl();

    EventHubImpl(const EventHubImpl&) = delete;
    EventHubImpl& operator=(const EventHubImpl&) = delete;

    std::int32_t registerHandler(std::int32_t eventType, Handler handler);
    std::int32_t registerHandler(std::int32_t srcModule, std::int32_t eventType, Handler handler);
    /// The handler of @p key may be empty; it is not looked at.
    bool handlerExists(const InnerHandler_t& key);
    /// Queues @p event and returns 0; leaves it to the caller, and returns -1, when no handler
    /// takes it or it is null.
    std::int32_t receiveEvent(std::shared_ptr<BrowserEvent>&& event);
    /// Ends the handler thread and waits for it; on that very thread, from a handler, it does not
    /// wait: the thread ends when the handler returns.
    void onUnregistered();

    /// The body of the handler thread.
    static void handleEventTask(EventHubImpl* self);

private:
    class Leaving;
    using HandlerThread = OwnThread<EventHubImpl>;

    bool ensureThread();
    bool staysForNewHandler();
    bool addUnlessExists(InnerHandler_t record);
    /// Blocks for the next event; false when the thread is to end.
    bool takeEvent(std::shared_ptr<BrowserEvent>* p_event);
    /// Blocks until events are queued, and takes them all; false when the thread is to end.
    bool takeQueue();
    void lookForEvents();
    void handle(std::shared_ptr<BrowserEvent>&& event);
    void requestExit();
    bool claimJoin();
    void joinThread();
    void letOwnThreadGo();

    // What the senders and the handler thread write keeps off the lines of what they only read:
    // the processors would hand those to and fro as well.
    static constexpr std::size_t kCacheLine = 64;

    std::mutex m_threadMtx;                 // Guards m_thread, m_isJoining and m_isDestroyed.
    std::atomic<bool> m_exit{false};        // Tells the handler thread to leave its loop.
    std::shared_ptr<std::thread> m_thread;  // Null before the first handler and after teardown.
    bool m_isJoining = false;               // A teardown waits for the thread; nobody revives it.
    bool m_isDestroyed = false;             // No thread is started any more.
    // The handler thread has looked at m_exit for the last time, and touches nothing here any
    // more. Guarded by m_queueMtx: a registration may call the thread back until then.
    bool m_hasLeft = false;
    alignas(kCacheLine) std::mutex m_queueMtx;  // Guards m_eventQueue, m_isWaiting, m_hasLeft.
    Semaphore m_queueCv;  // Does a condition variable's work, and wakes the handler thread.
    EventQueue m_eventQueue;
    bool m_isWaiting = false;  // The handler thread waits, and nobody has woken it yet.
    // Whether the handler thread finds something to do, for its look without the lock; it may look
    // in vain. Set when the lock is released, lest the thread runs into it.
    std::atomic<bool> m_hasNews{false};
    alignas(kCacheLine) std::mutex m_handlerMtx;  // One at a time adds to m_handlers.
    HandlerTable m_handlers;
    std::mutex m_teardownMtx;  // One teardown at a time: a thread is joined once.
    const std::int32_t m_moduleId;
    // Taken from the queue: what the handler thread, which alone touches it, does next. What is
    // left when that ends waits for the next one.
    alignas(kCacheLine) EventQueue m_takenEvents;
    AdaptiveSpin m_spin;  // The handler thread's.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H

// event_hub_impl.h: the queue, the handlers and the thread behind an EventHub.

#ifndef SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H
#define SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "base/event_dispatcher/browser_event.h"
#include "base/event_dispatcher/event_hub.h"
#include "event_dispatcher/event_queue.h"
#include "event_dispatcher/handler_table.h"
#include "event_dispatcher/nap.h"
#include "event_dispatcher/spin.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"
#include "os/own_thread.h"
#include "os/semaphore.h"

namespace tevalon::base::event_dispatcher {

class AsyncSends;
class HubActivity;
struct HubLook;

/// Thread-safety: any thread may call anything but the destructor; see EventHub.
///
/// Lock order: m_teardownMtx, held over a whole teardown, then m_threadMtx, then m_queueMtx;
/// m_handlerMtx is a leaf. None is held while a handler runs or a line is logged, but for
/// m_teardownMtx, which nothing but a teardown ever takes.
///
/// A handler may unregister or destroy its own hub, and a client may register handlers, and
/// tear down, on other threads meanwhile. At most one thread serves a hub at any time: one that
/// was told to leave either stays (staysForNewHandler()) or has exited before the next one starts.
class EventHubImpl {
public:
    using Handler = std::function<void(std::shared_ptr<BrowserEvent>)>;
    using InnerHandler_t = event_dispatcher::InnerHandler_t;

    /// @param moduleId  Names the handler thread.
    explicit EventHubImpl(std::int32_t moduleId);
    ~EventHubImpl();

    EventHubImpl(const EventHubImpl&) = delete;
    EventHubImpl& operator=(const EventHubImpl&) = delete;

    /// In a forked child, before anything else there: without the parent's events, and with a
    /// thread again if there are handlers.
    void renewInForkedChild() {
        if (isFromParent(m_process)) renew();
    }

    std::int32_t registerHandler(std::int32_t eventType, Handler handler);
    std::int32_t registerHandler(std::int32_t srcModule, std::int32_t eventType, Handler handler);
    /// The handler of @p key may be empty; it is not looked at.
    bool handlerExists(const InnerHandler_t& key);
    /// Queues @p event and returns 0; leaves it to the caller, and returns -1, when no handler
    /// takes it or it is null. Whoever calls it asks whether anything is recorded, once for all of
    /// a send: a check for each thing to record would be a tenth of it.
    template <bool kIsRecording>
    std::int32_t receiveEvent(std::shared_ptr<BrowserEvent>&& event);
    /// Ends the handler thread and waits for it; on that very thread, from a handler, it does not
    /// wait: the thread ends when the handler returns.
    void onUnregistered();

    /// See EventHub. @p event is not null, @p callback not empty.
    std::int32_t sendAsync(std::shared_ptr<BrowserEvent>&& event, std::int32_t target,
                           std::int32_t timeoutMs, EventHub::ReplyCallback&& callback);
    void setQueueLimit(std::uint32_t events) TEVALON_EXCLUDES(m_queueMtx);
    std::uint32_t queueLength() TEVALON_EXCLUDES(m_queueMtx);
    /// Has the thread look at its m_asyncSends.
    void wakeForCallbacks() TEVALON_EXCLUDES(m_queueMtx);

    /// Adds to @p p_look what stands here: the events that are queued, and who holds the locks.
    /// Waits until @p untilNs on the monotonic clock at most.
    void look(std::uint64_t untilNs, HubLook* p_look) TEVALON_NO_THREAD_SAFETY_ANALYSIS;

    /// The body of the handler thread.
    static void handleEventTask(EventHubImpl* p_self);

private:
    class Leaving;
    class RecordedHandler;
    using HandlerThread = OwnThread<EventHubImpl>;

    enum class Callbacks : std::uint8_t { None, Due, AllThatAreOut };

    void renew();
    void abandonThread();
    bool ensureThread() TEVALON_EXCLUDES(m_threadMtx);
    /// May throw std::bad_alloc.
    void prepareThread() TEVALON_EXCLUDES(m_queueMtx);
    bool staysForNewHandler() TEVALON_EXCLUDES(m_queueMtx);
    bool addUnlessExists(InnerHandler_t record) TEVALON_EXCLUDES(m_handlerMtx);
    /// Blocks for the next event; false when the thread is to end.
    bool takeEvent(std::shared_ptr<BrowserEvent>* p_event, HubActivity* p_activity);
    /// Blocks until events are queued, and takes them all; false when the thread is to end.
    bool takeQueue(HubActivity* p_activity) TEVALON_EXCLUDES(m_queueMtx);
    std::shared_ptr<AsyncSends> asyncSends() TEVALON_EXCLUDES(m_threadMtx);
    Callbacks nextCallbacks(bool isEnd) TEVALON_REQUIRES(m_queueMtx);
    bool isCallbackLate();
    bool hasCallbacks() const;
    void runCallbacks(const HandlerThread& thread);
    std::uint32_t countWaiting() const TEVALON_REQUIRES(m_queueMtx);
    void waitWithoutLock();
    void recordFull(const BrowserEvent& event) TEVALON_REQUIRES(m_queueMtx);
    void recordQueued(const BrowserEvent& event) TEVALON_REQUIRES(m_queueMtx);
    bool waitForWakeUp();
    void undoWait() TEVALON_EXCLUDES(m_queueMtx);
    void wakeThread();
    void onWoken();
    void handle(std::shared_ptr<BrowserEvent>&& event, HubActivity* p_activity);
    void handleRecorded(const InnerHandler_t& found, std::shared_ptr<BrowserEvent>&& event);
    static void run(const InnerHandler_t& found, std::shared_ptr<BrowserEvent>&& event);
    void endThread(std::thread* p_joined);
    void requestExit() TEVALON_EXCLUDES(m_queueMtx);
    std::shared_ptr<std::thread> claimJoin() TEVALON_EXCLUDES(m_threadMtx);
    void join(std::thread* p_thread) TEVALON_EXCLUDES(m_threadMtx);
    void detachOwnThread() TEVALON_EXCLUDES(m_threadMtx);

    // What only the handler thread touches once it runs; in a block of its own, against false
    // sharing with senders, and because a hub that only sends needs none.
    struct OfThread {
        // Taken from the queue: what the handler thread does next. What is left when that ends
        // waits for the next one.
        EventQueue takenEvents;
        // Half a wake-up longer than one: what is waited for is mostly a sender that is being woken
        // itself, and has something to do then before it sends.
        AdaptiveSpin spin{150};
        Nap nap;
        Moment woken;           // The last post to m_wakeUp; handed over by it.
        bool isInWait = false;  // For m_wakeUp.
        // Of takenEvents; written by the handler thread alone.
        std::atomic<std::uint32_t> takenLeft{0};
        // Come before what is taken.
        Callbacks nextCallbacks = Callbacks::None;
    };

    // What the handler thread and every sender read, and seldom anybody writes, stands at either
    // end; what senders write in the middle; what is seldom touched at all between these, a cache
    // line apart, against false sharing. Alignment would take twice the memory.

    AnnotatedMutex m_threadMtx TEVALON_ACQUIRED_AFTER(m_teardownMtx);
    // Tells the handler thread to leave its loop. Set without m_queueMtx, cleared under it; the
    // decision to exit is made under it.
    std::atomic<bool> m_exit{false};
    // Since the first handler or callback; set under m_queueMtx, for whoever counts.
    std::unique_ptr<OfThread> m_ofThread;
    // What the next points to. It outlives the hub where somebody may still reply.
    std::shared_ptr<AsyncSends> m_ownAsyncSends TEVALON_GUARDED_BY(m_threadMtx);
    std::atomic<AsyncSends*> m_asyncSends{nullptr};  // Since the first one.

    // Null before the first handler and after teardown.
    std::shared_ptr<std::thread> m_thread TEVALON_GUARDED_BY(m_threadMtx);
    // A teardown waits for the thread; nobody revives it.
    bool m_isJoining TEVALON_GUARDED_BY(m_threadMtx) = false;
    // No thread is started any more.
    bool m_isDestroyed TEVALON_GUARDED_BY(m_threadMtx) = false;
    // The handler thread has looked at m_exit for the last time, and touches nothing here any
    // more. A registration may call it back until then.
    bool m_hasExited TEVALON_GUARDED_BY(m_queueMtx) = false;
    AnnotatedMutex m_teardownMtx;  // One teardown at a time: a thread is joined once.

    AnnotatedMutex m_queueMtx TEVALON_ACQUIRED_AFTER(m_threadMtx);
    // A semaphore instead of a condition variable, which re-acquires its mutex marked contended:
    // an extra futex call at each unlock.
    Semaphore m_wakeUp;
    EventQueue m_eventQueue TEVALON_GUARDED_BY(m_queueMtx);
    // The handler thread waits, and nobody has woken it yet.
    bool m_isWaiting TEVALON_GUARDED_BY(m_queueMtx) = false;
    std::uint32_t m_queueLimit TEVALON_GUARDED_BY(m_queueMtx) = UINT32_MAX;
    bool m_areCallbacksDue TEVALON_GUARDED_BY(m_queueMtx) = false;
    // A thread that was told to leave has called, or is about to, what was out then.
    bool m_haveCallbacksEnded TEVALON_GUARDED_BY(m_queueMtx) = false;
    // Hint for spinning without the lock; may be stale. Set after unlocking, so that the handler
    // thread does not meet the mutex.
    std::atomic<bool> m_hasNews{false};

    const std::int32_t m_moduleId;
    ProcessMark m_process{markOfThisProcess()};
    AnnotatedMutex m_handlerMtx;  // One at a time adds to m_handlers.

    HandlerTable m_handlers;  // Looked up without a lock.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_EVENT_HUB_IMPL_H

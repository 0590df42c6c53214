// Logged under the name event_hub.cpp; the offset, more than that file's lines, keeps a line number
// unique.
#define BLOG_TAG "EventDispatcher"
#define BLOG_FILE "event_hub.cpp"
#define BLOG_LINE (1000 + __LINE__)

#include "event_dispatcher/event_hub_impl.h"

#include <exception>
#include <utility>

#include "activity/waiting.h"
#include "base/event_dispatcher/event_dispatcher.h"
#include "base/logging/blog.h"
#include "event_dispatcher/async_sends.h"
#include "event_dispatcher/hub_activity.h"
#include "event_dispatcher/reply_spin.h"
#include "event_dispatcher/status.h"
#include "os/no_cancellation.h"
#include "os/thread_name.h"
#include "record/record.h"

namespace tevalon::base::event_dispatcher {
namespace {

// A handler thread that ends runs the destructors of its thread-local objects, which may tear its
// hub down: no thread joins itself. Cancelled in a join, a thread that owns another one's handle
// would end the process.
void joinOrDetach(std::thread& thread) {
    const NoCancellation noCancellation;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else if (thread.joinable()) {
        thread.join();
    }
}

__attribute__((noinline, cold)) void reportNoThread() {
    BLOG_AS("registerHandler", kLogError, "Fail to create EventHandlerThread.\n");
}

}  // namespace

EventHubImpl::EventHubImpl(std::int32_t moduleId) : m_moduleId(moduleId) {}

// Not cancelled: callbacks are called, and clients' destructors.
EventHubImpl::~EventHubImpl() {
    const NoCancellation noCancellation;
    if (isFromParent(m_process)) abandonThread();
    {
        const MutexGuard lock(m_threadMtx);
        m_isDestroyed = true;
    }
    onUnregistered();
    if (AsyncSends* const p_sends = m_asyncSends) p_sends->endOfHub();
    if (HandlerThread::isThisThreadOf(this)) detachOwnThread();
    // Handlers first, then the events that none of them has seen, oldest first.
    m_handlers.clear();
    if (m_ofThread != nullptr) m_ofThread->takenEvents.clear();
    m_eventQueue.clear();
}

void EventHubImpl::abandonThread() {
    renewOnce(&m_process, [this]() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        replaceUndestroyed(&m_threadMtx, &m_teardownMtx, &m_queueMtx, &m_handlerMtx);
        replaceUndestroyed(&m_thread, &m_ofThread, &m_wakeUp, &m_eventQueue);
        replaceUndestroyed(&m_ownAsyncSends);
        m_asyncSends = nullptr;
        m_areCallbacksDue = false;
        m_exit = false;
        m_isJoining = false;
        m_isDestroyed = false;
        m_hasExited = false;
        m_isWaiting = false;
        m_hasNews = false;
    });
}

void EventHubImpl::renew() {
    abandonThread();
    if (!m_handlers.empty() && !ensureThread()) reportNoThread();
}

std::int32_t EventHubImpl::registerHandler(std::int32_t eventType, Handler handler) {
    return registerHandler(kAnyModule, eventType, std::move(handler));
}

std::int32_t EventHubImpl::registerHandler(std::int32_t srcModule, std::int32_t eventType,
                                           Handler handler) {
    if (!handler) {
        BLOG(kLogError, "handler is NULL.\n");
        return kNullArgument;
    }
    if (isFromParent(m_process)) abandonThread();
    if (!ensureThread()) reportNoThread();
    if (!addUnlessExists({srcModule, eventType, std::move(handler)})) {
        BLOG(kLogError, "Event handler already exists.\n\n");
        return kExists;
    }
    return kOk;
}

bool EventHubImpl::ensureThread() {
    std::shared_ptr<std::thread> exited;
    MutexLock lock(m_threadMtx);
    if (m_isDestroyed) return false;
    // A thread that is being joined may be here itself: a handler in hand registers another. It
    // must neither wait for that join nor start a second thread.
    if (m_thread != nullptr && (m_isJoining || staysForNewHandler())) return true;
    exited = std::move(m_thread);
    inEachForkedChild(HandlerThread::allOwnersAreGone);
    try {
        prepareThread();
        m_thread = std::make_shared<std::thread>(handleEventTask, this);
    } catch (const std::exception&) {
        m_thread = nullptr;  // No thread, or no memory for one.
    }
    const bool isStarted = m_thread != nullptr;
    lock.unlock();
    if (exited != nullptr) joinOrDetach(*exited);  // Returns soon: it has exited.
    return isStarted;
}

void EventHubImpl::prepareThread() {
    const MutexGuard lock(m_queueMtx);
    m_exit = false;
    m_hasExited = false;
    m_haveCallbacksEnded = false;
    if (m_ofThread == nullptr) m_ofThread = std::make_unique<OfThread>();
}

// A thread that was told to leave from one of its own handlers goes on if it has not exited yet, so
// that no two threads ever serve one hub.
bool EventHubImpl::staysForNewHandler() {
    const MutexGuard lock(m_queueMtx);
    if (m_hasExited) return false;
    m_exit = false;
    m_haveCallbacksEnded = false;
    return true;
}

bool EventHubImpl::addUnlessExists(InnerHandler_t record) {
    const MutexGuard lock(m_handlerMtx);
    if (handlerExists(record)) return false;
    m_handlers.add(std::move(record));
    return true;
}

bool EventHubImpl::handlerExists(const InnerHandler_t& key) {
    return m_handlers.find(key.srcModule, key.eventType) != nullptr;
}

template <bool kIsRecording>
std::int32_t EventHubImpl::receiveEvent(std::shared_ptr<BrowserEvent>&& event) {
    if (event == nullptr) return kFailed;
    if (m_handlers.find(event->srcModule, event->eventType) == nullptr) {
        if constexpr (kIsRecording) {
            record::eventRefused(event.get(), event->eventType, event->srcModule, m_moduleId,
                                 record::Refusal::NoHandler);
        }
        return kFailed;
    }
    bool isWaiting = false;
    {
        const MutexGuard lock(m_queueMtx, kIsRecording);
        if (__builtin_expect(m_queueLimit != UINT32_MAX, 0) && countWaiting() >= m_queueLimit) {
            if constexpr (kIsRecording) recordFull(*event);
            return kEventQueueFull;
        }
        if constexpr (kIsRecording) recordQueued(*event);
        m_eventQueue.push(std::move(event));
        isWaiting = std::exchange(m_isWaiting, false);
    }
    m_hasNews.store(true, std::memory_order_relaxed);
    // A thread at work looks at the queue anyway. After unlocking, so that the woken thread does
    // not meet the mutex; safe because the hub outlives this call: see EventHub::receiveEvent().
    if (isWaiting) {
        wakeThread();
        t_replySpin.skipNext(true);
    }
    return kOk;
}

template std::int32_t EventHubImpl::receiveEvent<false>(std::shared_ptr<BrowserEvent>&& event);
template __attribute__((cold)) std::int32_t EventHubImpl::receiveEvent<true>(
    std::shared_ptr<BrowserEvent>&& event);

// Under the lock: the handler thread, which records that it handles the event, comes after it.
void EventHubImpl::recordQueued(const BrowserEvent& event) {
    record::eventQueued(&event, event.eventType, event.srcModule, m_moduleId,
                        static_cast<std::int32_t>(m_eventQueue.pushed() + 1));
}

void EventHubImpl::recordFull(const BrowserEvent& event) {
    record::eventRefused(&event, event.eventType, event.srcModule, m_moduleId,
                         record::Refusal::QueueFull);
}

void EventHubImpl::setQueueLimit(std::uint32_t events) {
    const MutexGuard lock(m_queueMtx);
    m_queueLimit = events != 0 ? events : UINT32_MAX;
}

std::uint32_t EventHubImpl::queueLength() {
    const MutexGuard lock(m_queueMtx);
    return countWaiting();
}

// The thread's part comes with the first handler, unless there was no memory for it. Relaxed: the
// thread takes the queue under the lock, and counts down what it has taken without.
std::uint32_t EventHubImpl::countWaiting() const {
    if (m_ofThread == nullptr) return m_eventQueue.pushed();
    return m_eventQueue.pushed() + m_ofThread->takenLeft.load(std::memory_order_relaxed);
}

void EventHubImpl::wakeThread() {
    m_ofThread->woken = Moment::now();
    m_wakeUp.post();
}

// How a handler's end is recorded, however it ends; the hub may be gone then.
class EventHubImpl::RecordedHandler {
public:
    RecordedHandler(const std::shared_ptr<BrowserEvent>& event, std::int32_t moduleId)
        : m_event(event.get()),
          m_type(event->eventType),
          m_source(event->srcModule),
          m_module(moduleId),
          m_awaited(event->waitResultMtx != nullptr ? event : nullptr) {
        record::handlerBegun(m_event, m_type, m_source, m_module);
    }
    ~RecordedHandler() {
        record::handlerEnded(m_event, m_type, m_source, m_module);
        // One holder is here, another one waits: nobody is left who could reply.
        constexpr long kHolders = 2;
        if (m_awaited != nullptr && !m_awaited->replied && m_awaited.use_count() == kHolders) {
            record::eventUnanswered(m_event, m_type, m_source);
        }
    }

    RecordedHandler(const RecordedHandler&) = delete;
    RecordedHandler& operator=(const RecordedHandler&) = delete;

private:
    const BrowserEvent* const m_event;
    const std::int32_t m_type;
    const std::int32_t m_source;
    const std::int32_t m_module;
    const std::shared_ptr<BrowserEvent> m_awaited;  // Null where nobody can wait for a reply.
};

namespace {

class RecordedThread {
public:
    RecordedThread(const void* p_hub, std::int32_t moduleId) : m_hub(p_hub), m_module(moduleId) {
        if (record::isOn()) record::hubThreadStarted(m_hub, m_module);
    }
    ~RecordedThread() {
        if (record::isOn()) record::hubThreadEnded(m_hub, m_module);
    }

    RecordedThread(const RecordedThread&) = delete;
    RecordedThread& operator=(const RecordedThread&) = delete;

private:
    const void* const m_hub;  // May be gone in the end.
    const std::int32_t m_module;
};

}  // namespace

// Tells that the handler thread has exited where it ends in the middle of a handler:
// pthread_exit(), or cancellation, unwinds the stack; cancellation also in the middle of a wait.
// One that has exited in takeQueue() touches the hub no more: the next thread may be at work.
class EventHubImpl::Leaving {
public:
    Leaving(EventHubImpl* p_hub, const HandlerThread& thread) : m_hub(*p_hub), m_thread(thread) {}
    ~Leaving() {
        if (m_hasExited || m_thread.isOwnerGone()) return;
        m_hub.undoWait();
        const MutexGuard lock(m_hub.m_queueMtx);
        m_hub.m_hasExited = true;
    }

    Leaving(const Leaving&) = delete;
    Leaving& operator=(const Leaving&) = delete;

    void setExited() { m_hasExited = true; }

private:
    EventHubImpl& m_hub;
    const HandlerThread& m_thread;
    bool m_hasExited = false;
};

inline void EventHubImpl::run(const InnerHandler_t& found, std::shared_ptr<BrowserEvent>&& event) {
    // A copy for each event: what a handler changes in itself is lost, and the handler may destroy
    // the hub, and the table with it, while it runs.
    const Handler handler = found.handler;
    handler(std::move(event));
}

__attribute__((noinline, cold)) void EventHubImpl::handleRecorded(
    const InnerHandler_t& found, std::shared_ptr<BrowserEvent>&& event) {
    const RecordedHandler recorded(event, m_moduleId);
    run(found, std::move(event));
}

__attribute__((always_inline)) inline void EventHubImpl::handle(
    std::shared_ptr<BrowserEvent>&& event, HubActivity* p_activity) {
    const BrowserEvent& message = *event;
    const InnerHandler_t* const found = m_handlers.find(message.srcModule, message.eventType);
    if (found == nullptr) return;
    p_activity->beginHandler(message, found);
    if (message.waitResultMtx != nullptr) message.noteHandler(m_moduleId);
    if (record::isOn()) {
        handleRecorded(*found, std::move(event));
    } else {
        run(*found, std::move(event));
    }
    p_activity->endHandler();
}

void EventHubImpl::handleEventTask(EventHubImpl* p_self) {
    if (p_self == nullptr) {
        BLOG(kLogError, "Param is NULL.\n");
        return;
    }
    nameThisThread("Evt:%d", p_self->m_moduleId);
    const RecordedThread recorded(p_self, p_self->m_moduleId);
    const HandlerThread thread(p_self);
    HubActivity activity(p_self);
    activity.takeBatch(p_self->m_ofThread->takenEvents.count());  // That the last thread left.
    Leaving leaving(p_self, thread);
    std::shared_ptr<BrowserEvent> event;
    // A handler may destroy the hub: nothing of it is touched then.
    while (!thread.isOwnerGone()) {
        if (!p_self->takeEvent(&event, &activity)) {
            leaving.setExited();
            return;
        }
        if (event != nullptr) {
            p_self->handle(std::move(event), &activity);
        } else {
            p_self->runCallbacks(thread);
        }
    }
}

__attribute__((always_inline)) inline bool EventHubImpl::takeEvent(
    std::shared_ptr<BrowserEvent>* p_event, HubActivity* p_activity) {
    // With m_exit set, takeQueue() decides under m_queueMtx: a registration may have cleared the
    // flag meanwhile, and the thread then continues with what it has taken.
    if (m_exit || m_ofThread->takenEvents.empty()) {
        if (!takeQueue(p_activity)) return false;
        if (m_ofThread->nextCallbacks != Callbacks::None) {
            p_event->reset();
            return true;
        }
    }
    *p_event = m_ofThread->takenEvents.pop();
    std::atomic<std::uint32_t>& left = m_ofThread->takenLeft;
    left.store(left.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    return true;
}

bool EventHubImpl::takeQueue(HubActivity* p_activity) {
    EventQueue& takenEvents = m_ofThread->takenEvents;
    Nap& nap = m_ofThread->nap;
    if (!m_exit) waitWithoutLock();
    const bool isLate = hasCallbacks() && isCallbackLate();
    MutexLock lock(m_queueMtx);
    if (isLate) m_areCallbacksDue = true;
    if (nap.isDue()) nap.brought(m_eventQueue.pushed() >= Nap::kManyEvents);
    while (!m_exit && takenEvents.empty() && m_eventQueue.empty() && !m_areCallbacksDue) {
        m_isWaiting = true;  // Cleared by whoever posts: one post for each wait.
        lock.unlock();
        const bool isTimeOver = !waitForWakeUp();
        lock.lock();
        if (isTimeOver) m_areCallbacksDue = true;
    }
    const bool isEnd = m_exit;  // Once: it may be set at any time.
    m_ofThread->nextCallbacks = nextCallbacks(isEnd);
    if (m_ofThread->nextCallbacks != Callbacks::None) return true;
    if (isEnd) {
        m_hasExited = true;
        return false;
    }
    if (takenEvents.empty()) {
        p_activity->takeBatch(m_eventQueue.pushed());
        m_ofThread->takenLeft.store(m_eventQueue.pushed(), std::memory_order_relaxed);
        takenEvents.swap(m_eventQueue);
    }
    m_hasNews.store(false, std::memory_order_relaxed);
    return true;
}

// Those that are out are called before the thread ends; not what is sent meanwhile, of which there
// may be no end.
inline EventHubImpl::Callbacks EventHubImpl::nextCallbacks(bool isEnd) {
    if (isEnd) {
        const bool areAny = hasCallbacks() && !std::exchange(m_haveCallbacksEnded, true);
        return areAny ? Callbacks::AllThatAreOut : Callbacks::None;
    }
    return std::exchange(m_areCallbacksDue, false) ? Callbacks::Due : Callbacks::None;
}

void EventHubImpl::waitWithoutLock() {
    if (m_ofThread->nap.isDue()) m_ofThread->nap.sleep();
    (void)m_ofThread->spin.until([this] { return m_hasNews.load(std::memory_order_relaxed); });
}

// Returns false where a callback's time was over first.
bool EventHubImpl::waitForWakeUp() {
    AsyncSends* const p_sends = m_asyncSends.load(std::memory_order_acquire);
    const std::int64_t deadline = p_sends != nullptr ? p_sends->earliest() : AsyncSends::kNever;
    m_ofThread->isInWait = true;
    if (deadline == AsyncSends::kNever) {
        m_wakeUp.wait();
    } else if (!m_wakeUp.waitUntil(deadline)) {
        undoWait();
        return false;
    }
    m_ofThread->isInWait = false;
    onWoken();
    return true;
}

// Where the thread was cancelled in its wait, or a callback's time is over: nobody wakes it any
// more, and whoever is about to, or has, is waited for. The next thread would take that wake-up for
// its own, and read when it was while somebody else writes it.
void EventHubImpl::undoWait() {
    if (!std::exchange(m_ofThread->isInWait, false)) return;
    {
        const MutexGuard lock(m_queueMtx);
        if (std::exchange(m_isWaiting, false)) return;
    }
    m_wakeUp.wait();
}

std::int32_t EventHubImpl::sendAsync(std::shared_ptr<BrowserEvent>&& event, std::int32_t target,
                                     std::int32_t timeoutMs, EventHub::ReplyCallback&& callback) {
    constexpr std::int64_t kMillisecond = 1000000;
    if (isFromParent(m_process)) renew();
    // Its own thread, which was told to leave, would call callbacks that send for ever.
    if (m_exit && HandlerThread::isThisThreadOf(this)) return kFailed;
    if (!ensureThread()) {
        reportNoThread();
        return kFailed;
    }
    const auto now = static_cast<std::int64_t>(monotonicNanoseconds());
    const std::int64_t deadline = timeoutMs == -1 ? AsyncSends::kNever
                                  : now != 0      ? now + timeoutMs * kMillisecond
                                                  : 0;
    const std::shared_ptr<AsyncSends> sends = asyncSends();
    const auto send = std::make_shared<AsyncSend>(sends, std::move(event), std::move(callback));
    std::shared_ptr<BrowserEvent> sent = send->eventForReceivers(send);
    if (!sent->armFor(send)) return kFailed;
    const std::int32_t status = evtdispch_send_event(std::move(sent), target);
    if (status != kOk) return status;
    sends->add(send, deadline);
    return kOk;
}

std::shared_ptr<AsyncSends> EventHubImpl::asyncSends() {
    const MutexGuard lock(m_threadMtx);
    if (m_ownAsyncSends == nullptr) {
        m_ownAsyncSends = std::make_shared<AsyncSends>(this);
        m_asyncSends.store(m_ownAsyncSends.get(), std::memory_order_release);
    }
    return m_ownAsyncSends;
}

void EventHubImpl::wakeForCallbacks() {
    bool isWaiting = false;
    {
        const MutexGuard lock(m_queueMtx);
        m_areCallbacksDue = true;
        isWaiting = std::exchange(m_isWaiting, false);
    }
    m_hasNews.store(true, std::memory_order_relaxed);
    if (isWaiting) wakeThread();
}

inline bool EventHubImpl::hasCallbacks() const {
    const AsyncSends* const p_sends = m_asyncSends.load(std::memory_order_acquire);
    return p_sends != nullptr && !p_sends->empty();
}

// A thread with much to do does not wait, and looks at the clock itself.
__attribute__((noinline, cold)) bool EventHubImpl::isCallbackLate() {
    return m_asyncSends.load()->earliest() <= static_cast<std::int64_t>(monotonicNanoseconds());
}

// A callback may destroy the hub: the rest is called then already. Whether the thread ends is not
// asked again here: it may have been told to since, and calls what is out only once.
__attribute__((noinline, cold)) void EventHubImpl::runCallbacks(const HandlerThread& thread) {
    const std::shared_ptr<AsyncSends> sends = asyncSends();
    sends->callDue(m_ofThread->nextCallbacks == Callbacks::AllThatAreOut,
                   [&thread] { return thread.isOwnerGone(); });
}

void EventHubImpl::onWoken() {
    const Moment now = Moment::now();
    const Moment& woken = m_ofThread->woken;
    const std::optional<std::int64_t> waited = m_ofThread->spin.parked(woken, now);
    if (waited) m_ofThread->nap.woken(woken.isOnProcessorOf(now), *waited);
}

void EventHubImpl::onUnregistered() {
    const NoCancellation noCancellation;
    if (isFromParent(m_process)) abandonThread();
    if (HandlerThread::isThisThreadOf(this)) {
        // Without m_teardownMtx: whoever holds it may be waiting for this thread.
        endThread(nullptr);
        return;
    }
    const MutexGuard teardown(m_teardownMtx);
    const std::shared_ptr<std::thread> thread = claimJoin();
    if (thread == nullptr) {
        BLOG(kLogInfo, "Didn't create thread, so need not destroy thread.\n");
        BLOG(kLogAlways, "Exit onUnregistered.\n");
        return;
    }
    endThread(thread.get());
}

void EventHubImpl::endThread(std::thread* p_joined) {
    BLOG_AS("onUnregistered", kLogAlways, "Will destroy thread in EventHubImpl.\n");
    requestExit();
    if (p_joined != nullptr) join(p_joined);
    BLOG_AS("onUnregistered", kLogAlways, "Exit onUnregistered from EventHubImpl.\n");
}

// Null where there is no thread. m_thread stays set, so that ensureThread() starts no second one;
// our copy keeps the std::thread alive if the hub is destroyed meanwhile.
std::shared_ptr<std::thread> EventHubImpl::claimJoin() {
    const MutexGuard lock(m_threadMtx);
    // Before the thread is told to leave, lest a registration tells it to stay.
    if (m_thread != nullptr) m_isJoining = true;
    return m_thread;
}

void EventHubImpl::requestExit() {
    m_exit = true;
    m_hasNews.store(true, std::memory_order_relaxed);
    // Flag before lock: either the thread sees the flag once it holds the lock, or we see that it
    // waits. It waits for the flag as well as for events, so no wake-up event has to be allocated.
    const MutexGuard lock(m_queueMtx);
    if (std::exchange(m_isWaiting, false)) wakeThread();
}

// Without m_threadMtx, which a handler in hand takes to register another.
void EventHubImpl::join(std::thread* p_thread) {
    const activity::Waiting wait(record::Wait::Unregister, this);
    joinOrDetach(*p_thread);
    const MutexGuard lock(m_threadMtx);
    m_isJoining = false;
    m_thread.reset();
}

// The hub is destroyed in one of its own handlers. The thread ends when that returns, and touches
// nothing but its stack until then. If another thread is in join(), the thread must stay
// joinable. That is so only when a handler has called exit() and the hub is static: the join then
// never returns, so nothing of the destroyed hub is touched.
void EventHubImpl::detachOwnThread() {
    HandlerThread::ownerIsGone();
    activity::forgetObject(this);
    const MutexGuard lock(m_threadMtx);
    if (m_thread != nullptr && !m_isJoining) m_thread->detach();
}

}  // namespace tevalon::base::event_dispatcher

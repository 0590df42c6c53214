#define BLOG_TAG "EventDispatcher"

#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

#include "base/event_dispatcher/browser_event.h"
#include "base/logging/blog.h"
#include "event_dispatcher/async_sends.h"
#include "event_dispatcher/block_cache.h"
#include "event_dispatcher/reply_spin.h"
#include "event_dispatcher/reply_wait.h"
#include "os/monotonic_time.h"
#include "os/system_error.h"
#include "record/record.h"

namespace tevalon::base::event_dispatcher {

namespace {

constexpr std::int32_t kNoLimit = -1;  // As a time-out.

}  // namespace

EventParam::~EventParam() = default;

void* EventParam::operator new(std::size_t size) {
    return BlockCache::allocate(size);
}

void* EventParam::operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept try {
    return BlockCache::allocate(size);
} catch (const std::bad_alloc&) {
    return nullptr;
}

void EventParam::operator delete(void* p_memory, std::size_t size) noexcept {
    BlockCache::free(p_memory, size);
}

// Called only where a constructor throws, without the size.
void EventParam::operator delete(void* p_memory, const std::nothrow_t& /*tag*/) noexcept {
    ::operator delete(p_memory);
}

std::int32_t EventParam::intValue() {
    return 0;
}

// The mutex and the condition variable, in one allocation. Reference-counted: the waiter may free
// the event while the replier is still inside notify_all().
struct BrowserEvent::WaitObjects : std::mutex {
    std::condition_variable cv;
    // Guarded by the mutex. A waiter has parked, and wants to know when the reply came.
    bool isParked = false;
    Moment replied;
    // The module whose handler began last; not guarded. Only those who wait long look at it.
    std::atomic<std::int32_t> handledBy{kAnyModule};

    // Guarded by the mutex. Whom else to tell; the flag is set before the event is sent.
    std::weak_ptr<AsyncSend> send;
    std::atomic<bool> hasSend{false};

    void hold() { m_holders.fetch_add(1, std::memory_order_relaxed); }
    void release() {
        if (m_holders.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
    }

private:
    std::atomic<int> m_holders{1};
};

BrowserEvent::BrowserEvent(std::int32_t srcModule_, std::int32_t eventType_, EventParam* param_)
    : srcModule(srcModule_),
      eventType(eventType_),
      param(param_),
      waitResultMtx(nullptr),
      waitResultCv(nullptr),
      replied(false),
      m_hasWaitObjects(false),
      result(kEventResultNone) {}

BrowserEvent::~BrowserEvent() {
    delete param;
    if (!m_hasWaitObjects) {
        delete waitResultMtx;
        delete waitResultCv;
    } else if (WaitObjects* const p_objects = waitObjects()) {
        p_objects->release();
    }
}

BrowserEvent::WaitObjects* BrowserEvent::waitObjects() const {
    return m_hasWaitObjects ? static_cast<WaitObjects*>(waitResultMtx) : nullptr;
}

std::int32_t BrowserEvent::initWaitResultCv() {
    replied = false;
    if (waitResultMtx != nullptr && waitResultCv != nullptr) {
        noteHandler(kAnyModule);
        BLOG(kLogInfo, "Already initialized.\n");
        return 0;
    }
    auto* const p_objects = new (std::nothrow) WaitObjects();
    if (p_objects == nullptr) return 0;  // Unarmed; the wait will say so.
    waitResultMtx = p_objects;
    waitResultCv = &p_objects->cv;
    m_hasWaitObjects = true;
    return 0;
}

bool BrowserEvent::armFor(const std::shared_ptr<AsyncSend>& send) {
    (void)initWaitResultCv();
    WaitObjects* const p_objects = waitObjects();
    if (p_objects == nullptr) return false;
    const std::lock_guard<std::mutex> lock(*p_objects);
    p_objects->send = send;
    p_objects->hasSend.store(true, std::memory_order_relaxed);
    return true;
}

__attribute__((noinline, cold)) void BrowserEvent::replyToSend(WaitObjects* p_objects,
                                                               EventResult reply) {
    std::shared_ptr<AsyncSend> send;
    {
        const std::lock_guard<std::mutex> lock(*p_objects);
        send = p_objects->send.lock();
    }
    if (send != nullptr) send->complete(reply);
}

void BrowserEvent::noteHandler(std::int32_t module) const {
    WaitObjects* const p_objects = waitObjects();
    if (p_objects != nullptr) p_objects->handledBy.store(module, std::memory_order_relaxed);
}

void BrowserEvent::replyResult(EventResult reply) {
    // Before anybody can be woken by it, and free the event.
    if (record::isOn()) record::eventReplied(this, eventType, reply);
    if (waitResultMtx == nullptr) {
        // Never armed, so nobody waits. Result before flag: who reads the flag finds the result.
        result = reply;
        replied = true;
        return;
    }
    if (WaitObjects* const p_objects = waitObjects()) {
        replyToWaiters(p_objects, reply);
        return;
    }
    // Wait objects of the client's own are not reference-counted: notify under the lock, after
    // which the waiter may free them.
    const std::lock_guard<std::mutex> lock(*waitResultMtx);
    replied = true;
    result = reply;
    if (waitResultCv != nullptr) waitResultCv->notify_all();
}

// Notifies after unlocking, so that the woken thread does not meet the mutex.
void BrowserEvent::replyToWaiters(WaitObjects* p_objects, EventResult reply) {
    {
        const std::lock_guard<std::mutex> lock(*p_objects);
        replied = true;
        result = reply;
        if (p_objects->isParked) p_objects->replied = Moment::now();
        p_objects->hold();  // Under the lock: the waiter cannot have gone yet.
    }
    p_objects->cv.notify_all();
    if (p_objects->hasSend.load(std::memory_order_relaxed)) replyToSend(p_objects, reply);
    p_objects->release();
}

std::int32_t BrowserEvent::waitForResult(std::int32_t timeout) {
    return waitForReply(timeout, kAnyModule);
}

std::int32_t BrowserEvent::waitForReply(std::int32_t timeout, std::int32_t target) {
    if (waitResultMtx == nullptr || waitResultCv == nullptr) {
        BLOG_AS("waitForResult", kLogError, "waitResultMtx or waitResultCv is NULL.\n");
        return kEventResultNone;
    }
    if (record::isOn()) record::eventAwaited(this, eventType, timeout);
    // Spins on the flag without the lock; only the check under the lock below decides.
    if (timeout == kNoLimit || timeout > 0) spinForReply();
    std::unique_lock<std::mutex> lock(*waitResultMtx);
    if (replied) return result;
    const EventResult reply = park(&lock, timeout, target);
    WaitObjects* const p_objects = waitObjects();
    if (replied && p_objects != nullptr && p_objects->isParked) {
        (void)t_replySpin.parked(p_objects->replied, Moment::now());
    }
    if (!replied && record::isOn()) record::eventAwaitedInVain(this, eventType, timeout);
    return reply;
}

EventResult BrowserEvent::park(std::unique_lock<std::mutex>* p_lock, std::int32_t timeout,
                               std::int32_t target) {
    constexpr std::int64_t kMillisecond = 1000000;
    const std::optional<timespec> now = readMonotonicClock();
    // Who has no time to wait is nobody that others would have to see.
    if (timeout != kNoLimit && timeout <= 0) {
        return waitUntil(p_lock, monotonicDeadline(timeout * kMillisecond, now));
    }
    WaitObjects* const p_objects = waitObjects();
    if (p_objects != nullptr) p_objects->isParked = true;
    const ReplyWait wait(*this, p_objects != nullptr ? &p_objects->handledBy : nullptr, target,
                         timeout, now.value_or(timespec{}));
    if (timeout == kNoLimit) return waitForEver(p_lock);
    return waitUntil(p_lock, monotonicDeadline(timeout * kMillisecond, now));
}

void BrowserEvent::spinForReply() const {
    (void)t_replySpin.until([this] { return replied.load(std::memory_order_relaxed); });
}

// std::condition_variable::wait() ignores an error of pthread_cond_wait(), and a loop around one
// that keeps failing would spin. Hence the native calls, whose errors are thrown.
EventResult BrowserEvent::waitForEver(std::unique_lock<std::mutex>* p_lock) {
    while (!replied) {
        throwUnlessOk(
            pthread_cond_wait(waitResultCv->native_handle(), p_lock->mutex()->native_handle()));
    }
    return result;
}

EventResult BrowserEvent::waitUntil(std::unique_lock<std::mutex>* p_lock,
                                    const timespec& deadline) {
    while (!replied) {
        const int error =
            pthread_cond_clockwait(waitResultCv->native_handle(), p_lock->mutex()->native_handle(),
                                   CLOCK_MONOTONIC, &deadline);
        if (error != ETIMEDOUT) throwUnlessOk(error);
        if (hasPassed(deadline)) break;
    }
    return replied ? result.load() : kEventResultTimeout;
}

}  // namespace tevalon::base::event_dispatcher

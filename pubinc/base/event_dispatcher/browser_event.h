// browser_event.h: the message that travels between modules, and its reply.

#ifndef BASE_EVENT_DISPATCHER_BROWSER_EVENT_H
#define BASE_EVENT_DISPATCHER_BROWSER_EVENT_H

#include <time.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/event_dispatcher/event_param.h"
#include "base/export.h"

namespace tevalon::base::event_dispatcher {

/// What a handler replies. Any value; two have a meaning of their own.
using EventResult = std::int32_t;

inline constexpr EventResult kEventResultNone = -1;    ///< No reply yet, or never armed.
inline constexpr EventResult kEventResultTimeout = 1;  ///< No reply in time.

/// The module id that stands for any module: as the source of a handler, and as the target of
/// a send.
inline constexpr std::int32_t kAnyModule = INT32_MIN;

class AsyncSend;
class EventHub;
class EventHubImpl;

/// A message with an owned payload and room for one reply. Always held by
/// std::shared_ptr<BrowserEvent>: sender, queue and handler each keep it alive.
///
/// Lifecycle: created; armed for a reply by initWaitResultCv(); answered by replyResult();
/// armed again if it is to be sent again.
///
/// Thread-safety: srcModule, eventType and param must not change once the event is sent.
/// replyResult() and waitForResult() may be called from any thread. initWaitResultCv() must
/// have returned before another thread sees the event.
class TEVALON_BASE_EXPORT BrowserEvent {
public:
    /// @param srcModule  The module that sends it.
    /// @param eventType  What it is about; the modules agree on the numbers.
    /// @param param  Owned from here on; deleted with the event. May be null.
    BrowserEvent(std::int32_t srcModule, std::int32_t eventType, EventParam* param);
    ~BrowserEvent();

    BrowserEvent(const BrowserEvent&) = delete;
    BrowserEvent& operator=(const BrowserEvent&) = delete;

    /// Makes the event ready to be waited for, and forgets an earlier reply. Returns 0. Out of
    /// memory it leaves the event unarmed, which waitForResult() reports.
    std::int32_t initWaitResultCv();

    /// Stores the reply, over an earlier one, and wakes all who wait for it. On an event that
    /// was never armed it only stores. Throws std::system_error when the lock cannot be taken.
    void replyResult(EventResult reply);

    /// Blocks until there is a reply and returns it, or kEventResultTimeout.
    ///
    /// @param timeout  In milliseconds on the monotonic clock; -1 waits without limit, other
    ///                 negative values have passed already.
    ///
    /// Where replies have lately come sooner than a sleeping thread is woken, it spins that long
    /// before it sleeps; never while the replying thread uses the same processor.
    ///
    /// On an event that was never armed it writes an error line and returns kEventResultNone
    /// at once. Throws std::system_error when the lock cannot be taken or the wait fails.
    std::int32_t waitForResult(std::int32_t timeout);

    std::int32_t srcModule;  ///< The module whose hub made the event.
    std::int32_t eventType;  ///< What it is about, as sender and receiver agreed.
    EventParam* param;       ///< Owned; may be null.
    // Made and freed together by the event: not to be replaced once it is armed.
    std::mutex* waitResultMtx;              ///< Owned; null until armed.
    std::condition_variable* waitResultCv;  ///< Owned; null until armed.
    // Atomic for the event that was never armed: the handlers of several hubs may then reply
    // to it at once without a lock.
    std::atomic<bool> replied;  ///< Whether result is a reply.

private:
    bool m_hasWaitObjects;  // Whether both of the above are those of a WaitObjects.

public:
    std::atomic<EventResult> result;  ///< The reply; kEventResultNone until there is one.

private:
    friend class EventHub;
    friend class EventHubImpl;

    struct WaitObjects;

    TEVALON_BASE_LOCAL WaitObjects* waitObjects() const;
    /// waitForResult(), for the reply of @p target; kAnyModule where that is not known.
    TEVALON_BASE_LOCAL std::int32_t waitForReply(std::int32_t timeout, std::int32_t target);
    /// A handler of @p module begins, and somebody may wait for a reply.
    TEVALON_BASE_LOCAL void noteHandler(std::int32_t module) const;
    /// Armed, and to be told to @p send when it is replied to; false without memory.
    TEVALON_BASE_LOCAL bool armFor(const std::shared_ptr<AsyncSend>& send);
    TEVALON_BASE_LOCAL static void replyToSend(WaitObjects* p_objects, EventResult reply);
    TEVALON_BASE_LOCAL void replyToWaiters(WaitObjects* p_objects, EventResult reply);
    TEVALON_BASE_LOCAL void spinForReply() const;
    TEVALON_BASE_LOCAL EventResult park(std::unique_lock<std::mutex>* p_lock, std::int32_t timeout,
                                        std::int32_t target);
    TEVALON_BASE_LOCAL EventResult waitForEver(std::unique_lock<std::mutex>* p_lock);
    TEVALON_BASE_LOCAL EventResult waitUntil(std::unique_lock<std::mutex>* p_lock,
                                             const timespec& deadline);
};

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_BROWSER_EVENT_H

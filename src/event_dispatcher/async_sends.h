// async_sends.h: events that were sent with a callback for the reply.

#ifndef SRC_EVENT_DISPATCHER_ASYNC_SENDS_H
#define SRC_EVENT_DISPATCHER_ASYNC_SENDS_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/event_dispatcher/event_hub.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"

namespace tevalon::base::event_dispatcher {

class AsyncSends;

/// One of them. Shared by the hub that waits, the event, and whoever may still reply to that; it
/// outlives the hub where one of these does.
///
/// The first of reply, time-out, loss of the event and end of the hub counts; whichever it is, the
/// hub's lock decides.
class AsyncSend {
public:
    AsyncSend(std::shared_ptr<AsyncSends> sends, std::shared_ptr<BrowserEvent> event,
              EventHub::ReplyCallback&& callback)
        : m_sends(std::move(sends)), m_event(std::move(event)), m_callback(std::move(callback)) {}

    AsyncSend(const AsyncSend&) = delete;
    AsyncSend& operator=(const AsyncSend&) = delete;

    /// What receivers get instead of the event: it tells when nobody is left who could reply.
    std::shared_ptr<BrowserEvent> eventForReceivers(const std::shared_ptr<AsyncSend>& self) const;

    /// There is a reply, or none will come. Any thread may call it, and nothing comes of it but for
    /// the first time.
    void complete(EventResult result);

    /// With the lock released, by the one thread to which it was given.
    void call();

private:
    friend class AsyncSends;

    enum class State : std::uint8_t { Unsent, Pending, Due, Over };

    const std::shared_ptr<AsyncSends> m_sends;
    const std::shared_ptr<BrowserEvent> m_event;  // Receivers may have it beyond the call.
    EventHub::ReplyCallback m_callback;
    // Guarded by the lock of m_sends, as the rest.
    std::shared_ptr<AsyncSend> m_next;
    std::int64_t m_deadline = 0;
    EventResult m_result = kEventResultNone;
    State m_state = State::Unsent;
    bool m_isComplete = false;
};

/// A hub's, in order of sending. Lock order: this lock, then the hub's queue lock.
class AsyncSends {
public:
    static constexpr std::int64_t kNever = INT64_MAX;

    explicit AsyncSends(EventHubImpl* p_hub) : m_hub(p_hub) {}

    AsyncSends(const AsyncSends&) = delete;
    AsyncSends& operator=(const AsyncSends&) = delete;

    /// @p send is on its way: from now on it is called once. @p deadline as of the monotonic clock.
    void add(const std::shared_ptr<AsyncSend>& send, std::int64_t deadline);

    /// When the hub's thread has to look again, if nobody wakes it: 0 for now.
    std::int64_t earliest();

    bool empty() const { return m_count.load(std::memory_order_acquire) == 0; }

    /// Calls what is due, and where the hub ends all that there is, with kEventResultNone. What a
    /// callback adds is not called; nor is anything once @p isOver() is true after a callback.
    template <typename IsOver>
    void callDue(bool isEnd, IsOver isOver) {
        const std::int64_t now = nowOrLate();
        for (std::uint32_t left = m_count.load(std::memory_order_acquire); left > 0; --left) {
            const std::shared_ptr<AsyncSend> send = takeDue(now, isEnd);
            if (send == nullptr) return;
            send->call();
            if (isOver()) return;
        }
    }

    /// The hub is about to be destroyed, and its thread has ended: calls all that are left.
    void endOfHub();

private:
    friend class AsyncSend;

    static std::int64_t nowOrLate();
    std::shared_ptr<AsyncSend> takeDue(std::int64_t now, bool isEnd);

    const ProcessMark m_process{markOfThisProcess()};
    AnnotatedMutex m_mutex;
    EventHubImpl* m_hub TEVALON_GUARDED_BY(m_mutex);  // Null once it is gone.
    std::shared_ptr<AsyncSend> m_first TEVALON_GUARDED_BY(m_mutex);
    std::atomic<std::uint32_t> m_count{0};  // Changed under the lock.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_ASYNC_SENDS_H

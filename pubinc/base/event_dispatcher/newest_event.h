// newest_event.h: an event of which only the newest counts.

#ifndef BASE_EVENT_DISPATCHER_NEWEST_EVENT_H
#define BASE_EVENT_DISPATCHER_NEWEST_EVENT_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "base/event_dispatcher/event_hub.h"
#include "base/event_dispatcher/event_payload.h"
#include "base/export.h"

namespace tevalon::base::event_dispatcher {

namespace internal {

/// The value on its way, and which event is to fetch it.
template <typename T>
struct TEVALON_BASE_LOCAL NewestSlot {
    std::mutex mutex;
    std::optional<T> value;
    const void* p_queued = nullptr;  // The payload of the event that is queued, if any.
};

template <typename T>
struct TEVALON_BASE_LOCAL NewestPayload {
    explicit NewestPayload(std::shared_ptr<NewestSlot<T>> of) : slot(std::move(of)) {}
    // Refused, or dropped with a hub's queue: the next one is sent again.
    ~NewestPayload() {
        const std::lock_guard<std::mutex> lock(slot->mutex);
        if (slot->p_queued == this) slot->p_queued = nullptr;
    }

    NewestPayload(const NewestPayload&) = delete;
    NewestPayload& operator=(const NewestPayload&) = delete;

    const std::shared_ptr<NewestSlot<T>> slot;
};

}  // namespace internal

/// Sends a T to one module such that the newest wins: while an event of this object waits in the
/// target's queue, a further value takes the place of the one that it would bring, and no further
/// event is queued. For what is told often and looked at seldom: a position, a signal's quality.
///
///     NewestEvent<Position> m_position{m_hub, kPosition, kScreen};
///     m_position.send({17, 4});
///
///     hub.registerHandler(kPosition, [](std::shared_ptr<BrowserEvent> event) {
///         if (const auto position = newest<Position>(event)) show(*position);
///     });
///
/// T is as makeEvent() takes it, and can be moved. For one receiver: of several, the first one gets
/// the value.
///
/// Thread-safety: any thread may send at any time. The object may go while an event is queued; it
/// does not own the hub, which must outlive it.
template <typename T>
class TEVALON_BASE_LOCAL NewestEvent {
public:
    /// @param hub        The sender's.
    /// @param eventType  Of the events.
    /// @param target     The module that gets them.
    NewestEvent(EventHub& hub, std::int32_t eventType, std::int32_t target)
        : m_hub(hub), m_eventType(eventType), m_target(target) {}

    NewestEvent(const NewestEvent&) = delete;
    NewestEvent& operator=(const NewestEvent&) = delete;

    /// Returns what EventHub::sendEvent() has, or 0 where the value goes with an event that waits.
    /// Where it was refused the value is kept for nobody: the next send() replaces it. Throws
    /// std::bad_alloc.
    std::int32_t send(T value) {
        std::optional<T> replaced(std::move(value));  // Destroyed without the lock.
        std::shared_ptr<BrowserEvent> event;          // Likewise: its payload takes the lock.
        const std::lock_guard<std::mutex> lock(m_slot->mutex);
        m_slot->value.swap(replaced);
        if (m_slot->p_queued != nullptr) return 0;
        event = makeEvent<Payload>(m_hub, m_eventType, m_slot);
        m_slot->p_queued = payload<Payload>(event);
        // Under the lock, or another sender could leave its value to an event that is then refused.
        // That cannot deadlock: what holds a lock that a send takes, the dispatcher's or a queue's,
        // neither fetches a value nor destroys an event meanwhile.
        const ForgetUnqueued forget{*m_slot, event};
        return m_hub.sendEvent(event, m_target);
    }

private:
    using Payload = internal::NewestPayload<T>;

    // Also where the send throws. Nobody else has the event, nor ever will.
    struct ForgetUnqueued {
        ~ForgetUnqueued() {
            if (event.use_count() == 1) slot.p_queued = nullptr;
        }
        internal::NewestSlot<T>& slot;
        const std::shared_ptr<BrowserEvent>& event;
    };

    EventHub& m_hub;
    const std::int32_t m_eventType;
    const std::int32_t m_target;
    const std::shared_ptr<internal::NewestSlot<T>> m_slot{new internal::NewestSlot<T>};
};

/// The newest value, once: nothing where it has been fetched, or where @p event is none of a
/// NewestEvent<T>. What is sent from now on comes with another event.
template <typename T>
TEVALON_BASE_LOCAL std::optional<T> newest(const std::shared_ptr<BrowserEvent>& event) {
    const auto* const p_payload = payload<internal::NewestPayload<T>>(event);
    std::optional<T> value;
    if (p_payload == nullptr) return value;
    internal::NewestSlot<T>& slot = *p_payload->slot;
    const std::lock_guard<std::mutex> lock(slot.mutex);
    if (slot.p_queued != p_payload) return value;  // What is there is another event's.
    slot.p_queued = nullptr;
    value.swap(slot.value);
    return value;
}

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_NEWEST_EVENT_H

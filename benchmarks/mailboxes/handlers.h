// handlers.h: what the peers' mailboxes have in common: events, and handlers found by type.

#ifndef BENCHMARKS_MAILBOXES_HANDLERS_H
#define BENCHMARKS_MAILBOXES_HANDLERS_H

#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace bench {

/// The module that sends every event, and the reply that every synchronous one gets.
inline constexpr int kSender = 1;
inline constexpr int kReply = 7;

/// What an event carries: a block of its own on the heap, as clients derive theirs from a base.
struct Payload {
    explicit Payload(int number_) : number(number_) {}
    virtual ~Payload() = default;

    Payload(const Payload&) = delete;
    Payload& operator=(const Payload&) = delete;

    const int number;
};

/// An event as the peers send it: on the heap, shared by sender and receiver.
struct Event {
    explicit Event(int type_) : type(type_) {}
    virtual ~Event() = default;
    virtual void replyResult(int) {}

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    const int source = kSender;
    const int type;
    std::unique_ptr<Payload> payload;
};

inline int numberOf(const Event& event) {
    return event.payload->number;
}

/// An event with a reply, for the peers that bring nothing of their own to wait for one.
struct PromisedEvent : Event {
    using Event::Event;
    void replyResult(int result) override { reply.set_value(result); }

    std::promise<int> reply;
};

template <typename EventPointer>
struct TypedHandler {
    int type;
    std::function<void(EventPointer)> handle;
};

/// The callables of one receiver; the first that was made for the event's type gets it.
template <typename EventPointer>
class Handlers {
public:
    explicit Handlers(std::vector<TypedHandler<EventPointer>> handlers)
        : m_handlers(std::move(handlers)) {}

    void handle(EventPointer event) const {
        for (const TypedHandler<EventPointer>& handler : m_handlers) {
            if (handler.type == event->type) return handler.handle(std::move(event));
        }
    }

private:
    const std::vector<TypedHandler<EventPointer>> m_handlers;
};

using EventPointer = std::shared_ptr<Event>;

/// What all mailboxes but ours share that deliver an EventPointer.
class EventMaker {
public:
    using Pointer = EventPointer;
    using HandlerList = std::vector<TypedHandler<EventPointer>>;

    EventPointer create(int type) const { return std::make_shared<Event>(type); }

    EventPointer createWithPayload(int type) const {
        EventPointer event = create(type);
        event->payload = std::make_unique<Payload>(type);
        return event;
    }
};

/// One event to all: each peer's mailbox gets the same one.
template <typename Mailbox>
void broadcast(const std::vector<std::unique_ptr<Mailbox>>& mailboxes, int type) {
    const typename Mailbox::Pointer event = mailboxes.front()->createWithPayload(type);
    for (const std::unique_ptr<Mailbox>& mailbox : mailboxes) mailbox->post(event);
}

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_HANDLERS_H

// libevent_mailbox.h: libevent, a thread in event_base_loop() that is given events to run once.

#ifndef BENCHMARKS_MAILBOXES_LIBEVENT_MAILBOX_H
#define BENCHMARKS_MAILBOXES_LIBEVENT_MAILBOX_H

#include <event2/event.h>

#include <memory>
#include <utility>

#include "mailboxes/handlers.h"
#include "support/libevent_loop.h"

namespace bench {

class LibeventMailbox : public EventMaker {
public:
    static constexpr const char* kName = "libevent";

    explicit LibeventMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {}

    void post(EventPointer event) { m_loop.runOnce(deliver, new Delivery{this, std::move(event)}); }

    int call(int type) {
        const auto event = std::make_shared<PromisedEvent>(type);
        std::future<int> reply = event->reply.get_future();
        post(event);
        return reply.get();
    }

private:
    struct Delivery {
        LibeventMailbox* p_mailbox;
        EventPointer event;
    };

    static void deliver(evutil_socket_t, short, void* p_data) {
        const std::unique_ptr<Delivery> delivery(static_cast<Delivery*>(p_data));
        delivery->p_mailbox->m_handlers.handle(std::move(delivery->event));
    }

    const Handlers<EventPointer> m_handlers;
    LibeventLoop m_loop;
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_LIBEVENT_MAILBOX_H

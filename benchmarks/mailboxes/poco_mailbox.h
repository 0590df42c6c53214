// poco_mailbox.h: POCO, a thread at a NotificationQueue; the event is the notification.

#ifndef BENCHMARKS_MAILBOXES_POCO_MAILBOX_H
#define BENCHMARKS_MAILBOXES_POCO_MAILBOX_H

#include <Poco/AutoPtr.h>
#include <Poco/Event.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>

#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "mailboxes/handlers.h"

namespace bench {

class PocoEvent : public Poco::Notification {
public:
    explicit PocoEvent(int type_) : type(type_) {}
    virtual void replyResult(int) {}

    const int source = kSender;
    const int type;
    std::unique_ptr<Payload> payload;
};

inline int numberOf(const PocoEvent& event) {
    return event.payload->number;
}

class PocoCall : public PocoEvent {
public:
    using PocoEvent::PocoEvent;
    void replyResult(int result) override {
        m_reply = result;
        m_hasReply.set();
    }
    int waitForResult() {
        m_hasReply.wait();
        return m_reply;
    }

private:
    Poco::Event m_hasReply;
    int m_reply = 0;
};

class PocoMailbox {
public:
    static constexpr const char* kName = "POCO";
    using Pointer = Poco::AutoPtr<PocoEvent>;
    using HandlerList = std::vector<TypedHandler<Pointer>>;

    explicit PocoMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {}
    ~PocoMailbox() {
        m_queue.enqueueNotification(new End);
        m_thread.join();
    }

    Pointer create(int type) const { return new PocoEvent(type); }

    Pointer createWithPayload(int type) const {
        Pointer event = create(type);
        event->payload = std::make_unique<Payload>(type);
        return event;
    }

    void post(const Pointer& event) { m_queue.enqueueNotification(event); }

    int call(int type) {
        Poco::AutoPtr<PocoCall> event = new PocoCall(type);
        m_queue.enqueueNotification(event);
        return event->waitForResult();
    }

private:
    class End : public Poco::Notification {};

    void run() {
        while (true) {
            Poco::AutoPtr<Poco::Notification> next = m_queue.waitDequeueNotification();
            auto* const p_event = dynamic_cast<PocoEvent*>(next.get());
            if (p_event == nullptr) return;
            m_handlers.handle(Pointer(p_event, /*shared=*/true));
        }
    }

    const Handlers<Pointer> m_handlers;
    Poco::NotificationQueue m_queue;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_POCO_MAILBOX_H

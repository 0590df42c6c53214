// our_mailbox.h: an event hub behind the dispatcher.

#ifndef BENCHMARKS_MAILBOXES_OUR_MAILBOX_H
#define BENCHMARKS_MAILBOXES_OUR_MAILBOX_H

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include "base/event_dispatcher.h"
#include "mailboxes/handlers.h"
#include "support/rows.h"

namespace bench {

struct OurPayload : tevalon::base::event_dispatcher::EventParam {
    explicit OurPayload(int number_) : number(number_) {}

    const int number;
};

inline int numberOf(const tevalon::base::event_dispatcher::BrowserEvent& event) {
    return static_cast<const OurPayload*>(event.param)->number;
}

class OurMailbox {
public:
    static constexpr const char* kName = kOurs;
    using Pointer = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;
    using HandlerList = std::vector<TypedHandler<Pointer>>;

    explicit OurMailbox(HandlerList handlers) : m_sender(kSender), m_receiver(nextModule()) {
        for (TypedHandler<Pointer>& handler : handlers) {
            m_receiver.registerHandler(handler.type, std::move(handler.handle));
        }
        tevalon::base::event_dispatcher::evtdispch_register_hub(&m_receiver);
    }
    ~OurMailbox() { tevalon::base::event_dispatcher::evtdispch_unregister_hub(&m_receiver); }

    Pointer create(int type) const { return m_sender.createEvent(type); }

    Pointer createWithPayload(int type) const {
        Pointer event = create(type);
        event->param = new OurPayload(type);
        return event;
    }

    void post(Pointer event) { m_sender.sendEvent(std::move(event), m_receiver.moduleId()); }

    int call(int type) {
        constexpr int kNoLimit = -1;
        return m_sender.sendEventSync(create(type), m_receiver.moduleId(), kNoLimit);
    }

    void postToAll(int type) {
        m_sender.sendEvent(createWithPayload(type), tevalon::base::event_dispatcher::kAnyModule);
    }

private:
    static int nextModule() {
        static std::atomic<int> s_last{kSender};
        return ++s_last;
    }

    tevalon::base::event_dispatcher::EventHub m_sender;
    tevalon::base::event_dispatcher::EventHub m_receiver;
};

/// The dispatcher does it in one go.
inline void broadcast(const std::vector<std::unique_ptr<OurMailbox>>& mailboxes, int type) {
    mailboxes.front()->postToAll(type);
}

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_OUR_MAILBOX_H

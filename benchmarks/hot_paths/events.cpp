#include <memory>
#include <vector>

#include "base/event_dispatcher.h"
#include "hot_paths/gate.h"
#include "hot_paths/hot_path.h"

namespace bench {
namespace {

namespace events = tevalon::base::event_dispatcher;
using Event = std::shared_ptr<events::BrowserEvent>;

constexpr int kSender = 1;
constexpr int kReceiver = 1000;
constexpr int kHoldType = 1;
constexpr int kLastType = 2;
constexpr int kType = 100;

/// A hub whose thread is kept in a handler while events are queued.
class HeldReceiver {
public:
    /// @param handlers  How many the hub has from kType on; the last gets the events.
    explicit HeldReceiver(int handlers = 1) : m_type(kType + handlers - 1), m_hub(kReceiver) {
        for (int type = kType; type <= m_type; ++type) m_hub.registerHandler(type, [](Event) {});
        m_hub.registerHandler(kHoldType, [this](Event) { m_hold.keep(); });
        m_hub.registerHandler(kLastType, [this](Event) { m_last.keep(); });
        events::evtdispch_register_hub(&m_hub);
        send(kHoldType);
        m_hold.waitUntilThere();
    }
    ~HeldReceiver() {
        m_hold.release();
        m_last.release();
        events::evtdispch_unregister_hub(&m_hub);
    }

    HeldReceiver(const HeldReceiver&) = delete;
    HeldReceiver& operator=(const HeldReceiver&) = delete;

    std::vector<Event> create(int count) const {
        std::vector<Event> created;
        for (int i = 0; i < count; ++i) created.push_back(m_sender.createEvent(m_type));
        return created;
    }
    void post(Event event) { m_sender.sendEvent(std::move(event), kReceiver); }
    void call(Event event) { m_sender.sendEventSync(std::move(event), kReceiver, 0); }

    /// The events that are queued, and those only: the thread is kept in the last one's handler.
    void drain() {
        m_hold.release();
        m_last.waitUntilThere();
    }
    void queueLast() { send(kLastType); }

private:
    void send(int type) { m_sender.sendEvent(m_sender.createEvent(type), kReceiver); }

    Hold m_hold;
    Hold m_last;
    const int m_type;
    events::EventHub m_sender{kSender};
    events::EventHub m_hub;
};

/// Hubs that stand in front of the receiver in the dispatcher's list.
class OtherHubs {
public:
    explicit OtherHubs(int count) {
        for (int i = 1; i <= count; ++i) {
            m_hubs.push_back(std::make_unique<events::EventHub>(kReceiver + i));
            events::evtdispch_register_hub(m_hubs.back().get());
        }
    }
    ~OtherHubs() {
        for (const auto& hub : m_hubs) events::evtdispch_unregister_hub(hub.get());
    }

    OtherHubs(const OtherHubs&) = delete;
    OtherHubs& operator=(const OtherHubs&) = delete;

private:
    std::vector<std::unique_ptr<events::EventHub>> m_hubs;
};

void createEvents(int count) {
    const events::EventHub hub(kSender);
    const Counted counted;
    for (int i = 0; i < count; ++i) (void)hub.createEvent(kType);
}

void postAll(HeldReceiver* p_receiver, std::vector<Event> created) {
    for (Event& event : created) p_receiver->post(std::move(event));
}

void sendEvents(int count) {
    HeldReceiver receiver;
    std::vector<Event> created = receiver.create(count);
    const Counted counted;
    postAll(&receiver, std::move(created));
}

void sendAmongTen(int count) {
    constexpr int kHubs = 10;
    constexpr int kHandlers = 10;
    const OtherHubs others(kHubs - 1);
    HeldReceiver receiver(kHandlers);
    std::vector<Event> created = receiver.create(count);
    const Counted counted;
    postAll(&receiver, std::move(created));
}

void drainEvents(int count) {
    HeldReceiver receiver;
    postAll(&receiver, receiver.create(count));
    receiver.queueLast();
    const Counted counted;
    receiver.drain();
}

// The reply never comes and is not waited for: the rest depends on which thread is faster.
void callWithoutReply(int count) {
    HeldReceiver receiver;
    std::vector<Event> created = receiver.create(count);
    const Counted counted;
    for (Event& event : created) receiver.call(std::move(event));
}

}  // namespace

void addEventPaths(HotPaths* p_paths) {
    constexpr int kCount = 100;
    p_paths->push_back({"events/create", kCount, createEvents});
    p_paths->push_back({"events/send", kCount, sendEvents});
    p_paths->push_back({"events/send_10_hubs_10_handlers", kCount, sendAmongTen});
    p_paths->push_back({"events/drain", kCount, drainEvents});
    p_paths->push_back({"sync_events/call_without_reply", kCount, callWithoutReply});
}

}  // namespace bench

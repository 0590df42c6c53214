// Hubs that send each other events, and hubs that come and go.

#include <array>
#include <atomic>
#include <thread>

#include "base/event_dispatcher.h"
#include "stress/station.h"

namespace stress {
namespace {

using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kNotice = 1;
constexpr std::int32_t kRequest = 2;
constexpr std::int32_t kFirstModule = 100;
constexpr std::int32_t kHubs = 3;
constexpr std::int32_t kGuestModule = 200;
constexpr long kMostPending = 5000;

struct HubAccount {
    std::atomic<long> created{0};
    std::atomic<long> deleted{0};
    std::atomic<long> noticed{0};
    std::atomic<long> sent{0};
};

/// A payload that counts its deletion.
class CountedPayload : public EventParam {
public:
    explicit CountedPayload(HubAccount* p_account) : m_account(p_account) { ++m_account->created; }
    ~CountedPayload() override { ++m_account->deleted; }

private:
    HubAccount* m_account;
};

class EventHubStation : public Station {
public:
    EventHubStation() {
        for (std::int32_t i = 0; i < kHubs; ++i) {
            auto& hub = m_hubs[static_cast<std::size_t>(i)];
            hub = std::make_unique<EventHub>(kFirstModule + i);
            (void)hub->registerHandler(
                kNotice, [this](std::shared_ptr<BrowserEvent>) { ++m_account.noticed; });
            (void)hub->registerHandler(kRequest, [](std::shared_ptr<BrowserEvent> event) {
                (void)event->replyResult(event->srcModule);
            });
            (void)evtdispch_register_hub(hub.get());
        }
    }

    void step(std::mt19937& random) override {
        const auto dice = [&random](int sides) {
            return std::uniform_int_distribution<std::int32_t>(0, sides - 1)(random);
        };
        EventHub& source = *m_hubs[static_cast<std::size_t>(dice(kHubs))];
        const std::int32_t target = kFirstModule + dice(kHubs);
        switch (dice(6)) {
            case 0:
                ask(source, target);
                break;
            case 1:
                beGuest(source);
                break;
            default:
                send(source, target);
        }
    }

    std::vector<Balance> settle() override {
        while (m_account.noticed < m_account.sent) std::this_thread::yield();
        for (const auto& hub : m_hubs) {
            (void)evtdispch_unregister_hub(hub.get());
        }
        for (auto& hub : m_hubs) hub.reset();
        return {{{m_account.sent, "events sent"}, {{m_account.noticed, "handled"}}},
                {{m_asked, "questions asked"}, {{m_answered, "answered"}}},
                {{m_account.created, "payloads created"}, {{m_account.deleted, "deleted"}}},
                {{m_failures, "events refused"}, {}}};
    }

private:
    std::shared_ptr<BrowserEvent> newEvent(EventHub& source, std::int32_t type) {
        auto event = source.createEvent(type);
        event->param = new CountedPayload(&m_account);
        return event;
    }

    void send(EventHub& source, std::int32_t target) {
        if (m_account.sent - m_account.noticed > kMostPending) {
            std::this_thread::yield();
            return;
        }
        ++m_account.sent;
        if (source.sendEvent(newEvent(source, kNotice), target) != 0) ++m_failures;
    }

    void ask(EventHub& source, std::int32_t target) {
        ++m_asked;
        const std::int32_t answer = source.sendEventSync(newEvent(source, kRequest), target, -1);
        if (answer == source.moduleId()) ++m_answered;
    }

    /// A hub that is there for a moment; its events are handled or go with it.
    void beGuest(EventHub& source) {
        EventHub guest(kGuestModule);
        (void)guest.registerHandler(kNotice, [](std::shared_ptr<BrowserEvent>) {});
        (void)evtdispch_register_hub(&guest);
        for (int i = 0; i < 3; ++i) (void)source.sendEvent(newEvent(source, kNotice), kGuestModule);
        (void)evtdispch_unregister_hub(&guest);
    }

    HubAccount m_account;
    std::atomic<long> m_asked{0};
    std::atomic<long> m_answered{0};
    std::atomic<long> m_failures{0};
    std::array<std::unique_ptr<EventHub>, kHubs> m_hubs;
};

}  // namespace

std::unique_ptr<Station> makeEventHubStation() {
    return std::make_unique<EventHubStation>();
}

}  // namespace stress

// Many hubs, many senders, hubs that come and go: what a set sees on a busy evening.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "event_dispatcher/event_fixtures.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kNotice = 1;
constexpr std::int32_t kRequest = 2;
constexpr std::int32_t kUnanswered = 3;
constexpr std::int32_t kModules = 3;

class EventTrafficTest : public testing::Test {
protected:
    std::shared_ptr<BrowserEvent> newEvent(EventHub& hub, std::int32_t type) {
        ++m_created;
        auto event = hub.createEvent(type);
        event->param = new CountedParam(&m_deletions);
        return event;
    }

    void registerHandlers(EventHub& hub) {
        hub.registerHandler(kNotice, [this](std::shared_ptr<BrowserEvent>) { ++m_handled; });
        hub.registerHandler(kRequest, [this](std::shared_ptr<BrowserEvent> event) {
            ++m_handled;
            event->replyResult(42);
        });
        hub.registerHandler(kUnanswered, [this](std::shared_ptr<BrowserEvent>) { ++m_handled; });
    }

    /// Sends one event in a manner that @p n picks; counts results that there are not.
    void sendOne(EventHub& hub, int n) {
        const std::int32_t target = n % (kModules + 1) == 0 ? kAnyModule : 100 + n % kModules;
        std::int32_t result = 0;
        switch (n % 4) {
            case 0:
                result = hub.sendEvent(newEvent(hub, kNotice), target);
                if (result != 0 && result != -1) ++m_odd;
                break;
            case 1:
                result = hub.sendEventSync(newEvent(hub, kRequest), target, 1);
                if (result != 42 && result != 1 && result != -1) ++m_odd;
                break;
            case 2:
                result = hub.sendEventSync(newEvent(hub, kUnanswered), target, 0);
                if (result != 1 && result != -1) ++m_odd;
                break;
            default:
                result = hub.sendEvent(newEvent(hub, kUnanswered + 1), target);
                if (result != -1) ++m_odd;
        }
    }

    test::LogCapture m_log{kLogInfo};  // Logging takes part in the traffic.
    std::atomic<int> m_created{0};
    std::atomic<int> m_deletions{0};
    std::atomic<int> m_handled{0};
    std::atomic<int> m_odd{0};
};

TEST_F(EventTrafficTest, EveryPayloadIsDeletedOnceWhileHubsComeAndGo) {
    constexpr int kSenders = 3;
    constexpr int kSends = 120;
    constexpr int kRounds = 30;
    {
        EventHub source(1);
        std::vector<std::unique_ptr<EventHub>> hubs;
        for (std::int32_t i = 0; i < kModules; ++i) {
            hubs.push_back(std::make_unique<EventHub>(100 + i));
            registerHandlers(*hubs.back());
            evtdispch_register_hub(hubs.back().get());
        }

        test::runAtOnce(kSenders + 2, [&](int i) {
            if (i < kSenders) {
                for (int n = 0; n < kSends; ++n) sendOne(source, n + i);
            } else if (i == kSenders) {
                // One of the hubs leaves and joins again with a fresh thread.
                for (std::int32_t round = 0; round < kRounds; ++round) {
                    evtdispch_unregister_hub(hubs[0].get());
                    hubs[0]->registerHandler(1000 + round, [](std::shared_ptr<BrowserEvent>) {});
                    evtdispch_register_hub(hubs[0].get());
                }
            } else {
                // Short-lived hubs of a module that exists already.
                for (int round = 0; round < kRounds; ++round) {
                    EventHub hub(101);
                    registerHandlers(hub);
                    evtdispch_register_hub(&hub);
                    sendOne(hub, round);
                    evtdispch_unregister_hub(&hub);
                }
            }
        });

        for (const auto& p_hub : hubs) evtdispch_unregister_hub(p_hub.get());
    }

    EXPECT_EQ(m_odd, 0);
    EXPECT_GT(m_handled, 0);
    EXPECT_EQ(m_deletions, m_created);
}

TEST_F(EventTrafficTest, RepliesAndTimeoutsRaceWithoutHarm) {
    EventHub source(1);
    EventHub target(100);
    registerHandlers(target);
    evtdispch_register_hub(&target);

    test::runAtOnce(2, [&](int) {
        for (int n = 0; n < 300; ++n) {
            const std::int32_t result =
                source.sendEventSync(newEvent(source, kRequest), 100, n % 2);
            if (result != 42 && result != kEventResultTimeout) ++m_odd;
        }
    });
    evtdispch_unregister_hub(&target);

    EXPECT_EQ(m_odd, 0);
}

TEST_F(EventTrafficTest, HubsThatAskEachOtherAllGetTheirAnswers) {
    // A ring in which each hub's handler asks the next one, as far as the last.
    constexpr std::int32_t kHubs = 5;
    constexpr int kRounds = 40;
    std::vector<std::unique_ptr<EventHub>> hubs;
    for (std::int32_t i = 0; i < kHubs; ++i) {
        hubs.push_back(std::make_unique<EventHub>(200 + i));
        EventHub* const p_hub = hubs.back().get();
        p_hub->registerHandler(kRequest, [p_hub, i](std::shared_ptr<BrowserEvent> event) {
            if (i + 1 == kHubs) {
                event->replyResult(0);
                return;
            }
            auto question = p_hub->createEvent(kRequest);
            event->replyResult(p_hub->sendEventSync(question, 200 + i + 1, -1) + 1);
        });
        evtdispch_register_hub(p_hub);
    }
    EventHub source(1);
    std::atomic<int> wrong{0};

    test::runAtOnce(2, [&](int) {
        for (int n = 0; n < kRounds; ++n) {
            if (source.sendEventSync(source.createEvent(kRequest), 200, -1) != kHubs - 1) ++wrong;
        }
    });
    for (const auto& p_hub : hubs) evtdispch_unregister_hub(p_hub.get());

    EXPECT_EQ(wrong, 0);
}

TEST_F(EventTrafficTest, EventsOfOneSenderArriveInOrder) {
    constexpr int kSenders = 3;
    constexpr std::int32_t kEvents = 200;
    EventHub target(100);
    std::vector<std::int32_t> next(kSenders, 0);
    std::atomic<int> outOfOrder{0};
    test::Countdown left(kSenders * kEvents);
    for (std::int32_t type = 0; type < kEvents; ++type) {
        target.registerHandler(type, [&](std::shared_ptr<BrowserEvent> event) {
            // Handlers run one at a time: no lock is needed.
            std::int32_t& expected = next[static_cast<std::size_t>(event->srcModule)];
            if (event->eventType != expected) ++outOfOrder;
            expected = event->eventType + 1;
            left.arrive();
        });
    }
    evtdispch_register_hub(&target);

    test::runAtOnce(kSenders, [&](int sender) {
        EventHub source(sender);
        for (std::int32_t type = 0; type < kEvents; ++type) {
            if (source.sendEvent(source.createEvent(type), 100) != 0) ++m_odd;
        }
    });
    const bool all = left.wait();
    evtdispch_unregister_hub(&target);

    EXPECT_TRUE(all);
    EXPECT_EQ(m_odd, 0);
    EXPECT_EQ(outOfOrder, 0);
}

}  // namespace

#include "base/event_dispatcher/newest_event.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using Event = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kSender = 71;
constexpr std::int32_t kReceiver = 72;
constexpr std::int32_t kType = 5;
constexpr std::int32_t kHeld = 6;

/// A receiver that notes what it fetches, and can be held in a handler.
class NewestEventTest : public testing::Test {
protected:
    NewestEventTest() {
        (void)m_receiver.registerHandler(kType, [this](const Event& event) {
            const auto value = newest<std::string>(event);
            m_fetched.push_back(value ? *value : "nothing");
            EXPECT_FALSE(newest<std::string>(event).has_value());
        });
        (void)m_receiver.registerHandler(kHeld, [this](const Event& event) {
            m_entered.set();
            EXPECT_TRUE(m_release.wait());
            event->replyResult(0);
        });
        EXPECT_EQ(evtdispch_register_hub(&m_receiver), 0);
    }
    ~NewestEventTest() override {
        m_release.set();
        (void)evtdispch_unregister_hub(&m_receiver);
    }

    void hold() {
        EXPECT_EQ(m_sender.sendEvent(m_sender.createEvent(kHeld), kReceiver), 0);
        ASSERT_TRUE(m_entered.wait());
    }
    /// What has been fetched when all that was sent is handled.
    std::vector<std::string> fetched() {
        m_release.set();
        EXPECT_EQ(m_sender.sendEventSync(m_sender.createEvent(kHeld), kReceiver, -1), 0);
        return m_fetched;
    }

    test::Event m_entered;
    test::Event m_release;
    std::vector<std::string> m_fetched;  // By the receiver's thread.
    EventHub m_receiver{kReceiver};
    EventHub m_sender{kSender};
    NewestEvent<std::string> m_newest{m_sender, kType, kReceiver};
};

using Texts = std::vector<std::string>;

TEST_F(NewestEventTest, WhileOneWaitsTheNewestReplacesIt) {
    hold();
    for (const char* text : {"one", "two", "three"}) EXPECT_EQ(m_newest.send(text), 0);
    EXPECT_EQ(m_receiver.queueLength(), 1U);

    EXPECT_EQ(fetched(), Texts{"three"});
}

TEST_F(NewestEventTest, OneThatWasFetchedIsFollowedByAnother) {
    EXPECT_EQ(m_newest.send("one"), 0);
    EXPECT_EQ(fetched(), Texts{"one"});
    EXPECT_EQ(m_newest.send("two"), 0);
    EXPECT_EQ(fetched(), (Texts{"one", "two"}));
}

TEST_F(NewestEventTest, EachObjectHasItsOwn) {
    NewestEvent<std::string> other(m_sender, kType, kReceiver);
    hold();
    EXPECT_EQ(m_newest.send("one"), 0);
    EXPECT_EQ(other.send("other"), 0);
    EXPECT_EQ(m_newest.send("two"), 0);

    EXPECT_EQ(fetched(), (Texts{"two", "other"}));
}

TEST_F(NewestEventTest, RefusedItIsSentAgain) {
    m_receiver.setQueueLimit(1);
    hold();
    EXPECT_EQ(m_sender.sendEvent(m_sender.createEvent(kHeld), kReceiver), 0);
    EXPECT_EQ(m_newest.send("refused"), kEventQueueFull);
    m_receiver.setQueueLimit(0);
    EXPECT_EQ(m_newest.send("taken"), 0);
    EXPECT_EQ(m_receiver.queueLength(), 2U);

    EXPECT_EQ(fetched(), Texts{"taken"});
}

// None goes with an event that is about to be refused.
TEST_F(NewestEventTest, OfSendersAtOnceAllAreRefused) {
    NewestEvent<int> toNobody(m_sender, kType, kReceiver + 1);
    const auto send = [&] {
        for (int i = 0; i < 20000; ++i) ASSERT_EQ(toNobody.send(i), -1);
    };
    std::thread other(send);
    send();
    other.join();
}

TEST_F(NewestEventTest, DroppedWithTheQueueItIsSentAgain) {
    NewestEvent<std::string> toAnother(m_sender, kType, kReceiver + 1);
    {
        EventHub another(kReceiver + 1);
        (void)another.registerHandler(kType, [](const Event&) {});
        (void)another.registerHandler(kHeld, [this](const Event&) {
            m_entered.set();
            EXPECT_TRUE(m_release.wait());
        });
        EXPECT_EQ(evtdispch_register_hub(&another), 0);
        EXPECT_EQ(m_sender.sendEvent(m_sender.createEvent(kHeld), kReceiver + 1), 0);
        ASSERT_TRUE(m_entered.wait());
        EXPECT_EQ(toAnother.send("dropped"), 0);
        m_release.set();
        (void)evtdispch_unregister_hub(&another);
    }
    EXPECT_NE(toAnother.send("refused"), 0);
    EXPECT_NE(toAnother.send("refused again"), 0);
}

TEST_F(NewestEventTest, MayGoWhileItsEventWaits) {
    hold();
    {
        NewestEvent<std::string> shortLived(m_sender, kType, kReceiver);
        EXPECT_EQ(shortLived.send("last words"), 0);
    }
    EXPECT_EQ(fetched(), Texts{"last words"});
}

TEST_F(NewestEventTest, OtherEventsHaveNone) {
    EXPECT_EQ(newest<int>(nullptr), std::nullopt);
    EXPECT_EQ(newest<int>(m_sender.createEvent(kType)), std::nullopt);
    EXPECT_EQ(newest<int>(makeEvent<int>(m_sender, kType, 5)), std::nullopt);
}

TEST_F(NewestEventTest, TheLastOfManySendersArrives) {
    constexpr int kRounds = 2000;
    std::vector<std::thread> senders;
    for (int sender = 0; sender < 2; ++sender) {
        senders.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) EXPECT_EQ(m_newest.send("early"), 0);
        });
    }
    for (std::thread& thread : senders) thread.join();
    EXPECT_EQ(m_newest.send("last"), 0);

    const Texts texts = fetched();
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.back(), "last");
    EXPECT_LE(texts.size(), 2U * kRounds + 1);
    for (const std::string& text : texts) EXPECT_NE(text, "nothing");
}

}  // namespace

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "event_dispatcher/event_fixtures.h"
#include "support/contention.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using Event = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kModule = 81;
constexpr std::int32_t kType = 5;
constexpr std::int32_t kHeld = 6;

/// A hub whose thread is in a handler until it is released.
class QueueLimitTest : public testing::Test {
protected:
    QueueLimitTest() {
        EXPECT_EQ(m_hub.registerHandler(kType, m_inbox.handler()), 0);
        EXPECT_EQ(m_hub.registerHandler(kHeld,
                                        [this](Event) {
                                            m_entered.set();
                                            EXPECT_TRUE(m_release.wait());
                                        }),
                  0);
    }
    ~QueueLimitTest() override { m_release.set(); }

    std::int32_t send() { return m_hub.receiveEvent(m_hub.createEvent(kType)); }
    void hold() {
        ASSERT_EQ(m_hub.receiveEvent(m_hub.createEvent(kHeld)), 0);
        ASSERT_TRUE(m_entered.wait());
    }

    test::Event m_entered;
    test::Event m_release;
    Inbox m_inbox;
    test::LogCapture m_log{kLogError};
    EventHub m_hub{kModule};
};

TEST_F(QueueLimitTest, AHubWithoutHandlersHasNothingWaiting) {
    EXPECT_EQ(EventHub(1).queueLength(), 0U);
}

TEST_F(QueueLimitTest, TheEventInItsHandlerDoesNotWait) {
    hold();

    EXPECT_EQ(m_hub.queueLength(), 0U);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(m_hub.queueLength(), 2U);
}

TEST_F(QueueLimitTest, AFullHubRefuses) {
    hold();
    m_hub.setQueueLimit(2);

    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), kEventQueueFull);
    EXPECT_EQ(m_hub.queueLength(), 2U);
    m_release.set();
    ASSERT_TRUE(m_inbox.waitFor(2));

    EXPECT_EQ(send(), 0);
    ASSERT_TRUE(m_inbox.waitFor(3));
    EXPECT_TRUE(m_log.entries().empty());
}

// The thread takes many events at once, and handles them one by one.
TEST_F(QueueLimitTest, WhatTheThreadHasTakenWaitsStill) {
    test::Event entered;
    test::Event release;
    ASSERT_EQ(m_hub.registerHandler(kHeld + 1,
                                    [&](Event) {
                                        entered.set();
                                        EXPECT_TRUE(release.wait());
                                    }),
              0);
    hold();
    ASSERT_EQ(m_hub.receiveEvent(m_hub.createEvent(kHeld + 1)), 0);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), 0);
    m_hub.setQueueLimit(3);
    m_release.set();
    ASSERT_TRUE(entered.wait());

    EXPECT_EQ(m_hub.queueLength(), 2U);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), kEventQueueFull);

    release.set();
    ASSERT_TRUE(m_inbox.waitFor(3));
}

TEST_F(QueueLimitTest, IsTakenAway) {
    hold();
    m_hub.setQueueLimit(1);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(send(), kEventQueueFull);

    m_hub.setQueueLimit(0);

    EXPECT_EQ(send(), 0);
}

TEST_F(QueueLimitTest, IsSetWhileNobodyCountsNorAsksForTheThread) {
    hold();
    const auto set = [&] { m_hub.setQueueLimit(2); };

    EXPECT_TRUE(test::keepsWaiting(set, [&] { EXPECT_EQ(m_hub.queueLength(), 0U); }));
    EXPECT_TRUE(test::keepsWaiting(
        set, [&] { EXPECT_EQ(m_hub.registerHandler(kHeld + 1, m_inbox.handler()), 0); }));
}

TEST(QueueLimitOfANewHubTest, NobodyCountsWhileTheThreadIsPrepared) {
    Inbox inbox;
    EventHub hub(kModule);

    EXPECT_TRUE(test::keepsWaiting([&] { (void)hub.registerHandler(kType, inbox.handler()); },
                                   [&] { EXPECT_EQ(hub.queueLength(), 0U); }));
}

// The handler is registered all the same; the next registration tries again.
TEST(QueueLimitWithoutMemoryTest, HoldsWhereThereIsNoMemoryForTheThread) {
    test::LogCapture log(kLogError);
    Inbox inbox;
    EventHub hub(kModule);
    hub.setQueueLimit(1);
    {
        const test::FailCall fail(test::Call::New, 0);
        ASSERT_EQ(hub.registerHandler(kType, inbox.handler()), 0);
        ASSERT_EQ(fail.hits(), 1);
    }
    EXPECT_EQ(log.entriesWithoutLineNumbers(),
              std::vector<test::LogEntry>{
                  hubLine(kLogError, "registerHandler", "Fail to create EventHandlerThread.\n")});

    EXPECT_EQ(hub.queueLength(), 0U);
    EXPECT_EQ(hub.receiveEvent(hub.createEvent(kType)), 0);
    EXPECT_EQ(hub.receiveEvent(hub.createEvent(kType)), kEventQueueFull);
    EXPECT_EQ(hub.queueLength(), 1U);
    EXPECT_EQ(hub.registerHandler(kHeld, inbox.handler()), 0);
    EXPECT_TRUE(inbox.waitFor(1));
}

TEST_F(QueueLimitTest, SendsSaySo) {
    const HubRegistration registration(&m_hub);
    hold();
    m_hub.setQueueLimit(1);
    EXPECT_EQ(send(), 0);

    EXPECT_EQ(m_hub.sendEvent(m_hub.createEvent(kType), kModule), kEventQueueFull);
    EXPECT_EQ(m_hub.sendAsync(m_hub.createEvent(kType), kModule, -1,
                              [](EventResult, const Event&) { FAIL(); }),
              kEventQueueFull);
    m_log.clear();
    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(kType), kModule, 0), -1);
    EXPECT_EQ(
        m_log.entriesWithoutLineNumbers(),
        std::vector<test::LogEntry>{hubLine(kLogError, "sendEventSync", "Fail to send event.\n")});
    m_release.set();
}

TEST_F(QueueLimitTest, HoldsForSendersAtOnce) {
    constexpr std::uint32_t kLimit = 10;
    hold();
    m_hub.setQueueLimit(kLimit);
    std::atomic<std::uint32_t> taken{0};

    std::vector<std::thread> senders;
    for (int i = 0; i < 4; ++i) {
        senders.emplace_back([&] {
            for (int n = 0; n < 20; ++n) taken += send() == 0 ? 1 : 0;
        });
    }
    for (std::thread& sender : senders) sender.join();

    EXPECT_EQ(taken, kLimit);
    EXPECT_EQ(m_hub.queueLength(), kLimit);
}

}  // namespace

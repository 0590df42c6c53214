// The hub whose implementation could not be allocated.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "base/event_dispatcher/event_hub.h"
#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

void ignore(std::shared_ptr<BrowserEvent>) {}

/// Calls every operation of a hub without an implementation, in vain.
void expectEverythingRefused(EventHub& hub) {
    LogCapture log(kLogInfo);
    const auto event = std::make_shared<BrowserEvent>(3, 5, nullptr);

    EXPECT_EQ(hub.moduleId(), 7);
    EXPECT_EQ(hub.registerHandler(5, ignore), -1);
    EXPECT_EQ(hub.registerHandler(3, 5, ignore), -1);
    EXPECT_EQ(hub.registerHandler(5, nullptr), -1);
    EXPECT_EQ(hub.receiveEvent(event), -1);
    EXPECT_EQ(hub.receiveEvent(nullptr), -1);
    hub.setQueueLimit(3);
    EXPECT_EQ(hub.queueLength(), 0U);
    hub.onHubRegistered();
    hub.onHubUnregistered();

    const auto refused = [](const std::string& function) {
        return hubLine(kLogError, function, "m_impl is NULL.\n");
    };
    const std::vector<LogEntry> expected = {
        refused("registerHandler"), refused("registerHandler"),  refused("registerHandler"),
        refused("receiveEvent"),    refused("receiveEvent"),     refused("setQueueLimit"),
        refused("queueLength"),     refused("onHubUnregistered")};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

/// What needs no implementation still works: it makes events, and sends to others.
void expectItStillSends(EventHub& hub) {
    const LogCapture log;
    Inbox inbox;
    EventHub peer(8);
    peer.registerHandler(5, [&](std::shared_ptr<BrowserEvent> event) {
        event->replyResult(42);
        inbox.take(std::move(event));
    });
    evtdispch_register_hub(&peer);

    EXPECT_EQ(hub.createEvent(5)->srcModule, 7);
    EXPECT_EQ(hub.sendEvent(hub.createEvent(5), 8), 0);
    EXPECT_EQ(hub.sendEventSync(hub.createEvent(5), 8, -1), 42);

    evtdispch_unregister_hub(&peer);
}

void expectTheDispatcherToleratesIt(EventHub& hub) {
    const LogCapture log;
    EXPECT_EQ(evtdispch_register_hub(&hub), 0);
    EXPECT_EQ(evtdispch_send_event(std::make_shared<BrowserEvent>(3, 5, nullptr), 7), -1);
    EXPECT_EQ(evtdispch_unregister_hub(&hub), 0);
}

/// What a handler holds: another thread can use the hub beside it, while it is destroyed.
class HandlerWitness {
public:
    explicit HandlerWitness(std::function<void()> atEnd) : m_atEnd(std::move(atEnd)) {}
    ~HandlerWitness() { m_atEnd(); }

    HandlerWitness(const HandlerWitness&) = delete;
    HandlerWitness& operator=(const HandlerWitness&) = delete;

private:
    const std::function<void()> m_atEnd;
};

TEST(EventHubAllocationTest, AHandlerThatThereIsNoMemoryForIsDestroyedUnlocked) {
    LogCapture log(kLogError);
    EventHub hub(7);
    hub.registerHandler(1, [](const std::shared_ptr<BrowserEvent>&) {});
    test::Event used;
    std::thread user;
    auto witness = std::make_shared<HandlerWitness>([&] {
        user = std::thread([&] {
            (void)hub.registerHandler(3, [](const std::shared_ptr<BrowserEvent>&) {});
            used.set();
        });
        EXPECT_TRUE(used.wait());
    });
    EventHub::Handler handler = [witness](const std::shared_ptr<BrowserEvent>&) {};
    witness.reset();
    {
        test::FailCall fail(Call::New, 0);
        EXPECT_THROW((void)hub.registerHandler(2, std::move(handler)), std::bad_alloc);
        EXPECT_EQ(fail.hits(), 1);
    }
    handler = nullptr;
    EXPECT_TRUE(used.isSet());
    user.join();
}

TEST(EventHubAllocationTest, EachAllocationThatFailsLeavesAHubThatReportsIt) {
    long failures = 0;
    for (int n = 1;; ++n) {
        LogCapture log(kLogInfo);
        std::unique_ptr<EventHub> p_hub;
        long hits = 0;
        {
            // The first allocation is that of the hub itself.
            test::FailCall fail(Call::New, 0, When().nth(n + 1));
            EXPECT_NO_THROW(p_hub = std::make_unique<EventHub>(7));
            hits = fail.hits();
        }
        if (hits == 0) {
            EXPECT_TRUE(log.entries().empty());
            break;
        }
        ++failures;
        const std::vector<LogEntry> expected = {
            hubLine(kLogError, "EventHub", "Fail to create EventHubImpl.\n")};
        EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
        EXPECT_EQ(p_hub->registerHandler(5, ignore), -1);
    }
    EXPECT_GT(failures, 0);
}

class ImplessHubTest : public testing::Test {
protected:
    void SetUp() override {
        const LogCapture log;
        test::FailCall fail(Call::New, 0, When().nth(2).everyTime());
        m_hub = std::make_unique<EventHub>(7);
        ASSERT_GT(fail.hits(), 0);
    }

    std::unique_ptr<EventHub> m_hub;
};

TEST_F(ImplessHubTest, RefusesEveryOperationInItsOwnWords) {
    expectEverythingRefused(*m_hub);
}

TEST_F(ImplessHubTest, StillMakesAndSendsEvents) {
    expectItStillSends(*m_hub);
}

TEST_F(ImplessHubTest, MayBeRegisteredAndUnregistered) {
    expectTheDispatcherToleratesIt(*m_hub);
}

TEST_F(ImplessHubTest, IsDestroyedInSilence) {
    LogCapture log(kLogInfo);

    m_hub.reset();

    EXPECT_TRUE(log.entries().empty());
}

}  // namespace

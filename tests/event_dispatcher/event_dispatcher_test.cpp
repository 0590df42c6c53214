#include "base/event_dispatcher/event_dispatcher.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "event_dispatcher/event_fixtures.h"
#include "support/contention.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

constexpr std::int32_t kType = 5;
constexpr std::int32_t kOtherType = 6;
constexpr std::int32_t kSender = 1;

/// An address as the log shows it.
std::string addressOf(const EventHub* p_hub) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", static_cast<const void*>(p_hub));
    return text;
}

LogEntry registeredLine(const EventHub& hub) {
    return dispatcherLine(kLogInfo, "registerHub",
                          "Register hub:" + addressOf(&hub) +
                              " for moudle:" + std::to_string(hub.moduleId()) + ".\n");
}

LogEntry unregisteredLine(const EventHub& hub) {
    return dispatcherLine(kLogInfo, "unregisterHub",
                          "UnRegister hub:" + addressOf(&hub) +
                              " from module:" + std::to_string(hub.moduleId()) + ".\n");
}

std::shared_ptr<BrowserEvent> makeEvent(std::int32_t type = kType) {
    return std::make_shared<BrowserEvent>(kSender, type, nullptr);
}

/// A dispatcher of its own, and three hubs that leave it in the end.
class EventDispatcherTest : public testing::Test {
protected:
    ~EventDispatcherTest() override {
        for (EventHub* p_hub : {&m_seven, &m_eight, &m_otherSeven}) {
            (void)m_dispatcher.unregisterHub(p_hub);
        }
    }

    /// Lets all three hubs take events of kType into an inbox each.
    void registerAll() {
        m_seven.registerHandler(kType, m_inboxOfSeven.handler());
        m_eight.registerHandler(kType, m_inboxOfEight.handler());
        m_otherSeven.registerHandler(kType, m_inboxOfOtherSeven.handler());
        for (EventHub* p_hub : {&m_seven, &m_eight, &m_otherSeven}) {
            m_dispatcher.registerHub(p_hub);
        }
        m_log.clear();
    }

    LogCapture m_log{kLogInfo};
    EventDispatcher m_dispatcher;
    Inbox m_inboxOfSeven;
    Inbox m_inboxOfEight;
    Inbox m_inboxOfOtherSeven;
    EventHub m_seven{7};
    EventHub m_eight{8};
    EventHub m_otherSeven{7};
};

// Creation.

TEST_F(EventDispatcherTest, SaysThatItWasCreated) {
    const std::vector<LogEntry> expected = {
        dispatcherLine(kLogAlways, "EventDispatcher", "Create EventDispatcher.\n")};

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, HasOneInstancePerProcess) {
    EventDispatcher* const p_first = EventDispatcher::GetInstance();

    EXPECT_NE(p_first, nullptr);
    EXPECT_EQ(EventDispatcher::getInstance(), p_first);
    EXPECT_EQ(EventDispatcher::GetInstance(), p_first);
}

TEST(EventDispatcherDeathTest, IsCreatedOnceByTheFirstOfManyThreads) {
    EXPECT_EXIT(
        {
            LogCapture log(kLogInfo);
            test::runAtOnce(4, [](int) { (void)evtdispch_send_event(makeEvent(), 99); });
            for (const std::string& text : log.texts()) {
                std::fputs(test::withoutLineNumber(text).c_str(), stderr);
            }
            std::_Exit(0);
        },
        testing::ExitedWithCode(0),
        testing::Eq("[EventDispatcher] event_dispatcher.cpp:#:EventDispatcher(): "
                    "Create EventDispatcher.\n"));
}

TEST_F(EventDispatcherTest, IsAPlainClassThatIsNotCopied) {
    EXPECT_FALSE(std::is_polymorphic<EventDispatcher>::value);
    EXPECT_FALSE(std::is_copy_constructible<EventDispatcher>::value);
    EXPECT_FALSE(std::is_copy_assignable<EventDispatcher>::value);
}

// Registering.

TEST_F(EventDispatcherTest, RegisteringIsLoggedAndDoesNothingElseToTheHub) {
    m_log.clear();

    const std::int32_t status = m_dispatcher.registerHub(&m_seven);

    EXPECT_EQ(status, 0);
    const std::vector<LogEntry> expected = {registeredLine(m_seven)};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, RegisteringNullIsRefused) {
    m_log.clear();

    const std::int32_t status = m_dispatcher.registerHub(nullptr);

    EXPECT_EQ(status, 2);
    const std::vector<LogEntry> expected = {
        dispatcherLine(kLogError, "registerHub", "p_hub is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, RegisteringTheSameHubTwiceIsRefusedAndKeepsItListedOnce) {
    m_seven.registerHandler(kType, m_inboxOfSeven.handler());
    m_dispatcher.registerHub(&m_seven);
    m_log.clear();

    const std::int32_t status = m_dispatcher.registerHub(&m_seven);

    EXPECT_EQ(status, 1);
    const std::vector<LogEntry> expected = {
        registeredLine(m_seven),
        dispatcherLine(kLogError, "registerHub",
                       "EventHub:" + addressOf(&m_seven) + " already exists.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
    // Listed once: it gets each event once, and is gone when it is unregistered once.
    const auto first = makeEvent();
    const auto second = makeEvent();
    m_dispatcher.send(first, 7);
    m_dispatcher.send(second, 7);
    ASSERT_TRUE(m_inboxOfSeven.waitFor(2));
    EXPECT_EQ(m_inboxOfSeven.events()[0], first);
    EXPECT_EQ(m_inboxOfSeven.events()[1], second);
    m_dispatcher.unregisterHub(&m_seven);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), -1);
}

TEST_F(EventDispatcherTest, HubsWithTheSameModuleAreBothRegistered) {
    EXPECT_EQ(m_dispatcher.registerHub(&m_seven), 0);
    EXPECT_EQ(m_dispatcher.registerHub(&m_otherSeven), 0);
}

TEST_F(EventDispatcherTest, AHubMayBeRegisteredAgainAfterItWasUnregistered) {
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(m_dispatcher.registerHub(&m_seven), 0);
}

// Unregistering.

TEST_F(EventDispatcherTest, UnregisteringIsLoggedAndStopsTheHubsThread) {
    registerAll();

    const std::int32_t status = m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(status, 0);
    std::vector<LogEntry> expected = {unregisteredLine(m_seven)};
    for (const LogEntry& line : teardownLines()) expected.push_back(line);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, UnregisteringAHubWithoutAThreadSaysSo) {
    m_dispatcher.registerHub(&m_seven);
    m_log.clear();

    const std::int32_t status = m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(status, 0);
    std::vector<LogEntry> expected = {unregisteredLine(m_seven)};
    for (const LogEntry& line : noThreadLines()) expected.push_back(line);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, UnregisteringNullIsRefused) {
    m_log.clear();

    const std::int32_t status = m_dispatcher.unregisterHub(nullptr);

    EXPECT_EQ(status, 2);
    const std::vector<LogEntry> expected = {
        dispatcherLine(kLogError, "unregisterHub", "p_hub is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, UnregisteringAnUnknownHubDoesNotTouchIt) {
    m_seven.registerHandler(kType, m_inboxOfSeven.handler());
    m_log.clear();

    const std::int32_t status = m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(status, 0);
    const std::vector<LogEntry> expected = {unregisteredLine(m_seven)};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
    EXPECT_EQ(m_seven.receiveEvent(makeEvent()), 0);
    EXPECT_TRUE(m_inboxOfSeven.waitFor(1));
}

TEST_F(EventDispatcherTest, UnregisteringTwiceIsAsUnregisteringAnUnknownHub) {
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.unregisterHub(&m_seven);
    m_log.clear();

    const std::int32_t status = m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(status, 0);
    const std::vector<LogEntry> expected = {unregisteredLine(m_seven)};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, UnregisteringOneOfTwoHubsLeavesTheOther) {
    registerAll();

    m_dispatcher.unregisterHub(&m_seven);

    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), 0);
    EXPECT_TRUE(m_inboxOfOtherSeven.waitFor(1));
    EXPECT_TRUE(m_inboxOfSeven.events().empty());
}

TEST_F(EventDispatcherTest, UnregisteringDoesNotHoldUpOtherSenders) {
    registerAll();
    test::Event entered;
    test::Event release;
    m_seven.registerHandler(kOtherType, [&](std::shared_ptr<BrowserEvent>) {
        entered.set();
        (void)release.wait();
    });
    m_dispatcher.send(makeEvent(kOtherType), 7);
    ASSERT_TRUE(entered.wait());
    test::Event joining;
    test::RunAtCall atJoin(
        Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());
    std::thread unregistering([&] { m_dispatcher.unregisterHub(&m_seven); });
    EXPECT_TRUE(joining.wait());

    // The hub's thread is being joined and cannot end yet.
    const std::int32_t status = m_dispatcher.send(makeEvent(), 8);
    const bool delivered = m_inboxOfEight.waitFor(1);

    release.set();
    unregistering.join();
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(delivered);
}

// Sending.

TEST_F(EventDispatcherTest, DeliversToTheHubWithTheTargetsModuleOnly) {
    registerAll();
    const auto event = makeEvent();

    const std::int32_t status = m_dispatcher.send(event, 8);

    EXPECT_EQ(status, 0);
    ASSERT_TRUE(m_inboxOfEight.waitFor(1));
    EXPECT_EQ(m_inboxOfEight.events()[0], event);
    EXPECT_TRUE(m_inboxOfSeven.events().empty());
    EXPECT_TRUE(m_inboxOfOtherSeven.events().empty());
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventDispatcherTest, DeliversToAllHubsWithTheTargetsModule) {
    registerAll();
    const auto event = makeEvent();

    const std::int32_t status = m_dispatcher.send(event, 7);

    EXPECT_EQ(status, 0);
    ASSERT_TRUE(m_inboxOfSeven.waitFor(1));
    ASSERT_TRUE(m_inboxOfOtherSeven.waitFor(1));
    EXPECT_EQ(m_inboxOfSeven.events()[0], event);
    EXPECT_EQ(m_inboxOfOtherSeven.events()[0], event);
    EXPECT_TRUE(m_inboxOfEight.events().empty());
}

TEST_F(EventDispatcherTest, AnswersWhatTheLastMatchingHubAnswers) {
    m_seven.registerHandler(kType, m_inboxOfSeven.handler());
    m_otherSeven.registerHandler(kOtherType, m_inboxOfOtherSeven.handler());
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.registerHub(&m_otherSeven);
    m_log.clear();

    EXPECT_EQ(m_dispatcher.send(makeEvent(kType), 7), -1);
    EXPECT_EQ(m_dispatcher.send(makeEvent(kOtherType), 7), 0);

    // The one that was answered with -1 was queued by the first hub all the same.
    EXPECT_TRUE(m_inboxOfSeven.waitFor(1));
    EXPECT_TRUE(m_inboxOfOtherSeven.waitFor(1));
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventDispatcherTest, TheOrderOfRegistrationDecidesWhichHubIsTheLast) {
    m_seven.registerHandler(kType, m_inboxOfSeven.handler());
    m_dispatcher.registerHub(&m_otherSeven);
    m_dispatcher.registerHub(&m_seven);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), 0);

    // Registered again, the hub without a handler comes last.
    m_dispatcher.unregisterHub(&m_otherSeven);
    m_dispatcher.registerHub(&m_otherSeven);

    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), -1);
    EXPECT_TRUE(m_inboxOfSeven.waitFor(2));
}

TEST_F(EventDispatcherTest, DeliversToEveryHubForAnyModule) {
    registerAll();
    const auto event = makeEvent();

    const std::int32_t status = m_dispatcher.send(event, kAnyModule);

    EXPECT_EQ(status, 0);
    for (Inbox* p_inbox : {&m_inboxOfSeven, &m_inboxOfEight, &m_inboxOfOtherSeven}) {
        ASSERT_TRUE(p_inbox->waitFor(1));
        EXPECT_EQ(p_inbox->events()[0], event);
    }
}

TEST_F(EventDispatcherTest, ABroadcastIsAnsweredByTheLastHubInTheList) {
    m_seven.registerHandler(kType, m_inboxOfSeven.handler());
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.registerHub(&m_eight);

    EXPECT_EQ(m_dispatcher.send(makeEvent(), kAnyModule), -1);

    EXPECT_TRUE(m_inboxOfSeven.waitFor(1));
}

TEST_F(EventDispatcherTest, RefusesATargetThatNobodyIsAndLogsNothing) {
    registerAll();

    EXPECT_EQ(m_dispatcher.send(makeEvent(), 99), -1);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), INT32_MAX), -1);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), INT32_MIN + 1), -1);

    EXPECT_TRUE(m_log.entries().empty());
}

/// A payload that sends an event when it goes.
class LastWords : public EventParam {
public:
    explicit LastWords(EventDispatcher* p_dispatcher) : m_dispatcher(p_dispatcher) {}
    ~LastWords() override { (void)m_dispatcher->send(makeEvent(), 7); }

private:
    EventDispatcher* const m_dispatcher;
};

TEST_F(EventDispatcherTest, ThePayloadOfARefusedEventMaySendWhenItGoes) {
    registerAll();
    const auto refused = [this] {
        return std::make_shared<BrowserEvent>(kSender, kOtherType, new LastWords(&m_dispatcher));
    };

    EXPECT_EQ(m_dispatcher.send(refused(), 8), -1);
    EXPECT_EQ(m_dispatcher.send(refused(), 99), -1);

    EXPECT_TRUE(m_inboxOfSeven.waitFor(2));
    EXPECT_TRUE(m_inboxOfOtherSeven.waitFor(2));
}

TEST_F(EventDispatcherTest, RefusesEverythingWithoutHubs) {
    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), -1);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), kAnyModule), -1);
}

TEST_F(EventDispatcherTest, RefusesANullEvent) {
    registerAll();

    const std::int32_t status = m_dispatcher.send(nullptr, 7);

    EXPECT_EQ(status, 2);
    const std::vector<LogEntry> expected = {dispatcherLine(kLogError, "send", "event is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventDispatcherTest, DeliveryDoesNotWaitForAHandler) {
    test::Event entered;
    test::Event release;
    m_seven.registerHandler(kType, [&](std::shared_ptr<BrowserEvent>) {
        entered.set();
        (void)release.wait();
    });
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.send(makeEvent(), 7);
    ASSERT_TRUE(entered.wait());

    const std::int32_t status = m_dispatcher.send(makeEvent(), 7);

    EXPECT_EQ(status, 0);
    release.set();
    m_dispatcher.unregisterHub(&m_seven);
}

TEST_F(EventDispatcherTest, HandlersMaySendRegisterAndUnregister) {
    test::Event done;
    std::int32_t statuses[4] = {-9, -9, -9, -9};
    Inbox inboxOfLate;
    EventHub late(9);
    late.registerHandler(kType, inboxOfLate.handler());
    m_eight.registerHandler(kType, m_inboxOfEight.handler());
    m_seven.registerHandler(kType, [&](std::shared_ptr<BrowserEvent>) {
        statuses[0] = m_dispatcher.send(makeEvent(), 8);
        statuses[1] = m_dispatcher.registerHub(&late);
        statuses[2] = m_dispatcher.send(makeEvent(), 9);
        statuses[3] = m_dispatcher.unregisterHub(&m_eight);
        done.set();
    });
    m_dispatcher.registerHub(&m_seven);
    m_dispatcher.registerHub(&m_eight);

    m_dispatcher.send(makeEvent(), 7);

    ASSERT_TRUE(done.wait());
    for (const std::int32_t status : statuses) EXPECT_EQ(status, 0);
    EXPECT_TRUE(inboxOfLate.waitFor(1));
    m_dispatcher.unregisterHub(&late);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), 8), -1);
}

TEST_F(EventDispatcherTest, ALockThatFailsReachesTheCallerAndChangesNothing) {
    registerAll();
    test::setLogLevel(0);
    EventHub late(9);
    // The first lock that each operation takes is the list's.
    {
        test::FailCall fail(Call::PthreadMutexLock, EINVAL);
        EXPECT_THROW(m_dispatcher.registerHub(&late), std::system_error);
    }
    {
        test::FailCall fail(Call::PthreadMutexLock, EINVAL);
        EXPECT_THROW(m_dispatcher.unregisterHub(&m_seven), std::system_error);
    }
    {
        test::FailCall fail(Call::PthreadMutexLock, EINVAL);
        EXPECT_THROW(m_dispatcher.send(makeEvent(), 7), std::system_error);
    }

    EXPECT_TRUE(m_inboxOfSeven.events().empty());
    EXPECT_EQ(m_dispatcher.registerHub(&late), 0);
    EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), 0);
    EXPECT_TRUE(m_inboxOfSeven.waitFor(1));
    m_dispatcher.unregisterHub(&late);
}

TEST_F(EventDispatcherTest, RegistersUnregistersAndSendsOneAfterTheOther) {
    registerAll();
    test::setLogLevel(0);
    EventHub late(9);
    const auto add = [&] { EXPECT_EQ(m_dispatcher.registerHub(&late), 0); };
    const auto remove = [&] { EXPECT_EQ(m_dispatcher.unregisterHub(&late), 0); };
    const auto send = [&] { EXPECT_EQ(m_dispatcher.send(makeEvent(), 7), 0); };

    EXPECT_TRUE(test::keepsWaiting(add, send));
    EXPECT_TRUE(test::keepsWaiting(remove, send));
    EXPECT_TRUE(test::keepsWaiting(send, add));
    EXPECT_TRUE(test::keepsWaiting(send, remove));
}

// The free functions.

TEST(EvtdispchTest, FunctionsForwardToTheProcesssDispatcher) {
    Inbox inbox;
    EventHub hub(7777);
    hub.registerHandler(kType, inbox.handler());
    const auto event = makeEvent();

    EXPECT_EQ(evtdispch_send_event(makeEvent(), 7777), -1);
    EXPECT_EQ(evtdispch_register_hub(&hub), 0);
    EXPECT_EQ(EventDispatcher::getInstance()->registerHub(&hub), 1);
    EXPECT_EQ(evtdispch_send_event(event, 7777), 0);
    EXPECT_TRUE(inbox.waitFor(1));
    EXPECT_EQ(EventDispatcher::getInstance()->send(makeEvent(), 7777), 0);
    EXPECT_EQ(evtdispch_unregister_hub(&hub), 0);
    EXPECT_EQ(evtdispch_send_event(makeEvent(), 7777), -1);
}

TEST(EvtdispchTest, FunctionsRefuseNull) {
    (void)EventDispatcher::getInstance();
    LogCapture log(kLogInfo);

    EXPECT_EQ(evtdispch_register_hub(nullptr), 2);
    EXPECT_EQ(evtdispch_unregister_hub(nullptr), 2);
    EXPECT_EQ(evtdispch_send_event(nullptr, 7), 2);

    const std::vector<LogEntry> expected = {
        dispatcherLine(kLogError, "registerHub", "p_hub is NULL.\n"),
        dispatcherLine(kLogError, "unregisterHub", "p_hub is NULL.\n"),
        dispatcherLine(kLogError, "send", "event is NULL.\n")};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

}  // namespace

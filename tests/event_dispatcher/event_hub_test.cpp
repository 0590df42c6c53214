#include "base/event_dispatcher/event_hub.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>
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

constexpr std::int32_t kModule = 7;
constexpr std::int32_t kPeerModule = 8;

const LogEntry kExists = hubLine(kLogError, "registerHandler", "Event handler already exists.\n\n");
const LogEntry kNoThread =
    hubLine(kLogError, "registerHandler", "Fail to create EventHandlerThread.\n");
const LogEntry kNotSent = hubLine(kLogError, "sendEventSync", "Fail to send event.\n");

std::shared_ptr<BrowserEvent> makeEvent(std::int32_t source, std::int32_t type) {
    return std::make_shared<BrowserEvent>(source, type, nullptr);
}

void ignore(std::shared_ptr<BrowserEvent>) {}

/// A hub by itself, given its events by hand.
class EventHubTest : public testing::Test {
protected:
    LogCapture m_log{kLogInfo};
    Inbox m_inbox;
    EventHub m_hub{kModule};
};

// Construction.

TEST_F(EventHubTest, KnowsItsModule) {
    EXPECT_EQ(m_hub.moduleId(), kModule);
    EXPECT_EQ(EventHub(INT32_MIN).moduleId(), INT32_MIN);
}

TEST_F(EventHubTest, StartsNoThreadAndSaysNothing) {
    test::CountCalls threads(Call::PthreadCreate, When().everyTime());

    const EventHub hub(9);

    EXPECT_EQ(threads.seen(), 0);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubTest, IsAPlainClassThatIsNotCopied) {
    EXPECT_FALSE(std::is_polymorphic<EventHub>::value);
    EXPECT_FALSE(std::is_copy_constructible<EventHub>::value);
    EXPECT_FALSE(std::is_copy_assignable<EventHub>::value);
}

TEST_F(EventHubTest, KeepsItsImplementationHidden) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, kHiddenSymbol), nullptr);
}

TEST_F(EventHubTest, CreatesEventsOfItsModuleWithoutPayload) {
    const std::shared_ptr<BrowserEvent> event = m_hub.createEvent(5);

    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->srcModule, kModule);
    EXPECT_EQ(event->eventType, 5);
    EXPECT_EQ(event->param, nullptr);
    EXPECT_EQ(event->waitResultMtx, nullptr);
    EXPECT_EQ(event.use_count(), 1);
    EXPECT_NE(m_hub.createEvent(5), event);
}

TEST_F(EventHubTest, JoiningADispatcherDoesNothing) {
    test::CountCalls threads(Call::PthreadCreate, When().everyTime());

    m_hub.onHubRegistered();

    EXPECT_TRUE(m_log.entries().empty());
    EXPECT_EQ(threads.seen(), 0);
}

// Registering handlers.

TEST_F(EventHubTest, RefusesAnEmptyHandlerAndAddsNothing) {
    test::CountCalls threads(Call::PthreadCreate, When().everyTime());

    const std::int32_t fromAny = m_hub.registerHandler(5, EventHub::Handler());
    const std::int32_t fromOne = m_hub.registerHandler(3, 5, nullptr);

    EXPECT_EQ(fromAny, 2);
    EXPECT_EQ(fromOne, 2);
    EXPECT_EQ(threads.seen(), 0);
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), -1);
    const std::vector<LogEntry> expected(
        2, hubLine(kLogError, "registerHandler", "handler is NULL.\n"));
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubTest, RefusesAnEmptyHandlerEvenWhereOneExists) {
    m_hub.registerHandler(5, ignore);

    EXPECT_EQ(m_hub.registerHandler(5, nullptr), 2);
}

TEST_F(EventHubTest, StartsItsThreadWithTheFirstHandlerOnly) {
    test::CountCalls threads(Call::PthreadCreate, When().everyTime());

    EXPECT_EQ(m_hub.registerHandler(5, ignore), 0);
    EXPECT_EQ(threads.seen(), 1);
    EXPECT_EQ(m_hub.registerHandler(6, ignore), 0);

    EXPECT_EQ(threads.seen(), 1);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubTest, AHandlerForAnyModuleRefusesAllLaterOnesOfItsType) {
    EXPECT_EQ(m_hub.registerHandler(5, m_inbox.handler()), 0);

    EXPECT_EQ(m_hub.registerHandler(3, 5, ignore), 1);
    EXPECT_EQ(m_hub.registerHandler(5, ignore), 1);
    EXPECT_EQ(m_hub.registerHandler(kAnyModule, 5, ignore), 1);

    const std::vector<LogEntry> expected(3, kExists);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
    // None of the refused ones takes events.
    m_hub.receiveEvent(makeEvent(3, 5));
    m_hub.receiveEvent(makeEvent(4, 5));
    EXPECT_TRUE(m_inbox.waitFor(2));
}

TEST_F(EventHubTest, AHandlerForOneModuleRefusesOnlyItsOwnPair) {
    EXPECT_EQ(m_hub.registerHandler(3, 5, ignore), 0);

    EXPECT_EQ(m_hub.registerHandler(3, 5, ignore), 1);
    EXPECT_EQ(m_hub.registerHandler(4, 5, ignore), 0);
    EXPECT_EQ(m_hub.registerHandler(3, 6, ignore), 0);
    EXPECT_EQ(m_hub.registerHandler(5, ignore), 0);
    EXPECT_EQ(m_hub.registerHandler(9, 5, ignore), 1);

    const std::vector<LogEntry> expected(2, kExists);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubTest, AnyModuleMayBeSpelledOut) {
    EXPECT_EQ(m_hub.registerHandler(kAnyModule, 5, m_inbox.handler()), 0);

    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), 0);

    EXPECT_TRUE(m_inbox.waitFor(1));
}

TEST_F(EventHubTest, EventTypesHaveNoWildcard) {
    EXPECT_EQ(m_hub.registerHandler(3, kAnyModule, ignore), 0);

    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), -1);
    EXPECT_EQ(m_hub.registerHandler(3, 5, ignore), 0);
}

TEST_F(EventHubTest, AHandlerMayRegisterAnother) {
    std::atomic<std::int32_t> status{-9};
    m_hub.registerHandler(5, [&](std::shared_ptr<BrowserEvent> event) {
        status = m_hub.registerHandler(6, m_inbox.handler());
        m_inbox.take(std::move(event));
    });

    m_hub.receiveEvent(makeEvent(3, 5));
    ASSERT_TRUE(m_inbox.waitFor(1));

    EXPECT_EQ(status, 0);
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 6)), 0);
    EXPECT_TRUE(m_inbox.waitFor(2));
}

TEST_F(EventHubTest, ManyThreadsMayRegisterAtOnceWhileEventsAreHandled) {
    constexpr int kThreads = 4;
    constexpr std::int32_t kTypes = 50;
    constexpr std::int32_t kTraffic = 1000;
    m_hub.registerHandler(kTraffic, ignore);
    test::CountCalls threads(Call::PthreadCreate, When().anyThread().everyTime());
    std::atomic<int> refused{0};

    test::runAtOnce(kThreads, [&](int i) {
        for (std::int32_t type = 0; type < kTypes; ++type) {
            if (m_hub.registerHandler(i, type, m_inbox.handler()) != 0) ++refused;
            m_hub.receiveEvent(makeEvent(3, kTraffic));
        }
    });

    EXPECT_EQ(refused, 0);
    EXPECT_EQ(threads.seen(), kThreads) << "besides those of the test itself";
    for (int i = 0; i < kThreads; ++i) {
        for (std::int32_t type = 0; type < kTypes; ++type) {
            EXPECT_EQ(m_hub.receiveEvent(makeEvent(i, type)), 0);
        }
    }
    EXPECT_TRUE(m_inbox.waitFor(kThreads * kTypes));
}

TEST_F(EventHubTest, OneOfManyThreadsThatRegisterTheSameAtOnceWins) {
    constexpr int kThreads = 4;
    for (std::int32_t type = 0; type < 20; ++type) {
        std::atomic<int> added{0};
        std::atomic<int> existed{0};

        test::runAtOnce(kThreads, [&](int) {
            const std::int32_t status = m_hub.registerHandler(type, ignore);
            if (status == 0) ++added;
            if (status == 1) ++existed;
        });

        EXPECT_EQ(added, 1);
        EXPECT_EQ(existed, kThreads - 1);
    }
}

TEST_F(EventHubTest, OfTwoThatRegisterTheSameAtOnceTheSecondIsRefused) {
    ASSERT_EQ(m_hub.registerHandler(1, ignore), 0);
    std::int32_t second = -9;
    std::unique_ptr<test::Contender> other;
    {
        const test::RunAtCall atAdding(Call::New, [&] {
            other = std::make_unique<test::Contender>(
                [&] { second = m_hub.registerHandler(2, ignore); });
            EXPECT_TRUE(other->hasToWait());
        });
        EXPECT_EQ(m_hub.registerHandler(2, ignore), 0);
        EXPECT_EQ(atAdding.hits(), 1);
    }
    other.reset();

    EXPECT_EQ(second, 1);
}

TEST(EventHubStartTest, ThreadsThatRegisterFirstAtOnceStartOneThread) {
    constexpr int kThreads = 4;
    for (int round = 0; round < 20; ++round) {
        Inbox inbox;
        EventHub hub(kModule);
        test::CountCalls threads(Call::PthreadCreate, When().anyThread().everyTime());

        test::runAtOnce(kThreads, [&](int i) { hub.registerHandler(i, inbox.handler()); });

        EXPECT_EQ(threads.seen(), kThreads + 1);
        for (int i = 0; i < kThreads; ++i) hub.receiveEvent(makeEvent(3, i));
        EXPECT_TRUE(inbox.waitFor(kThreads));
    }
}

// A thread that cannot be created.

TEST_F(EventHubTest, AThreadThatCannotBeCreatedIsReportedAndTriedAgain) {
    std::int32_t first = -9;
    {
        test::FailCall fail(Call::PthreadCreate, EAGAIN);
        EXPECT_NO_THROW(first = m_hub.registerHandler(5, m_inbox.handler()));
        EXPECT_EQ(fail.hits(), 1);
    }
    EXPECT_EQ(first, 0);
    const std::vector<LogEntry> expected = {kNoThread};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);

    // The handler is registered, so the event waits for the thread.
    const auto event = makeEvent(3, 5);
    EXPECT_EQ(m_hub.receiveEvent(event), 0);
    EXPECT_EQ(m_hub.registerHandler(6, ignore), 0);

    ASSERT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(m_inbox.events()[0], event);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubTest, EachRegistrationWithoutAThreadTriesAndReports) {
    test::FailCall fail(Call::PthreadCreate, EAGAIN, When().times(2));

    EXPECT_EQ(m_hub.registerHandler(5, ignore), 0);
    EXPECT_EQ(m_hub.registerHandler(5, ignore), 1);

    EXPECT_EQ(fail.hits(), 2);
    const std::vector<LogEntry> expected = {kNoThread, kNoThread, kExists};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubTest, ARegistrationThatIsRefusedStillStartsTheMissingThread) {
    {
        test::FailCall fail(Call::PthreadCreate, EAGAIN);
        m_hub.registerHandler(5, m_inbox.handler());
    }
    m_hub.receiveEvent(makeEvent(3, 5));

    EXPECT_EQ(m_hub.registerHandler(5, ignore), 1);

    EXPECT_TRUE(m_inbox.waitFor(1));
}

TEST_F(EventHubTest, AHubWhoseThreadCouldNotBeCreatedIsTornDownAsOneWithout) {
    {
        test::FailCall fail(Call::PthreadCreate, EAGAIN);
        m_hub.registerHandler(5, ignore);
    }
    m_log.clear();

    m_hub.onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLines());
}

// Receiving.

TEST_F(EventHubTest, RefusesAnEventWithoutAHandlerInSilence) {
    m_hub.registerHandler(3, 5, m_inbox.handler());

    EXPECT_EQ(m_hub.receiveEvent(makeEvent(4, 5)), -1);
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 6)), -1);
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(kAnyModule, 5)), -1);
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), 0);

    // What came after the refused ones is the first that the handler sees.
    ASSERT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(m_inbox.events()[0]->srcModule, 3);
    EXPECT_EQ(m_inbox.events()[0]->eventType, 5);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubTest, RefusesAnyEventBeforeTheFirstHandler) {
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), -1);

    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubTest, RefusesANullEvent) {
    EXPECT_EQ(m_hub.receiveEvent(nullptr), -1);
    m_hub.registerHandler(5, ignore);
    EXPECT_EQ(m_hub.receiveEvent(nullptr), -1);
}

TEST_F(EventHubTest, DropsARefusedEventAtOnce) {
    std::atomic<int> deletions{0};

    m_hub.receiveEvent(std::make_shared<BrowserEvent>(3, 5, new CountedParam(&deletions)));

    EXPECT_EQ(deletions, 1);
}

// Handling.

TEST_F(EventHubTest, TheFirstRegisteredHandlerThatMatchesTakesTheEvent) {
    Inbox specific;
    Inbox wildcard;
    m_hub.registerHandler(3, 5, specific.handler());
    m_hub.registerHandler(5, wildcard.handler());

    m_hub.receiveEvent(makeEvent(3, 5));
    m_hub.receiveEvent(makeEvent(4, 5));
    m_hub.receiveEvent(makeEvent(3, 5));

    ASSERT_TRUE(specific.waitFor(2));
    ASSERT_TRUE(wildcard.waitFor(1));
    EXPECT_EQ(specific.events().size(), 2U);
    EXPECT_EQ(wildcard.events().size(), 1U);
    EXPECT_EQ(wildcard.events()[0]->srcModule, 4);
}

TEST_F(EventHubTest, HandlesEventsInOrderOfArrivalOnOneThreadOfItsOwn) {
    constexpr std::size_t kEvents = 100;
    m_hub.registerHandler(5, m_inbox.handler());
    m_hub.registerHandler(6, m_inbox.handler());
    std::vector<std::shared_ptr<BrowserEvent>> sent;
    for (std::size_t i = 0; i < kEvents; ++i) sent.push_back(makeEvent(3, 5 + (i % 2 != 0)));

    for (const auto& event : sent) EXPECT_EQ(m_hub.receiveEvent(event), 0);

    ASSERT_TRUE(m_inbox.waitFor(kEvents));
    EXPECT_EQ(m_inbox.events(), sent);
    const std::vector<std::thread::id> threads = m_inbox.threads();
    EXPECT_NE(threads[0], std::this_thread::get_id());
    for (const std::thread::id& thread : threads) EXPECT_EQ(thread, threads[0]);
}

TEST_F(EventHubTest, NeverRunsTwoHandlersAtOnce) {
    constexpr std::size_t kEvents = 200;
    std::atomic<int> running{0};
    std::atomic<int> overlaps{0};
    const auto handler = [&](std::shared_ptr<BrowserEvent> event) {
        if (++running != 1) ++overlaps;
        std::this_thread::yield();
        --running;
        m_inbox.take(std::move(event));
    };
    m_hub.registerHandler(5, handler);
    m_hub.registerHandler(6, handler);

    test::runAtOnce(2, [&](int i) {
        for (std::size_t n = 0; n < kEvents / 2; ++n) m_hub.receiveEvent(makeEvent(3, 5 + i));
    });

    ASSERT_TRUE(m_inbox.waitFor(kEvents));
    EXPECT_EQ(overlaps, 0);
}

TEST_F(EventHubTest, AnEventIsHandledOnceAndDroppedAfterItsHandler) {
    std::atomic<int> deletions{0};
    std::atomic<int> calls{0};
    test::Event second;
    m_hub.registerHandler(5, [&](std::shared_ptr<BrowserEvent>) { ++calls; });
    m_hub.registerHandler(6, [&](std::shared_ptr<BrowserEvent>) { second.set(); });

    m_hub.receiveEvent(std::make_shared<BrowserEvent>(3, 5, new CountedParam(&deletions)));
    m_hub.receiveEvent(makeEvent(3, 6));

    ASSERT_TRUE(second.wait());
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(deletions, 1);
}

TEST_F(EventHubTest, AHandlerMaySendToItsOwnHub) {
    m_hub.registerHandler(6, m_inbox.handler());
    m_hub.registerHandler(5, [&](std::shared_ptr<BrowserEvent> event) {
        m_hub.receiveEvent(makeEvent(3, 6));
        m_inbox.take(std::move(event));
    });

    m_hub.receiveEvent(makeEvent(3, 5));

    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(m_inbox.events()[0]->eventType, 5);
    EXPECT_EQ(m_inbox.events()[1]->eventType, 6);
}

TEST_F(EventHubTest, AThreadThatIsAtWorkIsNotWoken) {
    test::Event inHand;
    test::Event go;
    m_hub.registerHandler(5, m_inbox.handler());
    m_hub.registerHandler(6, [&](std::shared_ptr<BrowserEvent>) {
        inHand.set();
        (void)go.wait();
    });
    m_hub.receiveEvent(makeEvent(3, 6));
    ASSERT_TRUE(inHand.wait());
    const test::CountCalls wakeUps(Call::SemPost, When().everyTime());

    for (int i = 0; i < 3; ++i) m_hub.receiveEvent(makeEvent(3, 5));

    EXPECT_EQ(wakeUps.seen(), 0);
    go.set();
    EXPECT_TRUE(m_inbox.waitFor(3));
}

TEST_F(EventHubTest, AThreadThatWaitsIsWokenOnce) {
    test::Event waiting;
    test::Event go;
    const test::RunAtCall atWait(
        Call::SemWait,
        [&] {
            waiting.set();
            (void)go.wait();
        },
        When().anyThread());
    m_hub.registerHandler(5, m_inbox.handler());
    ASSERT_TRUE(waiting.wait());
    const test::CountCalls wakeUps(Call::SemPost, When().everyTime());

    for (int i = 0; i < 3; ++i) m_hub.receiveEvent(makeEvent(3, 5));

    EXPECT_EQ(wakeUps.seen(), 1);
    go.set();
    EXPECT_TRUE(m_inbox.waitFor(3));
}

TEST_F(EventHubTest, AWaitThatASignalInterruptsGoesOn) {
    constexpr int kInterruptions = 3;
    const test::FailCall interrupted(Call::SemWait, EINTR,
                                     When().anyThread().times(kInterruptions));
    test::Event waiting;
    const test::RunAtCall atWait(
        Call::SemWait, [&] { waiting.set(); }, When().anyThread().nth(kInterruptions + 1));
    m_hub.registerHandler(5, m_inbox.handler());
    ASSERT_TRUE(waiting.wait());

    m_hub.receiveEvent(makeEvent(3, 5));

    EXPECT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(interrupted.hits(), kInterruptions);
}

TEST_F(EventHubTest, SharesTheHandlersState) {
    auto calls = std::make_shared<std::atomic<int>>(0);
    m_hub.registerHandler(5, [&, calls](std::shared_ptr<BrowserEvent> event) {
        ++*calls;
        m_inbox.take(std::move(event));
    });

    m_hub.receiveEvent(makeEvent(3, 5));
    m_hub.receiveEvent(makeEvent(3, 5));

    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(*calls, 2);
}

void handleByThrowing() {
    EventHub hub(kModule);
    hub.registerHandler(
        5, [](std::shared_ptr<BrowserEvent>) { throw std::runtime_error("from a handler"); });
    hub.receiveEvent(makeEvent(3, 5));
    test::Event never;
    (void)never.wait();
}

TEST(EventHubDeathTest, AnExceptionOfAHandlerEndsTheProcess) {
    EXPECT_EXIT(handleByThrowing(), testing::KilledBySignal(SIGABRT), "from a handler");
}

TEST_F(EventHubTest, ALockThatFailsReachesTheCallerAndLosesNothing) {
    m_hub.registerHandler(5, m_inbox.handler());
    test::setLogLevel(0);
    int failures = 0;
    for (int n = 1;; ++n) {
        const std::int32_t type = 100 + n;
        bool threw = false;
        long hits = 0;
        {
            test::FailCall fail(Call::PthreadMutexLock, EINVAL, When().nth(n));
            try {
                EXPECT_EQ(m_hub.registerHandler(type, m_inbox.handler()), 0);
                EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, type)), 0);
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code().value(), EINVAL);
                threw = true;
            }
            hits = fail.hits();
        }
        EXPECT_EQ(threw, hits != 0) << n;
        if (hits == 0) break;
        ++failures;
    }
    EXPECT_GT(failures, 2);

    // The last round succeeded; so does a further event of it.
    EXPECT_EQ(m_hub.receiveEvent(makeEvent(3, 5)), 0);
    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(m_inbox.events()[1]->eventType, 5);
}

// Sending. These two hubs are the process's dispatcher's.

class EventHubSendTest : public testing::Test {
protected:
    void SetUp() override {
        evtdispch_register_hub(&m_hub);
        evtdispch_register_hub(&m_peer);
        m_log.clear();
    }
    void TearDown() override {
        evtdispch_unregister_hub(&m_hub);
        evtdispch_unregister_hub(&m_peer);
    }

    /// Lets the peer reply @p reply to events of @p type.
    void peerReplies(std::int32_t type, EventResult reply) {
        m_peer.registerHandler(type, [this, reply](std::shared_ptr<BrowserEvent> event) {
            event->replyResult(reply);
            m_inbox.take(std::move(event));
        });
    }

    LogCapture m_log{kLogInfo};
    Inbox m_inbox;
    EventHub m_hub{kModule};
    EventHub m_peer{kPeerModule};
};

TEST_F(EventHubSendTest, SendsWithoutWaiting) {
    test::Event release;
    m_peer.registerHandler(5, [&](std::shared_ptr<BrowserEvent> event) {
        (void)release.wait();
        m_inbox.take(std::move(event));
    });
    const auto event = m_hub.createEvent(5);

    const std::int32_t status = m_hub.sendEvent(event, kPeerModule);
    release.set();

    EXPECT_EQ(status, 0);
    ASSERT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(m_inbox.events()[0], event);
    EXPECT_EQ(event->waitResultMtx, nullptr);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubSendTest, SendReturnsWhatTheDispatcherReturns) {
    EXPECT_EQ(m_hub.sendEvent(m_hub.createEvent(5), kPeerModule), -1);
    EXPECT_EQ(m_hub.sendEvent(m_hub.createEvent(5), 99), -1);
    EXPECT_TRUE(m_log.entries().empty());

    EXPECT_EQ(m_hub.sendEvent(nullptr, kPeerModule), 2);

    const std::vector<LogEntry> expected = {dispatcherLine(kLogError, "send", "event is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubSendTest, ASynchronousSendReturnsTheReply) {
    peerReplies(5, 42);

    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, 60000), 42);
    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, -1), 42);

    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubSendTest, ASynchronousSendThatNobodyAnswersTimesOut) {
    m_peer.registerHandler(5, m_inbox.handler());
    const auto event = m_hub.createEvent(5);
    const auto start = std::chrono::steady_clock::now();

    const std::int32_t result = m_hub.sendEventSync(event, kPeerModule, 30);

    EXPECT_EQ(result, kEventResultTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_TRUE(m_inbox.waitFor(1));
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(EventHubSendTest, ALateReplyHarmsNobody) {
    m_peer.registerHandler(5, m_inbox.handler());
    ASSERT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, 1), kEventResultTimeout);
    ASSERT_TRUE(m_inbox.waitFor(1));

    m_inbox.events()[0]->replyResult(7);

    EXPECT_EQ(m_inbox.events()[0]->result, 7);
}

TEST_F(EventHubSendTest, TheReplyMayComeFromAnotherThreadAfterTheHandler) {
    m_peer.registerHandler(5, m_inbox.handler());
    std::thread replier([&] {
        (void)m_inbox.waitFor(1);
        m_inbox.events()[0]->replyResult(7);
    });

    const std::int32_t result = m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, -1);
    replier.join();

    EXPECT_EQ(result, 7);
}

TEST_F(EventHubSendTest, ASynchronousSendThatCannotBeDeliveredDoesNotWait) {
    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, -1), -1);
    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), 99, -1), -1);

    const std::vector<LogEntry> expected = {kNotSent, kNotSent};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubSendTest, ASynchronousSendOfNullIsRefused) {
    const std::int32_t result = m_hub.sendEventSync(nullptr, kPeerModule, -1);

    EXPECT_EQ(result, -1);
    const std::vector<LogEntry> expected = {dispatcherLine(kLogError, "send", "event is NULL.\n"),
                                            kNotSent};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubSendTest, AnEventMayBeSentAgainAndForgetsItsReply) {
    peerReplies(5, 42);
    m_peer.registerHandler(6, ignore);
    const auto event = m_hub.createEvent(5);
    ASSERT_EQ(m_hub.sendEventSync(event, kPeerModule, -1), 42);
    ASSERT_TRUE(m_inbox.waitFor(1));

    event->eventType = 6;
    const std::int32_t result = m_hub.sendEventSync(event, kPeerModule, 1);

    EXPECT_EQ(result, kEventResultTimeout);
    const std::vector<LogEntry> expected = {
        eventLine(kLogInfo, "event.cpp", "initWaitResultCv", "Already initialized.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

// Whoever sends it should not; nobody handles it then.
TEST_F(EventHubSendTest, AnEventThatBecomesAnotherWhileItWaitsIsLeftOut) {
    test::Event isBusy;
    test::Event release;
    m_peer.registerHandler(4, [&](const std::shared_ptr<BrowserEvent>&) {
        isBusy.set();
        (void)release.wait();
    });
    m_peer.registerHandler(5, m_inbox.handler());
    ASSERT_EQ(m_hub.sendEvent(m_hub.createEvent(4), kPeerModule), 0);
    ASSERT_TRUE(isBusy.wait());
    const auto changed = m_hub.createEvent(5);
    const auto last = m_hub.createEvent(5);
    ASSERT_EQ(m_hub.sendEvent(changed, kPeerModule), 0);
    ASSERT_EQ(m_hub.sendEvent(last, kPeerModule), 0);

    changed->eventType = 6;
    release.set();

    ASSERT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(m_inbox.events(), std::vector{last});
}

TEST_F(EventHubSendTest, ASynchronousSendThatCannotBeArmedFails) {
    peerReplies(5, 42);
    const auto event = m_hub.createEvent(5);
    // What it waits with is the first thing that is allocated for it.
    test::FailCall fail(Call::New, 0);

    EXPECT_EQ(m_hub.sendEventSync(event, kPeerModule, -1), -1);
}

TEST_F(EventHubSendTest, ABroadcastMayBeWaitedForToo) {
    peerReplies(5, 42);

    EXPECT_EQ(m_hub.sendEventSync(m_hub.createEvent(5), kAnyModule, -1), 42);
}

TEST_F(EventHubSendTest, AHandlerMaySendSynchronouslyToAnotherHub) {
    peerReplies(5, 42);
    m_hub.registerHandler(6, [&](std::shared_ptr<BrowserEvent> event) {
        event->replyResult(m_hub.sendEventSync(m_hub.createEvent(5), kPeerModule, -1) + 1);
    });

    EXPECT_EQ(m_peer.sendEventSync(m_peer.createEvent(6), kModule, -1), 43);
}

TEST_F(EventHubSendTest, ThePayloadLivesUntilSenderAndHandlerAreDone) {
    std::atomic<int> deletions{0};
    std::atomic<int> deletedBeforeReply{-1};
    test::Event finished;
    m_peer.registerHandler(5, [&](std::shared_ptr<BrowserEvent> event) {
        deletedBeforeReply = deletions.load();
        event->replyResult(7);
    });
    m_peer.registerHandler(6, [&](std::shared_ptr<BrowserEvent>) { finished.set(); });
    auto event = m_hub.createEvent(5);
    event->param = new CountedParam(&deletions);

    EXPECT_EQ(m_hub.sendEventSync(std::move(event), kPeerModule, -1), 7);

    // The handler's reference is gone when the next event is handled.
    m_hub.sendEvent(m_hub.createEvent(6), kPeerModule);
    ASSERT_TRUE(finished.wait());
    EXPECT_EQ(deletedBeforeReply, 0);
    EXPECT_EQ(deletions, 1);
}

}  // namespace

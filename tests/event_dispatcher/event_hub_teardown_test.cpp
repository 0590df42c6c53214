// Stopping a hub's thread: by unregistering the hub, or by destroying it.

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "base/event_dispatcher/event_hub.h"
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
constexpr std::int32_t kBlocking = 6;

void ignore(std::shared_ptr<BrowserEvent>) {}

class EventHubTeardownTest : public testing::Test {
protected:
    EventHubTeardownTest() : m_hub(std::make_unique<EventHub>(7)) {}

    std::shared_ptr<BrowserEvent> countedEvent(std::int32_t type = kType) {
        return std::make_shared<BrowserEvent>(3, type, new CountedParam(&m_deletions));
    }

    /// Leaves a handler running, which ends when m_release is set.
    void blockTheThread() {
        m_hub->registerHandler(kBlocking, [this](std::shared_ptr<BrowserEvent> event) {
            m_entered.set();
            (void)m_release.wait();
            m_inbox.take(std::move(event));
        });
        m_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kBlocking, nullptr));
        ASSERT_TRUE(m_entered.wait());
    }

    /// Runs @p teardown on another thread, and lets the blocked handler go once it has told the
    /// thread to end and begun to join it.
    template <typename Teardown>
    void tearDownWhileBlocked(Teardown teardown) {
        test::Event joining;
        test::RunAtCall atJoin(
            Call::PthreadJoin, [&] { joining.set(); }, When().anyThread());
        std::thread tearing(teardown);
        EXPECT_TRUE(joining.wait());
        EXPECT_TRUE(m_inbox.events().empty());
        m_release.set();
        tearing.join();
    }

    std::atomic<int> m_deletions{0};
    test::Event m_entered;
    test::Event m_release;
    Inbox m_inbox;
    LogCapture m_log{kLogInfo};
    std::unique_ptr<EventHub> m_hub;
};

TEST_F(EventHubTeardownTest, WithoutAHandlerThereIsNothingToStop) {
    m_hub->onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLines());
}

TEST_F(EventHubTeardownTest, StopsAThreadThatWaits) {
    m_hub->registerHandler(kType, ignore);
    test::CountCalls joins(Call::PthreadJoin);

    m_hub->onHubUnregistered();

    EXPECT_EQ(joins.seen(), 1);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubTeardownTest, ASecondOneFindsNoThread) {
    m_hub->registerHandler(kType, ignore);
    m_hub->onHubUnregistered();
    m_log.clear();

    m_hub->onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLines());
}

TEST_F(EventHubTeardownTest, DestructionStopsTheThread) {
    m_hub->registerHandler(kType, ignore);

    m_hub.reset();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubTeardownTest, DestructionOfAHubWithoutAThreadSaysSo) {
    m_hub.reset();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLines());
}

TEST_F(EventHubTeardownTest, DestructionDoesNotUnregister) {
    EventDispatcher dispatcher;
    alignas(EventHub) unsigned char memory[sizeof(EventHub)];
    auto* const p_first = new (memory) EventHub(7);
    dispatcher.registerHub(p_first);

    p_first->~EventHub();

    // The address is still listed, so that another hub there counts as registered already.
    auto* const p_second = new (memory) EventHub(7);
    EXPECT_EQ(dispatcher.registerHub(p_second), 1);
    dispatcher.unregisterHub(p_second);
    p_second->~EventHub();
}

TEST_F(EventHubTeardownTest, TheEventInHandIsFinishedAndTheRestStaysUnhandled) {
    blockTheThread();
    m_hub->registerHandler(kType, m_inbox.handler());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(m_hub->receiveEvent(countedEvent()), 0);

    tearDownWhileBlocked([&] { m_hub->onHubUnregistered(); });

    ASSERT_EQ(m_inbox.events().size(), 1U);
    EXPECT_EQ(m_inbox.events()[0]->eventType, kBlocking);
    EXPECT_EQ(m_deletions, 0);
    m_hub.reset();
    EXPECT_EQ(m_deletions, 3);
    EXPECT_EQ(m_inbox.events().size(), 1U);
}

// However many the thread has found queued at once.
TEST_F(EventHubTeardownTest, EventsThatWereQueuedBeforeTheOneInHandStayUnhandledToo) {
    constexpr std::int32_t kFirst = 4;
    test::Event firstEntered;
    test::Event allQueued;
    m_hub->registerHandler(kFirst, [&](std::shared_ptr<BrowserEvent>) {
        firstEntered.set();
        (void)allQueued.wait();
    });
    m_hub->registerHandler(kBlocking, [&](std::shared_ptr<BrowserEvent> event) {
        m_entered.set();
        (void)m_release.wait();
        m_inbox.take(std::move(event));
    });
    m_hub->registerHandler(kType, m_inbox.handler());
    m_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kFirst, nullptr));
    ASSERT_TRUE(firstEntered.wait());
    m_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kBlocking, nullptr));
    for (int i = 0; i < 3; ++i) m_hub->receiveEvent(countedEvent());
    allQueued.set();
    ASSERT_TRUE(m_entered.wait());

    tearDownWhileBlocked([&] { m_hub->onHubUnregistered(); });

    EXPECT_EQ(m_inbox.events().size(), 1U);
    EXPECT_EQ(m_deletions, 0);
    m_hub.reset();
    EXPECT_EQ(m_deletions, 3);
    EXPECT_EQ(m_inbox.events().size(), 1U);
}

TEST_F(EventHubTeardownTest, DestructionDropsTheQueuedEventsUnhandled) {
    blockTheThread();
    m_hub->registerHandler(kType, m_inbox.handler());
    for (int i = 0; i < 3; ++i) m_hub->receiveEvent(countedEvent());

    tearDownWhileBlocked([&] { m_hub.reset(); });

    EXPECT_EQ(m_inbox.events().size(), 1U);
    EXPECT_EQ(m_deletions, 3);
}

TEST_F(EventHubTeardownTest, WaitsForTheHandlerInHandWithNothingQueued) {
    blockTheThread();

    tearDownWhileBlocked([&] { m_hub->onHubUnregistered(); });

    EXPECT_EQ(m_inbox.events().size(), 1U);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubTeardownTest, EventsAreStillQueuedAfterwards) {
    m_hub->registerHandler(kType, m_inbox.handler());
    m_hub->onHubUnregistered();

    EXPECT_EQ(m_hub->receiveEvent(countedEvent()), 0);

    m_hub.reset();
    EXPECT_EQ(m_deletions, 1);
    EXPECT_TRUE(m_inbox.events().empty());
}

TEST_F(EventHubTeardownTest, AFurtherHandlerStartsAFreshThread) {
    m_hub->registerHandler(kType, m_inbox.handler());
    m_hub->onHubUnregistered();
    m_log.clear();
    test::CountCalls threads(Call::PthreadCreate);

    EXPECT_EQ(m_hub->registerHandler(kType + 10, ignore), 0);

    EXPECT_EQ(threads.seen(), 1);
    EXPECT_EQ(m_hub->receiveEvent(countedEvent()), 0);
    EXPECT_TRUE(m_inbox.waitFor(1));
    m_hub->onHubUnregistered();
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubTeardownTest, AFreshThreadHandlesWhatWasLeftQueued) {
    blockTheThread();
    m_hub->registerHandler(kType, m_inbox.handler());
    const auto left = countedEvent();
    m_hub->receiveEvent(left);
    tearDownWhileBlocked([&] { m_hub->onHubUnregistered(); });

    m_hub->registerHandler(kType + 10, ignore);

    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(m_inbox.events()[1], left);
}

TEST_F(EventHubTeardownTest, MayBeRepeatedAnyNumberOfTimes) {
    m_hub->registerHandler(kType, m_inbox.handler());
    for (std::int32_t round = 1; round <= 50; ++round) {
        m_hub->onHubUnregistered();
        m_hub->registerHandler(kType + round, ignore);
        m_hub->receiveEvent(countedEvent());
        ASSERT_TRUE(m_inbox.waitFor(static_cast<std::size_t>(round)));
    }
}

TEST_F(EventHubTeardownTest, AnotherHubsHandlerMayDoIt) {
    test::Event done;
    EventHub other(8);
    m_hub->registerHandler(kType, ignore);
    other.registerHandler(kType, [&](std::shared_ptr<BrowserEvent>) {
        m_hub->onHubUnregistered();
        done.set();
    });

    other.receiveEvent(std::make_shared<BrowserEvent>(3, kType, nullptr));

    EXPECT_TRUE(done.wait());
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubTeardownTest, TwoAtOnceStopTheThreadOnce) {
    for (std::int32_t round = 0; round < 100; ++round) {
        m_hub->registerHandler(round, ignore);
        test::runAtOnce(2, [&](int) { m_hub->onHubUnregistered(); });
    }
    m_log.clear();

    m_hub->onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLines());
}

// The thread has found the queue empty and is about to wait; whoever stops it must not have its
// wake-up pass unheard. Both sides are held at that very point.
TEST_F(EventHubTeardownTest, ReachesAThreadThatIsJustAboutToWait) {
    test::Event aboutToWait;
    test::Event go;
    test::Event stopped;
    test::RunAtCall atWait(
        Call::SemWait,
        [&] {
            aboutToWait.set();
            (void)go.wait();
        },
        When().anyThread());
    m_hub->registerHandler(kType, ignore);
    ASSERT_TRUE(aboutToWait.wait());

    std::thread stopping([&] {
        test::ReplaceCall<int(sem_t*)> post(Call::SemPost, [&](sem_t* p_semaphore) {
            const int result = sem_post(p_semaphore);
            go.set();
            return result;
        });
        m_hub->onHubUnregistered();
        stopped.set();
    });

    EXPECT_TRUE(stopped.wait());
    stopping.join();
}

// The sender has taken it upon itself to wake the thread, and has not yet: who stops it then must
// not wake it too, nor pass it by, and the next thread must not find a wake-up left over.
TEST_F(EventHubTeardownTest, WaitsForASenderThatIsAboutToWakeTheThread) {
    test::Event aboutToWait;
    {
        const test::RunAtCall atWait(
            Call::SemWait, [&] { aboutToWait.set(); }, When().anyThread());
        m_hub->registerHandler(kType, ignore);
        ASSERT_TRUE(aboutToWait.wait());
    }
    test::Event aboutToWake;
    test::Event exitRequested;
    test::CountCalls wakeUps(Call::SemPost, When().anyThread().everyTime());
    std::thread sending([&] {
        const test::RunAtCall atPost(Call::SemPost, [&] {
            aboutToWake.set();
            (void)exitRequested.wait();
        });
        m_hub->receiveEvent(countedEvent());
    });
    ASSERT_TRUE(aboutToWake.wait());
    std::thread stopping([&] {
        const test::RunAtCall atJoin(Call::PthreadJoin, [&] { exitRequested.set(); });
        m_hub->onHubUnregistered();
    });
    sending.join();
    stopping.join();
    EXPECT_EQ(wakeUps.seen(), 1);

    test::CountCalls waits(Call::SemWait, When().anyThread().everyTime());
    test::Event handled;
    m_hub->registerHandler(kType + 1, [&](std::shared_ptr<BrowserEvent>) { handled.set(); });
    m_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kType + 1, nullptr));
    EXPECT_TRUE(handled.wait());
    m_hub->onHubUnregistered();
    EXPECT_EQ(waits.seen() + 1, wakeUps.seen());
}

/// Where its thread can be cancelled, and was, the thread ends.
class CancellableParam : public EventParam {
public:
    ~CancellableParam() override { pthread_testcancel(); }
};

/// What @p work does although its thread is cancelled at its beginning, or in it.
template <typename Work>
void expectIsNotCancelledIn(Work work) {
    bool isCancelled = true;
    std::thread([&] {
        work();
        int ignored = 0;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
        isCancelled = false;
    }).join();
    EXPECT_FALSE(isCancelled);
}

TEST_F(EventHubTeardownTest, ACancelledThreadMayDestroyTheHubWithWhatIsQueued) {
    m_hub->registerHandler(kType, ignore);
    m_hub->onHubUnregistered();
    m_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kType, new CancellableParam));

    expectIsNotCancelledIn([&] {
        (void)pthread_cancel(pthread_self());
        m_hub.reset();
    });
}

// Cancelled in the output of its lines, say.
TEST_F(EventHubTeardownTest, ACancelledThreadCompletesATeardown) {
    m_hub->registerHandler(kType, ignore);

    expectIsNotCancelledIn([&] {
        const test::RunAtCall atOutput(Call::ZorDebugCheckLevel, [&] {
            (void)pthread_cancel(pthread_self());
            pthread_testcancel();
        });
        m_hub->onHubUnregistered();
        EXPECT_EQ(atOutput.hits(), 1);
    });

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
    EXPECT_EQ(m_hub->registerHandler(kType + 1, m_inbox.handler()), 0);
    m_hub->receiveEvent(countedEvent(kType + 1));
    EXPECT_TRUE(m_inbox.waitFor(1));
}

// There is a thread, and will be no other.
TEST_F(EventHubTeardownTest, AHandlerInHandMayRegisterAnotherAsTheHubIsDestroyed) {
    test::UnorderedTurn turn;
    EventHub* const p_hub = m_hub.get();
    p_hub->registerHandler(kBlocking, [&, p_hub](std::shared_ptr<BrowserEvent>) {
        m_entered.set();
        turn.use([&] { EXPECT_EQ(p_hub->registerHandler(kType, ignore), 0); });
    });
    p_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kBlocking, nullptr));
    ASSERT_TRUE(m_entered.wait());
    const test::CountCalls threads(Call::PthreadCreate, When().anyThread());
    {
        // Behind the first lock, which says that the hub is being destroyed.
        const test::RunAtCall atTeardown(
            Call::PthreadMutexLock, [&] { turn.give(); }, When().nth(2));
        m_hub.reset();
        EXPECT_EQ(atTeardown.hits(), 1);
    }

    EXPECT_EQ(threads.seen(), 0);
}

TEST_F(EventHubTeardownTest, StopsManyShortLivedHubs) {
    constexpr int kThreads = 2;
    constexpr int kHubs = 150;
    test::runAtOnce(kThreads, [&](int) {
        for (int i = 0; i < kHubs; ++i) {
            EventHub hub(9);
            hub.registerHandler(kType, ignore);
            for (int events = 0; events < i % 3; ++events) hub.receiveEvent(countedEvent());
            if (i % 2 == 0) hub.onHubUnregistered();
        }
    });

    EXPECT_EQ(m_deletions, kThreads * kHubs);
}

}  // namespace

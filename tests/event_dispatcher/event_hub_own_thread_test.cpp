// Hubs that are unregistered, destroyed and abandoned by their own handlers.

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

using Event = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kModule = 7;
constexpr std::int32_t kLeave = 5;
constexpr std::int32_t kLater = 6;

Event makeEvent(std::int32_t type) {
    return std::make_shared<BrowserEvent>(3, type, nullptr);
}

class EventHubOwnThreadTest : public testing::Test {
protected:
    /// Has the hub's thread end in a handler, with an event behind that which the inbox is to take.
    void loseThreadBefore(EventHub& hub, std::int32_t type) {
        hub.registerHandler(kLeave, [&](const Event&) {
            m_done.set();
            pthread_exit(nullptr);
        });
        hub.registerHandler(type, m_inbox.handler());
        hub.receiveEvent(makeEvent(kLeave));
        ASSERT_TRUE(m_done.wait());
        hub.receiveEvent(makeEvent(type));
    }

    /// Whether the thread has gone already shows in nothing but that a new one handles the event.
    void registerUntilOneIsTaken(EventHub& hub) {
        for (std::int32_t type = 100; m_inbox.events().empty() && type < 100000; ++type) {
            (void)hub.registerHandler(type, [](const Event&) {});
        }
    }

    LogCapture m_log{kLogInfo};
    test::Event m_done;
    Inbox m_inbox;
};

TEST_F(EventHubOwnThreadTest, AHandlerMayUnregisterItsHub) {
    EventHub hub(kModule);
    hub.registerHandler(kLeave, [&](const Event&) {
        EXPECT_EQ(evtdispch_unregister_hub(&hub), 0);
        m_done.set();
    });
    hub.registerHandler(kLater, m_inbox.handler());
    evtdispch_register_hub(&hub);
    m_log.clear();

    hub.receiveEvent(makeEvent(kLeave));
    hub.receiveEvent(makeEvent(kLater));

    ASSERT_TRUE(m_done.wait());
    hub.onHubUnregistered();  // Which waits for the thread, wherever it is by now.
    EXPECT_TRUE(m_inbox.events().empty());
    EXPECT_EQ(evtdispch_send_event(makeEvent(kLater), kModule), -1);
    std::vector<LogEntry> lines = m_log.entriesWithoutLineNumbers();
    lines.erase(lines.begin());  // The dispatcher's, which names the hub's address.
    std::vector<LogEntry> expected = teardownLines();
    for (const LogEntry& line : teardownLines()) expected.push_back(line);
    EXPECT_EQ(lines, expected);
}

TEST_F(EventHubOwnThreadTest, AHandlerMayDestroyItsHub) {
    std::atomic<int> deletions{0};
    const auto held = std::make_shared<int>(7);
    auto* const p_hub = new EventHub(kModule);
    int seen = 0;
    p_hub->registerHandler(kLeave, [held, p_hub, &seen, this](Event event) {
        delete p_hub;
        seen = *held;
        m_inbox.take(std::move(event));
    });
    p_hub->registerHandler(kLater, [](const Event&) {});
    test::Event blocked;
    p_hub->registerHandler(kLater + 1, [&](const Event&) { (void)blocked.wait(); });
    p_hub->receiveEvent(makeEvent(kLater + 1));
    p_hub->receiveEvent(makeEvent(kLeave));
    p_hub->receiveEvent(std::make_shared<BrowserEvent>(3, kLater, new CountedParam(&deletions)));
    m_log.clear();
    blocked.set();

    EXPECT_TRUE(m_inbox.waitFor(1));
    EXPECT_EQ(seen, 7);
    EXPECT_EQ(deletions, 1);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

// The teardown from outside is over: the thread that came after it is joined by nobody.
TEST_F(EventHubOwnThreadTest, AHandlerMayDestroyItsHubAfterATeardownFromOutside) {
    auto* const p_hub = new EventHub(kModule);
    p_hub->registerHandler(kLater, [](const Event&) {});
    p_hub->onHubUnregistered();
    test::Event isSent;
    p_hub->registerHandler(kLeave, [&isSent, p_hub, this](Event event) {
        (void)isSent.wait();  // The hub outlives the call that sends to it.
        delete p_hub;
        m_inbox.take(std::move(event));
    });

    p_hub->receiveEvent(makeEvent(kLeave));
    isSent.set();

    EXPECT_TRUE(m_inbox.waitFor(1));
}

// In the handler itself: the thread goes on, and is the only one.
TEST_F(EventHubOwnThreadTest, ARegistrationInTheHandlerHasTheThreadGoOn) {
    EventHub hub(kModule);
    test::CountCalls threads(Call::PthreadCreate, When().anyThread());
    hub.registerHandler(kLeave, [&](Event event) {
        hub.onHubUnregistered();
        EXPECT_EQ(hub.registerHandler(kLater, m_inbox.handler()), 0);
        m_inbox.take(std::move(event));
    });

    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(m_inbox.waitFor(1));
    hub.receiveEvent(makeEvent(kLater));

    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(m_inbox.threads()[0], m_inbox.threads()[1]);
    EXPECT_EQ(threads.seen(), 1);
}

// On another thread, while the handler still runs: no second thread serves the hub beside it.
TEST_F(EventHubOwnThreadTest, ARegistrationElsewhereDoesNotStartASecondThread) {
    EventHub hub(kModule);
    test::Event unregistered;
    test::Event release;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    const auto enter = [&] {
        if (++inside > 1) most = 2;
    };
    hub.registerHandler(kLeave, [&](Event event) {
        enter();
        hub.onHubUnregistered();
        unregistered.set();
        (void)release.wait();
        --inside;
        m_inbox.take(std::move(event));
    });
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(unregistered.wait());

    EXPECT_EQ(hub.registerHandler(kLater,
                                  [&](Event event) {
                                      enter();
                                      --inside;
                                      m_inbox.take(std::move(event));
                                  }),
              0);
    hub.receiveEvent(makeEvent(kLater));
    release.set();

    ASSERT_TRUE(m_inbox.waitFor(2));
    EXPECT_EQ(m_inbox.threads()[0], m_inbox.threads()[1]);
    EXPECT_EQ(most, 0);
}

// Once it has left, a registration starts another one, which handles what is queued.
TEST_F(EventHubOwnThreadTest, UnregisteredAndRegisteredAgainAtAnyMomentItHandlesEverything) {
    EventHub hub(kModule);
    constexpr int kRounds = 500;
    hub.registerHandler(kLeave, [&](Event event) {
        hub.onHubUnregistered();
        m_inbox.take(std::move(event));
    });
    for (int round = 1; round <= kRounds; ++round) {
        ASSERT_EQ(hub.receiveEvent(makeEvent(kLeave)), 0);
        ASSERT_TRUE(m_inbox.waitFor(static_cast<std::size_t>(2 * round - 1)));
        // Too late to be called back in some of the rounds, not in others.
        (void)hub.registerHandler(1000 + round, m_inbox.handler());
        ASSERT_EQ(hub.receiveEvent(makeEvent(1000 + round)), 0);
        ASSERT_TRUE(m_inbox.waitFor(static_cast<std::size_t>(2 * round)));
    }
}

// The first thread has left, but has not ended. What it still does must not make the hub believe
// that the next one has left.
TEST_F(EventHubOwnThreadTest, AThreadThatEndsLateDoesNotDisturbTheNextOne) {
    EventHub hub(kModule);
    test::Event leaves;
    test::Event nextWorks;
    std::unique_ptr<test::RunAtCall> atUnlock;
    std::unique_ptr<test::RunAtCall> atLock;
    hub.registerHandler(kLater, [&](Event event) {
        nextWorks.set();
        m_inbox.take(std::move(event));
    });
    hub.registerHandler(kLeave, [&](const Event&) {
        hub.onHubUnregistered();
        // Under its next lock the thread leaves. If it takes another one, then not before the
        // next thread is at work.
        atUnlock =
            std::make_unique<test::RunAtCall>(Call::PthreadMutexUnlock, [&] { leaves.set(); });
        atLock = std::make_unique<test::RunAtCall>(
            Call::PthreadMutexLock, [&] { (void)nextWorks.wait(); }, When().nth(2));
    });
    hub.receiveEvent(makeEvent(kLeave));
    hub.receiveEvent(makeEvent(kLater));
    ASSERT_TRUE(leaves.wait());
    {
        test::CountCalls threads(Call::PthreadCreate);
        (void)hub.registerHandler(kLater + 1, [](const Event&) {});
        ASSERT_EQ(threads.seen(), 1);
    }
    ASSERT_TRUE(m_inbox.waitFor(1));

    test::CountCalls threads(Call::PthreadCreate);
    test::FailCall noJoin(Call::PthreadJoin, 0);  // It would be one without end.
    (void)hub.registerHandler(kLater + 2, [](const Event&) {});

    EXPECT_EQ(threads.seen(), 0);
    EXPECT_EQ(noJoin.seen(), 0);
}

/// Destroys a hub when the thread ends that it was given to.
class LateOwner {
public:
    ~LateOwner() {
        m_hub.reset();
        if (m_gone != nullptr) m_gone->set();
    }

    void own(std::unique_ptr<EventHub> hub, test::Event* p_gone) {
        m_hub = std::move(hub);
        m_gone = p_gone;
    }

private:
    std::unique_ptr<EventHub> m_hub;
    test::Event* m_gone = nullptr;
};

// The thread has left then, and is to be joined by nobody but itself.
TEST_F(EventHubOwnThreadTest, AThreadLocalObjectMayDestroyTheHubWhenItsThreadEnds) {
    auto hub = std::make_unique<EventHub>(kModule);
    EventHub* const p_hub = hub.get();
    p_hub->registerHandler(kLeave, [&, p_hub](const Event&) {
        static thread_local LateOwner t_owner;
        // Waits for the sender, who is still in the hub.
        (void)evtdispch_unregister_hub(p_hub);
        t_owner.own(std::move(hub), &m_done);
        m_log.clear();
    });
    evtdispch_register_hub(p_hub);

    EXPECT_EQ(evtdispch_send_event(makeEvent(kLeave), kModule), 0);

    EXPECT_TRUE(m_done.wait());
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

/// Holds the thread that it was given to at its end.
class LateEnd {
public:
    ~LateEnd() {
        if (m_release != nullptr) (void)m_release->wait();
    }

    void waitFor(test::Event* p_release) { m_release = p_release; }

private:
    test::Event* m_release = nullptr;
};

// The registration has started the next thread, and joins the one that has left.
TEST_F(EventHubOwnThreadTest, ARegistrationThatIsCancelledIsCompleted) {
    EventHub hub(kModule);
    test::Event left;
    test::Event joining;
    std::unique_ptr<test::RunAtCall> atUnlock;
    hub.registerHandler(kLeave, [&](const Event&) {
        static thread_local LateEnd t_end;
        t_end.waitFor(&joining);
        hub.onHubUnregistered();
        // The thread leaves under the lock that it gives back next.
        atUnlock = std::make_unique<test::RunAtCall>(Call::PthreadMutexUnlock, [&] { left.set(); });
    });
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(left.wait());

    bool isCancelled = true;
    std::thread registering([&] {
        test::RunAtCall atJoin(Call::PthreadJoin, [&] {
            (void)pthread_cancel(pthread_self());
            joining.set();
        });
        EXPECT_EQ(hub.registerHandler(kLater, m_inbox.handler()), 0);
        EXPECT_EQ(atJoin.seen(), 1);
        int ignored = 0;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
        isCancelled = false;
    });
    registering.join();

    EXPECT_FALSE(isCancelled);
    hub.receiveEvent(makeEvent(kLater));
    EXPECT_TRUE(m_inbox.waitFor(1));
}

// What ends with the thread that has left may use the hub: no lock is held while it is joined.
TEST_F(EventHubOwnThreadTest, ARegistrationThatJoinsKeepsNobodyFromAnother) {
    EventHub hub(kModule);
    test::Event left;
    test::Event joining;
    std::unique_ptr<test::RunAtCall> atUnlock;
    hub.registerHandler(kLeave, [&](const Event&) {
        static thread_local LateEnd t_end;
        t_end.waitFor(&joining);
        hub.onHubUnregistered();
        atUnlock = std::make_unique<test::RunAtCall>(Call::PthreadMutexUnlock, [&] { left.set(); });
    });
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(left.wait());
    test::Event registered;
    std::thread other;
    const test::RunAtCall atJoin(Call::PthreadJoin, [&] {
        other = std::thread([&] {
            EXPECT_EQ(hub.registerHandler(kLater + 1, m_inbox.handler()), 0);
            registered.set();
        });
        EXPECT_TRUE(registered.wait());
        joining.set();
    });

    EXPECT_EQ(hub.registerHandler(kLater, m_inbox.handler()), 0);

    ASSERT_EQ(atJoin.hits(), 1);
    other.join();
}

// Its thread was told to leave and is called back before it does: what it has taken of the queue
// still comes before what was queued since.
TEST_F(EventHubOwnThreadTest, AThreadThatIsCalledBackGoesOnWithWhatItHasTaken) {
    constexpr std::int32_t kFirst = 100;
    EventHub hub(kModule);
    test::Event entered;
    test::Event areQueued;
    std::unique_ptr<test::RunAtCall> atLock;
    hub.registerHandler(kFirst, [&](const Event&) {
        entered.set();
        (void)areQueued.wait();
    });
    hub.registerHandler(kLater, m_inbox.handler());
    hub.registerHandler(kLeave, [&](const Event&) {
        hub.receiveEvent(makeEvent(kLater));
        hub.onHubUnregistered();
        // Under its next lock the thread would leave.
        atLock = std::make_unique<test::RunAtCall>(Call::PthreadMutexLock, [&] {
            (void)hub.registerHandler(kLater + 1, m_inbox.handler());
        });
    });
    const std::vector<Event> taken = {makeEvent(kLater), makeEvent(kLater)};
    hub.receiveEvent(makeEvent(kFirst));
    ASSERT_TRUE(entered.wait());
    hub.receiveEvent(makeEvent(kLeave));
    for (const Event& event : taken) hub.receiveEvent(event);
    areQueued.set();

    ASSERT_TRUE(m_inbox.waitFor(3));

    EXPECT_EQ(m_inbox.events()[0], taken[0]);
    EXPECT_EQ(m_inbox.events()[1], taken[1]);
    hub.onHubUnregistered();
}

// The handler tears down while another thread already waits for it to end.
TEST_F(EventHubOwnThreadTest, AHandlerMayUnregisterAHubThatIsBeingTornDown) {
    EventHub hub(kModule);
    test::Event entered;
    test::Event joining;
    hub.registerHandler(kLeave, [&](Event event) {
        entered.set();
        (void)joining.wait();
        hub.onHubUnregistered();
        m_inbox.take(std::move(event));
    });
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(entered.wait());
    test::RunAtCall atJoin(Call::PthreadJoin, [&] { joining.set(); });

    hub.onHubUnregistered();

    EXPECT_TRUE(m_inbox.waitFor(1));
}

TEST_F(EventHubOwnThreadTest, PthreadExitLeavesTheHubWithoutAThreadUntilTheNextRegistration) {
    EventHub hub(kModule);
    loseThreadBefore(hub, kLater);

    registerUntilOneIsTaken(hub);

    EXPECT_TRUE(m_inbox.waitFor(1));
}

// What had no thread to wait for is over: a registration does not take it for one that goes on.
TEST_F(EventHubOwnThreadTest, ATeardownWithoutAThreadKeepsNoneFromStartingLater) {
    EventHub hub(kModule);
    hub.onHubUnregistered();
    loseThreadBefore(hub, kLater);

    registerUntilOneIsTaken(hub);

    EXPECT_TRUE(m_inbox.waitFor(1));
}

TEST_F(EventHubOwnThreadTest, PthreadExitDoesNotHangTheTeardown) {
    EventHub hub(kModule);
    test::Event entered;
    hub.registerHandler(kLeave, [&](const Event&) {
        entered.set();
        pthread_exit(nullptr);
    });
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(entered.wait());
    m_log.clear();

    hub.onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubOwnThreadTest, PthreadExitAfterAWaitDoesNotHangTheTeardown) {
    EventHub hub(kModule);
    test::Event waits;
    test::Event entered;
    const test::RunAtCall atWait(
        Call::SemWait, [&] { waits.set(); }, When().anyThread());
    hub.registerHandler(kLeave, [&](const Event&) {
        entered.set();
        pthread_exit(nullptr);
    });
    ASSERT_TRUE(waits.wait());
    hub.receiveEvent(makeEvent(kLeave));
    ASSERT_TRUE(entered.wait());
    m_log.clear();

    hub.onHubUnregistered();

    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), teardownLines());
}

TEST_F(EventHubOwnThreadTest, AThreadNeedsNoMemoryToHandleEvents) {
    EventHub hub(kModule);
    test::Event waits;
    std::unique_ptr<test::FailCall> noMemory;
    std::unique_ptr<test::RunAtCall> atWait;
    hub.registerHandler(kLater, [&](const Event&) {
        atWait = std::make_unique<test::RunAtCall>(Call::SemWait, [&] { waits.set(); });
        noMemory = std::make_unique<test::FailCall>(Call::New, 0, When().everyTime());
    });
    hub.registerHandler(kLeave, [&](const Event&) { m_done.set(); });
    hub.receiveEvent(makeEvent(kLater));
    ASSERT_TRUE(waits.wait());

    hub.receiveEvent(makeEvent(kLeave));

    EXPECT_TRUE(m_done.wait());
    hub.onHubUnregistered();
    EXPECT_EQ(noMemory->hits(), 0);
}

/// Tells when the thread that it was given to has ended, and all of its stack is unwound.
class EndOfThread {
public:
    ~EndOfThread() {
        if (m_ended != nullptr) m_ended->set();
    }

    void tell(test::Event* p_ended) { m_ended = p_ended; }

private:
    test::Event* m_ended = nullptr;
};

/// Has a hub's thread cancelled as soon as it waits for the next event. Not in the wait itself: the
/// thread sanitizer would see nothing of what is done from there on.
class CancelInWait {
public:
    /// @param beforeThat  On that thread: it already waits, as far as the hub knows.
    explicit CancelInWait(
        EventHub* p_hub, const std::function<void()>& beforeThat = [] {}) {
        p_hub->registerHandler(kLeave, [this, beforeThat](const Event&) {
            static thread_local EndOfThread t_end;
            t_end.tell(&m_ended);
            m_atWait = std::make_unique<test::RunAtCall>(Call::SemWait, [beforeThat] {
                beforeThat();
                (void)pthread_cancel(pthread_self());
                pthread_testcancel();
            });
        });
        p_hub->receiveEvent(makeEvent(kLeave));
        EXPECT_TRUE(m_ended.wait());
        m_atWait.reset();
    }

private:
    test::Event m_ended;
    std::unique_ptr<test::RunAtCall> m_atWait;
};

TEST_F(EventHubOwnThreadTest, NobodyWakesAThreadThatWasCancelledInItsWait) {
    EventHub hub(kModule);
    hub.registerHandler(kLater, m_inbox.handler());
    const CancelInWait cancelled(&hub);

    const test::CountCalls posts(Call::SemPost, When().anyThread());
    hub.receiveEvent(makeEvent(kLater));

    EXPECT_EQ(posts.seen(), 0);
    hub.registerHandler(kLater + 1, [](const Event&) {});
    EXPECT_TRUE(m_inbox.waitFor(1));
}

// Of the wake-up of a thread that is cancelled in its wait nothing is left: the next thread would
// take it for its own, while those that send it events still tell when they woke it.
TEST_F(EventHubOwnThreadTest, AWakeUpIsForTheThreadThatWaitedAlone) {
    EventHub hub(kModule);
    hub.registerHandler(kLater, m_inbox.handler());
    const CancelInWait cancelled(&hub, [&] { hub.receiveEvent(makeEvent(kLater)); });
    test::Event waits;
    int wakeUps = -1;
    const test::ReplaceCall<int(sem_t*)> atNextWait(
        Call::SemWait,
        [&](sem_t* p_wakeUps) {
            (void)sem_getvalue(p_wakeUps, &wakeUps);
            waits.set();
            return sem_wait(p_wakeUps);
        },
        When().anyThread());

    // The next thread handles what is queued before it waits.
    hub.registerHandler(kLater + 1, [](const Event&) {});
    ASSERT_TRUE(m_inbox.waitFor(1));
    ASSERT_TRUE(waits.wait());

    EXPECT_EQ(wakeUps, 0);
    hub.onHubUnregistered();
}

/// Writes its name when it goes.
class Witness {
public:
    Witness(std::string name, std::vector<std::string>* p_gone)
        : m_name(std::move(name)), m_gone(p_gone) {}
    ~Witness() { m_gone->push_back(m_name); }

    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

private:
    const std::string m_name;
    std::vector<std::string>* const m_gone;
};

class WitnessParam : public EventParam {
public:
    WitnessParam(std::string name, std::vector<std::string>* p_gone)
        : m_witness(std::move(name), p_gone) {}

private:
    const Witness m_witness;
};

TEST_F(EventHubOwnThreadTest, DestructionTakesTheHandlersFirstAndThenTheEventsInTheirOrder) {
    std::vector<std::string> gone;
    test::Event entered[2];
    test::Event release[2];
    std::atomic<int> calls{0};
    auto hub = std::make_unique<EventHub>(kModule);
    hub->registerHandler(kLeave,
                         [witness = std::make_shared<Witness>("handler", &gone)](const Event&) {});
    hub->registerHandler(kLater, [&](const Event&) {
        const int call = calls++;
        entered[call].set();
        (void)release[call].wait();
    });
    // The thread takes the whole queue at once: the first holds it until all are there, the second
    // until the hub is torn down; the third is then taken, and the fourth still queued.
    hub->receiveEvent(makeEvent(kLater));
    ASSERT_TRUE(entered[0].wait());
    hub->receiveEvent(makeEvent(kLater));
    hub->receiveEvent(std::make_shared<BrowserEvent>(3, kLeave, new WitnessParam("taken", &gone)));
    release[0].set();
    ASSERT_TRUE(entered[1].wait());
    hub->receiveEvent(std::make_shared<BrowserEvent>(3, kLeave, new WitnessParam("queued", &gone)));
    test::RunAtCall atJoin(
        Call::PthreadJoin, [&] { release[1].set(); }, When().anyThread());

    hub.reset();

    EXPECT_EQ(gone, (std::vector<std::string>{"handler", "taken", "queued"}));
}

}  // namespace

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "event_dispatcher/event_fixtures.h"
#include "support/contention.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using namespace std::chrono_literals;
using Event = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kSender = 71;
constexpr std::int32_t kReceiver = 72;
constexpr std::int32_t kType = 5;
constexpr std::int32_t kNoLimit = -1;

/// What callbacks got; outlives the hubs.
class Replies {
public:
    EventHub::ReplyCallback callback() {
        return [this](EventResult result, const Event& event) { add(result, event); };
    }

    void add(EventResult result, const Event& event) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_results.push_back(result);
            m_events.push_back(event);
            m_threads.push_back(std::this_thread::get_id());
        }
        m_count.set();
    }

    [[nodiscard]] bool wait() { return m_count.wait(); }
    bool isAny() const { return m_count.isSet(); }
    std::vector<EventResult> results() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_results;
    }
    std::vector<Event> events() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    std::vector<std::thread::id> threads() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

private:
    mutable std::mutex m_mutex;
    test::Event m_count;
    std::vector<EventResult> m_results;      // Guarded by m_mutex.
    std::vector<Event> m_events;             // Guarded by m_mutex.
    std::vector<std::thread::id> m_threads;  // Guarded by m_mutex.
};

class AsyncSendTest : public testing::Test {
protected:
    AsyncSendTest() : m_sender(std::make_unique<EventHub>(kSender)) {
        EXPECT_EQ(m_sender->registerHandler(kType + 1, m_ownInbox.handler()), 0);
        evtdispch_register_hub(m_sender.get());
        evtdispch_register_hub(m_receiver.get());
        m_log.clear();
    }
    ~AsyncSendTest() override {
        evtdispch_unregister_hub(m_receiver.get());
        m_receiver.reset();
        if (m_sender != nullptr) evtdispch_unregister_hub(m_sender.get());
    }

    void answer(EventHub::Handler handler) {
        ASSERT_EQ(m_receiver->registerHandler(kType, std::move(handler)), 0);
    }
    std::int32_t send(std::int32_t timeout) {
        return m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, timeout,
                                   m_replies.callback());
    }
    /// What has been sent to the hub before is handled, and its callbacks that were due are called.
    void passThroughSender() {
        const std::size_t before = m_ownInbox.events().size();
        for (std::size_t i = 1; i <= 2; ++i) {
            ASSERT_EQ(m_sender->receiveEvent(m_sender->createEvent(kType + 1)), 0);
            ASSERT_TRUE(m_ownInbox.waitFor(before + i));
        }
    }

    test::LogCapture m_log{kLogError};
    Replies m_replies;
    Inbox m_inbox;
    Inbox m_ownInbox;
    std::unique_ptr<EventHub> m_receiver{std::make_unique<EventHub>(kReceiver)};
    std::unique_ptr<EventHub> m_sender;
};

TEST_F(AsyncSendTest, CallsBackWithTheReplyOnTheSendersThread) {
    answer([](Event event) { event->replyResult(7); });
    const Event event = m_sender->createEvent(kType);

    ASSERT_EQ(m_sender->sendAsync(event, kReceiver, kNoLimit, m_replies.callback()), 0);
    ASSERT_TRUE(m_replies.wait());
    passThroughSender();

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
    EXPECT_EQ(m_replies.events(), std::vector<Event>{event});
    EXPECT_EQ(m_replies.threads()[0], m_ownInbox.threads()[0]);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(AsyncSendTest, AReplyWaitsForTheQueueOfItsSender) {
    answer(m_inbox.handler());
    ASSERT_EQ(send(kNoLimit), 0);
    ASSERT_TRUE(m_inbox.waitFor(1));
    passThroughSender();

    EXPECT_TRUE(test::keepsWaiting([&] { m_sender->setQueueLimit(0); },
                                   [&] { m_inbox.events()[0]->replyResult(7); }));

    ASSERT_TRUE(m_replies.wait());
    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
}

// The sender's own pointer lasts longer than anything that waits for a reply.
TEST_F(AsyncSendTest, AReplyToWhatIsOverIsNothing) {
    answer([](Event event) { event->replyResult(7); });
    const Event event = m_sender->createEvent(kType);
    ASSERT_EQ(m_sender->sendAsync(event, kReceiver, kNoLimit, m_replies.callback()), 0);
    ASSERT_TRUE(m_replies.wait());
    passThroughSender();
    evtdispch_unregister_hub(m_receiver.get());  // Its thread has let go of the event.

    event->replyResult(9);
    passThroughSender();

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
}

TEST_F(AsyncSendTest, AReplyToWhatIsOverMayComeAsTheEventIsSentAgain) {
    answer([](Event event) { event->replyResult(7); });
    const Event event = m_sender->createEvent(kType);
    ASSERT_EQ(m_sender->sendAsync(event, kReceiver, kNoLimit, m_replies.callback()), 0);
    ASSERT_TRUE(m_replies.wait());
    test::UnorderedTurn late;
    std::thread replier([&] { late.use([&] { event->replyResult(9); }); });
    Replies second;
    {
        const test::RunAtCall atArming(
            test::Call::PthreadMutexLock, [&] { late.give(); },
            test::When().on(event->waitResultMtx->native_handle()));
        EXPECT_EQ(m_sender->sendAsync(event, kReceiver, kNoLimit, second.callback()), 0);
        EXPECT_EQ(atArming.hits(), 1);
    }
    late.give();
    replier.join();

    ASSERT_TRUE(second.wait());

    EXPECT_EQ(second.results(), std::vector<EventResult>{7});
}

// The first one makes what all have in common.
TEST_F(AsyncSendTest, TheFirstTwoOfAHubMayBeSentAtOnce) {
    answer([](Event event) { event->replyResult(7); });
    const Event event = m_sender->createEvent(kType);
    const EventHub::ReplyCallback callback = m_replies.callback();
    Replies others;
    std::unique_ptr<test::Contender> other;
    const test::RunAtCall atFirst(test::Call::New, [&] {
        other = std::make_unique<test::Contender>([&] {
            EXPECT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, kNoLimit,
                                          others.callback()),
                      0);
        });
        EXPECT_TRUE(other->hasToWait());
    });

    EXPECT_EQ(m_sender->sendAsync(event, kReceiver, kNoLimit, callback), 0);
    other.reset();

    EXPECT_TRUE(m_replies.wait());
    EXPECT_TRUE(others.wait());
}

TEST_F(AsyncSendTest, StartsTheThreadOfAHubWithoutHandlers) {
    answer([](Event event) { event->replyResult(7); });
    EventHub bare(kSender + 100);

    ASSERT_EQ(bare.sendAsync(bare.createEvent(kType), kReceiver, kNoLimit, m_replies.callback()),
              0);
    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
    EXPECT_NE(m_replies.threads()[0], std::this_thread::get_id());
}

TEST_F(AsyncSendTest, DeliversTheReplysData) {
    answer([](Event event) {
        EXPECT_TRUE(fillReply<std::string>(event, "data"));
        event->replyResult(0);
    });

    ASSERT_EQ(m_sender->sendAsync(makeRequest<std::string>(*m_sender, kType), kReceiver, kNoLimit,
                                  m_replies.callback()),
              0);
    ASSERT_TRUE(m_replies.wait());

    ASSERT_NE(replyOf<std::string>(m_replies.events()[0]), nullptr);
    EXPECT_EQ(*replyOf<std::string>(m_replies.events()[0]), "data");
}

TEST_F(AsyncSendTest, CallsBackOnceWhenTheTimeIsOverFirst) {
    test::Event mayReply;
    test::Event hasReplied;
    answer([&](Event event) {
        ASSERT_TRUE(mayReply.wait());
        event->replyResult(7);
        event.reset();
        hasReplied.set();
    });
    const auto begin = std::chrono::steady_clock::now();

    ASSERT_EQ(send(20), 0);
    ASSERT_TRUE(m_replies.wait());
    const auto end = std::chrono::steady_clock::now();
    mayReply.set();
    ASSERT_TRUE(hasReplied.wait());
    passThroughSender();

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
    EXPECT_GE(end - begin, 20ms);
}

// Of 24 days, which the clock may not have reached yet since the machine was started.
TEST_F(AsyncSendTest, TheTimeIsOverAtOnceWhereTheClockCannotBeRead) {
    Event unanswered;
    answer([&](const Event& event) { unanswered = event; });
    {
        const test::FailCall clock(test::Call::ClockGettime, EINVAL, test::When().everyTime());
        ASSERT_EQ(send(INT32_MAX), 0);
    }

    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
    evtdispch_unregister_hub(m_receiver.get());
    m_receiver.reset();
}

// Who knows no time does not wait.
TEST_F(AsyncSendTest, TheTimeIsOverAtOnceWhereTheThreadCannotReadTheClock) {
    answer(m_inbox.handler());
    std::unique_ptr<test::FailCall> clock;
    ASSERT_EQ(m_sender->registerHandler(kType + 2,
                                        [&](const Event&) {
                                            clock = std::make_unique<test::FailCall>(
                                                test::Call::ClockGettime, EINVAL,
                                                test::When().everyTime());
                                        }),
              0);
    ASSERT_EQ(m_sender->receiveEvent(m_sender->createEvent(kType + 2)), 0);
    passThroughSender();

    ASSERT_EQ(
        m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, 1h, m_replies.callback()), 0);
    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
    evtdispch_unregister_hub(m_sender.get());  // Its thread reads no clock any more.
}

TEST_F(AsyncSendTest, TakesDurations) {
    answer(m_inbox.handler());  // Which keeps the event.

    ASSERT_EQ(
        m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, -1ms, m_replies.callback()),
        0);
    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
}

TEST_F(AsyncSendTest, KeepsTimeWhileALaterOneIsWaitedFor) {
    answer(m_inbox.handler());
    Replies later;
    ASSERT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, 1h, later.callback()),
              0);
    passThroughSender();

    ASSERT_EQ(send(1), 0);
    ASSERT_TRUE(m_replies.wait());

    EXPECT_FALSE(later.isAny());
    evtdispch_unregister_hub(m_sender.get());
    EXPECT_EQ(later.results(), std::vector<EventResult>{kEventResultNone});
}

TEST_F(AsyncSendTest, KeepsTimeWhileTheThreadIsBusy) {
    answer(m_inbox.handler());
    std::atomic<bool> isEnough{false};
    ASSERT_EQ(m_sender->registerHandler(kType + 2,
                                        [&](Event event) {
                                            if (!isEnough) (void)m_sender->receiveEvent(event);
                                        }),
              0);
    ASSERT_EQ(m_sender->receiveEvent(m_sender->createEvent(kType + 2)), 0);

    ASSERT_EQ(send(1), 0);
    EXPECT_TRUE(m_replies.wait());
    isEnough = true;
    evtdispch_unregister_hub(m_sender.get());  // The handler uses what is of this test.

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
}

TEST_F(AsyncSendTest, SaysWhenNobodyIsLeftToReply) {
    answer([](Event) {});

    ASSERT_EQ(send(kNoLimit), 0);
    ASSERT_TRUE(m_replies.wait());
    passThroughSender();

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultNone});
}

TEST_F(AsyncSendTest, SaysWhenTheReceiverIsGone) {
    test::Event entered;
    test::Event mayLeave;
    ASSERT_EQ(m_receiver->registerHandler(kType + 1,
                                          [&](Event) {
                                              entered.set();
                                              ASSERT_TRUE(mayLeave.wait());
                                          }),
              0);
    answer([](Event event) { event->replyResult(7); });
    ASSERT_EQ(m_receiver->receiveEvent(m_sender->createEvent(kType + 1)), 0);
    ASSERT_TRUE(entered.wait());

    ASSERT_EQ(send(kNoLimit), 0);
    std::thread other([&] { evtdispch_unregister_hub(m_receiver.get()); });
    while (evtdispch_send_event(m_sender->createEvent(kType), kReceiver) == 0) {
        std::this_thread::yield();
    }
    mayLeave.set();
    other.join();
    m_receiver.reset();
    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results().size(), 1U);
    m_receiver = std::make_unique<EventHub>(kReceiver);
}

TEST_F(AsyncSendTest, WhenTheHubIsUnregisteredItsThreadCallsBackBeforeItEnds) {
    answer(m_inbox.handler());
    ASSERT_EQ(send(kNoLimit), 0);
    passThroughSender();

    ASSERT_EQ(evtdispch_unregister_hub(m_sender.get()), 0);

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultNone});
    ASSERT_TRUE(m_inbox.waitFor(1));
    m_inbox.events()[0]->replyResult(7);
    m_sender.reset();
    EXPECT_EQ(m_replies.results().size(), 1U);
    EXPECT_EQ(m_replies.threads()[0], m_ownInbox.threads()[0]);
}

TEST_F(AsyncSendTest, EachThreadOfAHubCallsBackBeforeItEnds) {
    answer(m_inbox.handler());
    EventHub bare(kSender + 100);
    for (std::size_t thread = 1; thread <= 2; ++thread) {
        ASSERT_EQ(
            bare.sendAsync(bare.createEvent(kType), kReceiver, kNoLimit, m_replies.callback()), 0);

        bare.onHubUnregistered();

        EXPECT_EQ(m_replies.results().size(), thread);
    }
}

// The thread that was in its wait when the time was over does not wait any more.
TEST_F(AsyncSendTest, NobodyWakesTheThreadThatCallsBackInTime) {
    answer(m_inbox.handler());
    std::atomic<long> wakeUps{-1};
    ASSERT_EQ(m_sender->sendAsync(
                  m_sender->createEvent(kType), kReceiver, 20ms,
                  [&](EventResult result, const Event& event) {
                      const test::CountCalls posts(test::Call::SemPost);
                      EXPECT_EQ(m_sender->receiveEvent(m_sender->createEvent(kType + 1)), 0);
                      wakeUps = posts.seen();
                      m_replies.add(result, event);
                  }),
              0);

    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(wakeUps, 0);
    EXPECT_TRUE(m_ownInbox.waitFor(1));
}

// A sender has taken it upon itself to wake the thread when the time is over.
TEST_F(AsyncSendTest, AnEventMayComeAsTheTimeIsOver) {
    answer(m_inbox.handler());
    test::UnorderedTurn turn;
    const Event event = m_sender->createEvent(kType + 1);
    std::thread other([&] { turn.use([&] { EXPECT_EQ(m_sender->receiveEvent(event), 0); }); });
    {
        const test::ReplaceCall<int(sem_t*, clockid_t, const timespec*)> atWait(
            test::Call::SemClockwait,
            [&](sem_t*, clockid_t clock, const timespec* p_deadline) {
                while (clock_nanosleep(clock, TIMER_ABSTIME, p_deadline, nullptr) != 0) {
                }
                turn.give();
                errno = ETIMEDOUT;
                return -1;
            },
            test::When().anyThread());
        EXPECT_EQ(send(20), 0);
        EXPECT_TRUE(m_replies.wait());
    }
    turn.give();
    other.join();

    EXPECT_TRUE(m_ownInbox.waitFor(1));
    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{kEventResultTimeout});
}

TEST_F(AsyncSendTest, ACallbackInTimeMayEndItsThread) {
    answer(m_inbox.handler());
    test::Event called;
    ASSERT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, 20ms,
                                  [&](EventResult, const Event&) {
                                      called.set();
                                      pthread_exit(nullptr);
                                  }),
              0);
    ASSERT_TRUE(called.wait());

    EXPECT_EQ(evtdispch_unregister_hub(m_sender.get()), 0);

    ASSERT_EQ(m_sender->registerHandler(kType + 2, m_ownInbox.handler()), 0);
    ASSERT_EQ(m_sender->receiveEvent(m_sender->createEvent(kType + 2)), 0);
    EXPECT_TRUE(m_ownInbox.waitFor(1));
}

TEST_F(AsyncSendTest, WhenTheHubIsDestroyedInACallbackTheOthersAreCalledToo) {
    answer(m_inbox.handler());
    Replies last;
    test::Event destroyed;
    EventHub* const p_hub = m_sender.get();
    ASSERT_EQ(p_hub->sendAsync(p_hub->createEvent(kType), kReceiver, kNoLimit, last.callback()), 0);
    // The last call of this thread: the callback may be called at once.
    ASSERT_EQ(p_hub->sendAsync(p_hub->createEvent(kType), kReceiver, 1,
                               [&](EventResult, const Event&) {
                                   evtdispch_unregister_hub(m_sender.get());
                                   m_sender.reset();
                                   destroyed.set();
                               }),
              0);

    ASSERT_TRUE(destroyed.wait());

    EXPECT_EQ(last.results(), std::vector<EventResult>{kEventResultNone});
}

TEST_F(AsyncSendTest, ACallbackAtTheEndCannotSendAgain) {
    answer(m_inbox.handler());
    std::vector<std::int32_t> statuses;
    ASSERT_EQ(
        m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, kNoLimit,
                            [&](EventResult, const Event&) { statuses.push_back(send(kNoLimit)); }),
        0);

    ASSERT_EQ(evtdispch_unregister_hub(m_sender.get()), 0);

    EXPECT_EQ(statuses, std::vector<std::int32_t>{-1});
    EXPECT_FALSE(m_replies.isAny());
}

/// Each callback has another thread send once more, for as long as that is wanted. The receiver
/// holds on to the events.
class EndlessSends {
public:
    explicit EndlessSends(EventHub* p_hub) : m_hub(p_hub) {}

    void send() {
        EXPECT_EQ(m_hub->sendAsync(m_hub->createEvent(kType), kReceiver, kNoLimit,
                                   [this](EventResult, const Event&) {
                                       pthread_testcancel();
                                       if (++calls < mostCalls) std::thread([&] { send(); }).join();
                                   }),
                  0);
    }

    std::atomic<int> calls{0};
    std::atomic<int> mostCalls{20};

private:
    EventHub* const m_hub;
};

TEST_F(AsyncSendTest, UnregisteringWaitsForNoCallbackOfWhatIsSentMeanwhile) {
    answer(m_inbox.handler());
    EndlessSends sends(m_sender.get());
    sends.send();

    evtdispch_unregister_hub(m_sender.get());

    EXPECT_EQ(sends.calls, 1);
    sends.mostCalls = 0;
    m_sender.reset();
    EXPECT_EQ(sends.calls, 2);
}

// The hub is destroyed without a thread. Who replies meanwhile does not look for it any more.
TEST_F(AsyncSendTest, AReplyMayComeAsTheHubEnds) {
    answer(m_inbox.handler());
    EndlessSends sends(m_sender.get());
    sends.send();
    evtdispch_unregister_hub(m_sender.get());
    sends.mostCalls = 0;
    ASSERT_TRUE(m_inbox.waitFor(2));
    test::setLogLevel(0);
    long locksOfOthers = 0;
    {
        auto other = std::make_unique<EventHub>(kSender);
        const test::CountCalls locks(test::Call::PthreadMutexLock);
        other.reset();
        locksOfOthers = locks.seen();
    }
    test::UnorderedTurn turn;
    std::thread replier([&] { turn.use([&] { m_inbox.events()[1]->replyResult(7); }); });
    {
        const test::RunAtCall atEnd(
            test::Call::PthreadMutexLock, [&] { turn.give(); },
            test::When().nth(locksOfOthers + 1));
        m_sender.reset();
        EXPECT_EQ(atEnd.hits(), 1);
    }
    turn.give();
    replier.join();

    EXPECT_EQ(sends.calls, 2);
}

// Cancelled in a destructor, the process would end.
TEST_F(AsyncSendTest, ACancelledThreadMayDestroyTheHubAndCallTheRest) {
    answer(m_inbox.handler());
    EndlessSends sends(m_sender.get());
    sends.send();
    evtdispch_unregister_hub(m_sender.get());
    sends.mostCalls = 0;

    std::thread([&] {
        (void)pthread_cancel(pthread_self());
        m_sender.reset();
        pthread_testcancel();
        ADD_FAILURE() << "not cancelled";
    }).join();

    EXPECT_EQ(sends.calls, 2);
}

TEST_F(AsyncSendTest, ACallbackMaySendAgain) {
    answer([](Event event) { event->replyResult(7); });
    ASSERT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, kNoLimit,
                                  [&](EventResult, const Event&) { EXPECT_EQ(send(kNoLimit), 0); }),
              0);

    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
}

TEST_F(AsyncSendTest, ToTheOwnHubWorks) {
    ASSERT_EQ(m_sender->registerHandler(kType, [](Event event) { event->replyResult(7); }), 0);

    ASSERT_EQ(
        m_sender->sendAsync(m_sender->createEvent(kType), kSender, kNoLimit, m_replies.callback()),
        0);
    ASSERT_TRUE(m_replies.wait());

    EXPECT_EQ(m_replies.results(), std::vector<EventResult>{7});
}

TEST_F(AsyncSendTest, OfAnEventThatNobodyTakesIsNeverCalledBack) {
    EXPECT_EQ(send(kNoLimit), -1);
    EXPECT_TRUE(m_log.entries().empty());
    passThroughSender();

    EXPECT_FALSE(m_replies.isAny());
}

TEST_F(AsyncSendTest, RefusesNothing) {
    EXPECT_EQ(m_sender->sendAsync(nullptr, kReceiver, kNoLimit, m_replies.callback()), 2);
    EXPECT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, kNoLimit, nullptr), 2);

    const std::vector<test::LogEntry> expected = {
        dispatcherLine(kLogError, "send", "event is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(AsyncSendTest, WithoutAThreadIsRefused) {
    answer([](Event event) { event->replyResult(7); });
    EventHub bare(kSender + 100);
    const test::FailCall noThread(test::Call::PthreadCreate, EAGAIN, test::When().everyTime());

    const std::vector<test::LogEntry> noThreadLine = {
        hubLine(kLogError, "registerHandler", "Fail to create EventHandlerThread.\n")};

    EXPECT_EQ(bare.sendAsync(bare.createEvent(kType), kReceiver, kNoLimit, m_replies.callback()),
              -1);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLine);

    // Also where there are handlers that wait for one.
    EXPECT_EQ(bare.registerHandler(kType, m_inbox.handler()), 0);
    m_log.clear();
    EXPECT_EQ(bare.sendAsync(bare.createEvent(kType), kReceiver, kNoLimit, m_replies.callback()),
              -1);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), noThreadLine);
}

TEST_F(AsyncSendTest, OfManyFromManyThreadsEachIsCalledOnce) {
    constexpr int kThreads = 4;
    constexpr int kEach = 200;
    answer([](Event event) {
        if (event->param == nullptr) event->replyResult(7);
    });
    test::Countdown called(kThreads * kEach);
    std::atomic<int> count{0};

    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < kEach; ++n) {
                EXPECT_EQ(m_sender->sendAsync(m_sender->createEvent(kType), kReceiver, i - 1,
                                              [&](EventResult, const Event&) {
                                                  ++count;
                                                  called.arrive();
                                              }),
                          0);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(called.wait());
    passThroughSender();

    EXPECT_EQ(count, kThreads * kEach);
}

// Synchronous sends with a duration.

TEST_F(AsyncSendTest, SynchronousSendsTakeDurationsToo) {
    answer(m_inbox.handler());
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_EQ(m_sender->sendEventSyncFor(m_sender->createEvent(kType), kReceiver, 5ms), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 5ms);
    EXPECT_EQ(m_sender->sendEventSyncFor(m_sender->createEvent(kType), kReceiver, -1ms), 1);
}

// What clients have written so far, and its meaning; compiled rather than run.

using SendSync = std::int32_t (EventHub::*)(std::shared_ptr<BrowserEvent>, std::int32_t,
                                            std::int32_t);
using Send = std::int32_t (EventHub::*)(std::shared_ptr<BrowserEvent>, std::int32_t);

TEST(ExistingUsesTest, AnAddressOfAMemberIsUnambiguous) {
    const auto sendSync = &EventHub::sendEventSync;
    const auto send = &EventHub::sendEvent;
    const auto wait = &BrowserEvent::waitForResult;
    const auto create = &EventHub::createEvent;

    EXPECT_TRUE((std::is_same_v<decltype(sendSync), const SendSync>));
    EXPECT_TRUE((std::is_same_v<decltype(send), const Send>));
    EXPECT_TRUE(
        (std::is_same_v<decltype(wait), std::int32_t (BrowserEvent::*const)(std::int32_t)>));
    EXPECT_TRUE((std::is_same_v<decltype(create), std::shared_ptr<BrowserEvent> (EventHub::*const)(
                                                      std::int32_t) const>));
}

TEST(ExistingUsesTest, LiteralsOfAllKindsAreTimeOutsAndTypes) {
    const test::LogCapture log(kLogError);
    EventHub hub(1);
    const unsigned kUnsigned = 3;
    const long kLong = 3;
    const std::uint8_t kByte = 3;
    enum Kinds { eKind = 3 };

    EXPECT_EQ(hub.sendEventSync(nullptr, 0, 0), -1);
    EXPECT_EQ(hub.sendEventSync(nullptr, 1, 1000), -1);
    EXPECT_EQ(hub.sendEventSync(nullptr, kByte, 'a'), -1);
    EXPECT_EQ(hub.sendEventSync(nullptr, static_cast<int>(kUnsigned), static_cast<int>(kLong)), -1);
    EXPECT_EQ(hub.sendEventSync({}, eKind, true), -1);
    EXPECT_EQ(hub.sendEvent({}, kAnyModule), 2);
    EXPECT_EQ(hub.registerHandler(0, nullptr), 2);
    EXPECT_EQ(hub.registerHandler(eKind, {}), 2);
    EXPECT_EQ(hub.registerHandler(kByte, eKind, nullptr), 2);
    EXPECT_EQ(hub.createEvent(eKind)->eventType, eKind);
    EXPECT_EQ(hub.createEvent('a')->waitForResult(0), -1);
}

template <typename T, typename = void>
struct IsTimeout : std::false_type {};
template <typename T>
struct IsTimeout<T, std::void_t<decltype(std::declval<EventHub>().sendEventSync(
                        nullptr, std::declval<T>(), std::declval<T>()))>> : std::true_type {};

static_assert(IsTimeout<unsigned>::value && IsTimeout<long>::value && IsTimeout<double>::value &&
              !IsTimeout<std::nullptr_t>::value && !IsTimeout<std::chrono::seconds>::value);

}  // namespace

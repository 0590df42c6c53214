// What the state report tells of hubs, handlers and those who wait for replies.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/threading/current_thread.h"
#include "ends/forked_child.h"
#include "state_reports.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base::event_dispatcher;
using test::expectEntry;
using test::stateReport;

using SharedEvent = std::shared_ptr<BrowserEvent>;

constexpr int kModule = 107;
constexpr int kSender = 101;
constexpr int kType = 5;
constexpr int kOtherType = 6;

const std::string kThread = "thread [0-9]+ 'Evt:107'";
const std::string kSeconds = "[0-9]+\\.[0-9]{3} s";

class ReportedEventsTest : public testing::Test {
protected:
    ReportedEventsTest() {
        test::setLogLevel(0);
        (void)tevalon::base::diagnostics::nameModule(kSender, "ui");
        (void)tevalon::base::diagnostics::nameEvent(kType, "tune");
    }

    SharedEvent make(int type = kType) const { return m_sender.createEvent(type); }

    EventHub m_sender{kSender};
};

/// A registered hub whose handler of kType stays in hand until the test lets it go.
class BusyHub {
public:
    explicit BusyHub(int module = kModule) : m_hub(module) {
        m_hub.registerHandler(kType, [this](const SharedEvent&) {
            m_isThere.set();
            (void)m_mayGo.wait();
        });
        m_hub.registerHandler(kOtherType, [](const SharedEvent&) {});
        evtdispch_register_hub(&m_hub);
    }
    ~BusyHub() {
        m_mayGo.set();
        evtdispch_unregister_hub(&m_hub);
    }

    BusyHub(const BusyHub&) = delete;
    BusyHub& operator=(const BusyHub&) = delete;

    EventHub& hub() { return m_hub; }
    void letGo() { m_mayGo.set(); }
    /// When this returns the handler is in hand.
    void occupy(const SharedEvent& event) {
        EXPECT_EQ(m_hub.receiveEvent(event), 0);
        EXPECT_TRUE(m_isThere.wait());
    }

private:
    test::Event m_isThere;
    test::Event m_mayGo;
    EventHub m_hub;
};

/// Once the report has such an entry: a thread has come so far.
std::string reportWith(const std::string& title, const std::string& pattern) {
    std::string report = stateReport();
    while (test::countOf(test::listOf(report, title), pattern) == 0) report = stateReport();
    return report;
}

TEST_F(ReportedEventsTest, AHubThatHasNothingToDo) {
    const BusyHub hub;

    (void)reportWith("hubs", "module 107: " + kThread + ", 0 waiting, idle");
}

TEST_F(ReportedEventsTest, AHubWithoutAThread) {
    EventHub hub(kModule);
    evtdispch_register_hub(&hub);

    expectEntry(stateReport(), "hubs", "module 107: no thread, 0 waiting");

    evtdispch_unregister_hub(&hub);
    const std::string report = stateReport();
    EXPECT_EQ(test::countOf(test::listOf(report, "hubs"), "module 107.*"), 0);
    EXPECT_EQ(report.find("locked"), std::string::npos) << report;
}

TEST_F(ReportedEventsTest, AHubThatWasMadeWithoutMemory) {
    std::unique_ptr<EventHub> hub;
    {
        const test::FailCall memory(test::Call::New, 0, test::When().everyTime().nth(2));
        hub = std::make_unique<EventHub>(kModule);
        ASSERT_GT(memory.hits(), 0);
    }
    evtdispch_register_hub(hub.get());

    expectEntry(stateReport(), "hubs", "module 107: no thread, .*");

    evtdispch_unregister_hub(hub.get());
}

TEST_F(ReportedEventsTest, AHubThatIsNotRegistered) {
    EventHub hub(kModule);
    hub.registerHandler(kType, [](const SharedEvent&) {});

    (void)reportWith("hubs", "module 107: " + kThread + ", not registered, 0 waiting, idle");
}

TEST_F(ReportedEventsTest, TheHandlerInHandAndWhatWaitsBehindIt) {
    BusyHub hub;
    hub.occupy(make());
    for (int i = 0; i < 300; ++i) m_sender.sendEvent(make(kOtherType), kModule);

    expectEntry(stateReport(), "hubs",
                "module 107: " + kThread +
                    ", 300 waiting, in event 5 'tune' of module 101 'ui' for " + kSeconds);
}

// Of a batch of events that the thread has taken at once, all behind the one in hand wait.
TEST_F(ReportedEventsTest, OfAHandlerThatHasTakenTheNextEventMeanwhileNoTimeIsTold) {
    std::array<test::Event, 2> isThere;
    std::array<test::Event, 2> mayGo;
    std::size_t handled = 0;
    EventHub hub(kModule);
    hub.registerHandler(kType, [&](const SharedEvent&) {
        isThere[handled].set();
        (void)mayGo[handled].wait();
        ++handled;
    });
    evtdispch_register_hub(&hub);
    const SharedEvent first = make();
    const SharedEvent second = make();
    EXPECT_EQ(hub.receiveEvent(first), 0);
    EXPECT_EQ(hub.receiveEvent(second), 0);
    ASSERT_TRUE(isThere[0].wait());
    // It looks twice, and sleeps in between.
    const test::RunAtCall between(test::Call::ClockNanosleep, [&] {
        mayGo[0].set();
        EXPECT_TRUE(isThere[1].wait());
    });

    const std::string report = stateReport();

    expectEntry(report, "hubs", "module 107: " + kThread + ", 0 waiting, handling");
    mayGo[1].set();
    evtdispch_unregister_hub(&hub);
}

/// A registered hub whose handlers stay in hand, one after the other, until the test lets them go.
class SteppedHub {
public:
    SteppedHub() {
        const auto stay = [this](const SharedEvent&) {
            const std::size_t number = m_begun++;
            m_isThere[number].set();
            (void)m_mayGo[number].wait();
        };
        m_hub.registerHandler(kType, stay);
        m_hub.registerHandler(kOtherType, stay);
        evtdispch_register_hub(&m_hub);
    }
    ~SteppedHub() {
        for (test::Event& mayGo : m_mayGo) mayGo.set();
        evtdispch_unregister_hub(&m_hub);
    }

    SteppedHub(const SteppedHub&) = delete;
    SteppedHub& operator=(const SteppedHub&) = delete;

    void send(const SharedEvent& event) { EXPECT_EQ(m_hub.receiveEvent(event), 0); }
    void waitFor(std::size_t number) { EXPECT_TRUE(m_isThere[number].wait()); }
    /// Returns when the next one is in hand.
    void endOf(std::size_t number) {
        m_mayGo[number].set();
        waitFor(number + 1);
    }

private:
    static constexpr std::size_t kMost = 4;

    std::array<test::Event, kMost> m_isThere;
    std::array<test::Event, kMost> m_mayGo;
    std::size_t m_begun = 0;
    EventHub m_hub{kModule};
};

/// Until the clock of the handlers shows another millisecond.
void waitForTick() {
    constexpr long kMillisecond = 1'000'000;
    timespec before = {};
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &before);
    do {
        (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    } while (now.tv_sec == before.tv_sec &&
             now.tv_nsec / kMillisecond == before.tv_nsec / kMillisecond);
}

TEST_F(ReportedEventsTest, OfAnEventThatIsHandledAgainMeanwhileNoTimeIsTold) {
    const std::vector<std::function<void(BrowserEvent*)>> differences = {
        [](BrowserEvent* p_event) { p_event->eventType = kOtherType; },
        [](BrowserEvent* p_event) { p_event->srcModule = kSender + 1; },
        [](BrowserEvent*) { waitForTick(); },
    };
    for (const auto& makeDifferent : differences) {
        SteppedHub hub;
        const SharedEvent event = make();
        hub.send(event);
        hub.waitFor(0);
        const test::RunAtCall between(test::Call::ClockNanosleep, [&] {
            makeDifferent(event.get());
            hub.send(event);
            hub.endOf(0);
        });

        expectEntry(stateReport(), "hubs", "module 107: " + kThread + ", 0 waiting, handling");
    }
}

// At the same time, as far as the handlers know.
TEST_F(ReportedEventsTest, OfAnEventThatWasSentTwiceNoTimeIsTold) {
    SteppedHub hub;
    const SharedEvent event = make();
    hub.send(make());
    hub.waitFor(0);
    hub.send(event);
    hub.send(event);
    hub.endOf(0);  // Takes both at once.
    const test::RunAtCall between(test::Call::ClockNanosleep, [&] { hub.endOf(1); });

    expectEntry(stateReport(), "hubs", "module 107: " + kThread + ", 0 waiting, handling");
}

TEST_F(ReportedEventsTest, AHubThatHasTakenEventsAndNotBegunWithThem) {
    test::Event isThere;
    test::Event isQueued;
    test::Event isTaken;
    test::Event mayGo;
    std::optional<test::RunAtCall> atUnlock;  // Made by the hub's thread, for its next unlock.
    EventHub hub(kModule);
    hub.registerHandler(kType, [&](const SharedEvent&) {
        isThere.set();
        (void)isQueued.wait();
        atUnlock.emplace(test::Call::PthreadMutexUnlock, [&] {
            isTaken.set();
            (void)mayGo.wait();
        });
    });
    hub.registerHandler(kOtherType, [](const SharedEvent&) {});
    evtdispch_register_hub(&hub);
    EXPECT_EQ(hub.receiveEvent(make()), 0);
    ASSERT_TRUE(isThere.wait());
    EXPECT_EQ(hub.receiveEvent(make(kOtherType)), 0);
    isQueued.set();
    ASSERT_TRUE(isTaken.wait());

    expectEntry(stateReport(), "hubs",
                "module 107: " + kThread + ", queue locked, about to handle");

    mayGo.set();
    evtdispch_unregister_hub(&hub);
}

TEST_F(ReportedEventsTest, EventsThatTheThreadHasTakenWaitToo) {
    test::Event isFirst;
    test::Event mayGoOn;
    BusyHub hub;
    hub.hub().registerHandler(kSender, 7, [&](const SharedEvent&) {
        isFirst.set();
        (void)mayGoOn.wait();
    });
    m_sender.sendEvent(make(7), kModule);
    ASSERT_TRUE(isFirst.wait());
    for (int i = 0; i < 4; ++i) m_sender.sendEvent(make(kOtherType), kModule);
    m_sender.sendEvent(make(kType), kModule);
    for (int i = 0; i < 10; ++i) m_sender.sendEvent(make(kOtherType), kModule);
    mayGoOn.set();
    hub.occupy(make(kType));  // The first of that type occupies it: two are behind.
    m_sender.sendEvent(make(kOtherType), kModule);

    expectEntry(stateReport(), "hubs",
                "module 107: " + kThread +
                    ", 12 waiting, in event 5 'tune' of module 101 'ui' for at most " + kSeconds);
}

TEST_F(ReportedEventsTest, AHandlerIsInHandForNoLongerThanSinceItsEventWasSent) {
    using std::chrono::steady_clock;
    BusyHub hub;
    const steady_clock::time_point begin = steady_clock::now();
    hub.occupy(make());

    const std::string report = stateReport();

    const std::chrono::duration<double> longest = steady_clock::now() - begin;
    const std::regex entry("module 107: .* for ([0-9.]+) s");
    std::smatch match;
    const std::vector<std::string> hubs = test::listOf(report, "hubs");
    ASSERT_EQ(hubs.size(), 1U) << report;
    ASSERT_TRUE(std::regex_match(hubs[0], match, entry)) << report;
    constexpr double kTickOfCoarseClock = 0.02;
    EXPECT_LE(std::stod(match[1]), longest.count() + kTickOfCoarseClock);
}

TEST_F(ReportedEventsTest, OfADispatcherThatIsGoneNothingIsShown) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        { const EventDispatcher gone; }
        std::vector<std::unique_ptr<char[]>> inItsPlace;
        for (std::size_t size = 16; size <= 256; size += 8) {
            for (int i = 0; i < 4; ++i) inItsPlace.push_back(std::make_unique<char[]>(size));
        }
        EventHub hub(kModule);
        evtdispch_register_hub(&hub);

        expectEntry(stateReport(), "hubs", "module 107: no thread, 0 waiting");

        evtdispch_unregister_hub(&hub);
    });
}

TEST_F(ReportedEventsTest, AHandlerMayAskForTheReport) {
    std::string report;
    test::Event isDone;
    EventHub hub(kModule);
    hub.registerHandler(kType, [&](const SharedEvent&) {
        report = stateReport();
        isDone.set();
    });
    evtdispch_register_hub(&hub);
    m_sender.sendEvent(make(), kModule);
    ASSERT_TRUE(isDone.wait());

    expectEntry(report, "hubs",
                "module 107: " + kThread +
                    ", 0 waiting, in event 5 'tune' of module 101 'ui' for " + kSeconds);
    evtdispch_unregister_hub(&hub);
}

TEST_F(ReportedEventsTest, LongListsAreCutUnlessAllIsAskedFor) {
    std::vector<std::unique_ptr<EventHub>> hubs;
    for (int i = 0; i < 30; ++i) {
        hubs.push_back(std::make_unique<EventHub>(200 + i));
        evtdispch_register_hub(hubs.back().get());
    }
    BusyHub busy;  // The last one; shown for it has something to do.
    busy.occupy(make());

    const std::vector<std::string> few = test::listOf(stateReport(), "hubs");
    const std::vector<std::string> all = test::listOf(stateReport(true), "hubs");

    EXPECT_EQ(few.size(), 11U);
    EXPECT_EQ(few.back(), "and 21 more");
    EXPECT_EQ(test::countOf(few, "module 107: .*"), 1);
    EXPECT_EQ(all.size(), 31U);
    EXPECT_EQ(test::countOf(all, "module 2[0-2][0-9]: no thread, 0 waiting"), 30);
    for (const auto& hub : hubs) evtdispch_unregister_hub(hub.get());
}

// Although no handler is in hand, nor will be.
TEST_F(ReportedEventsTest, OfALongListThoseWithEventsThatWaitAreShown) {
    std::vector<std::unique_ptr<EventHub>> hubs;
    for (int i = 0; i < 30; ++i) {
        hubs.push_back(std::make_unique<EventHub>(200 + i));
        evtdispch_register_hub(hubs.back().get());
    }
    EventHub hub(kModule);
    hub.registerHandler(kType, [](const SharedEvent&) { pthread_exit(nullptr); });
    evtdispch_register_hub(&hub);
    EXPECT_EQ(hub.receiveEvent(make()), 0);
    while (test::countOf(test::listOf(stateReport(true), "hubs"),
                         "module 107: no thread, 0 waiting") == 0) {
    }
    EXPECT_EQ(hub.receiveEvent(make()), 0);

    const std::vector<std::string> few = test::listOf(stateReport(), "hubs");

    EXPECT_EQ(test::countOf(few, "module 107: no thread, 1 waiting"), 1);
    EXPECT_EQ(few.back(), "and 21 more");
    evtdispch_unregister_hub(&hub);
    for (const auto& other : hubs) evtdispch_unregister_hub(other.get());
}

// ---- replies that are waited for ----

const std::string kWaiter =
    "thread [0-9]+ '[^']*', for the reply of module 107 to event 5 'tune' of "
    "module 101 'ui', since " +
    kSeconds + ", ";

/// A registered hub that keeps the event it is sent, for the test to answer.
class KeepingHub {
public:
    explicit KeepingHub(bool staysInHandler) {
        m_hub.registerHandler(kType, [this, staysInHandler](const SharedEvent& event) {
            m_kept = event;
            m_isThere.set();
            if (staysInHandler) (void)m_mayGo.wait();
        });
        evtdispch_register_hub(&m_hub);
    }
    ~KeepingHub() {
        letGo();
        evtdispch_unregister_hub(&m_hub);
    }

    KeepingHub(const KeepingHub&) = delete;
    KeepingHub& operator=(const KeepingHub&) = delete;

    void letGo() { m_mayGo.set(); }
    SharedEvent kept() {
        EXPECT_TRUE(m_isThere.wait());
        return m_kept;
    }

private:
    SharedEvent m_kept;
    test::Event m_isThere;
    test::Event m_mayGo;
    EventHub m_hub{kModule};
};

/// Once somebody waits.
std::string reportOfWaits() {
    std::string report = stateReport();
    while (test::listOf(report, "waits").empty()) report = stateReport();
    return report;
}

TEST_F(ReportedEventsTest, WhoWaitsForAReplyAndUntilWhen) {
    KeepingHub hub(true);
    std::thread waiter([&] { EXPECT_EQ(m_sender.sendEventSync(make(), kModule, 600'000), 9); });
    const SharedEvent event = hub.kept();

    const std::string report = reportOfWaits();

    expectEntry(report, "waits", kWaiter + "until in (599|600)\\.[0-9]{3} s");
    event->replyResult(9);
    waiter.join();
    EXPECT_TRUE(test::listOf(stateReport(), "waits").empty());
}

TEST_F(ReportedEventsTest, AWaitWithoutALimit) {
    KeepingHub hub(true);
    std::thread waiter([&] { EXPECT_EQ(m_sender.sendEventSync(make(), kModule, -1), 9); });
    const SharedEvent event = hub.kept();

    expectEntry(reportOfWaits(), "waits", kWaiter + "without limit");

    event->replyResult(9);
    waiter.join();
}

TEST_F(ReportedEventsTest, ARequestThatWasHandledAndNotAnswered) {
    KeepingHub hub(false);
    std::thread waiter([&] { EXPECT_EQ(m_sender.sendEventSync(make(), kModule, -1), 9); });
    const SharedEvent event = hub.kept();
    const std::string unanswered =
        kWaiter + "without limit; handled by module 107 and not answered";

    // The handler returns a moment after it has said that it is there.
    while (test::countOf(test::listOf(reportOfWaits(), "waits"), unanswered) == 0) {
    }
    expectEntry(stateReport(), "who waits for whom", "thread [0-9]+ '[^']*' -> module 107, idle");

    event->replyResult(9);
    waiter.join();
}

TEST_F(ReportedEventsTest, AnEventThatIsSentAgainIsNotHandledYet) {
    SharedEvent event = make();
    {
        KeepingHub hub(false);
        EXPECT_EQ(m_sender.sendEventSync(event, kModule, 1), 1);
        EXPECT_EQ(hub.kept(), event);
    }
    BusyHub hub;
    hub.occupy(make());
    std::thread waiter([&] { EXPECT_EQ(m_sender.sendEventSync(event, kModule, -1), 9); });

    expectEntry(reportOfWaits(), "waits", kWaiter + "without limit");

    event->replyResult(9);
    waiter.join();
}

TEST_F(ReportedEventsTest, AWaitForAnEventThatWasSentWithoutOne) {
    const SharedEvent event = make();
    ASSERT_EQ(event->initWaitResultCv(), 0);
    std::thread waiter([&] { EXPECT_EQ(event->waitForResult(-1), 9); });

    const std::string report = reportOfWaits();

    expectEntry(
        report, "waits",
        "thread [0-9]+ '[^']*', for the reply of any module to event 5 'tune' of module 101 "
        "'ui', since " +
            kSeconds + ", without limit");
    expectEntry(report, "who waits for whom", "thread [0-9]+ '[^']*' -> whoever replies");
    event->replyResult(9);
    waiter.join();
}

// Of objects that are a client's nobody knows who handles the event.
TEST_F(ReportedEventsTest, AWaitOnObjectsOfAClient) {
    const SharedEvent event = make();
    event->waitResultMtx = new std::mutex();
    event->waitResultCv = new std::condition_variable();
    std::thread waiter([&] { EXPECT_EQ(event->waitForResult(-1), 9); });

    expectEntry(
        reportOfWaits(), "waits",
        "thread [0-9]+ '[^']*', for the reply of any module to event 5 'tune' of module 101 "
        "'ui', since " +
            kSeconds + ", without limit");

    event->replyResult(9);
    waiter.join();
}

// What a signal's handler does comes into the middle of a wait.
TEST_F(ReportedEventsTest, OfAThreadThatWaitsWithinAWaitTheInnermostCounts) {
    KeepingHub hub(true);
    const SharedEvent outer = make();
    ASSERT_EQ(outer->initWaitResultCv(), 0);
    std::thread waiter([&] {
        const test::RunAtCall within(test::Call::PthreadCondWait, [&] {
            EXPECT_EQ(m_sender.sendEventSync(make(), kModule, -1), 8);
        });
        EXPECT_EQ(outer->waitForResult(-1), 9);
    });
    const SharedEvent inner = hub.kept();

    std::string report = stateReport();
    while (test::listOf(report, "waits").size() != 2) report = stateReport();

    EXPECT_EQ(test::listOf(report, "who waits for whom").size(), 1U) << report;
    expectEntry(report, "who waits for whom",
                "thread [0-9]+ '[^']*' -> module 107, in event 5 'tune' of module 101 'ui' for " +
                    kSeconds);
    inner->replyResult(8);
    outer->replyResult(9);
    waiter.join();
}

TEST_F(ReportedEventsTest, AThreadThatForksWithinAWaitWaitsInTheChildToo) {
    const SharedEvent event = make();
    ASSERT_EQ(event->initWaitResultCv(), 0);
    pid_t child = -1;
    const test::RunAtCall within(test::Call::PthreadCondClockwait, [&] {
        child = test::forkQuietly();
        if (child != 0) return;
        (void)alarm(test::kLongestChildSeconds);
        const std::string self = "thread " + std::to_string(getpid()) + " '[^']*', for the reply.*";
        CHECK_IN_CHILD(test::countOf(test::listOf(stateReport(), "waits"), self) == 1);
        _exit(0);
    });

    EXPECT_EQ(event->waitForResult(1), kEventResultTimeout);

    EXPECT_EQ(test::statusOf(child), 0);
}

TEST_F(ReportedEventsTest, OfMoreWaitsThanAListShowsThereAreNoMoreWays) {
    constexpr int kWaits = 12;
    const SharedEvent event = make();
    ASSERT_EQ(event->initWaitResultCv(), 0);
    std::vector<std::thread> waiters;
    waiters.reserve(kWaits);
    for (int i = 0; i < kWaits; ++i) {
        waiters.emplace_back([&] { EXPECT_EQ(event->waitForResult(-1), 9); });
    }
    while (test::listOf(stateReport(true), "waits").size() != kWaits) {
    }

    const std::string few = stateReport();
    const std::string all = stateReport(true);

    EXPECT_EQ(test::listOf(few, "waits").back(), "and 2 more");
    EXPECT_EQ(test::listOf(few, "who waits for whom").size(), 10U);
    EXPECT_EQ(test::listOf(all, "who waits for whom").size(), std::size_t{kWaits});
    event->replyResult(9);
    for (std::thread& waiter : waiters) waiter.join();
}

TEST_F(ReportedEventsTest, AThreadThatIsCancelledInItsWaitWaitsNoMore) {
    const SharedEvent event = make();
    ASSERT_EQ(event->initWaitResultCv(), 0);
    pthread_t waiter = {};
    const auto wait = [](void* p_event) -> void* {
        (void)static_cast<BrowserEvent*>(p_event)->waitForResult(-1);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&waiter, nullptr, wait, event.get()), 0);
    (void)reportOfWaits();

    ASSERT_EQ(pthread_cancel(waiter), 0);
    ASSERT_EQ(pthread_join(waiter, nullptr), 0);

    EXPECT_TRUE(test::listOf(stateReport(), "waits").empty());
}

TEST_F(ReportedEventsTest, AHandlerThatEndsItsThread) {
    EventHub hub(kModule);
    test::Event isThere;
    hub.registerHandler(kType, [&](const SharedEvent&) {
        isThere.set();
        pthread_exit(nullptr);
    });
    evtdispch_register_hub(&hub);
    m_sender.sendEvent(make(), kModule);
    ASSERT_TRUE(isThere.wait());

    const auto isGone = [] {
        return test::countOf(test::listOf(stateReport(), "hubs"),
                             "module 107: no thread, 0 waiting") == 1;
    };
    while (!isGone()) {
    }
    evtdispch_unregister_hub(&hub);
}

TEST_F(ReportedEventsTest, AHubThatIsDestroyedInItsHandlerIsNotLookedAt) {
    static test::Event isSent;  // The thread may be in them when the test has ended.
    static test::Event isDestroyed;
    static test::Event mayGo;
    auto* const p_hub = new EventHub(kModule);
    p_hub->registerHandler(kType, [p_hub](const SharedEvent&) {
        (void)isSent.wait();  // A hub outlives the calls of its functions.
        delete p_hub;
        isDestroyed.set();
        (void)mayGo.wait();
    });
    (void)p_hub->receiveEvent(make());
    isSent.set();
    ASSERT_TRUE(isDestroyed.wait());

    EXPECT_EQ(test::countOf(test::listOf(stateReport(), "hubs"), "module 107.*"), 0);

    mayGo.set();
}

TEST_F(ReportedEventsTest, WhoWaitsInAnUnregister) {
    BusyHub hub;
    hub.occupy(make());
    std::thread waiter([&] { evtdispch_unregister_hub(&hub.hub()); });
    (void)reportOfWaits();

    const std::string report = stateReport();

    expectEntry(report, "waits",
                "thread [0-9]+ '[^']*', in an unregister, for " + kThread + " of module 107");
    expectEntry(report, "hubs",
                "module 107: " + kThread +
                    ", not registered, 0 waiting, in event 5 'tune' of module 101 'ui' for " +
                    kSeconds);
    expectEntry(report, "who waits for whom",
                "thread [0-9]+ '[^']*' -> module 107, in event 5 'tune' of module 101 'ui' for " +
                    kSeconds);
    expectEntry(report, "locks held", "teardown of module 107 by thread [0-9]+ '[^']*'");
    hub.letGo();
    waiter.join();
}

// ---- who waits for whom ----

/// A hub whose handler asks another one, and answers when that has.
class AskingHub {
public:
    AskingHub(int module, int other) : m_hub(module) {
        m_hub.registerHandler(kType, [this, other](const SharedEvent& event) {
            event->replyResult(m_hub.sendEventSync(m_hub.createEvent(kType), other, 2000));
        });
        evtdispch_register_hub(&m_hub);
    }
    ~AskingHub() { evtdispch_unregister_hub(&m_hub); }

    AskingHub(const AskingHub&) = delete;
    AskingHub& operator=(const AskingHub&) = delete;

private:
    EventHub m_hub;
};

/// Once so many threads wait.
std::string reportOfWaits(std::size_t count) {
    std::string report = stateReport();
    while (test::listOf(report, "waits").size() != count) report = stateReport();
    return report;
}

TEST_F(ReportedEventsTest, TwoThatWaitForEachOtherAreACircle) {
    const AskingHub first(111, 112);
    const AskingHub second(112, 111);
    std::thread viewer([&] { (void)m_sender.sendEventSync(make(), 111, -1); });

    const std::string report = reportOfWaits(3);

    const std::vector<std::string> ways = test::listOf(report, "who waits for whom");
    ASSERT_EQ(ways.size(), 2U) << report;
    EXPECT_EQ(test::countOf({ways[0]}, "circle: module 11[12] -> module 11[12] -> module 11[12]"),
              1)
        << report;
    EXPECT_EQ(ways[0].substr(8, 10), ways[0].substr(ways[0].size() - 10));
    EXPECT_EQ(test::countOf({ways[1]}, "thread [0-9]+ '[^']*' -> module 111, in a circle"), 1)
        << report;
    viewer.join();
}

TEST_F(ReportedEventsTest, OneThatAsksItselfIsACircle) {
    const AskingHub hub(111, 111);
    m_sender.sendEvent(make(), 111);

    const std::string report = reportOfWaits(1);

    EXPECT_EQ(test::listOf(report, "who waits for whom"),
              (std::vector<std::string>{"circle: module 111 -> module 111"}));
}

TEST_F(ReportedEventsTest, AWayEndsAtWhatTheLastOneDoes) {
    const AskingHub first(111, 112);
    const AskingHub second(112, kModule);
    BusyHub last;
    last.occupy(make());
    std::thread viewer([&] { (void)m_sender.sendEventSync(make(), 111, -1); });

    const std::string report = reportOfWaits(3);

    EXPECT_EQ(test::listOf(report, "who waits for whom").size(), 1U);
    expectEntry(
        report, "who waits for whom",
        "thread [0-9]+ '[^']*' -> module 111 -> module 112 -> module 107, in event 5 'tune' "
        "of module 101 'ui' for " +
            kSeconds);
    viewer.join();
}

TEST_F(ReportedEventsTest, AWaitForAModuleThatHasNoThread) {
    SharedEvent kept;
    EventHub hub(kModule);
    test::Event isThere;
    hub.registerHandler(kType, [&](const SharedEvent& event) {
        kept = event;
        isThere.set();
        pthread_exit(nullptr);
    });
    evtdispch_register_hub(&hub);
    std::thread waiter([&] { EXPECT_EQ(m_sender.sendEventSync(make(), kModule, -1), 9); });
    ASSERT_TRUE(isThere.wait());

    const auto isTold = [] {
        return test::countOf(test::listOf(reportOfWaits(1), "who waits for whom"),
                             "thread [0-9]+ '[^']*' -> module 107, which has no thread") == 1;
    };
    while (!isTold()) {
    }
    kept->replyResult(9);
    waiter.join();
    evtdispch_unregister_hub(&hub);
}

// ---- what is locked ----

TEST_F(ReportedEventsTest, AListOfHubsThatStaysLocked) {
    BusyHub hub;
    test::Event isHeld;
    test::Event mayGo;
    (void)reportWith("hubs", "module 107: " + kThread + ", 0 waiting, idle");
    std::thread holder([&] {
        // A thread that waits is woken with the list locked.
        test::RunAtCall hold(test::Call::SemPost, [&] {
            isHeld.set();
            (void)mayGo.wait();
        });
        EXPECT_EQ(m_sender.sendEvent(make(kOtherType), kModule), 0);
    });
    ASSERT_TRUE(isHeld.wait());

    const std::string report = stateReport();

    EXPECT_NE(report.find("registered hubs: locked by thread "), std::string::npos) << report;
    expectEntry(report, "locks held", "list of hubs by thread [0-9]+ '[^']*'");
    expectEntry(report, "hubs", "module 107: " + kThread + ", not registered, 1 waiting, .*");
    mayGo.set();
    holder.join();
}

// A fork locks what threads do, and unlocks it again on both sides.
TEST_F(ReportedEventsTest, AForkLeavesTheParentsReportAsItWas) {
    BusyHub hub;
    hub.occupy(make());
    const pid_t child = fork();
    if (child == 0) _exit(0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);

    const std::string report = stateReport();

    EXPECT_EQ(report.find("locked"), std::string::npos) << report;
    expectEntry(report, "hubs",
                "module 107: " + kThread +
                    ", 0 waiting, in event 5 'tune' of module 101 'ui' for " + kSeconds);
}

TEST_F(ReportedEventsTest, AQueueThatStaysLocked) {
    BusyHub hub;
    hub.occupy(make());
    hub.letGo();
    test::Event isHeld;
    test::Event mayGo;
    // The thread waits soon, and whoever tells it to end wakes it with its queue locked.
    while (test::countOf(test::listOf(stateReport(), "hubs"), "module 107.*idle") == 0) {
    }
    test::RunAtCall hold(
        test::Call::SemPost,
        [&] {
            isHeld.set();
            (void)mayGo.wait();
        },
        test::When().anyThread());
    std::thread holder([&] { evtdispch_unregister_hub(&hub.hub()); });
    ASSERT_TRUE(isHeld.wait());

    const std::string report = stateReport();

    expectEntry(report, "hubs", "module 107: " + kThread + ", not registered, queue locked, idle");
    expectEntry(report, "locks held", "queue of module 107 by thread [0-9]+ '[^']*'");
    expectEntry(report, "locks held", "teardown of module 107 by thread [0-9]+ '[^']*'");
    mayGo.set();
    holder.join();
}

}  // namespace

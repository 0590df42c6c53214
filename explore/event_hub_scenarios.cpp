// Event hubs, their dispatcher, and events with a reply.
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::Semaphore;
using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::event_dispatcher::evtdispch_register_hub;
using tevalon::base::event_dispatcher::evtdispch_unregister_hub;
using tevalon::testkit::TimeStandsStill;

namespace {

using Event = std::shared_ptr<BrowserEvent>;

constexpr int kSender = 1;
constexpr int kReceiver = 2;
constexpr int kType = 3;

void sleepMs(int milliseconds) {
    const timespec duration = {0, milliseconds * 1'000'000L};
    (void)nanosleep(&duration, nullptr);
}

tevalon::base::event_dispatcher::EventHub::Handler posts(Semaphore* p_handled) {
    return [p_handled](const Event&) { p_handled->post(); };
}

/// A hub that is registered while it lives.
class RegisteredHub : public EventHub {
public:
    explicit RegisteredHub(int module) : EventHub(module) { evtdispch_register_hub(this); }
    ~RegisteredHub() { evtdispch_unregister_hub(this); }
};

}  // namespace

TEVALON_SCENARIO(HubDelivers) {
    Semaphore handled;
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    const TimeStandsStill still;
    TEVALON_EXPECT(hub.sendEvent(hub.createEvent(kType), kReceiver) == 0);
    TEVALON_EXPECT(hub.sendEvent(hub.createEvent(kType), kReceiver) == 0);
    handled.wait();
    handled.wait();
}

TEVALON_SCENARIO(HubTwoSenders) {
    Semaphore handled;
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    const TimeStandsStill still;
    std::thread other([&] { (void)hub.sendEvent(hub.createEvent(kType), kReceiver); });
    (void)hub.sendEvent(hub.createEvent(kType), kReceiver);
    handled.wait();
    handled.wait();
    other.join();
}

TEVALON_SCENARIO(HubTeardownWithEmptyQueue) {
    Semaphore handled;
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    const TimeStandsStill still;
    TEVALON_EXPECT(evtdispch_unregister_hub(&hub) == 0);
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

TEVALON_SCENARIO(HubTeardownWithFullQueue) {
    Semaphore handled;
    {
        RegisteredHub hub(kReceiver);
        TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
        TEVALON_EXPECT(hub.sendEvent(hub.createEvent(kType), kReceiver) == 0);
        TEVALON_EXPECT(hub.sendEvent(hub.createEvent(kType), kReceiver) == 0);
    }
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

// A registration against the teardown: the hub is served afterwards, by one thread.
TEVALON_SCENARIO(HubReRegistration) {
    Semaphore handled;
    EventHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    std::thread other(
        [&] { TEVALON_EXPECT(hub.registerHandler(kType + 1, posts(&handled)) == 0); });
    hub.onHubUnregistered();
    other.join();
    TEVALON_EXPECT(hub.registerHandler(kType + 2, posts(&handled)) == 0);
    TEVALON_EXPECT(hub.receiveEvent(hub.createEvent(kType)) == 0);
    handled.wait();
}

TEVALON_SCENARIO(HubTornDownTwice) {
    Semaphore handled;
    EventHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    std::thread other([&] { hub.onHubUnregistered(); });
    hub.onHubUnregistered();
    other.join();
    TEVALON_EXPECT(tevalon::testkit::liveThreads() == 1);
}

TEVALON_SCENARIO(HubHandlerUnregistersItsHub) {
    Semaphore handled;
    EventHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event&) {
        hub.onHubUnregistered();
        handled.post();
    }) == 0);
    TEVALON_EXPECT(hub.receiveEvent(hub.createEvent(kType)) == 0);
    handled.wait();
    TEVALON_EXPECT(hub.registerHandler(kType + 1, posts(&handled)) == 0);
    TEVALON_EXPECT(hub.receiveEvent(hub.createEvent(kType + 1)) == 0);
    handled.wait();
}

// A lookup without a lock, while a handler is added.
TEVALON_SCENARIO(HubRegistrationAgainstLookup) {
    Semaphore handled;
    EventHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, posts(&handled)) == 0);
    std::thread other(
        [&] { TEVALON_EXPECT(hub.registerHandler(kType + 1, posts(&handled)) == 0); });
    if (hub.receiveEvent(hub.createEvent(kType + 1)) == 0) handled.wait();
    other.join();
}

// Once it is unregistered no event reaches the hub, and it may go.
TEVALON_SCENARIO(DispatcherUnregisterAgainstSend) {
    EventHub sender(kSender);
    std::thread other;
    {
        auto count = std::make_unique<std::atomic<int>>(0);
        auto hub = std::make_unique<EventHub>(kReceiver);
        evtdispch_register_hub(hub.get());
        TEVALON_EXPECT(hub->registerHandler(
                           kType, [p_count = count.get()](const Event&) { ++*p_count; }) == 0);
        other = std::thread([&] { (void)sender.sendEvent(sender.createEvent(kType), kReceiver); });
        evtdispch_unregister_hub(hub.get());
        hub.reset();
        count.reset();
    }
    other.join();
}

TEVALON_SCENARIO(SyncSendAndReply) {
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [](const Event& event) { event->replyResult(5); }) ==
                   0);
    const TimeStandsStill still;
    TEVALON_EXPECT(hub.sendEventSync(hub.createEvent(kType), kReceiver, -1) == 5);
}

// Who waits may free the event while the replier is still about to notify.
TEVALON_SCENARIO(ReplyAndEventFreed) {
    auto event = std::make_unique<BrowserEvent>(kSender, kType, nullptr);
    TEVALON_EXPECT(event->initWaitResultCv() == 0);
    const TimeStandsStill still;
    std::thread replier([p_event = event.get()] { p_event->replyResult(5); });
    TEVALON_EXPECT(event->waitForResult(-1) == 5);
    event.reset();
    replier.join();
}

// The same with objects that the client has made.
TEVALON_SCENARIO(ReplyAndEventWithObjectsOfAClientFreed) {
    auto event = std::make_unique<BrowserEvent>(kSender, kType, nullptr);
    event->waitResultMtx = new std::mutex();
    event->waitResultCv = new std::condition_variable();
    const TimeStandsStill still;
    std::thread replier([p_event = event.get()] { p_event->replyResult(5); });
    TEVALON_EXPECT(event->waitForResult(-1) == 5);
    event.reset();
    replier.join();
}

// The reply comes as the time-out does: one of them counts.
TEVALON_SCENARIO(SyncSendAndLateReply) {
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [](const Event& event) {
        sleepMs(10);
        event->replyResult(5);
    }) == 0);
    const int result = hub.sendEventSync(hub.createEvent(kType), kReceiver, 10);
    TEVALON_EXPECT(result == 5 || result == 1);
}

TEVALON_SCENARIO(SyncSendAndDoubleReply) {
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [](const Event& event) {
        event->replyResult(5);
        event->replyResult(6);
    }) == 0);
    const int result = hub.sendEventSync(hub.createEvent(kType), kReceiver, -1);
    TEVALON_EXPECT(result == 5 || result == 6);
}

TEVALON_SCENARIO(SyncSendAndMissingReply) {
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [](const Event&) {}) == 0);
    TEVALON_EXPECT(hub.sendEventSync(hub.createEvent(kType), kReceiver, 10) == 1);
    TEVALON_EXPECT(tevalon::testkit::elapsedNanoseconds() >= 10'000'000);
}

// A reply, the time-out and the end of the hub, all at once: the callback is called, and once.
TEVALON_SCENARIO(AsyncSendRepliedAsTheHubEnds) {
    std::atomic<int> calls{0};
    BrowserEvent* p_sent = nullptr;
    Event kept;
    Semaphore handled;
    {
        RegisteredHub hub(kSender);
        TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event& event) {
            kept = event;
            handled.post();
        }) == 0);
        const TimeStandsStill still;
        const Event event = hub.createEvent(kType);
        p_sent = event.get();
        TEVALON_EXPECT(hub.sendAsync(event, kSender, -1, [&](int result, const Event& replied) {
            ++calls;
            TEVALON_EXPECT(result == 5 || result == -1);
            TEVALON_EXPECT(replied.get() == p_sent);
        }) == 0);
        handled.wait();
        std::thread replier([held = kept] { held->replyResult(5); });
        evtdispch_unregister_hub(&hub);
        TEVALON_EXPECT(calls == 1);
        replier.join();
    }
    TEVALON_EXPECT(calls == 1);
}

// What a callback sends while its hub ends is not called before that has ended, though it is
// replied to. That may be as the hub is destroyed.
TEVALON_SCENARIO(AsyncSendFromACallbackAsTheHubEnds) {
    int calls = 0;
    Event first;
    RegisteredHub receiver(kReceiver);
    TEVALON_EXPECT(receiver.registerHandler(kType, [&](const Event& event) {
        if (first != nullptr) event->replyResult(5);
        if (first == nullptr) first = event;
    }) == 0);
    const TimeStandsStill still;
    RegisteredHub sender(kSender);
    const auto send = [&](const EventHub::ReplyCallback& callback) {
        TEVALON_EXPECT(sender.sendAsync(sender.createEvent(kType), kReceiver, -1, callback) == 0);
    };
    send([&](int, const Event&) {
        ++calls;
        std::thread([&] { send([&](int, const Event&) { ++calls; }); }).join();
    });
    evtdispch_unregister_hub(&sender);
    TEVALON_EXPECT(calls == 1);
}

// A thread that is told to leave while it takes events calls what is out all the same.
TEVALON_SCENARIO(AsyncSendOutAsTheHubEnds) {
    int calls = 0;
    std::vector<Event> kept;
    const TimeStandsStill still;
    RegisteredHub hub(kSender);
    TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event& event) { kept.push_back(event); }) ==
                   0);
    TEVALON_EXPECT(hub.sendAsync(hub.createEvent(kType), kSender, -1,
                                 [&](int, const Event&) { ++calls; }) == 0);
    TEVALON_EXPECT(hub.sendEvent(hub.createEvent(kType), kSender) == 0);
    evtdispch_unregister_hub(&hub);
    TEVALON_EXPECT(calls == 1);
}

// Sent again while a reply to the first time is on its way: either may be what that answers.
TEVALON_SCENARIO(AsyncSendOfOneEventTwice) {
    int calls = 0;
    Event kept;
    Semaphore handled;
    {
        RegisteredHub hub(kReceiver);
        TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event& event) {
            kept = event;
            handled.post();
        }) == 0);
        const TimeStandsStill still;
        const Event event = hub.createEvent(kType);
        const auto send = [&] {
            TEVALON_EXPECT(
                hub.sendAsync(event, kReceiver, -1, [&](int, const Event&) { ++calls; }) == 0);
        };
        send();
        handled.wait();
        std::thread replier([held = kept] { held->replyResult(5); });
        send();
        replier.join();
    }
    TEVALON_EXPECT(calls == 2);
}

// The hub's thread is about to wait when the reply comes.
TEVALON_SCENARIO(AsyncSendWakesTheHub) {
    Semaphore called;
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [](const Event& event) { event->replyResult(5); }) ==
                   0);
    EventHub sender(kSender);
    const TimeStandsStill still;
    TEVALON_EXPECT(
        sender.sendAsync(sender.createEvent(kType), kReceiver, -1, [&](int result, const Event&) {
            TEVALON_EXPECT(result == 5);
            called.post();
        }) == 0);
    called.wait();
}

// A shorter time-out than the one that the hub's thread waits for.
TEVALON_SCENARIO(AsyncSendTimesOutInTime) {
    Semaphore called;
    Event kept;
    RegisteredHub hub(kReceiver);
    TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event& event) { kept = event; }) == 0);
    TEVALON_EXPECT(
        hub.sendAsync(hub.createEvent(kType), kReceiver, 10, [&](int result, const Event&) {
            TEVALON_EXPECT(result == 1);
            called.post();
        }) == 0);
    called.wait();
    TEVALON_EXPECT(tevalon::testkit::elapsedNanoseconds() >= 10'000'000);
}

// Two handlers fill one room, while the caller that has given up looks whether there is a reply.
TEVALON_SCENARIO(ReplySlotIsFilledOnce) {
    struct Reply {
        int number;
        int again;
    };
    const EventHub hub(kSender);
    const Event request = tevalon::base::event_dispatcher::makeRequest<Reply>(hub, kType);
    std::atomic<int> filled{0};
    const TimeStandsStill still;
    const auto fill = [&](int number) {
        using tevalon::base::event_dispatcher::fillReply;
        if (fillReply<Reply>(request, Reply{number, number})) ++filled;
    };
    std::thread other([&] { fill(1); });
    std::thread third([&] { fill(2); });
    const auto* const p_reply = tevalon::base::event_dispatcher::replyOf<Reply>(request);
    if (p_reply != nullptr) TEVALON_EXPECT(p_reply->number == p_reply->again);
    other.join();
    third.join();
    TEVALON_EXPECT(filled == 1);
}

// Two senders and room for one event, while the hub's thread is in a handler.
TEVALON_SCENARIO(HubQueueLimitHolds) {
    Semaphore entered;
    Semaphore release;
    EventHub hub(kReceiver);
    hub.setQueueLimit(1);
    TEVALON_EXPECT(hub.registerHandler(kType, [&](const Event&) {
        entered.post();
        release.wait();
    }) == 0);
    TEVALON_EXPECT(hub.receiveEvent(hub.createEvent(kType)) == 0);
    entered.wait();
    const TimeStandsStill still;
    std::atomic<int> taken{0};
    const auto send = [&] {
        if (hub.receiveEvent(hub.createEvent(kType)) == 0) ++taken;
    };
    std::thread other(send);
    send();
    other.join();
    TEVALON_EXPECT(taken == 1);
    TEVALON_EXPECT(hub.queueLength() == 1);
    release.post();
    release.post();
}

// The handler fetches a value while another one is sent: the last value always arrives, once.
TEVALON_SCENARIO(NewestEventAgainstFetch) {
    Semaphore arrived;
    RegisteredHub sender(kSender);
    RegisteredHub receiver(kReceiver);
    tevalon::base::event_dispatcher::NewestEvent<int> event(sender, kType, kReceiver);
    int last = 0;
    (void)receiver.registerHandler(kType, [&](const Event& received) {
        const auto value = tevalon::base::event_dispatcher::newest<int>(received);
        TEVALON_EXPECT(value && *value > last);
        last = *value;
        if (last == 2) arrived.post();
    });
    const TimeStandsStill still;
    TEVALON_EXPECT(event.send(1) == 0);
    TEVALON_EXPECT(event.send(2) == 0);
    arrived.wait();
}

// Nobody takes the event: neither of two senders may be told that its value goes with the other's.
TEVALON_SCENARIO(NewestEventRefusedToTwo) {
    EventHub sender(kSender);
    tevalon::base::event_dispatcher::NewestEvent<int> event(sender, kType, kReceiver);
    const TimeStandsStill still;
    std::thread other([&] { TEVALON_EXPECT(event.send(1) == -1); });
    TEVALON_EXPECT(event.send(2) == -1);
    other.join();
}

// Events, hubs and the dispatcher.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "faults/scenario.h"

namespace faults {
namespace {

using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kHere = 1;
constexpr std::int32_t kThere = 2;
constexpr std::int32_t kType = 7;

struct Payload : EventParam {
    std::int32_t intValue() override { return 5; }
    char bytes[40] = {};
};

// ---- BrowserEvent ----

void replyFromAnotherThread(Run& run, BrowserEvent& event, std::int32_t timeoutMs) {
    const char* const call = timeoutMs < 0 ? "pthread_cond_wait" : "pthread_cond_clockwait";
    const long waits = callsOf(call);
    std::thread replier([&] {
        (void)run.waitForCalls("waiting", call, waits + 1);
        try {
            event.replyResult(42);
        } catch (const std::exception& error) {
            run.say("reply threw", error.what());
            run.calm();
            event.replyResult(42);
        }
    });
    try {
        run.say("result", event.waitForResult(timeoutMs));
    } catch (const std::exception& error) {
        run.say("wait threw", error.what());
    }
    replier.join();
}

template <std::int32_t kTimeoutMs>
void replies(Run& run) {
    BrowserEvent event(kHere, kType, new Payload());
    run.say("armed", event.initWaitResultCv());
    if (event.waitResultMtx != nullptr) replyFromAnotherThread(run, event, kTimeoutMs);
    run.calm();
    BrowserEvent next(kHere, kType, new Payload());
    run.say("armed then", next.initWaitResultCv());
    next.replyResult(43);
    run.say("result then", next.waitForResult(kTimeoutMs));
}

void timeouts(Run& run) {
    BrowserEvent event(kHere, kType, new Payload());
    run.say("armed", event.initWaitResultCv());
    run.say("result", event.waitForResult(1));
    run.calm();
    event.initWaitResultCv();
    run.say("result then", event.waitForResult(1));
}

// Wait objects of the client's own.
void repliesToClientsOwn(Run& run) {
    BrowserEvent event(kHere, kType, nullptr);
    event.waitResultMtx = new std::mutex;
    event.waitResultCv = new std::condition_variable;
    replyFromAnotherThread(run, event, -1);
    run.calm();
    BrowserEvent next(kHere, kType, nullptr);
    run.say("armed then", next.initWaitResultCv());
    next.replyResult(43);
    run.say("result then", next.waitForResult(-1));
}

struct LargePayload : EventParam {
    char bytes[1000] = {};
};

void payloadLarge(Run& run) {
    run.say("payload", std::make_unique<LargePayload>()->intValue());
    run.calm();
    run.say("payload then", std::make_unique<LargePayload>()->intValue());
}

// Freed where they were not made, batch for batch.
void payloadsAcrossThreads(Run& run) {
    constexpr int kPayloads = 1000;  // More than are kept.
    for (int round = 0; round < 2; ++round) {
        std::vector<std::unique_ptr<EventParam>> payloads;
        for (int i = 0; i < kPayloads; ++i) payloads.push_back(std::make_unique<Payload>());
        std::thread([&] { payloads.clear(); }).join();
    }
    run.calm();
    run.say("payload then", std::make_unique<Payload>()->intValue());
}

// ---- EventHub and EventDispatcher ----

void makeDispatcher() {
    (void)EventDispatcher::GetInstance();
}

/// Registered as long as it lives.
class RegisteredHub {
public:
    RegisteredHub(Run* p_run, std::int32_t moduleId) : m_run(p_run), m_hub(moduleId) {
        m_run->say("hub registered", evtdispch_register_hub(&m_hub));
    }
    ~RegisteredHub() {
        try {
            (void)evtdispch_unregister_hub(&m_hub);
        } catch (const std::exception&) {
            m_run->calm();  // A lock that has failed once.
            (void)evtdispch_unregister_hub(&m_hub);
        }
    }

    RegisteredHub(const RegisteredHub&) = delete;
    RegisteredHub& operator=(const RegisteredHub&) = delete;

    EventHub* operator->() { return &m_hub; }

private:
    Run* const m_run;
    EventHub m_hub;
};

struct Handled {
    std::atomic<int> count{0};
};

Handled* newHandled() {
    static std::vector<std::unique_ptr<Handled>> s_all;
    s_all.push_back(std::make_unique<Handled>());
    return s_all.back().get();
}

std::int32_t registerCounting(RegisteredHub& hub, std::int32_t type, Handled* p_handled) {
    return hub->registerHandler(type, [p_handled](const std::shared_ptr<BrowserEvent>& event) {
        if (event->waitResultMtx != nullptr) event->replyResult(42);
        ++p_handled->count;
    });
}

void hubs(Run& run) {
    Handled* const p_handled = newHandled();
    RegisteredHub here(&run, kHere);
    RegisteredHub there(&run, kThere);
    run.say("handler", registerCounting(there, kType, p_handled));
    const std::int32_t sent = here->sendEvent(here->createEvent(kType), kThere);
    run.say("sent", sent);
    if (sent == 0) {
        (void)run.waitFor("handled", p_handled->count, 1);
    } else {
        run.say("handled", "no");
    }
    run.say("reply", here->sendEventSync(here->createEvent(kType), kThere, 1000));
    run.calm();
    run.say("handler then", registerCounting(there, kType + 1, p_handled));
    const int before = p_handled->count;
    run.say("sent then", here->sendEvent(here->createEvent(kType + 1), kThere));
    (void)run.waitFor("handled then", p_handled->count, before + 1);
    run.say("reply then", here->sendEventSync(here->createEvent(kType + 1), kThere, 1000));
}

// With a payload and a reply that carries data.
void asyncSends(Run& run) {
    Handled* const p_handled = newHandled();
    Handled* const p_called = newHandled();
    RegisteredHub here(&run, kHere);
    RegisteredHub there(&run, kThere);
    const EventHub hub(kHere);
    const auto handler = [p_handled](const std::shared_ptr<BrowserEvent>& event) {
        if (!fillReply<std::int32_t>(event, 42)) return;
        // So that the sender has gone to sleep.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ++p_handled->count;
        event->replyResult(42);
    };
    const auto count = [p_called](EventResult, const std::shared_ptr<BrowserEvent>&) {
        ++p_called->count;
    };
    (void)there->registerHandler(kType, handler);
    const auto request = makeRequest<std::int32_t, std::int32_t>(hub, kType, 7);
    const std::int32_t sent = here->sendAsync(request, kThere, 5000, count);
    run.say("sent", sent);
    if (sent == 0) (void)run.waitFor("called", p_called->count, 1);
    run.calm();
    (void)there->registerHandler(kType + 1, handler);
    const int before = p_called->count;
    const auto then = makeRequest<std::int32_t, std::int32_t>(hub, kType + 1, 7);
    const std::int32_t sentThen = here->sendAsync(then, kThere, 5000, count);
    run.say("sent then", sentThen);
    if (sentThen == 0) (void)run.waitFor("called then", p_called->count, before + 1);
    const int* const p_reply = replyOf<std::int32_t>(then);
    run.say("reply then", p_reply != nullptr ? *p_reply : -1);
}

// Enough of them that queue and tables grow.
void hubsMany(Run& run) {
    constexpr int kMany = 40;
    Handled* const p_handled = newHandled();
    RegisteredHub here(&run, kHere);
    RegisteredHub there(&run, kThere);
    int accepted = 0;
    for (int i = 0; i < kMany; ++i) accepted += registerCounting(there, i, p_handled) == 0 ? 1 : 0;
    run.say("handlers", accepted);
    int sent = 0;
    for (int i = 0; i < kMany; ++i) sent += here->sendEvent(here->createEvent(i), kAnyModule) == 0;
    run.say("sent", sent);
    (void)run.waitFor("handled", p_handled->count, sent);
    run.calm();
    const int before = p_handled->count;
    run.say("handler then", registerCounting(there, kMany, p_handled));
    run.say("sent then", here->sendEvent(here->createEvent(kMany), kThere));
    (void)run.waitFor("handled then", p_handled->count, before + 1);
}

}  // namespace

std::vector<Scenario> eventScenarios() {
    return {
        {"reply in time", replies<20000>},
        {"reply without limit", replies<-1>},
        {"reply that does not come", timeouts},
        {"reply to the client's own", repliesToClientsOwn},
        {"payload that is large", payloadLarge},
        {"payloads across threads", payloadsAcrossThreads},
        {"hubs", hubs, makeDispatcher},
        {"hubs, all lines", hubs, makeDispatcher, Module::Library, 5000},
        {"asynchronous sends", asyncSends, makeDispatcher},
        {"hubs with many handlers", hubsMany, makeDispatcher},
    };
}

}  // namespace faults

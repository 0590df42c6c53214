// One-way events: made with a payload, sent, found a handler for by their type, and handled on the
// receiver's thread. An iteration is one event; the time is from the first send to the last
// handler's end. Of "latency" it is one event to threads that have slept, from before it is made
// until its handler begins.
//
// Counters: switches, from one thread to another for each 1,000 events; p99_9, in nanoseconds: one
// event in a thousand took longer.

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "mailboxes/all.h"
#include "mailboxes/limit_mailbox.h"
#include "support/arrivals.h"
#include "support/latencies.h"
#include "support/placement.h"
#include "support/process_usage.h"
#include "support/rows.h"

namespace bench {
namespace {

constexpr int kType = 100;

std::int64_t eventCount(Cpus cpus) {
    return scaled(cpus == Cpus::Busy ? 250000 : 1000000);
}

/// Handlers of so many types; the last is for kType.
template <typename Mailbox>
typename Mailbox::HandlerList handlersThatCount(Arrivals* p_arrivals, int count) {
    typename Mailbox::HandlerList handlers;
    for (int type = kType + count - 1; type >= kType; --type) {
        handlers.push_back(
            {type, [p_arrivals](const auto& event) { p_arrivals->arrived(numberOf(*event)); }});
    }
    return handlers;
}

template <typename Mailbox>
void sendMany(Mailbox* p_mailbox, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) p_mailbox->post(p_mailbox->createWithPayload(kType));
}

// The calling thread sends, or where there are several senders it starts them.
template <typename Mailbox>
void sendFromThreads(Mailbox* p_mailbox, int senders, std::int64_t count) {
    if (senders == 1) return sendMany(p_mailbox, count);
    std::vector<std::thread> threads;
    for (int i = 0; i < senders; ++i) {
        threads.emplace_back([=] { sendMany(p_mailbox, count / senders); });
    }
    for (std::thread& thread : threads) thread.join();
}

template <typename Mailbox>
void oneWay(benchmark::State& state, int senders, int handlers, Cpus cpus) {
    const std::int64_t count = eventCount(cpus);
    const Placement placement(cpus);
    placement.forReceivers();
    Arrivals arrivals;
    Mailbox mailbox(handlersThatCount<Mailbox>(&arrivals, handlers));
    placement.forSenders();
    const ProcessUsage before = processUsage();
    while (state.KeepRunningBatch(count)) {
        arrivals.expect(count);
        sendFromThreads(&mailbox, senders, count);
        arrivals.waitForAll();
    }
    state.counters["switches"] = (processUsage().switches - before.switches) * 1000 /
                                 static_cast<double>(state.iterations());
}

template <typename Mailbox>
void latency(benchmark::State& state, Cpus cpus) {
    constexpr std::chrono::microseconds kPace(150);
    const Placement placement(cpus);
    placement.forReceivers();
    Arrivals arrivals;
    Latencies::Clock::time_point handled;
    Mailbox mailbox({{kType, [&](const auto& event) {
                          handled = Latencies::Clock::now();
                          arrivals.arrived(numberOf(*event));
                      }}});
    placement.forSenders();
    Latencies latencies(&state);
    for (auto _ : state) {
        std::this_thread::sleep_for(kPace);
        arrivals.expect(1);
        const Latencies::Clock::time_point sent = Latencies::Clock::now();
        sendMany(&mailbox, 1);
        arrivals.waitForAll();
        latencies.add(handled - sent);
        state.SetIterationTime(std::chrono::duration<double>(handled - sent).count());
    }
}

template <typename Mailbox>
void toAll(benchmark::State& state, int receivers, Cpus cpus) {
    const std::int64_t count = eventCount(cpus) / receivers;
    const Placement placement(cpus);
    placement.forReceivers();
    std::vector<Arrivals> arrivals(static_cast<std::size_t>(receivers));
    std::vector<std::unique_ptr<Mailbox>> mailboxes;
    for (Arrivals& ofOne : arrivals) {
        mailboxes.push_back(std::make_unique<Mailbox>(handlersThatCount<Mailbox>(&ofOne, 1)));
    }
    placement.forSenders();
    while (state.KeepRunningBatch(count)) {
        for (Arrivals& ofOne : arrivals) ofOne.expect(count);
        for (std::int64_t i = 0; i < count; ++i) broadcast(mailboxes, kType);
        for (Arrivals& ofOne : arrivals) ofOne.waitForAll();
    }
}

// The hub that gets the events is the last of so many in the dispatcher's list, and the handler
// the last of so many in the hub's.
void amongHubs(benchmark::State& state, int hubs, int handlers, Cpus cpus) {
    Arrivals unused;
    std::vector<std::unique_ptr<OurMailbox>> others;
    for (int i = 1; i < hubs; ++i) {
        others.push_back(std::make_unique<OurMailbox>(handlersThatCount<OurMailbox>(&unused, 1)));
    }
    oneWay<OurMailbox>(state, 1, handlers, cpus);
}

template <typename Mailbox>
void addOneWay(const std::string& task, int senders, Cpus cpus) {
    const auto run = [=](benchmark::State& state) { oneWay<Mailbox>(state, senders, 1, cpus); };
    addRow("events/" + task + '/' + nameOf(cpus), Mailbox::kName, run)
        ->Iterations(eventCount(cpus));
}

template <typename Mailbox>
void addLatency(Cpus cpus) {
    const auto run = [=](benchmark::State& state) { latency<Mailbox>(state, cpus); };
    addTimedRow(std::string("events/latency/") + nameOf(cpus), Mailbox::kName, run)
        ->Iterations(scaled(2000));
}

template <typename Mailbox>
void addRowsOf() {
    constexpr int kReceivers = 10;
    addOneWay<Mailbox>("one_sender", 1, Cpus::Two);
    addOneWay<Mailbox>("one_sender", 1, Cpus::One);
    addOneWay<Mailbox>("one_sender", 1, Cpus::Busy);
    addOneWay<Mailbox>("four_senders", 4, Cpus::Free);
    addLatency<Mailbox>(Cpus::Two);
    addLatency<Mailbox>(Cpus::Busy);
    const auto run = [](benchmark::State& state) { toAll<Mailbox>(state, kReceivers, Cpus::Two); };
    addRow("events/to_10_receivers/two_cpus", Mailbox::kName, run)
        ->Iterations(eventCount(Cpus::Two) / kReceivers);
}

void addGrowthRow(int hubs, int handlers, Cpus cpus) {
    const std::string task = "events/" + std::to_string(hubs) + "_hubs_" +
                             std::to_string(handlers) + "_handlers/" + nameOf(cpus);
    const auto run = [=](benchmark::State& state) { amongHubs(state, hubs, handlers, cpus); };
    addRow(task, kOurs, run)->Iterations(eventCount(cpus));
}

const bool s_areRowsAdded = [] {
    forEachQueue([](auto mailbox) { addRowsOf<typename decltype(mailbox)::type>(); });
    addRowsOf<LimitMailbox>();
    for (const Cpus cpus : {Cpus::One, Cpus::Two}) {
        for (const int hubs : {1, 10, 100}) {
            for (const int handlers : {1, 10, 100}) addGrowthRow(hubs, handlers, cpus);
        }
    }
    return true;
}();

}  // namespace
}  // namespace bench

// Synchronous events: sent, handled on the receiver's thread, and the reply's value back with
// the sender. An iteration is one call. "tight" calls come one after the other; before a "paced"
// one both threads have slept.
//
// Counters, all per call: allocations; sleeps, which is how often a thread had to be woken; and
// cpu_ns, the processor time of all threads. p99_9 is in nanoseconds: one call in a thousand took
// longer.

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "mailboxes/all.h"
#include "mailboxes/futex_pair.h"
#include "support/allocation_count.h"
#include "support/latencies.h"
#include "support/placement.h"
#include "support/process_usage.h"
#include "support/rows.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kType = 100;
constexpr std::chrono::microseconds kPace(300);

template <typename Mailbox>
typename Mailbox::HandlerList handlerThatReplies() {
    return {{kType, [](auto event) { event->replyResult(kReply); }}};
}

template <typename Mailbox>
void callOnce(benchmark::State& state, Mailbox* p_mailbox) {
    if (p_mailbox->call(kType) != kReply) state.SkipWithError("a call got no reply");
}

template <typename Mailbox>
double allocationsPerCall(benchmark::State& state, Mailbox* p_mailbox) {
    constexpr int kCalls = 100;
    const AllocationCount allocations;
    for (int i = 0; i < kCalls; ++i) callOnce(state, p_mailbox);
    return static_cast<double>(allocations.calls()) / kCalls;
}

/// What the calls use between its making and its end goes into the counters.
class Account {
public:
    explicit Account(benchmark::State* p_state) : m_state(p_state), m_before(processUsage()) {}

    /// @param ownSleeps  Of the benchmark itself, in all.
    void close(std::int64_t ownSleeps) const {
        const ProcessUsage after = processUsage();
        const auto calls = static_cast<double>(m_state->iterations());
        m_state->counters["cpu_ns"] = (after.cpuSeconds - m_before.cpuSeconds) * 1e9 / calls;
        m_state->counters["sleeps"] =
            (after.sleeps - m_before.sleeps - static_cast<double>(ownSleeps)) / calls;
    }

private:
    benchmark::State* const m_state;
    const ProcessUsage m_before;
};

template <typename Mailbox>
void tight(benchmark::State& state, Mailbox* p_mailbox) {
    Latencies latencies(&state);
    const Account account(&state);
    Clock::time_point before = Clock::now();
    for (auto _ : state) {
        callOnce(state, p_mailbox);
        const Clock::time_point after = Clock::now();
        latencies.add(after - before);
        before = after;
    }
    account.close(0);
}

template <typename Mailbox>
void paced(benchmark::State& state, Mailbox* p_mailbox) {
    Latencies latencies(&state);
    const Account account(&state);
    for (auto _ : state) {
        std::this_thread::sleep_for(kPace);
        const Clock::time_point before = Clock::now();
        callOnce(state, p_mailbox);
        const Clock::duration latency = Clock::now() - before;
        latencies.add(latency);
        state.SetIterationTime(std::chrono::duration<double>(latency).count());
    }
    account.close(static_cast<std::int64_t>(state.iterations()));
}

template <typename Mailbox>
void callMany(benchmark::State& state, bool isPaced, Cpus cpus) {
    const Placement placement(cpus);
    placement.forReceivers();
    Mailbox mailbox(handlerThatReplies<Mailbox>());
    placement.forSenders();
    if (isPaced) {
        paced(state, &mailbox);
    } else {
        tight(state, &mailbox);
    }
    state.counters["allocations"] = allocationsPerCall(state, &mailbox);
}

/// So many calls as BENCH_CALLS in the environment says, for those who count from outside.
std::int64_t callCount(std::int64_t usual) {
    const char* const p_calls = std::getenv("BENCH_CALLS");
    return p_calls != nullptr ? std::atoll(p_calls) : scaled(usual);
}

template <typename Mailbox>
void addTightRow(Cpus cpus) {
    const auto run = [=](benchmark::State& state) { callMany<Mailbox>(state, false, cpus); };
    addRow(std::string("sync_events/tight/") + nameOf(cpus), Mailbox::kName, run)
        ->Iterations(callCount(cpus == Cpus::One ? 50000 : 4000));
}

template <typename Mailbox>
void addPacedRow(Cpus cpus) {
    const auto run = [=](benchmark::State& state) { callMany<Mailbox>(state, true, cpus); };
    addTimedRow(std::string("sync_events/paced/") + nameOf(cpus), Mailbox::kName, run)
        ->Iterations(callCount(1000));
}

template <typename Mailbox>
void addRowsOf() {
    for (const Cpus cpus : {Cpus::One, Cpus::Two, Cpus::Busy}) {
        addTightRow<Mailbox>(cpus);
        addPacedRow<Mailbox>(cpus);
    }
    for (const Cpus cpus : {Cpus::DeepSleep, Cpus::LightSleep}) {
        if (isPossible(cpus)) addTightRow<Mailbox>(cpus);
    }
}

const bool s_areRowsAdded = [] {
    forEachCallee([](auto mailbox) { addRowsOf<typename decltype(mailbox)::type>(); });
    addRowsOf<FutexPair>();
    return true;
}();

}  // namespace
}  // namespace bench

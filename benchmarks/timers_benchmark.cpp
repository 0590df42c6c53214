// Starting and stopping a timer while so many others are started, none of which is due. An
// iteration is one start and one stop.

#include <string>

#include "support/placement.h"
#include "support/random_delays.h"
#include "support/rows.h"
#include "timers/all.h"

namespace bench {
namespace {

constexpr std::size_t kSpare = 1000;  // Which are started and stopped.

template <typename Timers>
void startAndStop(benchmark::State& state, std::size_t started, Cpus cpus) {
    const Placement placement(cpus);
    placement.forReceivers();
    FarDelays delays;
    Timers timers;
    for (std::size_t i = 0; i < started + kSpare; ++i) timers.add(delays.next());
    for (std::size_t i = 0; i < started; ++i) timers.start(i);
    placement.forSenders();
    std::size_t next = 0;
    for (auto _ : state) {
        const std::size_t timer = started + next;
        timers.start(timer);
        timers.stop(timer);
        next = (next + 1) % kSpare;
    }
    for (std::size_t i = 0; i < started; ++i) timers.stop(i);
}

template <typename Timers>
void addRowsOf() {
    for (const std::size_t started : {10U, 100U, 1000U, 10000U}) {
        const std::string task =
            "timers/start_and_stop/" + std::to_string(started) + "_started/" + nameOf(Cpus::Two);
        const auto run = [=](benchmark::State& state) {
            startAndStop<Timers>(state, started, Cpus::Two);
        };
        addRow(task, Timers::kName, run)->Iterations(scaled(100000));
    }
}

const bool s_areRowsAdded = [] {
    forEachKindOfTimer([](auto timers) { addRowsOf<typename decltype(timers)::type>(); });
    return true;
}();

}  // namespace
}  // namespace bench

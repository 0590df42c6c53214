// Tasks on a thread with so many of them waiting at random times: posting one more, cancelling
// one, and firing those that are due. An iteration is one task.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "schedulers/all.h"
#include "support/arrivals.h"
#include "support/placement.h"
#include "support/random_delays.h"
#include "support/rows.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point before) {
    return std::chrono::duration<double>(Clock::now() - before).count();
}

// So few that the number of those that wait changes little, so many that the clock's own time
// does not count.
int batchOf(int waiting) {
    return std::max(10, waiting / 10);
}

std::int64_t iterationsOf(int waiting) {
    const int batch = batchOf(waiting);
    const std::int64_t batches = scaled(waiting <= 100 ? 1000 : 100);
    return std::max<std::int64_t>(batches, 3) * batch;
}

template <typename Scheduler>
std::vector<typename Scheduler::Handle> postMany(Scheduler* p_scheduler, FarDelays* p_delays,
                                                 int count) {
    std::vector<typename Scheduler::Handle> handles;
    handles.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        handles.push_back(p_scheduler->post(p_delays->next(), [] {}));
    }
    return handles;
}

template <typename Scheduler>
void post(benchmark::State& state, int waiting, Cpus cpus) {
    const Placement placement(cpus);
    const int batch = batchOf(waiting);
    FarDelays delays;
    while (state.KeepRunningBatch(batch)) {
        placement.forReceivers();
        Scheduler scheduler;
        (void)postMany(&scheduler, &delays, waiting);
        placement.forSenders();
        const Clock::time_point before = Clock::now();
        const auto handles = postMany(&scheduler, &delays, batch);
        state.SetIterationTime(secondsSince(before));
    }
}

template <typename Scheduler>
void cancel(benchmark::State& state, int waiting, Cpus cpus) {
    const Placement placement(cpus);
    const int batch = batchOf(waiting);
    FarDelays delays;
    while (state.KeepRunningBatch(batch)) {
        placement.forReceivers();
        Scheduler scheduler;
        // In random order as they are: their times are random.
        const auto handles = postMany(&scheduler, &delays, waiting);
        placement.forSenders();
        const Clock::time_point before = Clock::now();
        for (int i = 0; i < batch; ++i) scheduler.cancel(handles[static_cast<std::size_t>(i)]);
        state.SetIterationTime(secondsSince(before));
    }
}

/// One round of firing, timed on the thread itself: it is kept in a first task until all that are
/// to be fired are posted, and due.
class FiringRound {
public:
    explicit FiringRound(int tasks) : m_missing(tasks) { m_arrivals.expect(1); }

    void hold() {
        m_isHeld = true;
        while (!m_mayGo) std::this_thread::yield();
        m_begin = Clock::now();
    }
    void waitUntilHeld() const {
        while (!m_isHeld) std::this_thread::yield();
    }
    void letGo() { m_mayGo = true; }

    void fired() {
        if (--m_missing > 0) return;
        m_seconds = secondsSince(m_begin);
        m_arrivals.arrived();
    }
    double waitForSeconds() {
        m_arrivals.waitForAll();
        return m_seconds;
    }

private:
    std::atomic<bool> m_isHeld{false};
    std::atomic<bool> m_mayGo{false};
    int m_missing;  // This and what follows: the thread's, until all have arrived.
    Clock::time_point m_begin;
    double m_seconds = 0;
    Arrivals m_arrivals;
};

template <typename Scheduler>
void fire(benchmark::State& state, int waiting, Cpus cpus) {
    constexpr int kSoonMs = 5;
    const Placement placement(cpus);
    placement.forReceivers();
    Scheduler scheduler;
    FarDelays delays;
    while (state.KeepRunningBatch(waiting)) {
        FiringRound round(waiting);
        scheduler.post(0, [&round] { round.hold(); });
        placement.forSenders();
        round.waitUntilHeld();
        for (int i = 0; i < waiting; ++i) {
            scheduler.post(delays.next() % kSoonMs, [&round] { round.fired(); });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kSoonMs + 1));
        round.letGo();
        state.SetIterationTime(round.waitForSeconds());
    }
}

std::string taskName(const char* step, int waiting, Cpus cpus) {
    return std::string("tasks/") + step + '/' + std::to_string(waiting) + "_waiting/" +
           nameOf(cpus);
}

template <typename Scheduler>
void addPostRow(int waiting, Cpus cpus) {
    const auto run = [=](benchmark::State& state) { post<Scheduler>(state, waiting, cpus); };
    addTimedRow(taskName("post", waiting, cpus), Scheduler::kName, run)
        ->Iterations(iterationsOf(waiting));
}

template <typename Scheduler>
void addCancelRow(int waiting, Cpus cpus) {
    const auto run = [=](benchmark::State& state) { cancel<Scheduler>(state, waiting, cpus); };
    addTimedRow(taskName("cancel", waiting, cpus), Scheduler::kName, run)
        ->Iterations(iterationsOf(waiting));
}

template <typename Scheduler>
void addFireRow(int waiting, Cpus cpus) {
    const auto run = [=](benchmark::State& state) { fire<Scheduler>(state, waiting, cpus); };
    addTimedRow(taskName("fire", waiting, cpus), Scheduler::kName, run)->Iterations(waiting * 10);
}

const bool s_areRowsAdded = [] {
    for (const int waiting : {10, 100, 1000, 10000}) {
        forEachScheduler([=](auto scheduler) {
            using Scheduler = typename decltype(scheduler)::type;
            addPostRow<Scheduler>(waiting, Cpus::Two);
            addPostRow<Scheduler>(waiting, Cpus::One);
            addFireRow<Scheduler>(waiting, Cpus::Two);
        });
        forEachCancellingScheduler([=](auto scheduler) {
            addCancelRow<typename decltype(scheduler)::type>(waiting, Cpus::Two);
        });
    }
    return true;
}();

}  // namespace
}  // namespace bench

// What things weigh: bytes of the heap for each hub with one handler, for each further handler,
// queued event, started timer and posted task; memory of a thread; and the time to start a process
// with the library in it, and to have its first event handled.
//
// The rows' figure is the counter "bytes" where there is one.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "hot_paths/gate.h"
#include "mailboxes/all.h"
#include "mailboxes/limit_mailbox.h"
#include "schedulers/all.h"
#include "support/allocation_count.h"
#include "support/arrivals.h"
#include "support/random_delays.h"
#include "support/rows.h"
#include "timers/all.h"

namespace bench {
namespace {

constexpr int kMany = 1000;
constexpr int kFewThreads = 20;
constexpr int kHoldType = 1;
constexpr int kType = 100;

/// What @p make asks for, for each of @p count things. They live until it is known.
template <typename Make>
double bytesEach(int count, Make make) {
    const AllocationCount allocations;
    for (int i = 0; i < count; ++i) make(i);
    return static_cast<double>(allocations.bytes()) / count;
}

/// Adds a row whose figure is what @p weigh returns.
void addBytesRow(const std::string& what, const char* peer, double (*weigh)()) {
    addTimedRow("weights/" + what, peer, [=](benchmark::State& state) {
        for (auto _ : state) state.SetIterationTime(1);
        state.counters["bytes"] = weigh();
    })->Iterations(1);
}

template <typename Mailbox>
double weighHub() {
    std::vector<std::unique_ptr<Mailbox>> mailboxes(kFewThreads);
    return bytesEach(kFewThreads, [&](int i) {
        Arrivals arrivals;
        arrivals.expect(1);
        auto& mailbox = mailboxes[static_cast<std::size_t>(i)];
        mailbox = std::make_unique<Mailbox>(typename Mailbox::HandlerList{
            {kType, [&arrivals](const auto&) { arrivals.arrived(); }}});
        // Its thread runs, and what is made at the first event is there.
        mailbox->post(mailbox->create(kType));
        arrivals.waitForAll();
    });
}

template <typename Mailbox>
double weighQueuedEvent() {
    Hold hold;
    Mailbox mailbox({{kHoldType, [&](const auto&) { hold.keep(); }}, {kType, [](const auto&) {}}});
    mailbox.post(mailbox.create(kHoldType));
    hold.waitUntilThere();
    const double bytes = bytesEach(kMany, [&](int) { mailbox.post(mailbox.create(kType)); });
    hold.release();
    return bytes;
}

double weighHandler() {
    tevalon::base::event_dispatcher::EventHub hub(kType);
    return bytesEach(kMany, [&](int type) { hub.registerHandler(type, [](const auto&) {}); });
}

template <typename Timers>
double weighStartedTimer() {
    FarDelays delays;
    Timers timers;
    timers.add(FarDelays::kLeast);
    timers.start(0);
    const double bytes = bytesEach(kMany, [&](int i) {
        timers.add(delays.next());
        timers.start(static_cast<std::size_t>(i) + 1);
    });
    for (std::size_t i = 0; i <= kMany; ++i) timers.stop(i);
    return bytes;
}

template <typename Scheduler>
double weighTask() {
    FarDelays delays;
    Scheduler scheduler;
    scheduler.post(FarDelays::kLeast, [] {});
    return bytesEach(kMany, [&](int) { scheduler.post(delays.next(), [] {}); });
}

double privateBytes() {
    std::ifstream file("/proc/self/smaps_rollup");
    double sum = 0;
    std::string word;
    while (file >> word) {
        double kibibytes = 0;
        if ((word == "Private_Dirty:" || word == "Private_Clean:") && file >> kibibytes) {
            sum += kibibytes * 1024;
        }
    }
    return sum;
}

/// What @p weigh finds in a new process, in which no stack of an earlier thread is left.
double inNewProcess(double (*weigh)()) {
    int ends[2];
    if (pipe(ends) != 0) return 0;
    const pid_t child = fork();
    if (child == 0) {
        const double weight = weigh();
        _exit(write(ends[1], &weight, sizeof(weight)) == sizeof(weight) ? 0 : 1);
    }
    double weight = 0;
    (void)close(ends[1]);
    if (read(ends[0], &weight, sizeof(weight)) != sizeof(weight)) weight = 0;
    (void)close(ends[0]);
    (void)waitpid(child, nullptr, 0);
    return weight;
}

/// Stack, heap and what the system maps for it: all that only this process has.
template <typename Scheduler>
double weighThreadHere() {
    std::vector<std::unique_ptr<Scheduler>> threads;
    const double before = privateBytes();
    for (int i = 0; i < kFewThreads; ++i) {
        Arrivals arrivals;
        arrivals.expect(1);
        threads.push_back(std::make_unique<Scheduler>());
        threads.back()->post(0, [&] { arrivals.arrived(); });
        arrivals.waitForAll();
    }
    return (privateBytes() - before) / kFewThreads;
}

template <typename Scheduler>
double weighThread() {
    return inNewProcess(weighThreadHere<Scheduler>);
}

std::string programBeside(const char* name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name).string();
}

void startProcess(benchmark::State& state, const char* name, bool sendsEvent) {
    std::string program = programBeside(name);
    std::string event = "event";
    char* const arguments[] = {program.data(), sendsEvent ? event.data() : nullptr, nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = -1;
        if (posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("a program could not be run");
            return;
        }
    }
}

void addStartRows() {
    struct Program {
        const char* peer;
        const char* name;
    };
    for (const Program program : {Program{kOurs, "start_ours"}, Program{kLimit, "start_bare"}}) {
        addRow("weights/process_start/unpinned", program.peer, [=](benchmark::State& state) {
            startProcess(state, program.name, false);
        })->Iterations(scaled(100));
        addRow("weights/process_with_first_event/unpinned", program.peer,
               [=](benchmark::State& state) { startProcess(state, program.name, true); })
            ->Iterations(scaled(100));
    }
}

const bool s_areRowsAdded = [] {
    const auto addMailbox = [](auto type) {
        using Mailbox = typename decltype(type)::type;
        addBytesRow("hub", Mailbox::kName, weighHub<Mailbox>);
        addBytesRow("queued_event", Mailbox::kName, weighQueuedEvent<Mailbox>);
    };
    forEachQueue(addMailbox);
    addMailbox(Type<LimitMailbox>());
    addBytesRow("handler", kOurs, weighHandler);
    forEachKindOfTimer([](auto type) {
        using Timers = typename decltype(type)::type;
        addBytesRow("started_timer", Timers::kName, weighStartedTimer<Timers>);
    });
    forEachScheduler([](auto type) {
        using Scheduler = typename decltype(type)::type;
        addBytesRow("posted_task", Scheduler::kName, weighTask<Scheduler>);
        addBytesRow("thread", Scheduler::kName, weighThread<Scheduler>);
    });
    addStartRows();
    return true;
}();

}  // namespace
}  // namespace bench

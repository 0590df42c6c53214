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
#include <string_view>
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

/// Our events come from a cache of blocks, which would hide what they weigh: as long as these live
/// there is nothing in it.
std::vector<OurMailbox::Pointer> emptyCache() {
    const tevalon::base::event_dispatcher::EventHub hub(kType);
    std::vector<OurMailbox::Pointer> events;
    for (int i = 0; i < kMany; ++i) events.push_back(hub.createEvent(kType));
    return events;
}

template <typename Mailbox>
double weighHub() {
    const auto cached = emptyCache();
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
    const auto cached = emptyCache();
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

std::filesystem::path besideThis(const char* name) {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename(name);
}

/// A process to start, and what the loader is to load into it beside what it needs.
struct Start {
    std::string program;
    std::string preloaded;
    bool sendsEvent = false;
};

/// This process's environment, but that nothing is logged and @p preloaded is loaded.
std::vector<std::string> environmentWith(const std::string& preloaded) {
    std::vector<std::string> variables = {"ZOR_DEBUG=off"};
    if (!preloaded.empty()) variables.push_back("LD_PRELOAD=" + preloaded);
    for (char** pp_variable = environ; *pp_variable != nullptr; ++pp_variable) {
        const std::string_view variable = *pp_variable;
        if (variable.rfind("ZOR_DEBUG=", 0) == 0 || variable.rfind("LD_PRELOAD=", 0) == 0) continue;
        variables.emplace_back(variable);
    }
    return variables;
}

void startProcess(benchmark::State& state, Start start) {
    std::string event = "event";
    char* const arguments[] = {start.program.data(), start.sendsEvent ? event.data() : nullptr,
                               nullptr};
    std::vector<std::string> variables = environmentWith(start.preloaded);
    std::vector<char*> environment;
    for (std::string& variable : variables) environment.push_back(variable.data());
    environment.push_back(nullptr);
    for (auto _ : state) {
        pid_t child = 0;
        int status = -1;
        if (posix_spawn(&child, start.program.c_str(), nullptr, nullptr, arguments,
                        environment.data()) != 0 ||
            waitpid(child, &status, 0) != child || status != 0) {
            state.SkipWithError("a program could not be run");
            return;
        }
    }
}

void addStartRow(const std::string& what, const char* peer, const Start& start) {
    addRow("weights/process_" + what + "/unpinned", peer, [start](benchmark::State& state) {
        startProcess(state, start);
    })->Iterations(scaled(100));
}

/// A file in starts/, beside this program.
std::string startFile(const char* name) {
    return (besideThis("starts") / name).string();
}

// The library is loaded from a copy that is named, as an installed one is found by the loader's
// cache: what a build tree holds has run paths, along which all else is looked for in vain.
void addStartRows() {
    const std::string bare = besideThis("start_bare").string();
    const std::string ours = startFile("start_ours");
    const std::string zorDebug = startFile("libzor-debug.so");
    const std::string library = zorDebug + ':' + startFile("libtevalon-base.so");
    addStartRow("start", kOurs, {ours, library});
    addStartRow("start", kLimit, {bare, ""});
    addStartRow("with_first_event", kOurs, {ours, library, true});
    addStartRow("with_first_event", kLimit, {bare, "", true});

    // What it is made of.
    addStartRow("start_by_run_path", kOurs, {besideThis("start_ours").string(), ""});
    addStartRow("start_in_c", kLimit, {besideThis("start_in_c").string(), ""});
    addStartRow("start_with_libuuid", kLimit, {bare, "libuuid.so.1"});
    addStartRow("start_with_zor_debug", kLimit, {bare, zorDebug});
    addStartRow("start_with_3_empty_libraries", kLimit,
                {bare, startFile("libempty_1.so") + ':' + startFile("libempty_2.so") + ':' +
                           startFile("libempty_3.so")});
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

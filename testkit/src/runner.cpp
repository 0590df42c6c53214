#include "runner.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "hooks.h"
#include "schedule.h"

namespace tevalon::testkit {
namespace {

constexpr int kSecondsOfRun = 20;  // A schedule takes a millisecond.

void onFatalSignal(int signal) {
    g_schedule.finish(Outcome::Died, "the process got signal %d, %s", signal, strsignal(signal));
}

// Registered before any static object is constructed, and so called when all are destroyed.
void onExit() {
    if (isHooked()) g_schedule.finish(Outcome::Passed, "%s", "");
}
__attribute__((constructor(101))) void watchExit() {
    (void)std::atexit(onExit);
}

[[noreturn]] void runScenario(RunRecord* p_record, const Scenario& scenario) {
    for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        (void)std::signal(signal, onFatalSignal);
    }
    if (p_record->isSilent) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(null, STDOUT_FILENO);
        (void)dup2(null, STDERR_FILENO);
        (void)close(null);
    }
    const itimerval limit = {{0, 0}, {kSecondsOfRun, 0}};
    (void)setitimer(ITIMER_REAL, &limit, nullptr);
    allocateFrom(0);
    g_schedule.begin(p_record, scenario.options);
    scenario.body();
    g_schedule.finish(Outcome::Passed, "%s", "");
}

// Gives the pages back; the next ones are zero.
template <typename Set>
void forget(Set* p_set) {
    p_set->count = 0;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(p_set->words.data());
    const std::uintptr_t end = begin + sizeof(p_set->words);
    const std::uintptr_t first = (begin + page - 1) / page * page;
    const std::uintptr_t last = end / page * page;
    std::memset(p_set->words.data(), 0, first - begin);
    std::memset(reinterpret_cast<void*>(last), 0, end - last);
    if (madvise(reinterpret_cast<void*>(first), last - first, MADV_REMOVE) != 0) {
        std::memset(reinterpret_cast<void*>(first), 0, last - first);
    }
}

}  // namespace

const char* nameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Died:
            return "death of the process";
        case Outcome::Passed:
            return "no failure";
        case Outcome::Pruned:
            return "nothing new";
        case Outcome::Deadlock:
            return "deadlock";
        case Outcome::LostWakeUp:
            return "lost wake-up";
        case Outcome::OnlyTimeOut:
            return "wait that only a time-out ends";
        case Outcome::Livelock:
            return "livelock";
        case Outcome::DoubleJoin:
            return "double join";
        case Outcome::UseAfterEnd:
            return "use of what is destroyed";
        case Outcome::DataRace:
            return "data race";
        case Outcome::Expectation:
            return "expectation that does not hold";
        case Outcome::Misuse:
            return "misuse of the C library";
        case Outcome::Unsupported:
            return "limit of the explorer";
    }
    return "?";
}

std::string toText(const Trace& trace) {
    if (trace.empty()) return "-";
    std::ostringstream text;
    for (const Deviation& deviation : trace) {
        if (&deviation != trace.data()) text << ',';
        text << deviation.moment << ':' << deviation.value;
    }
    return text.str();
}

bool parseTrace(const std::string& text, Trace* p_trace) {
    p_trace->clear();
    if (text == "-") return true;
    const char* p_next = text.c_str();
    while (true) {
        unsigned moment = 0;
        unsigned value = 0;
        int length = 0;
        if (std::sscanf(p_next, "%u:%u%n", &moment, &value, &length) != 2) return false;
        if (p_trace->size() == RunRecord::kMostDeviations) return false;
        p_trace->push_back({moment, value});
        p_next += length;
        if (*p_next == '\0') return true;
        if (*p_next++ != ',') return false;
    }
}

Runner::Runner() {
    void* const p_memory = mmap(nullptr, sizeof(RunRecord), PROT_READ | PROT_WRITE,
                                MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p_memory == MAP_FAILED) {
        std::perror("cannot map the record of runs");
        std::exit(2);
    }
    m_record = static_cast<RunRecord*>(p_memory);
    m_record->checksRaces = true;
}

Runner::~Runner() {
    (void)munmap(m_record, sizeof(RunRecord));
}

// One processor for all threads of a schedule: they take turns, and to wake a thread on the same
// processor is fastest. Anew from time to time, lest two explorers keep to the same one.
void Runner::pin() {
    constexpr std::uint64_t kRunsOnProcessor = 512;
    if (m_runs % kRunsOnProcessor != 0) return;
    cpu_set_t all;
    CPU_ZERO(&all);
    for (std::size_t i = 0; i < CPU_SETSIZE; ++i) CPU_SET(i, &all);
    (void)sched_setaffinity(0, sizeof(all), &all);
    const int processor = sched_getcpu();
    if (processor < 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<std::size_t>(processor), &one);
    (void)sched_setaffinity(0, sizeof(one), &one);
}

Outcome Runner::run(const Scenario& scenario) {
    pin();
    ++m_runs;
    m_record->outcome = Outcome::Died;
    m_record->decisionCount = 0;
    m_record->eventCount = 0;
    m_record->otherPlace = 0;
    m_record->text[0] = '\0';
    const pid_t child = fork();
    if (child == 0) runScenario(m_record, scenario);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        std::perror("cannot run a schedule");
        std::exit(2);
    }
    if (WIFSIGNALED(status)) {
        const bool isTimeOver = WTERMSIG(status) == SIGALRM;
        (void)std::snprintf(m_record->text, sizeof(m_record->text), "%s",
                            isTimeOver ? "a thread blocks where the explorer cannot see it"
                                       : strsignal(WTERMSIG(status)));
        m_record->outcome = Outcome::Died;
    } else if (m_record->outcome == Outcome::Died && m_record->text[0] == '\0') {
        (void)std::snprintf(m_record->text, sizeof(m_record->text),
                            "the process ended with status %d", WEXITSTATUS(status));
    }
    return m_record->outcome;
}

Outcome Runner::replay(const Scenario& scenario, const Trace& trace, bool isTold) {
    m_record->policy = Policy::Default;
    m_record->isTold = isTold;
    m_record->prunes = false;
    m_record->bound = 1'000'000;
    m_record->deviationCount = static_cast<std::uint32_t>(trace.size());
    std::copy(trace.begin(), trace.end(), m_record->deviations.begin());
    const Outcome outcome = run(scenario);
    m_record->isTold = false;
    return outcome;
}

Trace Runner::traceOfLastRun() const {
    Trace trace;
    for (std::uint32_t i = 0; i < m_record->decisionCount; ++i) {
        const Decision& decision = m_record->decisions[i];
        if (decision.chosen == 0 || trace.size() == RunRecord::kMostDeviations) continue;
        trace.push_back({decision.moment, decision.options[decision.chosen]});
    }
    return trace;
}

void Runner::forgetVisited() {
    forget(&m_record->visited);
    forget(&m_record->ends);
}

void Runner::forgetAll() {
    forgetVisited();
    m_record->contended.words.fill(0);
    m_record->contended.count = 0;
}

// Delta debugging (Zeller and Hildebrandt, TSE 2002), to where no single one can be left out.
Trace shrink(Runner* p_runner, const Scenario& scenario, Trace trace, Outcome outcome) {
    std::size_t chunk = std::max<std::size_t>(trace.size() / 2, 1);
    while (!trace.empty()) {
        bool isShorter = false;
        for (std::size_t begin = 0; begin < trace.size();) {
            Trace shorter = trace;
            const auto first = shorter.begin() + static_cast<std::ptrdiff_t>(begin);
            const std::size_t count = std::min(chunk, trace.size() - begin);
            shorter.erase(first, first + static_cast<std::ptrdiff_t>(count));
            if (p_runner->replay(scenario, shorter, false) == outcome) {
                // What was used of it: a deviation that no longer fits is left out too.
                Trace used = p_runner->traceOfLastRun();
                trace = used.size() < shorter.size() ? std::move(used) : std::move(shorter);
                isShorter = true;
            } else {
                begin += count;
            }
        }
        if (chunk == 1 && !isShorter) break;
        chunk = std::max<std::size_t>(chunk / 2, 1);
    }
    return trace;
}

}  // namespace tevalon::testkit

// The program around scenarios: arguments, results, resumption.
#include <execinfo.h>
#include <sys/personality.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "hooks.h"
#include "runner.h"
#include "schedule.h"
#include "search.h"
#include "story.h"

namespace tevalon::testkit {
namespace {

Scenario* g_first = nullptr;

struct Arguments {
    bool isList = false;
    bool isTold = true;
    bool checksRaces = true;
    bool prunes = true;
    bool takesAllPoints = false;
    int bound = -1;  // Each scenario's own.
    std::uint64_t uniform = 0;
    std::uint64_t priority = 0;
    std::uint64_t seed = 1;
    std::uint64_t seconds = 0;
    std::uint64_t mostSchedules = 0;
    bool isReplay = false;
    Trace trace;
    std::string folder;  // Where searches note how far they have come.
    std::vector<std::string> names;
};

[[noreturn]] void usage(const char* program) {
    (void)std::fprintf(
        stderr,
        "usage: %s [OPTION...] [SCENARIO...]\n"
        "  --list             the names of the scenarios\n"
        "  --bound N          all schedules with at most N preemptions; none where N is below 0\n"
        "  --uniform N        then N schedules of random choices\n"
        "  --pct N            then N schedules of random priorities\n"
        "  --seed N           that the random schedules are made of\n"
        "  --seconds N        for each scenario and strategy at most\n"
        "  --schedules N      likewise\n"
        "  --resume FOLDER    note there how far the search has come, and begin there\n"
        "  --replay TRACE     one schedule, as a failure has printed it\n"
        "  --no-story         say no more of a failure than what and which schedule\n"
        "  --no-pruning       also schedules that lead to states that others have led to\n"
        "  --all-points       preemptions also where no two threads touch the same\n"
        "  --no-races         do not look for data races: where not all code is instrumented\n",
        program);
    std::exit(2);
}

bool parseNumber(const char* text, std::uint64_t* p_number) {
    char* p_end = nullptr;
    *p_number = std::strtoull(text, &p_end, 10);
    return p_end != text && *p_end == '\0' && text[0] != '-';
}

Arguments parse(int count, char** p_arguments) {
    Arguments arguments;
    std::uint64_t bound = 0;
    const std::map<std::string, std::uint64_t*> numbers = {
        {"--bound", &bound},
        {"--uniform", &arguments.uniform},
        {"--pct", &arguments.priority},
        {"--seed", &arguments.seed},
        {"--seconds", &arguments.seconds},
        {"--schedules", &arguments.mostSchedules}};
    for (int i = 1; i < count; ++i) {
        const std::string name = p_arguments[i];
        const auto number = numbers.find(name);
        if (number != numbers.end()) {
            if (++i == count) usage(p_arguments[0]);
            if (name == "--bound" && std::strcmp(p_arguments[i], "-1") == 0) {
                arguments.bound = -2;
                continue;
            }
            if (!parseNumber(p_arguments[i], number->second)) usage(p_arguments[0]);
            constexpr std::uint64_t kMostBound = 14;
            if (name == "--bound" && bound <= kMostBound) arguments.bound = static_cast<int>(bound);
        } else if (name == "--list") {
            arguments.isList = true;
        } else if (name == "--no-story") {
            arguments.isTold = false;
        } else if (name == "--no-pruning") {
            arguments.prunes = false;
        } else if (name == "--all-points") {
            arguments.takesAllPoints = true;
        } else if (name == "--no-races") {
            arguments.checksRaces = false;
        } else if (name == "--replay" && i + 1 < count) {
            arguments.isReplay = true;
            if (!parseTrace(p_arguments[++i], &arguments.trace)) usage(p_arguments[0]);
        } else if (name == "--resume" && i + 1 < count) {
            arguments.folder = p_arguments[++i];
        } else if (name.rfind("--", 0) == 0) {
            usage(p_arguments[0]);
        } else {
            arguments.names.push_back(name);
        }
    }
    return arguments;
}

bool isNamed(const Arguments& arguments, const Scenario& scenario) {
    for (const std::string& name : arguments.names) {
        if (name == scenario.name) return true;
    }
    return arguments.names.empty();
}

void report(Runner* p_runner, const Scenario& scenario, const Arguments& arguments,
            const Result& result) {
    const Trace trace = shrink(p_runner, scenario, result.trace, result.outcome);
    const Outcome outcome = p_runner->replay(scenario, trace, arguments.isTold);
    std::printf("%s: %s: %s\n  after %" PRIu64 " schedules; again with --replay %s %s\n",
                scenario.name, nameOf(result.outcome),
                outcome == result.outcome ? p_runner->record().text : result.text.c_str(),
                result.schedules, toText(trace).c_str(), scenario.name);
    if (arguments.isTold && outcome == result.outcome) tellStory(p_runner->record(), stdout);
}

/// How far the searches of a scenario have come, in a file of its own.
class Progress {
public:
    Progress(const std::string& folder, const char* name) {
        if (!folder.empty()) m_path = folder + "/" + name + ".progress";
    }
    void load(Runner* p_runner, DepthFirstSearch* p_search, std::uint64_t* p_uniform,
              std::uint64_t* p_priority, Result* p_result) const {
        if (m_path.empty()) return;
        std::ifstream in(m_path);
        std::string position;
        std::uint32_t count = 0;
        if (!(in >> p_result->schedules >> p_result->pruned >> p_result->threads >>
              p_result->steps >> p_result->points >> p_result->exhausted >> *p_uniform >>
              *p_priority >> count)) {
            *p_result = Result();
            return;
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            std::uint64_t word = 0;
            in >> word;
            (void)p_runner->record().contended.insert(word);
        }
        (void)std::getline(in >> std::ws, position);
        if (!p_search->resume(position)) *p_result = Result();
    }
    void save(Runner* p_runner, const DepthFirstSearch& search, std::uint64_t uniform,
              std::uint64_t priority, const Result& result) const {
        if (m_path.empty()) return;
        std::ofstream out(m_path);
        out << result.schedules << ' ' << result.pruned << ' ' << result.threads << ' '
            << result.steps << ' ' << result.points << ' ' << result.exhausted << ' ' << uniform
            << ' ' << priority << ' ' << p_runner->record().contended.count;
        for (const std::uint64_t word : p_runner->record().contended.words) {
            if (word != 0) out << ' ' << word;
        }
        out << '\n' << search.position() << '\n';
    }

private:
    std::string m_path;
};

Limits limitsOf(const Arguments& arguments, const Result& result) {
    Limits limits;
    if (arguments.mostSchedules > 0) limits.schedules = result.schedules + arguments.mostSchedules;
    if (arguments.seconds > 0) {
        limits.end = std::chrono::steady_clock::now() + std::chrono::seconds(arguments.seconds);
    }
    return limits;
}

// Random schedules in batches, between which progress is noted.
template <typename Save>
void searchBatches(Runner* p_runner, const Scenario& scenario, const Arguments& arguments,
                   std::uint64_t wanted, std::uint32_t changes, std::uint64_t* p_done,
                   Result* p_result, const Save& save) {
    constexpr std::uint64_t kBatch = 10'000;
    const Limits limits = limitsOf(arguments, *p_result);
    while (*p_done < wanted && !p_result->isFailed()) {
        const std::uint64_t before = p_result->schedules;
        const std::uint64_t count = std::min(kBatch, wanted - *p_done);
        searchAtRandom(p_runner, scenario, arguments.seed, *p_done, count, changes, limits,
                       p_result);
        *p_done += p_result->schedules - before;
        save();
        if (p_result->schedules - before < count) break;
    }
}

bool explore(Runner* p_runner, const Scenario& scenario, const Arguments& arguments) {
    constexpr std::uint32_t kPriorityChanges = 2;
    const auto begin = std::chrono::steady_clock::now();
    const std::uint64_t runsBefore = p_runner->runs();
    p_runner->forgetAll();
    Result result;
    std::uint64_t uniform = 0;
    std::uint64_t priority = 0;
    DepthFirstSearch search(p_runner, scenario, arguments.prunes);
    const Progress progress(arguments.folder, scenario.name);
    progress.load(p_runner, &search, &uniform, &priority, &result);
    const auto save = [&] { progress.save(p_runner, search, uniform, priority, result); };
    const int bound = arguments.bound == -1 ? scenario.options.bound : arguments.bound;

    if (bound >= 0) (void)search.run(bound, limitsOf(arguments, result), &result);
    save();
    searchBatches(p_runner, scenario, arguments, arguments.uniform, 0, &uniform, &result, save);
    searchBatches(p_runner, scenario, arguments, arguments.priority, kPriorityChanges, &priority,
                  &result, save);

    const std::uint64_t runs = p_runner->runs() - runsBefore;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (result.isFailed()) report(p_runner, scenario, arguments, result);
    char exhausted[64] = "not exhausted";
    if (result.isFailed()) {
        (void)std::snprintf(exhausted, sizeof(exhausted), "failed");
    } else if (result.exhausted >= 0) {
        (void)std::snprintf(exhausted, sizeof(exhausted), "exhausted at %d", result.exhausted);
    }
    std::printf("%-32s %2u threads %5u steps %4u points %8" PRIu64
                " schedules %6u ends, %s, %.1f s, %.0f/s\n",
                scenario.name, result.threads, result.steps, result.points, result.schedules,
                result.ends, exhausted, seconds, static_cast<double>(runs) / seconds);
    (void)std::fflush(stdout);
    if (scenario.options.meantFailure == nullptr) return !result.isFailed();
    return result.isFailed() &&
           std::strcmp(nameOf(result.outcome), scenario.options.meantFailure) == 0;
}

bool replay(Runner* p_runner, const Scenario& scenario, const Arguments& arguments) {
    p_runner->record().isSilent = false;
    const Outcome outcome = p_runner->replay(scenario, arguments.trace, arguments.isTold);
    std::printf("%s: %s: %s\n", scenario.name, nameOf(outcome), p_runner->record().text);
    if (arguments.isTold) tellStory(p_runner->record(), stdout);
    return !isFailure(outcome);
}

// Addresses are the same in every run of the program: a search can be resumed.
void fixAddresses(char** p_arguments) {
    const int before = personality(0xFFFFFFFF);
    if (before == -1 || (before & ADDR_NO_RANDOMIZE) != 0) return;
    if (personality(static_cast<unsigned long>(before) | ADDR_NO_RANDOMIZE) == -1) return;
    const int after = personality(0xFFFFFFFF);
    if (after == -1 || (after & ADDR_NO_RANDOMIZE) == 0) return;
    (void)execv("/proc/self/exe", p_arguments);
}

void warmUp() {
    linkAccessHooks();
    linkAtomicHooks();
    linkLockHooks();
    linkMemoryHooks();
    linkPipeHooks();
    linkThreadHooks();
    linkTimeHooks();
    void* frames[4];
    (void)backtrace(frames, 4);  // Loads what it needs.
}

}  // namespace

Scenario::Scenario(const char* name_, ScenarioBody body_, const ScenarioOptions& options_)
    : name(name_), body(body_), options(options_) {
    Scenario** p_end = &g_first;
    while (*p_end != nullptr) p_end = &(*p_end)->p_next;
    *p_end = this;
}

}  // namespace tevalon::testkit

int main(int count, char** p_arguments) {
    namespace testkit = tevalon::testkit;
    testkit::fixAddresses(p_arguments);
    const testkit::Arguments arguments = testkit::parse(count, p_arguments);
    testkit::warmUp();
    testkit::Runner runner;
    runner.record().checksRaces = arguments.checksRaces;
    runner.record().isSilent = true;
    runner.record().takesAllPoints = arguments.takesAllPoints;
    bool isGood = true;
    int chosen = 0;
    for (const testkit::Scenario* p_scenario = testkit::g_first; p_scenario != nullptr;
         p_scenario = p_scenario->p_next) {
        if (!testkit::isNamed(arguments, *p_scenario)) continue;
        ++chosen;
        if (arguments.isList) {
            std::printf("%s\n", p_scenario->name);
        } else if (arguments.isReplay) {
            isGood = testkit::replay(&runner, *p_scenario, arguments) && isGood;
        } else {
            isGood = testkit::explore(&runner, *p_scenario, arguments) && isGood;
        }
    }
    if (chosen == 0) {
        (void)std::fprintf(stderr, "no such scenario\n");
        return 2;
    }
    return isGood ? 0 : 1;
}

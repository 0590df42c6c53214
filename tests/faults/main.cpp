// Runs one scenario as faults.py says, and reports to its standard output.
//
//     faults_program --list
//     faults_program SCENARIO BLOCKS [FAILURE [LATER]]
//
// BLOCKS is how many blocks of the library's stay alive without a failure, or -1 to find out.

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <typeinfo>

#include "base/logging.h"
#include "faults/scenario.h"
#include "support/fault_injection.h"
#include "zor_debug/zor_debug_control.h"

namespace faults {
namespace {

long g_expectedBlocks = -1;
std::atomic<int> g_stage{1};
std::atomic<bool> g_hasWaitedInVain{false};

// One report line for each output call: what is an error, and the reports of the memory's state,
// which are always shown.
void captureLine(void*, const DebugLevelRecord* p_record, const char* p_text, std::size_t length) {
    const bool isReport = std::strstr(p_text, "debug_memory.cpp:79") != nullptr;
    if (p_record->level != tevalon::base::kLogError && !isReport) return;
    char line[512];
    std::size_t kept = 0;
    for (std::size_t i = 0; i < length && kept + 3 < sizeof(line); ++i) {
        if (p_text[i] == '\n') {
            line[kept++] = '\\';
            line[kept++] = 'n';
        } else {
            line[kept++] = p_text[i];
        }
    }
    line[kept] = '\0';
    report("log %d %s\n", g_stage.load(), line);
}

void runOnce(const Scenario& scenario, Run& run) {
    try {
        scenario.run(run);
    } catch (const std::exception& error) {
        if (!run.isAgain()) calmDown();
        run.say("threw", error.what());
    }
}

void finish() {
    calmDown();
    waitForBlocks(g_expectedBlocks);
    reportCounts();
    report("end\n");
}

std::vector<Scenario> allScenarios() {
    std::vector<Scenario> all;
    for (const auto& some : {foundationScenarios(), utilityScenarios(), timerScenarios(),
                             eventScenarios(), diagnosticsScenarios(), zorDebugScenarios()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

int runScenario(const Scenario& scenario) {
    constexpr unsigned kLongestRunSeconds = 60;
    (void)alarm(kLongestRunSeconds);
    if (scenario.module != Module::ZorDebug) {
        const std::string levels = "0x5f=" + std::to_string(scenario.level);
        (void)zorDebugSetLevels(levels.c_str());
        zorDebugInstallCapture(captureLine, nullptr);
    }
    if (scenario.prepare != nullptr) scenario.prepare();
    (void)std::atexit(finish);
    startCounting(scenario.module);
    Run first(false);
    runOnce(scenario, first);
    first.calm();
    g_stage = 3;
    Run again(true);
    runOnce(scenario, again);
    return 0;
}

}  // namespace

void Run::calm() {
    if (m_stage == 1) calmDown();
    if (m_stage == 1 || m_stage == 3) ++m_stage;
    g_stage = m_stage.load();
}

void Run::say(const char* what, long value) const {
    report("say %d %s: %ld\n", m_stage.load(), what, value);
}

void Run::say(const char* what, const std::string& value) const {
    report("say %d %s: %s\n", m_stage.load(), what, value.c_str());
}

// What has not come once does not come in vain a second time: the script looks at it anew, with
// more patience, where that must not be.
int Run::patienceMs() const {
    const char* const p_patience = std::getenv("FAULTS_PATIENCE_MS");
    const int patience = p_patience != nullptr ? std::atoi(p_patience) : 500;
    if (m_stage > 1 && !g_hasWaitedInVain) return 20 * patience;
    return isAllFailing() ? patience / 2 : patience;
}

namespace {

template <typename Condition>
bool waitUntil(Condition isThere, int patienceMs) {
    constexpr timespec kPause = {0, 500000};
    timespec begin = {};
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &begin);
    while (!isThere()) {
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        const long passedMs =
            (now.tv_sec - begin.tv_sec) * 1000 + (now.tv_nsec - begin.tv_nsec) / 1000000;
        if (passedMs > patienceMs) {
            g_hasWaitedInVain = true;
            return false;
        }
        (void)nanosleep(&kPause, nullptr);
    }
    return true;
}

}  // namespace

bool Run::waitFor(const char* what, const std::atomic<int>& count, int least) const {
    const bool isThere = waitUntil([&] { return count.load() >= least; }, patienceMs());
    say(what, isThere ? "yes" : "no");
    return isThere;
}

bool Run::waitForCalls(const char* what, const char* name, long least) const {
    const bool isThere = waitUntil([&] { return callsOf(name) >= least; }, patienceMs());
    if (what != nullptr) say(what, isThere ? "yes" : "no");
    return isThere;
}

void makeFile(const char* path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string contentsOf(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

long countLines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

}  // namespace faults

int main(int argc, char** argv) {
    const std::vector<faults::Scenario> scenarios = faults::allScenarios();
    if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
        for (const faults::Scenario& scenario : scenarios) std::puts(scenario.name);
        return 0;
    }
    if (argc < 3) {
        (void)std::fputs("usage: faults_program SCENARIO BLOCKS [FAILURE [LATER]]\n", stderr);
        return 2;
    }
    for (const faults::Scenario& scenario : scenarios) {
        if (std::strcmp(scenario.name, argv[1]) != 0) continue;
        faults::openReport();
        faults::g_expectedBlocks = std::atol(argv[2]);
        faults::planFailure(argc > 3 ? argv[3] : nullptr);
        faults::planLaterFailures(argc > 4 ? argv[4] : nullptr);
        return faults::runScenario(scenario);
    }
    (void)std::fprintf(stderr, "faults: no scenario '%s'\n", argv[1]);
    return 2;
}

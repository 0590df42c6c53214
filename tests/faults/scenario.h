// scenario.h: something that clients do with one of the library's classes, run in a process of its
// own while one of the calls beneath it fails.

#ifndef TESTS_FAULTS_SCENARIO_H
#define TESTS_FAULTS_SCENARIO_H

#include <atomic>
#include <string>
#include <vector>

#include "faults/engine.h"

namespace faults {

/// One of the two times that a process runs its scenario: first with the failure, then without.
class Run {
public:
    explicit Run(bool isAgain) : m_stage(isAgain ? 3 : 1) {}

    [[nodiscard]] bool isAgain() const { return m_stage >= 3; }
    /// From here on nothing fails any more, and all has to work again, with the objects that were
    /// there when it failed. What is said from here on is the same without a failure.
    void calm();

    /// What the library has answered, for the script to judge.
    void say(const char* what, long value) const;
    void say(const char* what, const std::string& value) const;
    /// Waits until @p count is at least @p least, and says whether it is. Where a call has failed
    /// that may never be, so the patience is a short one then.
    bool waitFor(const char* what, const std::atomic<int>& count, int least) const;
    /// The same for the uses of a call by the library. Says nothing where @p what is null.
    bool waitForCalls(const char* what, const char* name, long least) const;

private:
    [[nodiscard]] int patienceMs() const;

    std::atomic<int> m_stage;  // 1 and 3: what may fail; 2 and 4: after calm().
};

struct Scenario {
    const char* name;
    void (*run)(Run& run);
    /// Before anything counts: for what would fail only once in a process.
    void (*prepare)() = nullptr;
    Module module = Module::Library;
    int level = 1000;
};

/// In the folder in which a scenario runs, which is new and its own.
void makeFile(const char* path, const std::string& text);
std::string contentsOf(const char* path);
long countLines(const std::string& text);

std::vector<Scenario> foundationScenarios();
std::vector<Scenario> utilityScenarios();
std::vector<Scenario> timerScenarios();
std::vector<Scenario> eventScenarios();
std::vector<Scenario> diagnosticsScenarios();
std::vector<Scenario> zorDebugScenarios();

}  // namespace faults

#endif  // TESTS_FAULTS_SCENARIO_H

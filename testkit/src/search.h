// search.h: which schedules of a scenario are run.

#ifndef TESTKIT_SRC_SEARCH_H
#define TESTKIT_SRC_SEARCH_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "runner.h"

namespace tevalon::testkit {

/// What a search has found out so far.
struct Result {
    std::uint64_t schedules = 0;
    std::uint64_t pruned = 0;
    std::uint32_t threads = 0;
    std::uint32_t steps = 0;   ///< Scheduling points of the longest schedule.
    std::uint32_t points = 0;  ///< Of these at contended locations, with somebody else to run.
    std::uint32_t ends = 0;    ///< Different states that schedules of the last bound ended in.
    int exhausted = -1;        ///< The bound up to which there is no other schedule.
    Outcome outcome = Outcome::Passed;
    std::string text;  ///< Of a failure.
    Trace trace;       ///< Likewise.

    bool isFailed() const { return isFailure(outcome); }
};

/// When a search gives up.
struct Limits {
    std::uint64_t schedules = ~std::uint64_t{0};
    std::chrono::steady_clock::time_point end = std::chrono::steady_clock::time_point::max();
};

/// All schedules with at most so many preemptions, depth first; with less first (iterative context
/// bounding: Musuvathi and Qadeer, PLDI 2007).
///
/// Scheduling points are the steps at contended locations, those that two threads touch once there
/// are two, one of them writing. Others commute with whatever other threads do. Which they are is
/// learnt: where a schedule shows one more, the search begins anew. Beyond that a state is not
/// searched twice; see Schedule::pruneIfVisited(). There is no other partial-order reduction: sleep
/// sets and persistent sets are not sound together with a bound of preemptions (Coons, Musuvathi
/// and McKinley, OOPSLA 2013).
class DepthFirstSearch {
public:
    DepthFirstSearch(Runner* p_runner, const Scenario& scenario, bool prunes)
        : m_runner(*p_runner), m_scenario(scenario), m_prunes(prunes) {}

    /// Adds to @p p_result. False where a limit came first; called again, it goes on.
    bool run(int bound, const Limits& limits, Result* p_result);

    /// Where the search stands, as text, and back to there.
    std::string position() const;
    bool resume(const std::string& position);

private:
    bool runBound(int bound, const Limits& limits, Result* p_result);
    bool backtrack();
    void restart();

    Runner& m_runner;
    const Scenario& m_scenario;
    const bool m_prunes;
    std::vector<Decision> m_path;
    int m_bound = 0;
    bool m_isUnderway = false;
};

/// Random schedules: number @p first and so on of those that @p seed stands for. With changes of
/// priority PCT, else each choice with equal probability.
void searchAtRandom(Runner* p_runner, const Scenario& scenario, std::uint64_t seed,
                    std::uint64_t first, std::uint64_t count, std::uint32_t priorityChanges,
                    const Limits& limits, Result* p_result);

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_SEARCH_H

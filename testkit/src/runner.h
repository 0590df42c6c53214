// runner.h: runs one schedule in a process of its own.

#ifndef TESTKIT_SRC_RUNNER_H
#define TESTKIT_SRC_RUNNER_H

#include <cstdint>
#include <string>
#include <vector>

#include "run_record.h"

namespace tevalon::testkit {

using Trace = std::vector<Deviation>;

/// As it is printed, and read again: "17:2,41:0". Empty is "-".
std::string toText(const Trace& trace);
bool parseTrace(const std::string& text, Trace* p_trace);

/// Forks this process for each schedule: a fork costs less than to bring all static objects back to
/// what they were, and what a failing schedule leaves behind goes with its process. The record
/// lies in memory that they share.
class Runner {
public:
    Runner();
    ~Runner();
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    RunRecord& record() { return *m_record; }

    /// Runs the scenario as the record asks for. Afterwards the record tells what happened.
    Outcome run(const Scenario& scenario);
    /// As @p trace says, and by default elsewhere, without a bound and without pruning.
    Outcome replay(const Scenario& scenario, const Trace& trace, bool isTold);
    /// Where the last run left the default.
    Trace traceOfLastRun() const;

    void forgetVisited();
    void forgetAll();
    std::uint64_t runs() const { return m_runs; }

private:
    void pin();

    RunRecord* m_record;
    std::uint64_t m_runs = 0;
};

/// The same failure with as few deviations as removing them can bring.
Trace shrink(Runner* p_runner, const Scenario& scenario, Trace trace, Outcome outcome);

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_RUNNER_H

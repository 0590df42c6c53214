#include "search.h"

#include <algorithm>
#include <sstream>

namespace tevalon::testkit {
namespace {

bool isOver(const Limits& limits, const Result& result) {
    return result.schedules >= limits.schedules || std::chrono::steady_clock::now() >= limits.end;
}

// True where the search goes on.
bool note(Runner& runner, Outcome outcome, Result* p_result) {
    const RunRecord& record = runner.record();
    ++p_result->schedules;
    if (outcome == Outcome::Pruned) ++p_result->pruned;
    p_result->threads = std::max(p_result->threads, record.threads);
    p_result->steps = std::max(p_result->steps, record.steps);
    p_result->ends = record.ends.count;
    p_result->points = std::max(p_result->points, record.decisionCount);
    if (!isFailure(outcome)) return true;
    p_result->outcome = outcome;
    p_result->text = record.text;
    p_result->trace = runner.traceOfLastRun();
    return false;
}

}  // namespace

bool DepthFirstSearch::run(int bound, const Limits& limits, Result* p_result) {
    for (; m_bound <= bound; ++m_bound) {
        if (!runBound(m_bound, limits, p_result)) return false;
        p_result->exhausted = m_bound;
        m_isUnderway = false;
    }
    return true;
}

void DepthFirstSearch::restart() {
    m_path.clear();
    m_runner.forgetVisited();
    m_isUnderway = true;
}

bool DepthFirstSearch::runBound(int bound, const Limits& limits, Result* p_result) {
    RunRecord& record = m_runner.record();
    if (!m_isUnderway) restart();
    while (!isOver(limits, *p_result)) {
        record.policy = Policy::Default;
        record.prunes = m_prunes;
        record.bound = bound;
        record.deviationCount = 0;
        for (const Decision& decision : m_path) {
            if (decision.chosen == 0) continue;
            record.deviations[record.deviationCount++] = {decision.moment,
                                                          decision.options[decision.chosen]};
        }
        const std::uint32_t contended = record.contended.count;
        const std::size_t prefix = m_path.size();
        if (!note(m_runner, m_runner.run(m_scenario), p_result)) return false;
        if (record.contended.count != contended) {
            restart();
            continue;
        }
        if (record.decisionCount < prefix) {
            p_result->outcome = Outcome::Misuse;
            p_result->text = "the scenario does not do the same when the same schedule is repeated";
            return false;
        }
        m_path.assign(record.decisions.begin(), record.decisions.begin() + record.decisionCount);
        if (!backtrack()) return true;
    }
    return false;
}

// To the last decision that has an option left within the bound.
bool DepthFirstSearch::backtrack() {
    int cost = 0;
    for (const Decision& decision : m_path) cost += decision.chosen != 0 ? decision.othersCost : 0;
    while (!m_path.empty()) {
        Decision& last = m_path.back();
        if (last.chosen != 0) cost -= last.othersCost;
        if (last.chosen + 1 < last.count && cost + last.othersCost <= m_bound) {
            ++last.chosen;
            return true;
        }
        m_path.pop_back();
    }
    return false;
}

std::string DepthFirstSearch::position() const {
    std::ostringstream text;
    text << m_bound << ' ' << m_isUnderway << ' ' << m_path.size();
    for (const Decision& decision : m_path) {
        text << ' ' << decision.moment << ' ' << +decision.chosen << ' ' << +decision.othersCost
             << ' ' << +decision.count;
        for (int i = 0; i < decision.count; ++i) {
            text << ' ' << +decision.options[static_cast<std::size_t>(i)];
        }
    }
    return text.str();
}

bool DepthFirstSearch::resume(const std::string& position) {
    std::istringstream in(position);
    std::size_t size = 0;
    if (!(in >> m_bound >> m_isUnderway >> size) || size > RunRecord::kMostDecisions) return false;
    m_path.assign(size, Decision{});
    for (Decision& decision : m_path) {
        int chosen = 0;
        int cost = 0;
        int count = 0;
        in >> decision.moment >> chosen >> cost >> count;
        if (!in || count > kMostThreads) return false;
        decision.chosen = static_cast<std::uint8_t>(chosen);
        decision.othersCost = static_cast<std::uint8_t>(cost);
        decision.count = static_cast<std::uint8_t>(count);
        for (int i = 0; i < count; ++i) {
            int option = 0;
            in >> option;
            decision.options[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(option);
        }
    }
    return !in.fail();
}

void searchAtRandom(Runner* p_runner, const Scenario& scenario, std::uint64_t seed,
                    std::uint64_t first, std::uint64_t count, std::uint32_t priorityChanges,
                    const Limits& limits, Result* p_result) {
    RunRecord& record = p_runner->record();
    for (std::uint64_t i = first; i < first + count && !isOver(limits, *p_result); ++i) {
        record.policy = priorityChanges > 0 ? Policy::Priority : Policy::Uniform;
        record.prunes = false;
        record.bound = 1'000'000;
        record.deviationCount = 0;
        record.priorityChanges = priorityChanges;
        record.expectedDecisions = p_result->points;
        record.seed = (seed + i) * 0x9E3779B97F4A7C15U;
        if (!note(*p_runner, p_runner->run(scenario), p_result)) return;
    }
}

}  // namespace tevalon::testkit

// latencies.h: how long the slowest of many took.

#ifndef BENCHMARKS_SUPPORT_LATENCIES_H
#define BENCHMARKS_SUPPORT_LATENCIES_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <vector>

namespace bench {

/// Room for the latencies of a benchmark's iterations, set aside before the first of them.
class Latencies {
public:
    using Clock = std::chrono::steady_clock;

    explicit Latencies(benchmark::State* p_state) : m_state(*p_state) {
        m_nanoseconds.reserve(static_cast<std::size_t>(p_state->max_iterations));
    }
    /// The counter "p99_9": one in a thousand took longer. Nothing where there were too few.
    ~Latencies() {
        constexpr std::size_t kOneIn = 1000;
        const std::size_t longer = m_nanoseconds.size() / kOneIn;
        if (longer == 0) return;
        const auto at = m_nanoseconds.end() - static_cast<std::ptrdiff_t>(longer) - 1;
        std::nth_element(m_nanoseconds.begin(), at, m_nanoseconds.end());
        m_state.counters["p99_9"] = *at;
    }

    Latencies(const Latencies&) = delete;
    Latencies& operator=(const Latencies&) = delete;

    void add(Clock::duration latency) {
        m_nanoseconds.push_back(std::chrono::duration<double, std::nano>(latency).count());
    }

private:
    benchmark::State& m_state;
    std::vector<double> m_nanoseconds;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_LATENCIES_H

// rows.h: how the rows of all benchmarks are named and repeated, so that the report can compare.

#ifndef BENCHMARKS_SUPPORT_ROWS_H
#define BENCHMARKS_SUPPORT_ROWS_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <utility>

namespace bench {

/// Names with a meaning of their own in the report; every other name is a peer's.
inline constexpr const char* kOurs = "ours";
inline constexpr const char* kLimit = "limit";  ///< The task in the barest way.
inline constexpr const char* kPlain = "plain";  ///< The first way that comes to mind.

/// Whether the run is to be short, and its figures rough: BENCH_QUICK is in the environment.
bool isQuick();

/// @p whole, or a tenth of it in a quick run.
std::int64_t scaled(std::int64_t whole);

/// Adds the row "task/peer". Its figure is time per iteration, by the wall clock.
///
/// @param task  What is done, how often and on which processors, separated by slashes.
template <typename Function>
benchmark::internal::Benchmark* addRow(const std::string& task, const std::string& peer,
                                       Function function) {
    return benchmark::RegisterBenchmark((task + '/' + peer).c_str(), std::move(function))
        ->UseRealTime();
}

/// The same for a function that tells by SetIterationTime() what counts.
template <typename Function>
benchmark::internal::Benchmark* addTimedRow(const std::string& task, const std::string& peer,
                                            Function function) {
    return benchmark::RegisterBenchmark((task + '/' + peer).c_str(), std::move(function))
        ->UseManualTime();
}

/// Stands for a type where only a value can be passed.
template <typename T>
struct Type {
    using type = T;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_ROWS_H

// thread_births.h: when the process asked for its latest thread.

#ifndef BENCHMARKS_SUPPORT_THREAD_BIRTHS_H
#define BENCHMARKS_SUPPORT_THREAD_BIRTHS_H

#include <chrono>

namespace bench {

/// When pthread_create() was last called, by whichever thread. Only in programs that link
/// thread_births.cpp. Any thread.
std::chrono::steady_clock::time_point latestThreadBirth();

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_THREAD_BIRTHS_H

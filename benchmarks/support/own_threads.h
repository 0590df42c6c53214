// own_threads.h: the process's threads, and what the system has counted of them.

#ifndef BENCHMARKS_SUPPORT_OWN_THREADS_H
#define BENCHMARKS_SUPPORT_OWN_THREADS_H

#include <cstdint>
#include <vector>

namespace bench {

using ThreadIds = std::vector<int>;

/// All that there are now, in ascending order.
ThreadIds threadsNow();

/// All that there are now and were not before.
ThreadIds threadsSince(const ThreadIds& before);

struct ThreadUsage {
    double switches = 0;    ///< How often they gave up a processor, and so were woken again.
    double cpuSeconds = 0;  ///< In user mode and in the kernel.
};

/// Of these threads together, since they began.
ThreadUsage usageOf(const ThreadIds& threads);

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_OWN_THREADS_H

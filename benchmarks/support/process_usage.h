// process_usage.h: what the process has used of the machine.

#ifndef BENCHMARKS_SUPPORT_PROCESS_USAGE_H
#define BENCHMARKS_SUPPORT_PROCESS_USAGE_H

#include <sys/resource.h>

namespace bench {

struct ProcessUsage {
    double cpuSeconds;  ///< In user mode and in the kernel.
    double sleeps;      ///< How often a thread gave up its processor to wait.
    double switches;    ///< The same, and how often one was made to give it up.
};

/// Since the process began, all its threads together.
inline ProcessUsage processUsage() {
    rusage usage = {};
    (void)getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return {seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_nvcsw),
            static_cast<double>(usage.ru_nvcsw + usage.ru_nivcsw)};
}

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_PROCESS_USAGE_H

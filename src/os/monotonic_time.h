// monotonic_time.h: readings of the monotonic clock.

#ifndef SRC_OS_MONOTONIC_TIME_H
#define SRC_OS_MONOTONIC_TIME_H

#include <time.h>

#include <optional>

namespace tevalon::base {

/// None where the clock cannot be read; errno then tells why.
inline std::optional<timespec> readMonotonicClock() {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return std::nullopt;
    return now;
}

/// Seconds, or -1.0 when the clock cannot be read.
inline double monotonicSeconds() {
    const std::optional<timespec> now = readMonotonicClock();
    if (!now) return -1.0;
    return static_cast<double>(now->tv_sec) + static_cast<double>(now->tv_nsec) * 1e-9;
}

}  // namespace tevalon::base

#endif  // SRC_OS_MONOTONIC_TIME_H

// monotonic_seconds.h: the monotonic clock as seconds in a double.

#ifndef SRC_MONOTONIC_SECONDS_H
#define SRC_MONOTONIC_SECONDS_H

#include <time.h>

namespace tevalon::base {

/// The reading, or -1.0 when the clock cannot be read.
inline double monotonicSeconds() {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return -1.0;
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace tevalon::base

#endif  // SRC_MONOTONIC_SECONDS_H

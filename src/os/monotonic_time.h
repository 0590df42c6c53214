// monotonic_time.h: readings of the monotonic clock.

#ifndef SRC_OS_MONOTONIC_TIME_H
#define SRC_OS_MONOTONIC_TIME_H

#include <time.h>

#include <cstdint>
#include <optional>

#include "base/utils/monotonic_time.h"  // monotonicSeconds()

namespace tevalon::base {

/// None where the clock cannot be read; errno then tells why.
inline std::optional<timespec> readMonotonicClock() {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return std::nullopt;
    return now;
}

inline std::uint64_t nanosecondsOf(const timespec& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

/// Nanoseconds, or 0 when the clock cannot be read.
inline std::uint64_t monotonicNanoseconds() {
    const std::optional<timespec> now = readMonotonicClock();
    return now ? nanosecondsOf(*now) : 0;
}

/// Milliseconds modulo 2^32: of two readings that are less than 49 days apart the difference is
/// right.
inline std::uint32_t millisecondsOf(const timespec& time) {
    return static_cast<std::uint32_t>(time.tv_sec) * 1000 +
           static_cast<std::uint32_t>(time.tv_nsec) / 1000000;
}

inline std::uint32_t monotonicMilliseconds() {
    return millisecondsOf(readMonotonicClock().value_or(timespec{}));
}

/// The same as of the kernel's last tick, up to 10 ms ago, which costs less.
inline std::uint32_t coarseMilliseconds() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return millisecondsOf(now);
}

/// So many nanoseconds from now, for pthread_cond_clockwait(): not before the clock's beginning,
/// which that rejects. Where the clock cannot be read it is the beginning, which has passed: who
/// knows no time does not wait for one. (std::chrono::steady_clock::now() takes no notice of a
/// failure, and returns whatever was on the stack.)
inline timespec monotonicDeadline(std::int64_t nanosecondsFromNow,
                                  const std::optional<timespec>& now = readMonotonicClock()) {
    constexpr std::int64_t kSecond = 1000000000;
    if (!now) return {};
    const auto at = static_cast<std::int64_t>(nanosecondsOf(*now)) + nanosecondsFromNow;
    timespec deadline = {};
    if (at > 0) {
        deadline.tv_sec = static_cast<time_t>(at / kSecond);
        deadline.tv_nsec = static_cast<long>(at % kSecond);
    }
    return deadline;
}

/// Also where the clock cannot be read.
inline bool hasPassed(const timespec& deadline) {
    const std::optional<timespec> now = readMonotonicClock();
    return !now || nanosecondsOf(*now) >= nanosecondsOf(deadline);
}

}  // namespace tevalon::base

#endif  // SRC_OS_MONOTONIC_TIME_H

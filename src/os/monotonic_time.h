// monotonic_time.h: readings of the monotonic clock.

#ifndef SRC_OS_MONOTONIC_TIME_H
#define SRC_OS_MONOTONIC_TIME_H

#include <time.h>

#include <cstdint>
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

inline std::uint64_t nanosecondsOf(const timespec& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1000000000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

/// Nanoseconds, or 0 when the clock cannot be read.
inline std::uint64_t monotonicNanoseconds() {
    const std::optional<timespec> now = readMonotonicClock();
    return now ? nanosecondsOf(*now) : 0;
}

/// So many nanoseconds from now, for pthread_cond_clockwait(): not before the clock's beginning,
/// which that rejects. Where the clock cannot be read it is the beginning, which has passed: who
/// knows no time does not wait for one. (std::chrono::steady_clock::now() takes no notice of a
/// failure, and returns whatever was on the stack.)
inline timespec monotonicDeadline(std::int64_t nanosecondsFromNow) {
    constexpr std::int64_t kSecond = 1000000000;
    const std::optional<timespec> now = readMonotonicClock();
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

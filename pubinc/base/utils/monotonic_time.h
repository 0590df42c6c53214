// monotonic_time.h: the clock that the library counts by, and durations as it takes them.

#ifndef BASE_UTILS_MONOTONIC_TIME_H
#define BASE_UTILS_MONOTONIC_TIME_H

#include <time.h>

#include <chrono>
#include <cstdint>
#include <ratio>

namespace tevalon::base {

/// Now on the monotonic clock, in seconds, as the timer threads and the watchdog count; -1.0 when
/// the clock cannot be read, and errno then tells why. Starts at some moment of the past and never
/// jumps: what differs between two readings has passed between them, but for the time in which the
/// device was suspended.
inline double monotonicSeconds() {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return -1.0;
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// @p duration in seconds. Of any length: nothing overflows.
template <typename Rep, typename Period>
constexpr double toSeconds(std::chrono::duration<Rep, Period> duration) {
    return std::chrono::duration<double>(duration).count();
}

/// @p duration in whole milliseconds, rounded up, so that who waits for them waits no less. Beyond
/// 32 bits (24 days) it is the greatest or least there is; 0 where it is no number.
template <typename Rep, typename Period>
constexpr std::int32_t toMilliseconds(std::chrono::duration<Rep, Period> duration) {
    const double exact = std::chrono::duration<double, std::milli>(duration).count();
    if (exact != exact) return 0;
    if (exact >= INT32_MAX) return INT32_MAX;
    if (exact <= INT32_MIN) return INT32_MIN;
    const auto cut = static_cast<std::int32_t>(exact);
    return cut < exact ? cut + 1 : cut;
}

/// The same for a time-out, where -1 would mean none: 0 for durations below it.
template <typename Rep, typename Period>
constexpr std::int32_t toTimeoutMs(std::chrono::duration<Rep, Period> duration) {
    const std::int32_t milliseconds = toMilliseconds(duration);
    return milliseconds < 0 ? 0 : milliseconds;
}

}  // namespace tevalon::base

#endif  // BASE_UTILS_MONOTONIC_TIME_H

// expired_time.h: when a simple timer is due.

#ifndef SRC_TIMER_EXPIRED_TIME_H
#define SRC_TIMER_EXPIRED_TIME_H

#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstdint>

#include "base/simple_timer.h"

namespace tevalon::base::simple_timer {

/// A point on the monotonic clock. {0, 0} stands for none. Aligned so that it is read and
/// written in one piece.
struct alignas(8) ExpiredTime {
    std::int32_t sec;
    std::int32_t nsec;
};

inline bool operator<(const ExpiredTime& left, const ExpiredTime& right) {
    return left.sec != right.sec ? left.sec < right.sec : left.nsec < right.nsec;
}

/// What lies beyond the range ends at its edge: a timer of 68 years is late, not due at once.
inline std::int32_t clampTo32Bits(std::int64_t value) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, INT32_MIN, INT32_MAX));
}

inline ExpiredTime fromTimespec(const timespec& time) {
    return {clampTo32Bits(time.tv_sec), static_cast<std::int32_t>(time.tv_nsec)};
}

/// A timeout as it is stored, normalised: below a second but for whole ones. Aligned so that it is
/// read and written in one piece.
struct alignas(8) Timeout {
    std::int32_t sec;
    std::int32_t usec;
};

inline Timeout normalised(const TimeoutTime& timeout) {
    const std::int64_t msec = std::int64_t{timeout.msec} + timeout.usec / 1000;
    const auto usec = static_cast<std::int32_t>(msec % 1000 * 1000 + timeout.usec % 1000);
    return {clampTo32Bits(timeout.sec + msec / 1000), usec};
}

inline bool isPositive(const Timeout& timeout) {
    return std::int64_t{1000000} * timeout.sec + timeout.usec > 0;
}

inline ExpiredTime after(const ExpiredTime& now, const Timeout& timeout) {
    constexpr std::int32_t kNanosecondsPerSecond = 1000000000;
    const std::int32_t nsec = now.nsec + 1000 * timeout.usec;
    return {clampTo32Bits(std::int64_t{now.sec} + timeout.sec + nsec / kNanosecondsPerSecond),
            nsec % kNanosecondsPerSecond};
}

/// The time from @p now to @p expired, rounded down to whole microseconds; zero if it has passed.
inline timeval remainingTime(const ExpiredTime& expired, const ExpiredTime& now) {
    // Negative nanoseconds come from a timeout with negative parts. operator< calls such an expiry
    // due when its second begins; a shorter wait would make the scheduler busy-loop until then.
    const std::int32_t nsec = std::max(expired.nsec, 0);
    const std::int64_t seconds = std::int64_t{expired.sec} - now.sec;
    const std::int64_t nanoseconds = seconds * 1000000000 + nsec - now.nsec;
    const std::int64_t microseconds = std::max<std::int64_t>(nanoseconds, 0) / 1000;
    timeval wait = {};
    wait.tv_sec = static_cast<time_t>(microseconds / 1000000);
    wait.tv_usec = static_cast<suseconds_t>(microseconds % 1000000);
    return wait;
}

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_EXPIRED_TIME_H

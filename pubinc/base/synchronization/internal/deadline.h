// deadline.h: moments on the monotonic clock, as POSIX waits take them.

#ifndef BASE_SYNCHRONIZATION_INTERNAL_DEADLINE_H
#define BASE_SYNCHRONIZATION_INTERNAL_DEADLINE_H

#include <time.h>

#include <chrono>

#include "base/utils/monotonic_time.h"

namespace tevalon::base::internal {

/// Rounded up. Seconds apart: times a thousand million, the count of a long duration may overflow,
/// in units such as 1/44100 s before a year is over.
template <typename Rep, typename Period>
std::chrono::nanoseconds toNanoseconds(std::chrono::duration<Rep, Period> duration) {
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(duration);
    return whole + std::chrono::ceil<std::chrono::nanoseconds>(duration - whole);
}

/// @p sinceStart rounded up, so that no wait ends early; no less than the clock's start, which
/// POSIX rejects, and no more than 63 years after it, which 32 bits hold.
template <typename Rep, typename Period>
timespec deadlineAt(std::chrono::duration<Rep, Period> sinceStart) {
    constexpr double kLatest = 2e9;
    const double seconds = toSeconds(sinceStart);
    if (!(seconds > 0)) return {};
    timespec deadline = {};
    if (seconds >= kLatest) {
        deadline.tv_sec = static_cast<time_t>(kLatest);
        return deadline;
    }
    const auto exact = toNanoseconds(sinceStart);
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(exact);
    deadline.tv_sec = static_cast<time_t>(whole.count());
    deadline.tv_nsec = static_cast<long>((exact - whole).count());
    return deadline;
}

/// @p duration from now, 31 years at most. Where the clock cannot be read it has passed: who knows
/// no time does not wait for one.
template <typename Rep, typename Period>
timespec deadlineIn(std::chrono::duration<Rep, Period> duration) {
    constexpr std::chrono::nanoseconds kLongest = std::chrono::seconds(1'000'000'000);
    timespec now = {};
    const double seconds = toSeconds(duration);
    if (!(seconds > 0) || clock_gettime(CLOCK_MONOTONIC, &now) != 0) return {};
    const auto left = seconds < 1e9 ? toNanoseconds(duration) : kLongest;
    return deadlineAt(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec) +
                      left);
}

}  // namespace tevalon::base::internal

#endif  // BASE_SYNCHRONIZATION_INTERNAL_DEADLINE_H

// The virtual clock, and sleeps on it.
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kWallClockSeconds = 1'700'000'000;  // Ahead of the monotonic clock.
constexpr std::int64_t kLatest = kNever / 2;

bool isMonotonic(int clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}
bool isWallClock(int clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

std::int64_t startSeconds(int clock) {
    return g_schedule.options().startSeconds + (isMonotonic(clock) ? 0 : kWallClockSeconds);
}

// Later than any scenario where it does not fit.
std::int64_t nanosecondsOf(std::int64_t seconds, std::int64_t nanoseconds) {
    return seconds > kLatest / kNanoseconds ? kLatest : seconds * kNanoseconds + nanoseconds;
}

timespec timeOn(int clock, std::int64_t now) {
    timespec time = {};
    time.tv_sec = static_cast<time_t>(startSeconds(clock) + now / kNanoseconds);
    time.tv_nsec = static_cast<long>(now % kNanoseconds);
    return time;
}

}  // namespace

void linkTimeHooks() {}

std::int64_t deadlineAt(int clock, const timespec& time) {
    return nanosecondsOf(std::int64_t{time.tv_sec} - startSeconds(clock), time.tv_nsec);
}

std::int64_t deadlineIn(const timespec& duration) {
    return std::min(g_schedule.now() + nanosecondsOf(duration.tv_sec, duration.tv_nsec), kLatest);
}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;
using testkit::g_schedule;
using testkit::isHooked;

TESTKIT_HOOK int clock_gettime(clockid_t clock, timespec* p_time) noexcept {
    if (!isHooked() || (!testkit::isMonotonic(clock) && !testkit::isWallClock(clock))) {
        return TESTKIT_REAL(clock_gettime)(clock, p_time);
    }
    *p_time = testkit::timeOn(clock, g_schedule.readClock());
    return 0;
}
TESTKIT_HOOK int gettimeofday(timeval* p_time, void* p_zone) noexcept {
    if (!isHooked()) return TESTKIT_REAL(gettimeofday)(p_time, p_zone);
    const timespec now = testkit::timeOn(CLOCK_REALTIME, g_schedule.readClock());
    *p_time = {now.tv_sec, static_cast<suseconds_t>(now.tv_nsec / 1000)};
    return 0;
}
TESTKIT_HOOK time_t time(time_t* p_time) noexcept {
    if (!isHooked()) return TESTKIT_REAL(time)(p_time);
    const time_t now = testkit::timeOn(CLOCK_REALTIME, g_schedule.readClock()).tv_sec;
    if (p_time != nullptr) *p_time = now;
    return now;
}
TESTKIT_HOOK int nanosleep(const timespec* p_duration, timespec* p_left) {
    if (!isHooked()) return TESTKIT_REAL(nanosleep)(p_duration, p_left);
    if (p_duration->tv_sec < 0 || p_duration->tv_nsec < 0 || p_duration->tv_nsec > 999'999'999) {
        errno = EINVAL;
        return -1;
    }
    g_schedule.sleepUntil(testkit::deadlineIn(*p_duration));
    return 0;
}
TESTKIT_HOOK int clock_nanosleep(clockid_t clock, int flags, const timespec* p_time,
                                 timespec* p_left) {
    if (!isHooked()) return TESTKIT_REAL(clock_nanosleep)(clock, flags, p_time, p_left);
    if (p_time->tv_nsec < 0 || p_time->tv_nsec > 999'999'999) return EINVAL;
    const bool isAbsolute = (flags & TIMER_ABSTIME) != 0;
    g_schedule.sleepUntil(isAbsolute ? testkit::deadlineAt(clock, *p_time)
                                     : testkit::deadlineIn(*p_time));
    return 0;
}
TESTKIT_HOOK int usleep(useconds_t microseconds) {
    const timespec duration = {microseconds / 1'000'000, microseconds % 1'000'000 * 1000L};
    return nanosleep(&duration, nullptr);
}
TESTKIT_HOOK unsigned sleep(unsigned seconds) {
    const timespec duration = {static_cast<time_t>(seconds), 0};
    (void)nanosleep(&duration, nullptr);
    return 0;
}

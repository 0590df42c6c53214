// slept_clock.h: a clock that moves on only while its thread sleeps.

#ifndef TESTS_OS_SLEPT_CLOCK_H
#define TESTS_OS_SLEPT_CLOCK_H

#include <time.h>

#include <cstdint>
#include <functional>
#include <utility>

#include "os/monotonic_time.h"
#include "support/fault_injection.h"

namespace test {

/// In place of the monotonic clock, for the thread that made it. No sleep takes any time.
class SleptClock {
public:
    SleptClock() = default;

    [[nodiscard]] std::uint64_t now() const { return m_now; }
    [[nodiscard]] int sleeps() const { return m_sleeps; }
    /// To be run at the start of each sleep.
    void atEachSleep(std::function<void()> action) { m_action = std::move(action); }

private:
    int read(timespec* p_time) {
        // Who reads it again and again and never sleeps comes to an end all the same.
        if (++m_readings > kMostReadings) m_now += kSecond;
        *p_time = {static_cast<time_t>(m_now / kSecond), static_cast<long>(m_now % kSecond)};
        return 0;
    }
    int sleep(int flags, const timespec& time) {
        ++m_sleeps;
        if (m_action) m_action();
        const std::uint64_t length = tevalon::base::nanosecondsOf(time);
        if ((flags & TIMER_ABSTIME) == 0) m_now += length;
        if ((flags & TIMER_ABSTIME) != 0 && length > m_now) m_now = length;
        return 0;
    }

    static constexpr std::uint64_t kSecond = 1'000'000'000;
    static constexpr int kMostReadings = 1000;

    std::uint64_t m_now = 5 * kSecond;
    int m_readings = 0;
    int m_sleeps = 0;
    std::function<void()> m_action;
    const ReplaceCall<int(clockid_t, timespec*)> m_clock{
        Call::ClockGettime, [this](clockid_t, timespec* p_time) { return read(p_time); }};
    const ReplaceCall<int(clockid_t, int, const timespec*, timespec*)> m_sleep{
        Call::ClockNanosleep, [this](clockid_t, int flags, const timespec* p_time, timespec*) {
            return sleep(flags, *p_time);
        }};
};

}  // namespace test

#endif  // TESTS_OS_SLEPT_CLOCK_H

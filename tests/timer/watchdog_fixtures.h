// watchdog_fixtures.h: a watchdog whose thread sleeps until the test ends, and a clock for the
// test's own checks.

#ifndef TESTS_TIMER_WATCHDOG_FIXTURES_H
#define TESTS_TIMER_WATCHDOG_FIXTURES_H

#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <vector>

#include "timer/timer_fixtures.h"

/// Holds every nanosleep() of the process until the test ends, and remembers the first one's
/// length.
class HeldWatchThread {
public:
    HeldWatchThread()
        : m_sleep(
              test::Call::Nanosleep,
              [this](const timespec* p_duration, timespec*) {
                  if (!m_begun.isSet()) m_duration = *p_duration;
                  m_begun.set();
                  (void)m_release.wait();
                  return 0;
              },
              test::When().anyThread().everyTime()) {}
    ~HeldWatchThread() { letGo(); }

    /// Blocks until the watch thread sleeps.
    [[nodiscard]] bool waitUntilAsleep() { return m_begun.wait(); }
    void letGo() { m_release.set(); }
    /// After waitUntilAsleep().
    timespec duration() const { return m_duration; }

private:
    timespec m_duration{};
    test::Event m_begun;
    test::Event m_release;
    test::ReplaceCall<int(const timespec*, timespec*)> m_sleep;  // Last: it uses the rest.
};

/// The monotonic clock of the thread that made it.
class TurnedClock {
public:
    explicit TurnedClock(double seconds)
        : m_seconds(seconds),
          m_read(test::Call::ClockGettime, [this](clockid_t clock, timespec* p_time) {
              if (clock != CLOCK_MONOTONIC) return clock_gettime(clock, p_time);
              if (m_fails) {
                  errno = EIO;
                  return -1;
              }
              p_time->tv_sec = static_cast<time_t>(m_seconds);
              p_time->tv_nsec =
                  static_cast<long>((m_seconds - static_cast<double>(p_time->tv_sec)) * 1e9 + 0.5);
              return 0;
          }) {}

    void set(double seconds) { m_seconds = seconds; }
    void setFailing(bool fails) { m_fails = fails; }

private:
    double m_seconds;
    bool m_fails = false;
    test::ReplaceCall<int(clockid_t, timespec*)> m_read;
};

/// A watchdog that only the test has check its watches.
class HeldWatchDog {
public:
    HeldWatchDog() {
        if (!m_thread.waitUntilAsleep()) ADD_FAILURE() << "the watch thread does not sleep";
    }
    ~HeldWatchDog() {
        m_dog.stop();  // No further check, with callbacks into what the test has destroyed.
        m_thread.letGo();
    }

    tevalon::base::timer::WatchDog* operator->() { return &m_dog; }

private:
    HeldWatchThread m_thread;
    tevalon::base::timer::WatchDog m_dog;
};

#endif  // TESTS_TIMER_WATCHDOG_FIXTURES_H

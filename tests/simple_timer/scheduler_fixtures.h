// scheduler_fixtures.h: the scheduler's thread and its pipe, as a test sees them.

#ifndef TESTS_SIMPLE_TIMER_SCHEDULER_FIXTURES_H
#define TESTS_SIMPLE_TIMER_SCHEDULER_FIXTURES_H

#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>

#include "simple_timer/simple_timer_fixtures.h"
#include "support/fresh_process.h"

/// Remembers the pipe that is made while it lives.
class PipeWitness {
public:
    PipeWitness()
        : m_pipe(test::Call::Pipe2, [this](int* p_descriptors, int flags) {
              const int result = pipe2(p_descriptors, flags);
              m_read = p_descriptors[0];
              m_write = p_descriptors[1];
              return result;
          }) {}

    int readEnd() const { return m_read; }
    int writeEnd() const { return m_write; }

private:
    int m_read = -1;
    int m_write = -1;
    test::ReplaceCall<int(int*, int)> m_pipe;
};

/// Counts readings of the monotonic clock by threads other than the one that made it, and has
/// some of them fail.
class SchedulerClock {
public:
    /// @param fails  Whether the reading of this number, from 1, is to fail with EIO.
    explicit SchedulerClock(std::function<bool(int)> fails)
        : m_fails(std::move(fails)),
          m_self(pthread_self()),
          m_read(
              test::Call::ClockGettime,
              [this](clockid_t clock, timespec* p_time) { return read(clock, p_time); },
              test::When().anyThread().everyTime()) {}

private:
    int read(clockid_t clock, timespec* p_time) {
        if (pthread_equal(m_self, pthread_self()) == 0 && m_fails(++m_readings)) {
            errno = EIO;
            return -1;
        }
        return clock_gettime(clock, p_time);
    }

    const std::function<bool(int)> m_fails;
    const pthread_t m_self;
    std::atomic<int> m_readings{0};
    test::ReplaceCall<int(clockid_t, timespec*)> m_read;
};

#endif  // TESTS_SIMPLE_TIMER_SCHEDULER_FIXTURES_H

// event.h: what tests wait on instead of sleeping.

#ifndef TESTS_SUPPORT_EVENT_H
#define TESTS_SUPPORT_EVENT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace test {

/// How long a wait lasts before it gives up. It only turns a hang into a failure, so it is far
/// beyond what a loaded machine needs.
inline constexpr std::chrono::seconds kPatience{30};

/// Counts down from a number of arrivals to zero. Any thread may call any method; it must
/// outlive every thread that uses it. What an arriving thread did before is visible after wait().
///
/// Its own locking is never subject to the interventions of fault_injection.h.
class Countdown {
public:
    explicit Countdown(int arrivals) : m_left(arrivals) {}

    Countdown(const Countdown&) = delete;
    Countdown& operator=(const Countdown&) = delete;

    /// One more has arrived. More arrivals than announced change nothing.
    void arrive();

    /// Blocks until all have arrived; false when kPatience ran out first.
    [[nodiscard]] bool wait();

    /// Whether all have arrived already. Never blocks.
    [[nodiscard]] bool isDone() const;

    /// Expects @p arrivals from now on.
    void reset(int arrivals);

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_allArrived;
    int m_left;  // Guarded by m_mutex.
};

/// A thing that happens once: set by one thread, waited for by others. As Countdown, else.
class Event {
public:
    void set() { m_countdown.arrive(); }

    /// Blocks until set() has been called; false when kPatience ran out first.
    [[nodiscard]] bool wait() { return m_countdown.wait(); }

    [[nodiscard]] bool isSet() const { return m_countdown.isDone(); }

    void reset() { m_countdown.reset(1); }

private:
    Countdown m_countdown{1};
};

}  // namespace test

#endif  // TESTS_SUPPORT_EVENT_H

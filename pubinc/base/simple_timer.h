// simple_timer.h: a timer that calls a handler once, or over and over.

#ifndef BASE_SIMPLE_TIMER_H
#define BASE_SIMPLE_TIMER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/export.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::simple_timer {

class Timer;
class TimerImpl;

/// A duration, the sum of its fields. Negative fields count as they stand, but make a poor timeout:
/// where they leave a negative part of a second, the timer fires with the next whole second, and a
/// CONTINUE timer whose sum is zero or less fires at once and then every millisecond.
struct TimeoutTime {
    std::int32_t sec;   ///< Seconds.
    std::int32_t msec;  ///< Milliseconds; may be 1000 and more.
    std::int32_t usec;  ///< Microseconds; may be 1000 and more.
};

/// @p timeout rounded up to whole microseconds, so that no timer fires early; nothing where it is
/// negative or no number, 68 years where it is longer. For what takes a TimeoutTime:
///
///     timer.changeTimeout(toTimeoutTime(250ms));
template <typename Rep, typename Period>
constexpr TimeoutTime toTimeoutTime(std::chrono::duration<Rep, Period> timeout) {
    const double seconds = toSeconds(timeout);
    if (!(seconds > 0)) return {0, 0, 0};
    if (seconds >= INT32_MAX) return {INT32_MAX, 0, 0};
    const std::int64_t usec = std::chrono::ceil<std::chrono::microseconds>(timeout).count();
    return {static_cast<std::int32_t>(usec / 1'000'000), 0,
            static_cast<std::int32_t>(usec % 1'000'000)};
}

/// How often a timer fires.
enum TimerType_e : std::int32_t {
    ONCE = 0,      ///< Fires once and is stopped then.
    CONTINUE = 1,  ///< Fires after every timeout. The next one begins when an expiry is processed:
                   ///< periods drift.
};

/// Called with the timer and the user's data, each time on a new thread of its own. Must not
/// throw.
using TimerHandler = std::function<void(Timer*, void*)>;

/// A named timer.
///
///     Timer timer("launch", {2, 500, 0}, [](Timer*, void*) { ... }, nullptr, ONCE);
///     timer.start();
///
/// Lifecycle: constructed; set up; started and stopped any number of times. A ONCE timer that
/// has fired is stopped: isStarted() is false in its handler.
///
/// Handlers run on threads of their own: a CONTINUE timer whose handler takes longer than its
/// timeout runs it several times at once. All runs share one copy of the handler. The
/// destructor waits for those that go on, and none begins after it: a handler never sees a
/// timer that is gone.
///
/// Thread-safety: any thread may call any method but the destructor, handlers included; where
/// two threads start and stop one timer at once, either may come last. In the timer's own handler,
/// stop() and restart() wait for no run, and the destructor only for the other runs; the run that
/// they are called in goes on to its end. A handler may call exit().
///
/// A handler that ends its thread (pthread_exit(), cancellation) has ended its run. start(),
/// stopNoBlock() and the destructor are no cancellation points; stop() is one while it waits, with
/// the timer stopped.
///
/// In a forked child every timer is stopped, and can be started: the first use there starts a
/// thread of the child's own. Runs that go on in the parent are not waited for.
///
/// Methods that return int return 0, or -1 after an error line that says why.
class TEVALON_BASE_EXPORT Timer {
public:
    /// The process's first timer starts the thread that serves them all. A timer that cannot
    /// work (CONTINUE with a timeout of zero, or no handler) is made all the same, and start()
    /// refuses it.
    ///
    /// @param name      For log lines and reports.
    /// @param timeout   From start() to the handler, and between its calls.
    /// @param handler   Called when the timeout is over.
    /// @param userData  Handed to the handler; not owned.
    /// @param type      Once or over and over.
    Timer(std::string name, TimeoutTime timeout, TimerHandler handler, void* userData,
          TimerType_e type);
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    Timer(std::string name, std::chrono::duration<Rep, Period> timeout, TimerHandler handler,
          void* userData, TimerType_e type)
        : Timer(std::move(name), toTimeoutTime(timeout), std::move(handler), userData, type) {}
    /// Stops the timer and waits for its handler.
    ~Timer();

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// @{
    /// Set everything anew, or one thing; only while the timer is stopped. A CONTINUE timer
    /// does not take a timeout of zero. setProperty() makes any timer fit to start, even
    /// without a handler; it must have one when it fires.
    int setProperty(const TimeoutTime& timeout, TimerHandler handler, void* userData,
                    TimerType_e type);
    int changeTimeout(const TimeoutTime& timeout);
    int changeType(TimerType_e type);
    int changeHandler(TimerHandler handler, void* userData);
    /// @}

    /// Starts the timeout now. On a started timer it does nothing.
    int start();
    /// Stops, and waits for a run of the handler that goes on.
    int stop();
    /// Stops, and lets a run of the handler that goes on, or is about to begin, come to its end.
    int stopNoBlock();
    /// stop() and start().
    int restart();

    /// Whether it waits for its next expiry.
    bool isStarted();
    /// True once a stop was asked for, until the next start: for long-running handlers to ask.
    bool needStop();
    /// As given at construction.
    std::string name();

private:
    friend class TimerImpl;

    std::shared_ptr<TimerImpl> m_impl;  // Null only if it could not be allocated.
};

}  // namespace tevalon::base::simple_timer

#endif  // BASE_SIMPLE_TIMER_H

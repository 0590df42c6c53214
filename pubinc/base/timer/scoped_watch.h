// scoped_watch.h: a watch of the fixed set for the length of a scope.

#ifndef BASE_TIMER_SCOPED_WATCH_H
#define BASE_TIMER_SCOPED_WATCH_H

#include <chrono>

#include "base/timer/watchdog.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::timer {

/// Begins a watch, and stops it however the scope is left.
///
///     const ScopedWatch watch(WatchDog::eWatchID_app_launch_new, 5s);
///
/// An identifier has one watch: an inner scope with the same one begins it anew, and stops it for
/// the outer scope too.
class ScopedWatch {
public:
    /// On the process's watchdog. Throws as GlobalWatchDog() does where this is its first use.
    ///
    /// @param id       The operation.
    /// @param seconds  See WatchDog::beginWatch().
    ScopedWatch(WatchDog::WATCH_ID id, double seconds)
        : ScopedWatch(*GlobalWatchDog(), id, seconds) {}
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    ScopedWatch(WatchDog::WATCH_ID id, std::chrono::duration<Rep, Period> allowed)
        : ScopedWatch(id, toSeconds(allowed)) {}

    /// On the client's own watchdog, which must outlive the scope.
    ScopedWatch(WatchDog& dog, WatchDog::WATCH_ID id, double seconds) : m_dog(dog), m_id(id) {
        m_dog.beginWatch(m_id, seconds);
    }
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    ScopedWatch(WatchDog& dog, WatchDog::WATCH_ID id, std::chrono::duration<Rep, Period> allowed)
        : ScopedWatch(dog, id, toSeconds(allowed)) {}

    ~ScopedWatch() { m_dog.stopWatch(m_id); }

    ScopedWatch(const ScopedWatch&) = delete;
    ScopedWatch& operator=(const ScopedWatch&) = delete;

private:
    WatchDog& m_dog;
    const WatchDog::WATCH_ID m_id;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_SCOPED_WATCH_H

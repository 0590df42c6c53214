// named_watch.h: a watch of a client's own, beside the fixed set.

#ifndef BASE_TIMER_NAMED_WATCH_H
#define BASE_TIMER_NAMED_WATCH_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/timer/internal/own_watch.h"
#include "base/timer/watchdog.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::timer {

/// Watches an operation from its construction to its destruction, on a watchdog's thread, and
/// reports to a callback alone that it takes longer than it may: first then, and again after every
/// further period of that length. Nothing is logged. Watches may share a name.
///
///     const NamedWatch watch("tune", 2s, [](const std::string& name, double seconds) { ... });
///
/// The callback is called as WatchDog::TimeoutCallback is. It may end this watch and others.
///
/// Thread-safety: any thread may construct, restart and destroy it, one at a time. The destructor
/// waits for a report that goes on, but for the one that it is called in, and none begins after it:
/// do not hold a lock that the callback takes.
///
/// In a forked child it is not watched until it is restarted.
class NamedWatch : private internal::OwnWatch {
public:
    /// @param seconds  Since construction, up to the check that found the watch overdue.
    using Callback = std::function<void(const std::string& name, double seconds)>;

    /// On the process's watchdog. Throws as GlobalWatchDog() does where this is its first use.
    ///
    /// @param name      For the callback.
    /// @param seconds   Allowed; 0 or less is overdue at every check.
    /// @param callback  Must not be empty.
    NamedWatch(std::string name, double seconds, Callback callback)
        : NamedWatch(*GlobalWatchDog(), std::move(name), seconds, std::move(callback)) {}
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    NamedWatch(std::string name, std::chrono::duration<Rep, Period> allowed, Callback callback)
        : NamedWatch(std::move(name), toSeconds(allowed), std::move(callback)) {}

    /// On the client's own watchdog, which must outlive the watch.
    NamedWatch(WatchDog& dog, std::string name, double seconds, Callback callback)
        : OwnWatch(dog, seconds, report),
          m_client(new Client{std::move(name), std::move(callback)}) {
        begin();
    }
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    NamedWatch(WatchDog& dog, std::string name, std::chrono::duration<Rep, Period> allowed,
               Callback callback)
        : NamedWatch(dog, std::move(name), toSeconds(allowed), std::move(callback)) {}

    ~NamedWatch() { end(); }

    /// Begins to watch anew, as a sign of life.
    void restart() { begin(); }

    /// As it was given.
    const std::string& name() const { return m_client->name; }

private:
    struct Client {
        const std::string name;
        const Callback callback;
    };

    // Held meanwhile: the callback may destroy the watch.
    static void report(OwnWatch* p_watch, double seconds) {
        const std::shared_ptr<Client> client = static_cast<NamedWatch*>(p_watch)->m_client;
        client->callback(client->name, seconds);
    }

    const std::shared_ptr<Client> m_client;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_NAMED_WATCH_H

// nap.h: takes events in batches from a sender on the same processor.

#ifndef SRC_EVENT_DISPATCHER_NAP_H
#define SRC_EVENT_DISPATCHER_NAP_H

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "event_dispatcher/spin.h"

namespace tevalon::base::event_dispatcher {

/// Whether a handler thread whose queue is empty waits to be woken, or naps for a moment, as if it
/// still were in a handler, and then looks again.
///
/// Where a sender with many events shares its processor with the handler thread, each post may let
/// the kernel run the woken thread at once: two context switches for each event. A thread that
/// has been woken so often in a row naps; events that arrive meanwhile are up to two naps late
/// (the kernel may extend a sleep by 50 us), and nobody has to wake it for them. It goes on like
/// that as long as its naps bring many events. One that does not, for the sender waits for an
/// answer perhaps, makes the next try wait four times as long. (What network drivers do to
/// interrupts.) One that takes far longer than asked for, where the kernel's timers are coarse or
/// the thread's slack is large, makes it wait sixteen times as long, without a limit that matters:
/// each such try delays events.
///
/// Thread-safety: none; one per handler thread.
class Nap {
public:
    static constexpr std::int64_t kNanoseconds = 50'000;
    static constexpr std::size_t kManyEvents = 6;
    static constexpr unsigned kLeastWakeUps = 8;
    static constexpr unsigned kMostWakeUps = 8192;
    static constexpr std::uint64_t kOverlongNanoseconds = 20 * kNanoseconds;
    static constexpr unsigned kMostWakeUpsIfOverlong = 1U << 27;

    bool isDue() const { return m_isDue; }

    void sleep() {
        const std::uint64_t begin = monotonicNanoseconds();
        const timespec duration = {0, kNanoseconds};
        (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, nullptr);
        m_isOverlong = monotonicNanoseconds() - begin > kOverlongNanoseconds;
    }

    /// The thread was woken, after it had waited so many nanoseconds.
    void woken(bool isSameProcessor, std::int64_t waited) {
        m_wakeUps = isSameProcessor && waited < kNanoseconds / 4 ? m_wakeUps + 1 : 0;
        if (m_wakeUps < m_neededWakeUps) return;
        m_wakeUps = 0;
        m_isDue = true;
    }

    /// What a nap has brought.
    void brought(bool areMany) {
        if (std::exchange(m_isOverlong, false)) {
            m_isDue = false;
            m_neededWakeUps = std::min(m_neededWakeUps * 16, kMostWakeUpsIfOverlong);
            return;
        }
        m_isDue = areMany;
        m_neededWakeUps = areMany ? kLeastWakeUps : std::min(m_neededWakeUps * 4, kMostWakeUps);
    }

private:
    bool m_isDue = false;
    bool m_isOverlong = false;  // The last one.
    unsigned m_wakeUps = 0;     // In a row, by a thread on the same processor, after a short wait.
    unsigned m_neededWakeUps = kLeastWakeUps;
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_NAP_H

// timer_heap.h: the started timers, in the order in which they are due.

#ifndef SRC_TIMER_TIMER_HEAP_H
#define SRC_TIMER_TIMER_HEAP_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "timer/expired_time.h"

namespace tevalon::base::simple_timer {

class TimerImpl;

/// Timers by expiry, those of equal expiry in the order of their insertion; a binary heap, for
/// nobody asks for more than the first. To insert one that is due late and to remove it takes
/// constant time in the mean, anything else logarithmic time. Keeps its timers alive.
///
/// Thread-safety: none; the scheduler's mutex guards it.
class TimerHeap {
public:
    /// Where a timer stands; each timer keeps its own.
    class Place {
        friend class TimerHeap;
        bool m_isListed = false;
        std::size_t m_index = 0;
    };

    bool empty() const { return m_entries.empty(); }

    /// The timer that is due first, and when. There must be one.
    const std::shared_ptr<TimerImpl>& head() const { return m_entries.front().timer; }
    ExpiredTime headExpiredTime() const { return m_entries.front().expired; }

    /// Behind all that are due at the same time. A timer that is listed stays where it is.
    /// Allocates nothing if a timer was removed since the room was last given back.
    void insert(const std::shared_ptr<TimerImpl>& timer, const ExpiredTime& expired);

    /// A timer that is not listed is ignored. Keeps the room.
    void remove(TimerImpl& timer);

    /// What many timers needed once is not kept for few; without memory to move to, it is.
    void giveRoomBack();

private:
    struct Entry {
        ExpiredTime expired;
        std::uint64_t turn;  // Among those of equal expiry.
        std::shared_ptr<TimerImpl> timer;
    };

    static bool isBefore(const Entry& left, const Entry& right);
    void put(std::size_t index, Entry&& entry);
    void putUpwards(std::size_t index, Entry&& entry);
    void putDownwards(std::size_t index, Entry&& entry);

    // The first is due first; each is due before those at 2 and at 1 beyond twice its index.
    std::vector<Entry> m_entries;
    std::uint64_t m_nextTurn = 0;
};

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_TIMER_HEAP_H

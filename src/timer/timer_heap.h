// timer_heap.h: the started timers, in the order in which they are due.

#ifndef SRC_TIMER_TIMER_HEAP_H
#define SRC_TIMER_TIMER_HEAP_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "timer/expired_time.h"

namespace tevalon::base::simple_timer {

class TimerImpl;

/// A min-heap of timers by expiry, stable: those of equal expiry in the order of their insertion.
/// Nobody asks for more than the first, so a full order would be wasted. Inserting one that is due
/// late, and removing it, takes constant time on average; anything else is logarithmic.
///
/// Does not own its timers: each has to be removed before it is destroyed.
///
/// Thread-safety: none; the scheduler's mutex guards it.
class TimerHeap {
public:
    /// A timer's position in the heap, so that removing it needs no search; each timer keeps its
    /// own.
    class Place {
        friend class TimerHeap;
        static constexpr std::uint32_t kNone = UINT32_MAX;

    public:
        /// In a forked child, which has another heap.
        void forget() { m_index = kNone; }

    private:
        std::uint64_t sequence() const { return std::uint64_t{m_sequenceHigh} << 32 | m_sequence; }

        std::uint32_t m_index = kNone;  // In the heap; none where the timer is not listed.
        // Of insertion: breaks ties between equal expiries. In halves, for the alignment.
        std::uint32_t m_sequence = 0;
        std::uint32_t m_sequenceHigh = 0;
    };

    bool empty() const { return m_entries.empty(); }

    /// The timer that is due first, and when. There must be one.
    TimerImpl& head() const { return *m_entries.front().timer; }
    ExpiredTime headExpiredTime() const { return m_entries.front().expired; }

    /// All, in no order.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (const Entry& entry : m_entries) visit(*entry.timer, entry.expired);
    }

    /// Behind all that are due at the same time. A timer that is listed stays where it is.
    /// Allocates nothing if a timer was removed since the last shrinkIfSparse().
    void insert(TimerImpl& timer, const ExpiredTime& expired);

    /// A timer that is not listed is ignored. Keeps the room.
    void remove(TimerImpl& timer);

    /// Shrinks the vector when less than a quarter of it is used; keeps it if the smaller one
    /// cannot be allocated.
    void shrinkIfSparse();

private:
    struct Entry {
        ExpiredTime expired;
        TimerImpl* timer;
    };

    static bool isBefore(const Entry& left, const Entry& right);
    void put(std::size_t index, const Entry& entry);
    void siftUp(std::size_t index, const Entry& entry);
    void siftDown(std::size_t index, const Entry& entry);

    // Min-heap: entry i is due no later than entries 4i+1 to 4i+4.
    std::vector<Entry> m_entries;
    std::uint64_t m_nextSequence = 0;
};

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_TIMER_HEAP_H

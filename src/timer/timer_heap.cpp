#include "timer/timer_heap.h"

#include <algorithm>

#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {
namespace {

constexpr std::size_t kChildren = 4;  // A cache line of them.

std::size_t parentOf(std::size_t index) {
    return (index - 1) / kChildren;
}

// As one number, in the order of operator<.
std::uint64_t keyOf(const ExpiredTime& time) {
    constexpr std::uint32_t kSign = 0x80000000U;
    const std::uint32_t sec = static_cast<std::uint32_t>(time.sec) ^ kSign;
    const std::uint32_t nsec = static_cast<std::uint32_t>(time.nsec) ^ kSign;
    return std::uint64_t{sec} << 32 | nsec;
}

}  // namespace

bool TimerHeap::isBefore(const Entry& left, const Entry& right) {
    const std::uint64_t leftKey = keyOf(left.expired);
    const std::uint64_t rightKey = keyOf(right.expired);
    if (leftKey != rightKey) return leftKey < rightKey;
    return left.timer->place().sequence() < right.timer->place().sequence();
}

void TimerHeap::insert(TimerImpl& timer, const ExpiredTime& expired) {
    Place& place = timer.place();
    if (place.m_index != Place::kNone) return;
    m_entries.emplace_back();
    place.m_sequence = static_cast<std::uint32_t>(m_nextSequence);
    place.m_sequenceHigh = static_cast<std::uint32_t>(m_nextSequence++ >> 32);
    siftUp(m_entries.size() - 1, {expired, &timer});
}

void TimerHeap::remove(TimerImpl& timer) {
    Place& place = timer.place();
    const std::size_t index = place.m_index;
    if (index == Place::kNone) return;
    place.m_index = Place::kNone;
    const Entry last = m_entries.back();
    m_entries.pop_back();
    if (index == m_entries.size()) return;
    if (index > 0 && isBefore(last, m_entries[parentOf(index)])) {
        siftUp(index, last);
    } else {
        siftDown(index, last);
    }
}

void TimerHeap::shrinkIfSparse() {
    constexpr std::size_t kKept = 64;
    if (m_entries.capacity() > kKept && m_entries.size() < m_entries.capacity() / 4) {
        m_entries.shrink_to_fit();
    }
}

void TimerHeap::put(std::size_t index, const Entry& entry) {
    entry.timer->place().m_index = static_cast<std::uint32_t>(index);
    m_entries[index] = entry;
}

// The slot at index is a hole: it moves up, or down, to where the entry belongs.
void TimerHeap::siftUp(std::size_t index, const Entry& entry) {
    while (index > 0 && isBefore(entry, m_entries[parentOf(index)])) {
        put(index, m_entries[parentOf(index)]);
        index = parentOf(index);
    }
    put(index, entry);
}

void TimerHeap::siftDown(std::size_t index, const Entry& entry) {
    const std::size_t count = m_entries.size();
    for (std::size_t child = kChildren * index + 1; child < count; child = kChildren * index + 1) {
        const std::size_t end = std::min(child + kChildren, count);
        std::size_t first = child;
        while (++child < end) {
            if (isBefore(m_entries[child], m_entries[first])) first = child;
        }
        if (!isBefore(m_entries[first], entry)) break;
        put(index, m_entries[first]);
        index = first;
    }
    put(index, entry);
}

}  // namespace tevalon::base::simple_timer

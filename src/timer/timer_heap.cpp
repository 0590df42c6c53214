#include "timer/timer_heap.h"

#include <utility>

#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {
namespace {

std::size_t parentOf(std::size_t index) {
    return (index - 1) / 2;
}

}  // namespace

bool TimerHeap::isBefore(const Entry& left, const Entry& right) {
    if (left.expired < right.expired) return true;
    return !(right.expired < left.expired) && left.sequence < right.sequence;
}

void TimerHeap::insert(const std::shared_ptr<TimerImpl>& timer, const ExpiredTime& expired) {
    Place& place = timer->place();
    if (place.m_isListed) return;
    m_entries.emplace_back();
    siftUp(m_entries.size() - 1, {expired, m_nextSequence++, timer});
    place.m_isListed = true;
}

void TimerHeap::remove(TimerImpl& timer) {
    Place& place = timer.place();
    if (!place.m_isListed) return;
    place.m_isListed = false;
    const std::size_t index = place.m_index;
    const Entry removed = std::move(m_entries[index]);
    Entry last = std::move(m_entries.back());
    m_entries.pop_back();
    if (index == m_entries.size()) return;
    if (index > 0 && isBefore(last, m_entries[parentOf(index)])) {
        siftUp(index, std::move(last));
    } else {
        siftDown(index, std::move(last));
    }
}

void TimerHeap::shrinkIfSparse() {
    constexpr std::size_t kKept = 64;
    if (m_entries.capacity() > kKept && m_entries.size() < m_entries.capacity() / 4) {
        m_entries.shrink_to_fit();
    }
}

void TimerHeap::put(std::size_t index, Entry&& entry) {
    entry.timer->place().m_index = index;
    m_entries[index] = std::move(entry);
}

// The slot at index is a hole: it moves up, or down, to where the entry belongs.
void TimerHeap::siftUp(std::size_t index, Entry&& entry) {
    while (index > 0 && isBefore(entry, m_entries[parentOf(index)])) {
        put(index, std::move(m_entries[parentOf(index)]));
        index = parentOf(index);
    }
    put(index, std::move(entry));
}

void TimerHeap::siftDown(std::size_t index, Entry&& entry) {
    const std::size_t count = m_entries.size();
    for (std::size_t child = 2 * index + 1; child < count; child = 2 * index + 1) {
        if (child + 1 < count && isBefore(m_entries[child + 1], m_entries[child])) ++child;
        if (!isBefore(m_entries[child], entry)) break;
        put(index, std::move(m_entries[child]));
        index = child;
    }
    put(index, std::move(entry));
}

}  // namespace tevalon::base::simple_timer

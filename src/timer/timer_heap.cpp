#include "timer/timer_heap.h"

#include <utility>

#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {
namespace {

std::size_t above(std::size_t index) {
    return (index - 1) / 2;
}

}  // namespace

bool TimerHeap::isBefore(const Entry& left, const Entry& right) {
    if (left.expired < right.expired) return true;
    return !(right.expired < left.expired) && left.turn < right.turn;
}

void TimerHeap::insert(const std::shared_ptr<TimerImpl>& timer, const ExpiredTime& expired) {
    Place& place = timer->place();
    if (place.m_isListed) return;
    m_entries.emplace_back();
    putUpwards(m_entries.size() - 1, {expired, m_nextTurn++, timer});
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
    if (index > 0 && isBefore(last, m_entries[above(index)])) {
        putUpwards(index, std::move(last));
    } else {
        putDownwards(index, std::move(last));
    }
}

void TimerHeap::giveRoomBack() {
    constexpr std::size_t kKept = 64;
    if (m_entries.capacity() > kKept && m_entries.size() < m_entries.capacity() / 4) {
        m_entries.shrink_to_fit();
    }
}

void TimerHeap::put(std::size_t index, Entry&& entry) {
    entry.timer->place().m_index = index;
    m_entries[index] = std::move(entry);
}

// The entry at the index is free; so is, in the end, the one where the other belongs.
void TimerHeap::putUpwards(std::size_t index, Entry&& entry) {
    while (index > 0 && isBefore(entry, m_entries[above(index)])) {
        put(index, std::move(m_entries[above(index)]));
        index = above(index);
    }
    put(index, std::move(entry));
}

void TimerHeap::putDownwards(std::size_t index, Entry&& entry) {
    const std::size_t count = m_entries.size();
    for (std::size_t below = 2 * index + 1; below < count; below = 2 * index + 1) {
        if (below + 1 < count && isBefore(m_entries[below + 1], m_entries[below])) ++below;
        if (!isBefore(m_entries[below], entry)) break;
        put(index, std::move(m_entries[below]));
        index = below;
    }
    put(index, std::move(entry));
}

}  // namespace tevalon::base::simple_timer

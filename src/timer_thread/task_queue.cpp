#include "timer_thread/task_queue.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace tevalon::base::timer {
namespace {

// Upper bound: entries whose latest time is not greater than fireTime (all if NaN). Branch-free
// binary search; the comparisons are unpredictable.
template <typename Sorted>
std::ptrdiff_t upperBound(const Sorted& sorted, double fireTime) {
    const auto* p_first = sorted.data();
    std::size_t count = sorted.size();
    while (count > 0) {
        const std::size_t half = (count + 1) / 2;
        p_first += p_first[half - 1].latest > fireTime ? 0 : half;
        count -= half;
    }
    return p_first - sorted.data();
}

}  // namespace

TaskQueue::~TaskQueue() {
    while (!empty()) (void)popFront();
}

double TaskQueue::insert(Task&& task) {
    const double fireTime = task->getNextFireTime();
    const Entry entry = {fireTime, m_tasks.reserveSlot(), task->sessionId()};
    // Two binary searches: for the block by its last prefix maximum, then within it.
    auto block = m_blocks.begin() + upperBound(m_blocks, fireTime);
    if (block == m_blocks.end()) {
        append(entry);
    } else {
        if (block->entries.size() == kMaxEntries) {
            block = split(block);
            if (!(block->latest > fireTime)) ++block;
        }
        Entries& entries = block->entries;
        entries.insert(entries.begin() + upperBound(entries, fireTime), entry);
    }
    m_tasks.put(std::move(task));
    ++m_size;
    return fireTime;
}

// Behind all others, no prefix maximum changes but the new entry's own, which is its time: nothing
// before it is greater. NaN inherits the maximum before it, so that the order stays total.
void TaskQueue::append(Entry entry) {
    const double latest = empty() ? kNone : double{m_blocks.back().latest};
    if (std::isnan(entry.latest)) entry.latest = latest;
    if (!empty() && m_blocks.back().entries.size() < kMaxEntries) {
        m_blocks.back().entries.push_back(entry);
        m_blocks.back().latest = entry.latest;
    } else {
        m_blocks.push_back({entry.latest, {entry}});
    }
}

// Returns the first of the two blocks.
TaskQueue::Blocks::iterator TaskQueue::split(Blocks::iterator block) {
    const auto middle = block->entries.begin() + kMaxEntries / 2;
    Block second = {block->latest, Entries(middle, block->entries.end())};
    block = std::prev(m_blocks.insert(std::next(block), std::move(second)));
    block->entries.resize(kMaxEntries / 2);
    block->latest = block->entries.back().latest;
    return block;
}

TaskQueue::Task TaskQueue::front() const {
    return empty() ? nullptr : m_tasks[m_blocks.front().entries.front().slot];
}

double TaskQueue::frontFireTime() const {
    return empty() ? 0.0 : m_tasks[m_blocks.front().entries.front().slot]->getNextFireTime();
}

TaskQueue::Task TaskQueue::popFront() {
    if (empty()) return nullptr;
    Entries& entries = m_blocks.front().entries;
    Task first = m_tasks.take(entries.front().slot);
    entries.erase(entries.begin());
    if (entries.empty()) m_blocks.erase(m_blocks.begin());
    --m_size;
    updatePrefixMaxima();
    return first;
}

// Recomputes the prefix maxima from the front; stops at the first one that is unchanged.
void TaskQueue::updatePrefixMaxima() {
    double latest = kNone;
    for (Block& block : m_blocks) {
        for (Entry& entry : block.entries) {
            if (!updatePrefixMaximum(&entry, latest)) {
                block.latest = block.entries.back().latest;
                return;
            }
            latest = entry.latest;
        }
        block.latest = latest;
    }
}

bool TaskQueue::updatePrefixMaximum(Entry* p_entry, double latestBefore) const {
    const double fireTime = m_tasks[p_entry->slot]->getNextFireTime();
    // NaN compares greater than nothing.
    const double latest = fireTime > latestBefore ? fireTime : latestBefore;
    return std::exchange(p_entry->latest, latest) != latest;
}

}  // namespace tevalon::base::timer

#include "timer/task_queue.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace tevalon::base::timer {
namespace {

// How many stand in front of the first that is later than the time: all, where none is, or where
// the time is no number, which nothing is later than. Halves without a branch: where a new time
// belongs is what no processor foresees.
template <typename Sorted>
std::ptrdiff_t countNotLater(const Sorted& sorted, double fireTime) {
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
    const Place place = {fireTime, m_tasks.nextNumber(), task->sessionId()};
    auto block = m_blocks.begin() + countNotLater(m_blocks, fireTime);
    if (block == m_blocks.end()) {
        append(place);
    } else {
        if (block->places.size() == kMostPlaces) {
            block = halve(block);
            if (!(block->latest > fireTime)) ++block;
        }
        Places& places = block->places;
        places.insert(places.begin() + countNotLater(places, fireTime), place);
    }
    m_tasks.put(std::move(task));
    ++m_size;
    return fireTime;
}

void TaskQueue::append(Place place) {
    const double latest = empty() ? kNone : double{m_blocks.back().latest};
    if (std::isnan(place.latest)) place.latest = latest;
    if (!empty() && m_blocks.back().places.size() < kMostPlaces) {
        m_blocks.back().places.push_back(place);
        m_blocks.back().latest = place.latest;
    } else {
        m_blocks.push_back({place.latest, {place}});
    }
}

// Returns the first half.
TaskQueue::Blocks::iterator TaskQueue::halve(Blocks::iterator block) {
    const auto middle = block->places.begin() + kMostPlaces / 2;
    Block second = {block->latest, Places(middle, block->places.end())};
    block = std::prev(m_blocks.insert(std::next(block), std::move(second)));
    block->places.resize(kMostPlaces / 2);
    block->latest = block->places.back().latest;
    return block;
}

TaskQueue::Task TaskQueue::front() const {
    return empty() ? nullptr : m_tasks[m_blocks.front().places.front().number];
}

double TaskQueue::frontFireTime() const {
    return empty() ? 0.0 : m_tasks[m_blocks.front().places.front().number]->getNextFireTime();
}

TaskQueue::Task TaskQueue::popFront() {
    if (empty()) return nullptr;
    Places& places = m_blocks.front().places;
    Task first = m_tasks.take(places.front().number);
    places.erase(places.begin());
    if (places.empty()) m_blocks.erase(m_blocks.begin());
    --m_size;
    followFromFront();
    return first;
}

// Until nothing changes: from there on everything stands as it did.
void TaskQueue::followFromFront() {
    double latest = kNone;
    for (Block& block : m_blocks) {
        for (Place& place : block.places) {
            if (!follow(&place, latest)) {
                block.latest = block.places.back().latest;
                return;
            }
            latest = place.latest;
        }
        block.latest = latest;
    }
}

bool TaskQueue::follow(Place* p_place, double latestBefore) const {
    const double fireTime = m_tasks[p_place->number]->getNextFireTime();
    // A time that is no number is greater than none.
    const double latest = fireTime > latestBefore ? fireTime : latestBefore;
    return std::exchange(p_place->latest, latest) != latest;
}

}  // namespace tevalon::base::timer

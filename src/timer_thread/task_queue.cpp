#include "timer_thread/task_queue.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace tevalon::base::timer {
namespace {

constexpr double kNever = std::numeric_limits<double>::infinity();

// Moves what is at and behind an entry by one.
template <typename T, std::size_t kCount>
void shiftUp(std::array<T, kCount>* p_array, std::size_t begin, std::size_t end) {
    T* const p_first = p_array->data() + begin;
    std::memmove(p_first + 1, p_first, (end - begin) * sizeof(T));
}

template <typename T, std::size_t kCount>
void shiftDown(std::array<T, kCount>* p_array, std::size_t begin, std::size_t end) {
    T* const p_first = p_array->data() + begin;
    std::memmove(p_first, p_first + 1, (end - begin - 1) * sizeof(T));
}

}  // namespace

// Upper bound: blocks whose latest time is not greater than fireTime. Branch-free binary search,
// here and in a block: the comparisons are unpredictable.
std::size_t TaskQueue::positionFor(double fireTime) const {
    const Sorted* p_first = m_order.data();
    for (std::size_t count = m_order.size(); count > 0;) {
        const std::size_t half = (count + 1) / 2;
        p_first += p_first[half - 1].latest > fireTime ? 0 : half;
        count -= half;
    }
    return static_cast<std::size_t>(p_first - m_order.data());
}

// The same for its entries, in a fixed number of steps, for those that are gone are minus infinity,
// and those that are to come infinity. A full block is not searched, so that one step fewer will
// do.
std::size_t TaskQueue::Block::entryFor(double fireTime) const {
    constexpr std::size_t kFirstStep = kMaxEntries / 2;
    const double* p_first = times.data();
    for (std::size_t half = kFirstStep; half > 0; half /= 2) {
        p_first += p_first[half - 1] > fireTime ? 0 : half;
    }
    const auto entry = static_cast<std::size_t>(p_first - times.data());
    return std::clamp<std::size_t>(entry, begin, end);
}

void TaskQueue::insert(Task&& task) {
    const double fireTime = timeOf(*task);
    const std::int32_t session = task->m_sessionId;
    const TimerTaskBase* const p_task = task.get();
    m_tasks.reserve();
    if (fireTime > 0) {
        const Index number = blockFor(fireTime);
        Block& block = *m_blocks[number];
        const std::size_t entry = block.entryFor(fireTime);
        shiftUp(&block.times, entry, block.end);
        shiftUp(&block.tasks, entry, block.end);
        block.times[entry] = fireTime;
        block.tasks[entry] = m_tasks.put(std::move(task), session, number);
        ++block.end;
        ++m_size;
        const bool isFirst = entry == block.begin && number == m_order.front().block;
        if (isFirst && m_front == kNone) m_first = p_task;
    } else {
        insertUnsorted(m_tasks.put(std::move(task), session, kNone), fireTime);
        ++m_size;
        findFirst();
    }
}

// A walk ends at the first time that is greater: for 0.0 that is the first sorted one, for NaN
// there is none. A negative time may end it earlier, at a cancelled task.
void TaskQueue::insertUnsorted(Index index, double fireTime) {
    if (std::isnan(fireTime)) return append(lastList(), index);
    if (m_front != kNone && fireTime < 0) {
        Index before = m_front;
        do {
            const Index next = m_tasks[before].link;
            if (timeOf(*m_tasks[next].task) > fireTime) {
                m_tasks[index].link = next;
                m_tasks[before].link = index;
                return;
            }
            before = next;
        } while (before != m_front);
    }
    append(&m_front, index);
}

TaskQueue::Index* TaskQueue::lastList() {
    if (m_order.empty()) return &m_front;
    const Block& block = *m_blocks[m_order.back().block];
    return &m_tasks[block.tasks[block.end - 1U]].link;
}

// The block for a task of this time, with room for it. Where it throws, nothing has changed.
TaskQueue::Index TaskQueue::blockFor(double fireTime) {
    std::size_t position = positionFor(fireTime);
    if (position == m_order.size()) return lastBlock(fireTime);
    if (m_blocks[m_order[position].block]->end == kMaxEntries) {
        makeRoom(position);
        if (!(m_order[position].latest > fireTime)) ++position;
    }
    return m_order[position].block;
}

// The last block, where that has room at its end, else a new one: what is posted in the order of
// its times fills the blocks.
TaskQueue::Index TaskQueue::lastBlock(double latest) {
    if (!m_order.empty() && m_blocks[m_order.back().block]->end < kMaxEntries) {
        m_order.back().latest = latest;
        return m_order.back().block;
    }
    return newBlock(m_order.size(), latest);
}

// The block there has no room at its end: its entries move to its begin, or half of them to a new
// block behind it.
void TaskQueue::makeRoom(std::size_t position) {
    Block& block = *m_blocks[m_order[position].block];
    if (block.begin > 0) {
        std::copy(block.times.begin() + block.begin, block.times.end(), block.times.begin());
        std::copy(block.tasks.begin() + block.begin, block.tasks.end(), block.tasks.begin());
        block.end = static_cast<std::uint16_t>(block.end - block.begin);
        block.begin = 0;
        std::fill(block.times.begin() + block.end, block.times.end(), kNever);
        return;
    }
    constexpr std::size_t kHalf = kMaxEntries / 2;
    const Index second = newBlock(position + 1, m_order[position].latest);
    Block& moved = *m_blocks[second];
    std::copy(block.times.begin() + kHalf, block.times.end(), moved.times.begin());
    std::copy(block.tasks.begin() + kHalf, block.tasks.end(), moved.tasks.begin());
    std::fill(block.times.begin() + kHalf, block.times.end(), kNever);
    block.end = kHalf;
    moved.end = kMaxEntries - kHalf;
    for (std::size_t i = 0; i < moved.end; ++i) m_tasks[moved.tasks[i]].block = second;
    m_order[position].latest = block.times[kHalf - 1];
}

// Where it throws, nothing has changed.
TaskQueue::Index TaskQueue::newBlock(std::size_t position, double latest) {
    if (m_freeBlock == kNone) {
        m_blocks.push_back(std::make_unique<Block>());
        m_freeBlock = static_cast<Index>(m_blocks.size() - 1);
    }
    m_order.insert(m_order.begin() + static_cast<std::ptrdiff_t>(position), {latest, m_freeBlock});
    const Index index = m_freeBlock;
    Block& block = *m_blocks[index];
    m_freeBlock = block.nextFree;
    block.begin = 0;
    block.end = 0;
    block.times.fill(kNever);
    return index;
}

void TaskQueue::freeBlock(Index index) {
    m_blocks[index]->nextFree = std::exchange(m_freeBlock, index);
}

// A cancellation does not change it.
void TaskQueue::findFirst() {
    if (empty()) return;
    Index first;
    if (m_front != kNone) {
        first = m_tasks[m_front].link;
    } else {
        const Block& block = *m_blocks[m_order.front().block];
        first = block.tasks[block.begin];
    }
    m_first = m_tasks[first].task.get();
}

// What hangs on the first sorted task is then in front of all others.
TaskQueue::Task TaskQueue::popFront() {
    if (empty()) return nullptr;
    Index index;
    if (m_front != kNone) {
        index = removeFirst(&m_front);
    } else {
        const Index number = m_order.front().block;
        Block& block = *m_blocks[number];
        block.times[block.begin] = -kNever;
        index = block.tasks[block.begin++];
        m_front = m_tasks[index].link;
        if (block.begin == block.end) {
            freeBlock(number);
            m_order.erase(m_order.begin());
        }
    }
    Task first = m_tasks.take(index);
    if (--m_size == 0) {
        m_tasks.shrink();
        if (m_blocks.size() > 1) {
            std::vector<std::unique_ptr<Block>>().swap(m_blocks);
            m_freeBlock = kNone;
        }
    }
    findFirst();
    return first;
}

void TaskQueue::append(Index* p_list, Index index) {
    m_tasks[index].link = index;
    concatenate(p_list, index);
}

void TaskQueue::concatenate(Index* p_list, Index list) {
    if (list == kNone) return;
    if (*p_list != kNone) std::swap(m_tasks[*p_list].link, m_tasks[list].link);
    *p_list = list;
}

TaskQueue::Index TaskQueue::removeFirst(Index* p_list) {
    const Index first = m_tasks[*p_list].link;
    if (first == *p_list) {
        *p_list = kNone;
    } else {
        m_tasks[*p_list].link = m_tasks[first].link;
    }
    return first;
}

// Where the block with this time is in the order.
std::size_t TaskQueue::positionOf(Index block, double time) const {
    const auto isEarlier = [](const Sorted& sorted, double t) { return sorted.latest < t; };
    auto sorted = std::lower_bound(m_order.begin(), m_order.end(), time, isEarlier);
    while (sorted->block != block) ++sorted;  // Several may end with this time.
    return static_cast<std::size_t>(sorted - m_order.begin());
}

// A sorted task that is cancelled, and what hangs on it, hangs on the one before it from then on.
void TaskQueue::unsort(Index index) {
    const Index number = m_tasks[index].block;
    if (number == kNone) return;
    Block& block = *m_blocks[number];
    const auto tasks = block.tasks.begin();
    const auto found = std::find(tasks + block.begin, tasks + block.end, index);
    const auto entry = static_cast<std::size_t>(found - tasks);
    Index* p_list = &m_front;
    if (entry > block.begin) {
        p_list = &m_tasks[block.tasks[entry - 1]].link;
    } else {
        const std::size_t position = positionOf(number, block.times[entry]);
        if (position > 0) {
            const Block& before = *m_blocks[m_order[position - 1].block];
            p_list = &m_tasks[before.tasks[before.end - 1U]].link;
        }
        if (block.end - block.begin == 1) {
            freeBlock(number);
            m_order.erase(m_order.begin() + static_cast<std::ptrdiff_t>(position));
        }
    }
    shiftDown(&block.times, entry, block.end);
    shiftDown(&block.tasks, entry, block.end);
    block.times[block.end - 1U] = kNever;
    --block.end;
    m_tasks[index].block = kNone;
    const Index list = m_tasks[index].link;
    append(p_list, index);
    concatenate(p_list, list);
}

// In whatever order: what hangs on each moves with it.
void TaskQueue::unsortCancelled() {
    for (Index index = 0; index < m_tasks.used(); ++index) {
        const TimerTaskBase* const p_task = m_tasks[index].task.get();
        if (p_task != nullptr && timeOf(*p_task) == kNoFireTime) unsort(index);
    }
}

}  // namespace tevalon::base::timer

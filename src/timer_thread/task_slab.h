// task_slab.h: a slab of tasks, addressed by small indices and found by session.

#ifndef SRC_TIMER_THREAD_TASK_SLAB_H
#define SRC_TIMER_THREAD_TASK_SLAB_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

/// A slab of tasks. The queue stores 4-byte indices, so that its entries are trivially movable.
/// Free slots are reused, last in, first out; the memory of all but a few is returned when the slab
/// becomes empty. A hash table, chained through the slots, finds those of a session.
///
/// Neither grows in one go, for the owner's lock is held: slots are added by the chunk, and a
/// bucket for every other slot that is used for the first time (linear hashing: Litwin, VLDB 1980).
///
/// Thread-safety: none.
class TaskSlab {
public:
    using Task = std::shared_ptr<TimerTaskBase>;
    using Index = std::uint32_t;

    static constexpr Index kNone = UINT32_MAX;

    struct Slot {
        Task task;
        Index chain;           // The next in the bucket; of a free slot, the next free one.
        std::int32_t session;  // The task's.
        Index link;            // These two are the queue's.
        Index block;
    };

    /// Makes room for one put(). Throws std::bad_alloc, and has then changed nothing.
    void reserve() {
        if (m_free == kNone && m_used == m_chunks.size() * kChunk) {
            m_chunks.push_back(std::make_unique<Chunk>());
        }
    }

    /// Stores @p task, after a reserve(). Does not throw.
    Index put(Task&& task, std::int32_t session, Index block) {
        const bool isFirstUse = m_free == kNone;
        const Index index = isFirstUse ? m_used++ : m_free;
        Slot& slot = (*this)[index];
        if (isFirstUse) {
            if (m_buckets * kPerBucket <= index) addBucket();
        } else {
            m_free = slot.chain;
        }
        slot.task.swap(task);  // That of a free slot is empty.
        slot.session = session;
        slot.link = kNone;
        slot.block = block;
        slot.chain = std::exchange(bucketOf(session), index);
        return index;
    }

    /// Does not throw.
    Task take(Index index) {
        Slot& slot = (*this)[index];
        Index* p_link = &bucketOf(slot.session);
        while (*p_link != index) p_link = &(*this)[*p_link].chain;
        *p_link = slot.chain;
        slot.chain = std::exchange(m_free, index);
        return std::move(slot.task);
    }

    /// Of a slab that has become empty: returns the memory of many slots.
    void shrink() {
        if (m_chunks.size() <= 1) return;
        std::vector<std::unique_ptr<Chunk>>().swap(m_chunks);
        m_used = 0;
        m_buckets = 0;
        m_mask = 0;
        m_free = kNone;
    }

    Slot& operator[](Index index) const { return m_chunks[index / kChunk]->slots[index % kChunk]; }

    /// So many indices have been in use; those that are free have no task.
    Index used() const { return m_used; }

    /// Any task of the session, and one more after @p index; kNone where there is none.
    Index first(std::int32_t session) const {
        return m_used == 0 ? kNone : find(bucketOf(session), session);
    }
    Index next(Index index) const { return find((*this)[index].chain, (*this)[index].session); }

private:
    static constexpr std::size_t kChunk = 32;

    static constexpr std::size_t kPerBucket = 2;
    static constexpr std::size_t kChunkBuckets = kChunk / kPerBucket;

    struct Chunk {
        std::array<Slot, kChunk> slots;
        std::array<Index, kChunkBuckets> buckets;  // The first task of each.
    };

    // Session ids are consecutive: those of tasks that are posted one after the other get adjacent
    // buckets. The shifts spread those of tasks that are posted to several threads in turn.
    Index hash(std::int32_t session) const {
        const auto id = static_cast<std::uint32_t>(session);
        return (id ^ (id >> 10) ^ (id >> 20)) & m_mask;
    }
    Index& bucketOf(std::int32_t session) const {
        const Index number = hash(session);
        return bucket(number < m_buckets ? number : number & (m_mask >> 1));
    }
    Index& bucket(Index number) const {
        return m_chunks[number / kChunkBuckets]->buckets[number % kChunkBuckets];
    }

    // The next bucket: those tasks move there whose hash names it now.
    void addBucket() {
        const Index number = m_buckets++;
        if (number > m_mask) m_mask = 2 * m_mask + 1;
        Index moved = kNone;
        if (number > 0) {
            Index* p_link = &bucket(number & (m_mask >> 1));
            for (Index index = *p_link; index != kNone; index = *p_link) {
                Slot& slot = (*this)[index];
                if (hash(slot.session) == number) {
                    *p_link = std::exchange(slot.chain, std::exchange(moved, index));
                } else {
                    p_link = &slot.chain;
                }
            }
        }
        bucket(number) = moved;
    }

    Index find(Index index, std::int32_t session) const {
        while (index != kNone && (*this)[index].session != session) index = (*this)[index].chain;
        return index;
    }

    std::vector<std::unique_ptr<Chunk>> m_chunks;
    Index m_used = 0;     // So many slots have been in use.
    Index m_buckets = 0;  // So many buckets are.
    Index m_mask = 0;     // Of the hash: the least that covers the buckets in use.
    Index m_free = kNone;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_TASK_SLAB_H

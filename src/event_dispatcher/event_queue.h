// event_queue.h: events in the order of their arrival.

#ifndef SRC_EVENT_DISPATCHER_EVENT_QUEUE_H
#define SRC_EVENT_DISPATCHER_EVENT_QUEUE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/event_dispatcher/browser_event.h"
#include "event_dispatcher/block_cache.h"

namespace tevalon::base::event_dispatcher {

/// A queue in chunks. It allocates nothing before its first event and keeps its last chunk when it
/// is empty. The first chunk is a small one: most hubs have few events at a time, some never any.
///
/// An event that a hub has made takes one word, any other two. A std::shared_ptr is two pointers,
/// to the object and to its control block, and those of an event that was allocated together with
/// its control block are always the same distance apart. So its bytes are moved into the queue and
/// out again, as one pointer where the other follows from it; nothing but that they are two
/// pointers is taken for granted, and whatever is not at that distance is kept whole. The one is
/// that to the control block, where the allocation begins: leak checkers look for such.
///
/// Thread-safety: none.
class EventQueue {
public:
    using Event = std::shared_ptr<BrowserEvent>;

    EventQueue() = default;
    ~EventQueue() {
        clear();
        if (m_first != nullptr) free(m_first, m_firstRoom);
    }

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// Events that were pushed since the queue was last swapped or cleared: all that it holds,
    /// where none was popped. Senders want to know; to whoever pops it would cost a little at each
    /// event.
    std::uint32_t pushed() const { return m_pushed; }

    /// Events, one by one.
    std::uint32_t count() const {
        std::uint32_t count = 0;
        std::uint16_t begin = m_begin;
        for (Chunk* p_chunk = m_first; p_chunk != nullptr; p_chunk = p_chunk->p_next) {
            const Word* const p_words = wordsOf(p_chunk);
            const std::uint16_t room = p_chunk == m_first ? m_firstRoom : kManyWords;
            const std::uint16_t end = p_chunk == m_last ? m_end : room;
            for (std::uint16_t i = begin; i < end && p_words[i] != kNoWord; ++count) {
                i = static_cast<std::uint16_t>(i + ((p_words[i] & kHasSecond) == 0 ? 1 : 2));
            }
            begin = 0;
        }
        return count;
    }

    bool empty() const { return m_first == m_last && m_begin == m_end; }

    /// Not null. May throw, and has then changed nothing.
    __attribute__((always_inline)) void push(Event&& event) {
        const std::array<Word, 2> pair = pairOf(event);
        const bool isOne = isOneWord(pair);
        if (m_end + (isOne ? 1 : 2) > m_lastRoom) addChunk();
        forget(&event);
        ++m_pushed;
        Word* const p_words = wordsOf(m_last);
        p_words[m_end++] = isOne ? pair[1] : pair[0] | kHasSecond;
        if (!isOne) p_words[m_end++] = pair[1];
    }

    /// The oldest event. There must be one.
    Event pop() {
        const Word* const p_words = wordsOf(m_first);
        const Word first = p_words[m_begin++];
        const bool isOne = (first & kHasSecond) == 0;
        Event event = isOne ? eventOf({first + kDistance, first})
                            : eventOf({first - kHasSecond, p_words[m_begin++]});
        if (empty()) {
            m_begin = 0;
            m_end = 0;
        } else if (m_begin == m_firstRoom || p_words[m_begin] == kNoWord) {
            dropChunk();
        }
        return event;
    }

    /// Destroys the events, oldest first.
    void clear() {
        while (!empty()) (void)pop();
        m_pushed = 0;
    }

    void swap(EventQueue& other) {
        m_pushed = 0;
        other.m_pushed = 0;
        std::swap(m_first, other.m_first);
        std::swap(m_last, other.m_last);
        std::swap(m_begin, other.m_begin);
        std::swap(m_end, other.m_end);
        std::swap(m_firstRoom, other.m_firstRoom);
        std::swap(m_lastRoom, other.m_lastRoom);
    }

private:
    using Word = std::uintptr_t;

    static constexpr std::uint16_t kFewWords = 6;
    static constexpr std::uint16_t kManyWords = 14;
    static constexpr Word kHasSecond = 1;  // No event's address is odd, nor its control block's.
    static constexpr Word kNoWord = 0;     // Fills a chunk that has no room for two.
    // A control block is a pointer to virtual functions and two counts of 4 bytes. Elsewhere events
    // take two words.
    static constexpr Word kDistance = sizeof(void*) + 8;

    static_assert(sizeof(Event) == 2 * sizeof(Word));
    static_assert(alignof(BrowserEvent) > kHasSecond);

    /// The head of a chunk; its words follow.
    struct Chunk {
        Chunk* p_next;
    };

    static Word* wordsOf(Chunk* p_chunk) { return reinterpret_cast<Word*>(p_chunk + 1); }
    static std::size_t sizeOf(std::size_t room) { return sizeof(Chunk) + room * sizeof(Word); }
    static void free(Chunk* p_chunk, std::size_t room) { BlockCache::free(p_chunk, sizeOf(room)); }

    static bool isOneWord(const std::array<Word, 2>& pair) {
        return pair[0] - pair[1] == kDistance;
    }

    static std::array<Word, 2> pairOf(const Event& event) {
        std::array<Word, 2> pair;
        std::memcpy(pair.data(), static_cast<const void*>(&event), sizeof(pair));
        return pair;
    }

    /// The bytes that pairOf() has read own the event from now on.
    static void forget(Event* p_event) { ::new (static_cast<void*>(p_event)) Event(); }

    static Event eventOf(const std::array<Word, 2>& pair) {
        Event event;
        // NOLINTNEXTLINE(bugprone-undefined-memory-manipulation): moved, and not copied; see above.
        std::memcpy(static_cast<void*>(&event), pair.data(), sizeof(pair));
        return event;
    }

    void addChunk() {
        const std::uint16_t room = m_last == nullptr ? kFewWords : kManyWords;
        auto* const p_chunk = ::new (BlockCache::allocate(sizeOf(room))) Chunk{nullptr};
        if (m_last == nullptr) {
            m_first = p_chunk;
            m_firstRoom = room;
        } else {
            if (m_end < m_lastRoom) wordsOf(m_last)[m_end] = kNoWord;
            m_last->p_next = p_chunk;
        }
        m_last = p_chunk;
        m_lastRoom = room;
        m_end = 0;
    }

    void dropChunk() {
        Chunk* const p_emptied = m_first;
        m_first = p_emptied->p_next;
        free(p_emptied, m_firstRoom);
        m_firstRoom = kManyWords;  // As all but the very first.
        m_begin = 0;
    }

    Chunk* m_first = nullptr;
    Chunk* m_last = nullptr;
    std::uint16_t m_begin = 0;  // Of the words in use in the first chunk.
    std::uint16_t m_end = 0;    // Of those in the last.
    std::uint16_t m_firstRoom = 0;
    std::uint16_t m_lastRoom = 0;
    std::uint32_t m_pushed = 0;
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_EVENT_QUEUE_H

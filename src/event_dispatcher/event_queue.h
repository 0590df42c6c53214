// event_queue.h: events in the order of their arrival.

#ifndef SRC_EVENT_DISPATCHER_EVENT_QUEUE_H
#define SRC_EVENT_DISPATCHER_EVENT_QUEUE_H

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

#include "base/event_dispatcher/browser_event.h"

namespace tevalon::base::event_dispatcher {

/// A queue in chunks. It allocates nothing before its first event and keeps one chunk when it is
/// empty: most hubs have few events at a time, some never any.
///
/// Thread-safety: none.
class EventQueue {
public:
    using Event = std::shared_ptr<BrowserEvent>;

    EventQueue() = default;
    ~EventQueue() {
        clear();
        delete m_first;
    }

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    bool empty() const { return m_first == m_last && m_begin == m_end; }

    /// May throw, and has then changed nothing.
    void push(Event&& event) {
        if (m_last == nullptr || m_end == kChunkSize) addChunk();
        m_last->events[m_end] = std::move(event);
        ++m_end;
    }

    /// The oldest event. There must be one.
    Event pop() {
        Event event = std::move(m_first->events[m_begin]);
        ++m_begin;
        if (empty()) {
            m_begin = 0;
            m_end = 0;
        } else if (m_begin == kChunkSize) {
            dropChunk();
        }
        return event;
    }

    /// Destroys the events, oldest first.
    void clear() {
        while (!empty()) (void)pop();
    }

    void swap(EventQueue& other) {
        std::swap(m_first, other.m_first);
        std::swap(m_last, other.m_last);
        std::swap(m_begin, other.m_begin);
        std::swap(m_end, other.m_end);
    }

private:
    static constexpr std::size_t kChunkSize = 15;

    struct Chunk {
        std::array<Event, kChunkSize> events;
        Chunk* p_next = nullptr;
    };

    void addChunk() {
        auto* const p_chunk = new Chunk();
        (m_last == nullptr ? m_first : m_last->p_next) = p_chunk;
        m_last = p_chunk;
        m_end = 0;
    }

    void dropChunk() {
        const std::unique_ptr<Chunk> emptied(m_first);
        m_first = emptied->p_next;
        m_begin = 0;
    }

    Chunk* m_first = nullptr;
    Chunk* m_last = nullptr;
    std::size_t m_begin = 0;  // Of the events in the first chunk.
    std::size_t m_end = 0;    // Of those in the last.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_EVENT_QUEUE_H

// hub_activity.h: what a hub's thread does at this moment.

#ifndef SRC_EVENT_DISPATCHER_HUB_ACTIVITY_H
#define SRC_EVENT_DISPATCHER_HUB_ACTIVITY_H

#include <atomic>
#include <cstdint>

#include "activity/activity.h"
#include "base/event_dispatcher/browser_event.h"
#include "event_dispatcher/handler_table.h"
#include "os/monotonic_time.h"

namespace tevalon::base::event_dispatcher {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

class HubActivity {
public:
    explicit HubActivity(const void* /*p_hub*/) {}

    void takeBatch(std::uint32_t /*events*/) {}
    void beginHandler(const BrowserEvent& /*event*/, const InnerHandler_t* /*p_handler*/) {}
    void endHandler() {}
};

#else

/// The event in hand, since when, and how many have been taken from the queue with it.
///
/// The clock is read at the first event of a batch and at every sixteenth: a hub that has little to
/// do knows the time exactly, one with many short handlers nearly, and each event costs a few
/// stores.
///
/// Written by the hub's thread alone. Who reads several fields may find some of one event and some
/// of the next: what stays the same for a while is true.
class HubActivity : public activity::Activity {
public:
    explicit HubActivity(const void* p_hub) : Activity(activity::Kind::HubThread, p_hub) {}

    /// From now on @p events that were taken from the queue wait here.
    void takeBatch(std::uint32_t events) {
        store(&m_taken, events);
        store(&m_begun, 0);
    }
    /// @param p_handler  What handles it; not null.
    void beginHandler(const BrowserEvent& event, const InnerHandler_t* p_handler) {
        const std::uint32_t begun = load(m_begun);
        store(&m_begun, begun + 1);
        if (begun % kPerReading == 0) readClock();
        m_source.store(event.srcModule, std::memory_order_relaxed);
        m_event.store(&event, std::memory_order_relaxed);
        m_handler.store(p_handler, std::memory_order_relaxed);
    }
    void endHandler() { m_handler.store(nullptr, std::memory_order_relaxed); }

    /// Null where none runs. Exists as long as the hub.
    const InnerHandler_t* handler() const { return m_handler.load(std::memory_order_relaxed); }
    /// Compared alone: it may be gone.
    const BrowserEvent* event() const { return m_event.load(std::memory_order_relaxed); }
    std::int32_t source() const { return m_source.load(std::memory_order_relaxed); }
    /// When the clock was read, see coarseMilliseconds(), and how many handlers have begun since,
    /// before that of the event in hand.
    std::uint32_t readingMs() const { return load(m_readingMs); }
    std::uint32_t begunSinceReading() const { return (load(m_begun) - 1) % kPerReading; }
    /// Of the events that were taken: those that wait.
    std::uint32_t waiting() const {
        const std::uint32_t taken = load(m_taken);
        const std::uint32_t begun = load(m_begun);
        return begun < taken ? taken - begun : 0;
    }

private:
    static constexpr std::uint32_t kPerReading = 16;

    using Field = std::atomic<std::uint32_t>;
    static std::uint32_t load(const Field& field) { return field.load(std::memory_order_relaxed); }
    static void store(Field* p_field, std::uint32_t value) {
        p_field->store(value, std::memory_order_relaxed);
    }

    __attribute__((noinline)) void readClock() { store(&m_readingMs, coarseMilliseconds()); }

    std::atomic<const InnerHandler_t*> m_handler{nullptr};
    std::atomic<const BrowserEvent*> m_event{nullptr};
    std::atomic<std::int32_t> m_source{0};
    Field m_readingMs{0};
    Field m_taken{0};
    Field m_begun{0};
    const activity::Listing m_listing{this};
};

#endif

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_HUB_ACTIVITY_H

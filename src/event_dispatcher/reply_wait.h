// reply_wait.h: a thread waits for the reply to an event.

#ifndef SRC_EVENT_DISPATCHER_REPLY_WAIT_H
#define SRC_EVENT_DISPATCHER_REPLY_WAIT_H

#include <time.h>

#include <atomic>
#include <cstdint>

#include "activity/activity.h"
#include "base/event_dispatcher/browser_event.h"

namespace tevalon::base::event_dispatcher {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

class ReplyWait {
public:
    ReplyWait(const BrowserEvent& /*event*/, const std::atomic<std::int32_t>* /*p_handledBy*/,
              std::int32_t /*target*/, std::int32_t /*timeoutMs*/, const timespec& /*since*/) {}
    ~ReplyWait() {}  // So that one that is only constructed counts as used.
};

#else

/// Stands around such a wait, for others to look at.
class ReplyWait : public activity::Activity {
public:
    /// @param p_handledBy  The module whose handler began last, or kAnyModule; null where that is
    ///                     not known.
    /// @param target       kAnyModule where that is not known.
    ReplyWait(const BrowserEvent& event, const std::atomic<std::int32_t>* p_handledBy,
              std::int32_t target, std::int32_t timeoutMs, const timespec& since)
        : Activity(activity::Kind::SyncSend, &event),
          m_type(event.eventType),
          m_source(event.srcModule),
          m_target(target),
          m_timeoutMs(timeoutMs),
          m_since(since),
          m_handledBy(p_handledBy) {}

    std::int32_t type() const { return m_type; }
    std::int32_t source() const { return m_source; }
    std::int32_t target() const { return m_target; }
    std::int32_t timeoutMs() const { return m_timeoutMs; }
    /// On the monotonic clock.
    const timespec& since() const { return m_since; }
    std::int32_t handledBy() const {
        return m_handledBy != nullptr ? m_handledBy->load(std::memory_order_relaxed) : kAnyModule;
    }

private:
    const std::int32_t m_type;
    const std::int32_t m_source;
    const std::int32_t m_target;
    const std::int32_t m_timeoutMs;
    const timespec m_since;
    const std::atomic<std::int32_t>* const m_handledBy;  // The waiting event's.
    const activity::Listing m_listing{this};
};

#endif

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_REPLY_WAIT_H

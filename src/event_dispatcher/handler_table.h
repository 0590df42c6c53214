// handler_table.h: a hub's handlers, found by event type.

#ifndef SRC_EVENT_DISPATCHER_HANDLER_TABLE_H
#define SRC_EVENT_DISPATCHER_HANDLER_TABLE_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "base/event_dispatcher/browser_event.h"

namespace tevalon::base::event_dispatcher {

/// One registered handler. Never changed once it is in the table.
struct InnerHandler_t {
    std::int32_t srcModule;  ///< kAnyModule takes events from all of them.
    std::int32_t eventType;
    std::function<void(std::shared_ptr<BrowserEvent>)> handler;
};

/// A hash table by event type with chains that only ever grow, so that a lookup takes no lock: a
/// node stays where it is until the table goes, and is complete before a release store publishes it
/// to acquire loads. Handlers of one event type are on one chain in order of registration, so the
/// chain's first match is the first match of all.
///
/// Thread-safety: any thread may look up at any time; one thread at a time may add.
class HandlerTable {
public:
    HandlerTable() = default;
    ~HandlerTable() { clear(); }

    HandlerTable(const HandlerTable&) = delete;
    HandlerTable& operator=(const HandlerTable&) = delete;

    /// The first handler in order of registration that takes these events, or null.
    const InnerHandler_t* find(std::int32_t srcModule, std::int32_t eventType) const;

    /// Where it throws, @p record stays with the caller, to be destroyed without the lock.
    void add(InnerHandler_t&& record);

    /// Destroys the handlers. Nobody may look one up meanwhile, but for what they do themselves.
    void clear();

private:
    struct Node {
        InnerHandler_t record;
        std::atomic<Node*> p_next{nullptr};
    };

    static constexpr std::size_t kChains = 16;

    static std::size_t chainOf(std::int32_t eventType);

    std::array<std::atomic<Node*>, kChains> m_chains{};
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_HANDLER_TABLE_H

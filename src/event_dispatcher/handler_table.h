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

/// The first few handlers are in a list, since most hubs have no more; later ones in a hash table
/// by event type, which is allocated with its first. Both only ever grow, so that a lookup takes no
/// lock: a node stays where it is until the table goes, and is complete before a release store
/// publishes it to acquire loads. Handlers of one event type are in order of registration, first in
/// the list and then on one chain, so the first match that is met is the first of all.
///
/// Thread-safety: any thread may look up at any time; one thread at a time may add.
class HandlerTable {
public:
    HandlerTable() = default;
    ~HandlerTable() { clear(); }

    HandlerTable(const HandlerTable&) = delete;
    HandlerTable& operator=(const HandlerTable&) = delete;

    bool empty() const { return m_list.load(std::memory_order_acquire) == nullptr; }

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

    using Chain = std::atomic<Node*>;

    static constexpr std::size_t kMostListed = 4;
    static constexpr std::size_t kChains = 16;

    struct HashTable {
        std::array<Chain, kChains> chains{};
    };

    static std::size_t indexOf(std::int32_t eventType);
    static const InnerHandler_t* findOn(const Chain& chain, std::int32_t srcModule,
                                        std::int32_t eventType);
    static void clear(Chain* p_chain);
    Chain* chainFor(std::int32_t eventType);

    std::size_t m_listed = 0;  // Whoever adds, adds alone.
    Chain m_list{nullptr};
    std::atomic<HashTable*> m_table{nullptr};
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_HANDLER_TABLE_H

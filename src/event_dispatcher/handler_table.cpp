#include "event_dispatcher/handler_table.h"

#include <utility>

namespace tevalon::base::event_dispatcher {

void HandlerTable::clear() {
    for (std::atomic<Node*>& chain : m_chains) {
        for (Node* p_node = chain.exchange(nullptr); p_node != nullptr;) {
            const std::unique_ptr<Node> removed(p_node);
            p_node = removed->p_next;
        }
    }
}

// Modules number their types in a row, or in steps; the multiplication spreads either (Knuth's
// multiplicative hashing).
std::size_t HandlerTable::chainOf(std::int32_t eventType) {
    static_assert(kChains == 16);
    return static_cast<std::uint32_t>(eventType) * 0x9E3779B1U >> 28;
}

const InnerHandler_t* HandlerTable::find(std::int32_t srcModule, std::int32_t eventType) const {
    const Node* p_node = m_chains[chainOf(eventType)].load(std::memory_order_acquire);
    for (; p_node != nullptr; p_node = p_node->p_next.load(std::memory_order_acquire)) {
        const InnerHandler_t& stored = p_node->record;
        if (stored.eventType != eventType) continue;  // Another type with the same hash.
        if (stored.srcModule == kAnyModule || stored.srcModule == srcModule) return &stored;
    }
    return nullptr;
}

void HandlerTable::add(InnerHandler_t&& record) {
    std::atomic<Node*>* p_end = &m_chains[chainOf(record.eventType)];
    while (Node* const p_node = p_end->load(std::memory_order_relaxed)) p_end = &p_node->p_next;
    auto added = std::make_unique<Node>();
    added->record = std::move(record);
    // Release: whoever reads the link by acquire sees the whole record behind it.
    p_end->store(added.release(), std::memory_order_release);
}

}  // namespace tevalon::base::event_dispatcher

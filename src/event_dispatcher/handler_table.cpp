#include "event_dispatcher/handler_table.h"

#include <utility>

namespace tevalon::base::event_dispatcher {

void HandlerTable::clear() {
    clear(&m_list);
    m_listed = 0;
    const std::unique_ptr<HashTable> table(m_table.exchange(nullptr));
    if (table == nullptr) return;
    for (Chain& chain : table->chains) clear(&chain);
}

void HandlerTable::clear(Chain* p_chain) {
    for (Node* p_node = p_chain->exchange(nullptr); p_node != nullptr;) {
        const std::unique_ptr<Node> removed(p_node);
        p_node = removed->p_next;
    }
}

// Modules number their types in a row, or in steps; the multiplication spreads either (Knuth's
// multiplicative hashing).
std::size_t HandlerTable::indexOf(std::int32_t eventType) {
    static_assert(kChains == 16);
    return static_cast<std::uint32_t>(eventType) * 0x9E3779B1U >> 28;
}

const InnerHandler_t* HandlerTable::find(std::int32_t srcModule, std::int32_t eventType) const {
    if (const InnerHandler_t* const p_listed = findOn(m_list, srcModule, eventType)) {
        return p_listed;
    }
    const HashTable* const p_table = m_table.load(std::memory_order_acquire);
    if (p_table == nullptr) return nullptr;
    return findOn(p_table->chains[indexOf(eventType)], srcModule, eventType);
}

const InnerHandler_t* HandlerTable::findOn(const Chain& chain, std::int32_t srcModule,
                                           std::int32_t eventType) {
    const Node* p_node = chain.load(std::memory_order_acquire);
    for (; p_node != nullptr; p_node = p_node->p_next.load(std::memory_order_acquire)) {
        const InnerHandler_t& stored = p_node->record;
        if (stored.eventType != eventType) continue;
        if (stored.srcModule == kAnyModule || stored.srcModule == srcModule) return &stored;
    }
    return nullptr;
}

void HandlerTable::add(InnerHandler_t&& record) {
    auto added = std::make_unique<Node>();
    Chain* p_end = chainFor(record.eventType);
    while (Node* const p_node = p_end->load(std::memory_order_relaxed)) p_end = &p_node->p_next;
    added->record = std::move(record);
    // Release: whoever reads the link by acquire sees the whole record behind it.
    p_end->store(added.release(), std::memory_order_release);
}

HandlerTable::Chain* HandlerTable::chainFor(std::int32_t eventType) {
    if (m_listed < kMostListed) {
        ++m_listed;
        return &m_list;
    }
    HashTable* p_table = m_table.load(std::memory_order_relaxed);
    if (p_table == nullptr) {
        p_table = new HashTable();
        m_table.store(p_table, std::memory_order_release);
    }
    return &p_table->chains[indexOf(eventType)];
}

}  // namespace tevalon::base::event_dispatcher

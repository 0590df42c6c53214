#include "record/names.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

namespace tevalon::base::record {
namespace {

struct Slot {
    Name name;
    std::atomic<bool> isComplete;  // The name does not change any more.
};

std::array<Slot, kMaxNames> g_slots;
std::atomic<std::uint32_t> g_given{0};

}  // namespace

// Two threads that name one thing at once may both add it; the first entry counts.
Naming giveName(NameKind kind, std::int32_t id, const char* text) {
    if (findName(kind, id) != nullptr) return Naming::Known;
    const std::uint32_t index = g_given.fetch_add(1, std::memory_order_relaxed);
    if (index >= kMaxNames) return Naming::Full;
    Slot& slot = g_slots[index];
    slot.name.kind = kind;
    slot.name.id = id;
    std::memcpy(slot.name.text, text, strnlen(text, kNameBytes - 1));  // The rest is zeros.
    slot.isComplete.store(true, std::memory_order_seq_cst);
    return Naming::Added;
}

std::uint32_t namesGiven() {
    return g_given.load(std::memory_order_relaxed);
}

const Name* nameAt(std::uint32_t index) {
    const Slot& slot = g_slots[index];
    return slot.isComplete.load(std::memory_order_seq_cst) ? &slot.name : nullptr;
}

const char* findName(NameKind kind, std::int32_t id) {
    const std::uint32_t count = std::min(namesGiven(), kMaxNames);
    for (std::uint32_t i = 0; i < count; ++i) {
        const Name* const p_name = nameAt(i);
        if (p_name != nullptr && p_name->kind == kind && p_name->id == id) return p_name->text;
    }
    return nullptr;
}

}  // namespace tevalon::base::record

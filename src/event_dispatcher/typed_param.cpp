#include <cstring>
#include <memory>

#include "base/event_dispatcher/internal/typed_param.h"
#include "event_dispatcher/block_cache.h"

namespace tevalon::base::event_dispatcher::internal {
namespace {

constexpr std::size_t kAlignment = alignof(std::max_align_t);

/// In front of each TypedParam, for the operator delete, which a value of any size follows.
struct alignas(kAlignment) Head {
    std::size_t size;  // Of the whole block.
};

// By the Itanium C++ ABI: without RTTI there is no other way that calls nothing of the param's.
const void* tableOf(const EventParam& param) {
    const void* p_table = nullptr;
    std::memcpy(&p_table, static_cast<const void*>(&param), sizeof(p_table));
    return p_table;
}

/// What all modules' payloads are. Constructed here alone, so that all have one pointer to virtual
/// functions, by which they are told from params of any other class.
class alignas(kAlignment) TypedParam final : public EventParam {
public:
    ~TypedParam() override {
        if (m_layout != nullptr) m_layout->p_destroy(value());
    }

    std::int32_t intValue() override { return m_layout->p_intValue(value()); }

    static TypedParam* allocate(std::size_t valueSize) {
        constexpr std::size_t kWord = BlockCache::kWord;
        const std::size_t size =
            (sizeof(Head) + sizeof(TypedParam) + valueSize + kWord - 1) / kWord * kWord;
        auto* const p_head = ::new (BlockCache::allocate(size)) Head{size};
        return ::new (static_cast<void*>(p_head + 1)) TypedParam();
    }
    static void operator delete(void* p_param) noexcept {
        Head* const p_head = static_cast<Head*>(p_param) - 1;
        BlockCache::free(p_head, p_head->size);
    }

    static const void* table() {
        const TypedParam empty;
        return tableOf(empty);
    }

    void* value() { return this + 1; }
    const TypedLayout* layout() const { return m_layout; }
    void setConstructed(const TypedLayout& layout) { m_layout = &layout; }

private:
    TypedParam() = default;

    const TypedLayout* m_layout = nullptr;  // Null until there is a value.
};

bool areSame(const TypeName& left, const TypeName& right) {
    if (&left == &right) return true;
    return !left.isOfOneUnit && !right.isOfOneUnit && left.size == right.size &&
           left.length == right.length && std::memcmp(left.p_text, right.p_text, left.length) == 0;
}

}  // namespace

EventParam* newTypedParam(const TypedLayout& layout,
                          void (*p_construct)(void* p_room, void* p_arguments), void* p_arguments) {
    std::unique_ptr<TypedParam> param(TypedParam::allocate(layout.size));
    p_construct(param->value(), p_arguments);
    param->setConstructed(layout);
    return param.release();
}

void* findTypedPart(const EventParam* p_param, TypedPart part, const TypeName& type) {
    if (p_param == nullptr || tableOf(*p_param) != TypedParam::table()) return nullptr;
    // The value is not const, but for those that read it.
    auto* const p_typed = const_cast<TypedParam*>(static_cast<const TypedParam*>(p_param));
    const TypedLayout& layout = *p_typed->layout();
    const bool isValue = part == TypedPart::Value;
    const TypeName* const p_found = isValue ? layout.p_value : layout.p_reply;
    if (p_found == nullptr || !areSame(*p_found, type)) return nullptr;
    return static_cast<char*>(p_typed->value()) + (isValue ? 0 : layout.slotOffset);
}

}  // namespace tevalon::base::event_dispatcher::internal

// typed_param.h: how a payload of any type, and room for a reply of any type, become an EventParam.

#ifndef BASE_EVENT_DISPATCHER_INTERNAL_TYPED_PARAM_H
#define BASE_EVENT_DISPATCHER_INTERNAL_TYPED_PARAM_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/event_dispatcher/browser_event.h"
#include "base/event_dispatcher/event_param.h"
#include "base/export.h"

// Everything of a template here is hidden: each module has its own, and none binds to another
// module's, which would keep that from being unloaded. (Variables of templates would even be
// STB_GNU_UNIQUE symbols.)
namespace tevalon::base::event_dispatcher::internal {

/// A type, compared by content: the same in all modules, without RTTI.
struct TypeName {
    const char* p_text;
    std::uint32_t length;
    std::uint32_t size;  ///< Of the type.
    /// Other units may have another type of this name: the same only at the same address.
    bool isOfOneUnit;
};

/// What a TypedParam holds: a value, and perhaps behind it a ReplySlot.
struct TypedLayout {
    const TypeName* p_value;
    const TypeName* p_reply;  ///< Null without a slot.
    std::uint32_t slotOffset;
    std::uint32_t size;  ///< Of both.
    void (*p_destroy)(void* p_value);
    std::int32_t (*p_intValue)(const void* p_value);
};

enum class TypedPart : std::int32_t { Value, ReplySlot };

/// Has @p p_construct construct what @p layout says, and returns the param that owns it. Where that
/// or the allocation throws nothing is left.
TEVALON_BASE_EXPORT EventParam* newTypedParam(const TypedLayout& layout,
                                              void (*p_construct)(void* p_room, void* p_arguments),
                                              void* p_arguments);

/// That part of @p p_param; null if it is of another type, missing, or in a param of any other
/// kind.
TEVALON_BASE_EXPORT void* findTypedPart(const EventParam* p_param, TypedPart part,
                                        const TypeName& type);

template <typename T>
struct TEVALON_BASE_LOCAL TypeNameOf {
    static constexpr std::string_view text() {
        // "... [with T = X]" by GCC, "... [T = X]" by Clang.
        constexpr std::string_view kWhole = textOfFunction();
        constexpr std::size_t kBegin = kWhole.find("T = ") + 4;
        return kWhole.substr(kBegin, kWhole.size() - 1 - kBegin);
    }

    static constexpr bool has(std::string_view part) {
        return text().find(part) != std::string_view::npos;
    }

    // Without a name, or in an unnamed namespace or a function, such as "f() const &::X".
    static constexpr bool isOfOneUnit() {
        return has("{anonymous}") || has("(anonymous") || has("<unnamed") || has("(unnamed") ||
               has("<lambda") || has("(lambda") || has(")::") || has(") const::") ||
               has(" volatile::") || has("&::");
    }

    static constexpr const char* textOfFunction() { return __PRETTY_FUNCTION__; }

    static constexpr TypeName kName = {text().data(), static_cast<std::uint32_t>(text().size()),
                                       static_cast<std::uint32_t>(sizeof(T)), isOfOneUnit()};
};

/// Aggregates too.
template <typename T, typename... Args>
TEVALON_BASE_LOCAL T* construct(void* p_room, Args&&... args) {
    if constexpr (std::is_constructible_v<T, Args...>) {
        return ::new (p_room) T(std::forward<Args>(args)...);
    } else {
        return ::new (p_room) T{std::forward<Args>(args)...};
    }
}

/// Filled once, by whichever thread comes first; seen by others once it is complete.
template <typename R>
class TEVALON_BASE_LOCAL ReplySlot {
public:
    ReplySlot() = default;
    ~ReplySlot() {
        if (R* const p_reply = get()) p_reply->~R();
    }

    ReplySlot(const ReplySlot&) = delete;
    ReplySlot& operator=(const ReplySlot&) = delete;

    template <typename... Args>
    bool fill(Args&&... args) {
        State expected = State::Empty;
        if (!m_state.compare_exchange_strong(expected, State::Claimed, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
            return false;
        }
        Claim claim(&m_state);
        construct<R>(m_room, std::forward<Args>(args)...);
        claim.next = State::Filled;
        return true;
    }

    R* get() {
        if (m_state.load(std::memory_order_acquire) != State::Filled) return nullptr;
        return std::launder(reinterpret_cast<R*>(m_room));
    }

private:
    enum class State : std::uint8_t { Empty, Claimed, Filled };

    // Empty again where the constructor throws.
    struct Claim {
        explicit Claim(std::atomic<State>* p_claimed) : p_state(p_claimed) {}
        ~Claim() { p_state->store(next, std::memory_order_release); }
        std::atomic<State>* const p_state;
        State next = State::Empty;
    };

    alignas(R) unsigned char m_room[sizeof(R)];
    std::atomic<State> m_state{State::Empty};
};

template <typename T>
constexpr bool checkType() {
    static_assert(
        std::is_object_v<T> && !std::is_array_v<T> && !std::is_const_v<T> && !std::is_volatile_v<T>,
        "a plain type of objects");
    static_assert(!std::is_base_of_v<EventParam, T>,
                  "an EventParam of your own is the event's param itself: set BrowserEvent::param");
    static_assert(alignof(T) <= alignof(std::max_align_t), "over-aligned");
    return true;
}

template <typename T>
struct TEVALON_BASE_LOCAL OperationsOf {
    static_assert(checkType<T>());

    static void destroy(void* p_value) { static_cast<T*>(p_value)->~T(); }
    static std::int32_t intValue(const void* p_value) {
        if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            return static_cast<std::int32_t>(*static_cast<const T*>(p_value));
        } else {
            return 0;
        }
    }
};

template <typename T, typename Reply>
struct TEVALON_BASE_LOCAL TypedLayoutOf {
    static_assert(checkType<Reply>());

    using Slot = ReplySlot<Reply>;
    static constexpr std::uint32_t kSlotOffset =
        (sizeof(T) + alignof(Slot) - 1) / alignof(Slot) * alignof(Slot);

    static void destroy(void* p_value) {
        std::launder(reinterpret_cast<Slot*>(slotRoom(p_value)))->~Slot();
        OperationsOf<T>::destroy(p_value);
    }
    static void* slotRoom(void* p_value) { return static_cast<char*>(p_value) + kSlotOffset; }

    static constexpr TypedLayout kLayout = {&TypeNameOf<T>::kName,
                                            &TypeNameOf<Reply>::kName,
                                            kSlotOffset,
                                            kSlotOffset + sizeof(Slot),
                                            destroy,
                                            OperationsOf<T>::intValue};
};

template <typename T>
struct TEVALON_BASE_LOCAL TypedLayoutOf<T, void> {
    static constexpr TypedLayout kLayout = {
        &TypeNameOf<T>::kName,    nullptr, 0, sizeof(T), OperationsOf<T>::destroy,
        OperationsOf<T>::intValue};
};

/// @tparam Reply  void for a param without a slot.
template <typename T, typename Reply, typename... Args>
TEVALON_BASE_LOCAL EventParam* makeTypedParam(Args&&... args) {
    using Layout = TypedLayoutOf<T, Reply>;
    auto constructAll = [&](void* p_room) {
        construct<T>(p_room, std::forward<Args>(args)...);
        if constexpr (!std::is_void_v<Reply>) {
            construct<ReplySlot<Reply>>(Layout::slotRoom(p_room));
        }
    };
    return newTypedParam(
        Layout::kLayout,
        [](void* p_room, void* p_constructAll) {
            (*static_cast<decltype(constructAll)*>(p_constructAll))(p_room);
        },
        &constructAll);
}

/// Null where @p p_event is, or has no slot for a Reply.
template <typename Reply>
TEVALON_BASE_LOCAL ReplySlot<Reply>* replySlotOf(const BrowserEvent* p_event) {
    if (p_event == nullptr) return nullptr;
    return static_cast<ReplySlot<Reply>*>(
        findTypedPart(p_event->param, TypedPart::ReplySlot, TypeNameOf<Reply>::kName));
}

}  // namespace tevalon::base::event_dispatcher::internal

#endif  // BASE_EVENT_DISPATCHER_INTERNAL_TYPED_PARAM_H

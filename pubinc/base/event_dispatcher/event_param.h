// event_param.h: the base of what an event carries.

#ifndef BASE_EVENT_DISPATCHER_EVENT_PARAM_H
#define BASE_EVENT_DISPATCHER_EVENT_PARAM_H

#include <cstddef>
#include <cstdint>
#include <new>

#include "base/export.h"

namespace tevalon::base::event_dispatcher {

/// Derive from it to give an event a payload of your own. A payload is read without a lock by
/// every handler that gets its event, so it must not change once the event has been sent.
///
/// Payloads of up to 16 words are allocated from a cache that they share with events, since mostly
/// another thread frees them than made them. It keeps at most 32 KiB for the process, and for each
/// thread 16 blocks of each size. A class of your own may bring operators of its own; if it
/// inherits some from a second base, a using-declaration says which it means. Any other form of
/// placement new is spelled ::new.
class TEVALON_BASE_EXPORT EventParam {
public:
    EventParam() = default;
    /// @{
    /// Payloads may be copied; the base has nothing that is.
    EventParam(const EventParam&) = default;
    EventParam& operator=(const EventParam&) = default;
    /// @}
    virtual ~EventParam();

    /// @{
    /// As the global ones; the first throws std::bad_alloc. Each block comes from the global
    /// operator new, so that a module which was built without these may free it by the global
    /// delete. Any thread may call any of them.
    static void* operator new(std::size_t size);
    static void operator delete(void* p_memory, std::size_t size) noexcept;
    static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept;
    static void operator delete(void* p_memory, const std::nothrow_t& tag) noexcept;
    /// @}
    /// @{
    /// As the global ones: the forms that the others would hide.
    static void* operator new(std::size_t /*size*/, void* p_place) noexcept { return p_place; }
    static void operator delete(void* /*p_memory*/, void* /*p_place*/) noexcept {}
#ifdef __cpp_aligned_new  // Not before C++17, nor where it is switched off.
    static void* operator new(std::size_t size, std::align_val_t alignment) {
        return ::operator new(size, alignment);
    }
    // Without the size: where a constructor throws, compilers look for this form alone.
    static void operator delete(void* p_memory, std::align_val_t alignment) noexcept {
        ::operator delete(p_memory, alignment);
    }
    static void* operator new(std::size_t size, std::align_val_t alignment,
                              const std::nothrow_t& tag) noexcept {
        return ::operator new(size, alignment, tag);
    }
    static void operator delete(void* p_memory, std::align_val_t alignment,
                                const std::nothrow_t& tag) noexcept {
        ::operator delete(p_memory, alignment, tag);
    }
#endif
    /// @}

    /// One number, for payloads that are little more. 0 unless overridden.
    virtual std::int32_t intValue();
};

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_EVENT_PARAM_H

// Plain accesses, as the thread sanitizer's instrumentation reports them.
#include <cstddef>
#include <cstdint>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

void access(const volatile void* p_address, std::size_t size, bool isWrite, const void* p_place) {
    if (!isHooked()) return;
    g_schedule.access(reinterpret_cast<std::uintptr_t>(p_address), size, {isWrite, false, false},
                      reinterpret_cast<std::uintptr_t>(p_place));
}

}  // namespace

void linkAccessHooks() {}

}  // namespace tevalon::testkit

using tevalon::testkit::access;

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the compiler calls.
#define TESTKIT_ACCESS(name, size, isWrite)                            \
    TESTKIT_HOOK void __tsan_##name(void* p_address) {                 \
        access(p_address, size, isWrite, __builtin_return_address(0)); \
    }
#define TESTKIT_ACCESSES(prefix)              \
    TESTKIT_ACCESS(prefix##read1, 1, false)   \
    TESTKIT_ACCESS(prefix##read2, 2, false)   \
    TESTKIT_ACCESS(prefix##read4, 4, false)   \
    TESTKIT_ACCESS(prefix##read8, 8, false)   \
    TESTKIT_ACCESS(prefix##read16, 16, false) \
    TESTKIT_ACCESS(prefix##write1, 1, true)   \
    TESTKIT_ACCESS(prefix##write2, 2, true)   \
    TESTKIT_ACCESS(prefix##write4, 4, true)   \
    TESTKIT_ACCESS(prefix##write8, 8, true)   \
    TESTKIT_ACCESS(prefix##write16, 16, true)
TESTKIT_ACCESSES()
TESTKIT_ACCESSES(unaligned_)
TESTKIT_ACCESSES(volatile_)
TESTKIT_ACCESSES(unaligned_volatile_)

TESTKIT_HOOK void __tsan_read_range(void* p_address, unsigned long size) {
    access(p_address, size, false, __builtin_return_address(0));
}
TESTKIT_HOOK void __tsan_write_range(void* p_address, unsigned long size) {
    access(p_address, size, true, __builtin_return_address(0));
}
// Of an object's pointer to its virtual functions; the same value again is no write.
TESTKIT_HOOK void __tsan_vptr_update(void** p_vptr, void* p_value) {
    if (*p_vptr != p_value) access(p_vptr, sizeof(void*), true, __builtin_return_address(0));
}
TESTKIT_HOOK void __tsan_vptr_read(void** p_vptr) {
    access(p_vptr, sizeof(void*), false, __builtin_return_address(0));
}
TESTKIT_HOOK void __tsan_init() {}
TESTKIT_HOOK void __tsan_func_entry(void*) {}
TESTKIT_HOOK void __tsan_func_exit() {}
TESTKIT_HOOK void* __tsan_memcpy(void* p_to, const void* p_from, std::size_t size) {
    access(p_from, size, false, __builtin_return_address(0));
    access(p_to, size, true, __builtin_return_address(0));
    return __builtin_memcpy(p_to, p_from, size);
}
TESTKIT_HOOK void* __tsan_memmove(void* p_to, const void* p_from, std::size_t size) {
    access(p_from, size, false, __builtin_return_address(0));
    access(p_to, size, true, __builtin_return_address(0));
    return __builtin_memmove(p_to, p_from, size);
}
TESTKIT_HOOK void* __tsan_memset(void* p_to, int value, std::size_t size) {
    access(p_to, size, true, __builtin_return_address(0));
    return __builtin_memset(p_to, value, size);
}
// NOLINTEND(bugprone-reserved-identifier)

// The allocator: deterministic, and without reuse while a schedule runs.
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

constexpr std::size_t kAlignment = 16;
constexpr std::size_t kPartBytes = std::size_t{sizeof(void*) == 8 ? 256 : 24} << 20U;
constexpr std::size_t kStacksBytes = kStackBytes * kMostThreads;
constexpr std::size_t kClasses = 64;  // Of sizes, for reuse outside of schedules.

struct Header {
    std::size_t size;
    std::size_t isFreed;
};
static_assert(sizeof(Header) <= kAlignment);

struct FreeBlock {
    FreeBlock* p_next;
};

struct Part {
    std::size_t used;
};

unsigned char* g_memory = nullptr;
// A part for each thread of a schedule, and one for the explorer itself: what it allocates between
// two schedules must not move a scenario's objects.
constexpr int kOfExplorer = kMostThreads;
constexpr std::size_t kParts = kMostThreads + 1;
std::array<Part, kParts> g_parts;
std::array<FreeBlock*, kClasses> g_free;
__attribute__((tls_model("initial-exec"))) thread_local int t_part = kOfExplorer;

unsigned char* memory() {
    if (g_memory == nullptr) {
        void* const p_memory =
            mmap(nullptr, kPartBytes * kParts + kStacksBytes, PROT_READ | PROT_WRITE,
                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (p_memory == MAP_FAILED) __builtin_trap();
        g_memory = static_cast<unsigned char*>(p_memory);
    }
    return g_memory;
}

Header* headerOf(void* p_block) {
    return reinterpret_cast<Header*>(static_cast<unsigned char*>(p_block) - kAlignment);
}

bool isOurs(const void* p_block) {
    const auto* const p_byte = static_cast<const unsigned char*>(p_block);
    return g_memory != nullptr && p_byte >= g_memory && p_byte < g_memory + kPartBytes * kParts;
}

void* allocate(std::size_t size, std::size_t alignment) {
    if (size > kPartBytes / 2) {
        errno = ENOMEM;
        return nullptr;
    }
    const std::size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
    const std::size_t index = rounded / kAlignment;
    if (index < kClasses && alignment == kAlignment && !g_schedule.isActive()) {
        if (FreeBlock* const p_block = g_free[index]) {
            g_free[index] = p_block->p_next;
            headerOf(p_block)->isFreed = 0;
            headerOf(p_block)->size = size;
            return p_block;
        }
    }
    Part& part = g_parts[static_cast<std::size_t>(t_part)];
    unsigned char* const p_part = memory() + kPartBytes * static_cast<std::size_t>(t_part);
    const auto begin = reinterpret_cast<std::uintptr_t>(p_part + part.used) + kAlignment;
    const std::uintptr_t aligned = (begin + alignment - 1) / alignment * alignment;
    const std::size_t used = aligned + rounded - reinterpret_cast<std::uintptr_t>(p_part);
    if (used > kPartBytes) {
        errno = ENOMEM;
        return nullptr;
    }
    part.used = used;
    auto* const p_block = reinterpret_cast<void*>(aligned);
    ::new (headerOf(p_block)) Header{size, 0};
    return p_block;
}

void release(void* p_block, const void* p_place) {
    if (p_block == nullptr || !isOurs(p_block)) return;
    Header* const p_header = headerOf(p_block);
    if (isHooked()) {
        const auto address = reinterpret_cast<std::uintptr_t>(p_block);
        if (p_header->isFreed != 0) {
            g_schedule.finish(Outcome::UseAfterEnd, "memory at %#zx is freed twice", address);
        }
        p_header->isFreed = 1;
        g_schedule.freed(address, p_header->size, reinterpret_cast<std::uintptr_t>(p_place));
        return;
    }
    p_header->isFreed = 1;
    if (g_schedule.isActive()) return;
    const std::size_t index = (p_header->size + kAlignment - 1) / kAlignment;
    if (index == 0 || index >= kClasses) return;
    g_free[index] = ::new (p_block) FreeBlock{g_free[index]};
}

}  // namespace

void linkMemoryHooks() {}

void allocateFrom(int part) {
    t_part = part;
}

void* stackOf(int thread) {
    return memory() + kPartBytes * kParts + kStackBytes * static_cast<std::size_t>(thread);
}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;

TESTKIT_HOOK void* malloc(std::size_t size) {
    return testkit::allocate(size, testkit::kAlignment);
}
TESTKIT_HOOK void free(void* p_block) {
    testkit::release(p_block, __builtin_return_address(0));
}
TESTKIT_HOOK void* calloc(std::size_t count, std::size_t size) {
    if (size != 0 && count > SIZE_MAX / size) return nullptr;
    void* const p_block = testkit::allocate(count * size, testkit::kAlignment);
    return p_block != nullptr ? std::memset(p_block, 0, count * size) : nullptr;
}
TESTKIT_HOOK void* realloc(void* p_block, std::size_t size) {
    if (p_block == nullptr) return testkit::allocate(size, testkit::kAlignment);
    void* const p_moved = testkit::allocate(size, testkit::kAlignment);
    if (p_moved == nullptr) return nullptr;
    const std::size_t before = testkit::headerOf(p_block)->size;
    std::memcpy(p_moved, p_block, before < size ? before : size);
    testkit::release(p_block, __builtin_return_address(0));
    return p_moved;
}
TESTKIT_HOOK void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return testkit::allocate(size,
                             alignment < testkit::kAlignment ? testkit::kAlignment : alignment);
}
TESTKIT_HOOK void* memalign(std::size_t alignment, std::size_t size) {
    return aligned_alloc(alignment, size);
}
TESTKIT_HOOK int posix_memalign(void** p_result, std::size_t alignment, std::size_t size) {
    *p_result = aligned_alloc(alignment, size);
    return *p_result != nullptr ? 0 : ENOMEM;
}
TESTKIT_HOOK std::size_t malloc_usable_size(void* p_block) {
    return p_block != nullptr ? testkit::headerOf(p_block)->size : 0;
}

// For the place that the story shows: without these it would be in the C++ library.
void operator delete(void* p_block) noexcept {
    testkit::release(p_block, __builtin_return_address(0));
}
void operator delete(void* p_block, std::size_t) noexcept {
    testkit::release(p_block, __builtin_return_address(0));
}
void operator delete[](void* p_block) noexcept {
    testkit::release(p_block, __builtin_return_address(0));
}
void operator delete[](void* p_block, std::size_t) noexcept {
    testkit::release(p_block, __builtin_return_address(0));
}

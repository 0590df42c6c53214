#include "support/allocation_count.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

// The C library's own allocator under the names that it keeps for those who replace malloc().
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace {

// Relaxed: the figures are read when all threads that matter have come to rest.
std::atomic<bool> g_isCounting{false};
std::atomic<std::int64_t> g_calls{0};
std::atomic<std::int64_t> g_bytes{0};

bool isCounting() {
    return g_isCounting.load(std::memory_order_relaxed);
}

void* taken(void* p_memory) {
    if (isCounting() && p_memory != nullptr) {
        g_calls.fetch_add(1, std::memory_order_relaxed);
        g_bytes.fetch_add(static_cast<std::int64_t>(malloc_usable_size(p_memory)),
                          std::memory_order_relaxed);
    }
    return p_memory;
}

void given(void* p_memory) {
    if (isCounting() && p_memory != nullptr) {
        g_bytes.fetch_sub(static_cast<std::int64_t>(malloc_usable_size(p_memory)),
                          std::memory_order_relaxed);
    }
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return taken(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return taken(__libc_calloc(count, size));
}

void* realloc(void* p_memory, std::size_t size) {
    given(p_memory);
    return taken(__libc_realloc(p_memory, size));
}

void* memalign(std::size_t alignment, std::size_t size) {
    return taken(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return taken(__libc_memalign(alignment, size));
}

int posix_memalign(void** pp_memory, std::size_t alignment, std::size_t size) {
    void* const p_memory = taken(__libc_memalign(alignment, size));
    if (p_memory == nullptr) return ENOMEM;
    *pp_memory = p_memory;
    return 0;
}

void free(void* p_memory) {
    given(p_memory);
    __libc_free(p_memory);
}

}  // extern "C"

namespace bench {

AllocationCount::AllocationCount() {
    g_calls = 0;
    g_bytes = 0;
    g_isCounting = true;
}

AllocationCount::~AllocationCount() {
    g_isCounting = false;
}

std::int64_t AllocationCount::calls() const {
    return g_calls.load(std::memory_order_relaxed);
}

std::int64_t AllocationCount::bytes() const {
    return g_bytes.load(std::memory_order_relaxed);
}

}  // namespace bench

// block_cache.h: small blocks of memory that one thread allocates and another one frees.

#ifndef SRC_EVENT_DISPATCHER_BLOCK_CACHE_H
#define SRC_EVENT_DISPATCHER_BLOCK_CACHE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>

// 1 where no sanitizer is at work, 2 always: for its own tests under sanitizers.
#ifndef TEVALON_BASE_BLOCK_CACHE
#define TEVALON_BASE_BLOCK_CACHE 0
#endif

namespace tevalon::base::event_dispatcher {

/// A cache in front of the global operators new and delete for blocks of up to kMostWords words:
/// events, their payloads, and a queue's chunks. A sender allocates them and a handler thread frees
/// them, which is the slow case of most allocators. Each thread keeps up to
/// kBatch blocks of each size; full batches go through a depot that all threads share (magazines
/// and depot: Bonwick and Adams, USENIX 2001).
///
/// A block is nothing but what the global operator new returns, and any may be freed by the global
/// operator delete: modules that were built without the cache exchange blocks with it freely.
///
/// The depot keeps at most kMostInDepot bytes, a thread at most kBatch blocks of each size that
/// it uses, until it ends: what a burst of events took beyond that is given back as it is handled.
///
/// Off where a sanitizer is at work, which would not find the use of a block that is only cached,
/// and without TEVALON_BASE_BLOCK_CACHE.
///
/// Thread-safety: any thread may call anything. Never waits for another thread.
class BlockCache {
public:
    static constexpr std::size_t kWord = sizeof(void*);
    static constexpr std::size_t kLeastWords = 2;  // A cached block holds two links.
    static constexpr std::size_t kMostWords = 16;
    static constexpr std::uint8_t kBatch = 16;
    static constexpr std::size_t kMostInDepot = std::size_t{32} * 1024;

    /// As the global operator new: throws std::bad_alloc.
    static void* allocate(std::size_t size) {
#if TEVALON_BASE_BLOCK_CACHE
        if (isCached(size)) {
            OfThread& own = ofThisThread();
            const std::size_t words = size / kWord;
            if (Block* const p_block = own.blocks[words]) {
                pop(&own, words);
                return p_block;
            }
            return allocateSlowly(words);
        }
#endif
        return ::operator new(size);
    }

    /// @param size  What the block was allocated with.
    static void free(void* p_memory, [[maybe_unused]] std::size_t size) noexcept {
#if TEVALON_BASE_BLOCK_CACHE
        if (isCached(size) && p_memory != nullptr) {
            OfThread& own = ofThisThread();
            const std::size_t words = size / kWord;
            if (own.room[words] == 0) return freeSlowly(p_memory, words);
            push(&own, p_memory, words);
            return;
        }
#endif
        ::operator delete(p_memory);
    }

private:
    struct Block {
        Block* p_next;
        Block* p_nextBatch;  // Of the first block of a batch in the depot.
    };

    // What a thread keeps. All zero before its first block, and again from its end on: no room
    // leads to the slow path, which looks at the state.
    struct OfThread {
        enum class State : std::uint8_t { kNew, kOpen, kClosed };

        std::array<Block*, kMostWords + 1> blocks;  // By words.
        std::array<std::uint8_t, kMostWords + 1> room;
        State state;
    };

    class Depot;
    class ThreadEnds;

    static bool isCached(std::size_t size) {
        return size % kWord == 0 && size / kWord - kLeastWords <= kMostWords - kLeastWords;
    }
    // Keeps the compiler from computing the address anew for each access: five instructions on ARM.
    static OfThread& ofThisThread() {
        OfThread* p_own = &t_own;
        __asm__("" : "+r"(p_own));
        return *p_own;
    }
    static void pop(OfThread* p_own, std::size_t words) {
        Block* const p_next = p_own->blocks[words]->p_next;
        p_own->blocks[words] = p_next;
        ++p_own->room[words];
        // Another processor has written it last.
        if (p_next != nullptr) __builtin_prefetch(p_next, 1);
    }
    static void push(OfThread* p_own, void* p_memory, std::size_t words) {
        p_own->blocks[words] = ::new (p_memory) Block{p_own->blocks[words], nullptr};
        --p_own->room[words];
    }

    static void* allocateSlowly(std::size_t words);
    static void freeSlowly(void* p_memory, std::size_t words) noexcept;
    static bool isOpen(OfThread* p_own);
    static void close(OfThread* p_own);
    static void giveBack(Block* p_first, bool isBatch, std::size_t words);

    static Depot s_depot;
    // In the block that every thread has from its start; see OwnThread.
    __attribute__((tls_model("initial-exec"))) static inline thread_local OfThread t_own{};
};

/// For standard containers, and for std::allocate_shared().
template <typename T>
class BlockAllocator {
public:
    using value_type = T;

    BlockAllocator() = default;
    template <typename Other>
    BlockAllocator(const BlockAllocator<Other>& /*other*/) {}  // NOLINT: as allocators convert.

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= alignof(std::max_align_t));
        return static_cast<T*>(BlockCache::allocate(count * sizeof(T)));
    }
    void deallocate(T* p_memory, std::size_t count) noexcept {
        BlockCache::free(p_memory, count * sizeof(T));
    }
};

template <typename T, typename Other>
bool operator==(const BlockAllocator<T>& /*left*/, const BlockAllocator<Other>& /*right*/) {
    return true;
}

template <typename T, typename Other>
bool operator!=(const BlockAllocator<T>& /*left*/, const BlockAllocator<Other>& /*right*/) {
    return false;
}

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_BLOCK_CACHE_H

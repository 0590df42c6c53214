#include "event_dispatcher/block_cache.h"

#if TEVALON_BASE_BLOCK_CACHE

#include <pthread.h>

#include <atomic>
#include <utility>

// The run-time libraries of sanitizers that a client may bring, though we were built without.
// NOLINTBEGIN(bugprone-reserved-identifier): theirs to reserve.
extern "C" {
__attribute__((weak)) void __asan_init();
__attribute__((weak)) void __hwasan_init();
__attribute__((weak)) void __tsan_init();
}
// NOLINTEND(bugprone-reserved-identifier)

namespace tevalon::base::event_dispatcher {
namespace {

bool hasSanitizer() {
    if constexpr (TEVALON_BASE_BLOCK_CACHE == 2) return false;
    return &__asan_init != nullptr || &__hwasan_init != nullptr || &__tsan_init != nullptr;
}

}  // namespace

// Full batches of all threads. Whoever meets another thread here does without: neither is worth
// waiting, and the child of a fork() may find the flag set for good.
class BlockCache::Depot {
public:
    /// Leaves the batch to the caller where there is no room.
    bool put(Block* p_batch, std::size_t words) {
        const std::size_t bytes = words * kWord * kBatch;
        if (load(m_bytes) + bytes > kMostInDepot) return false;
        const Access access(this);
        if (!access || load(m_bytes) + bytes > kMostInDepot) return false;
        store(&m_bytes, load(m_bytes) + bytes);
        p_batch->p_nextBatch = load(m_batches[words]);
        store(&m_batches[words], p_batch);
        return true;
    }

    /// A batch, or null.
    Block* take(std::size_t words) {
        if (load(m_batches[words]) == nullptr) return nullptr;
        const Access access(this);
        Block* const p_batch = load(m_batches[words]);
        if (!access || p_batch == nullptr) return nullptr;
        store(&m_bytes, load(m_bytes) - words * kWord * kBatch);
        store(&m_batches[words], p_batch->p_nextBatch);
        return p_batch;
    }

    /// Frees all batches that are not just being taken.
    void clear() {
        for (std::size_t words = kLeastWords; words <= kMostWords; ++words) {
            while (Block* const p_batch = take(words)) giveBack(p_batch, false, words);
        }
    }

private:
    class Access {
    public:
        explicit Access(Depot* p_depot)
            : m_depot(p_depot->m_isBusy.exchange(true, std::memory_order_acquire) ? nullptr
                                                                                  : p_depot) {}
        ~Access() {
            if (m_depot != nullptr) m_depot->m_isBusy.store(false, std::memory_order_release);
        }

        Access(const Access&) = delete;
        Access& operator=(const Access&) = delete;

        explicit operator bool() const { return m_depot != nullptr; }

    private:
        Depot* const m_depot;
    };

    // What Access guards is looked at without it first, for there is often nothing to be had.
    template <typename T>
    static T load(const std::atomic<T>& value) {
        return value.load(std::memory_order_relaxed);
    }
    template <typename T>
    static void store(std::atomic<T>* p_value, T value) {
        p_value->store(value, std::memory_order_relaxed);
    }

    std::atomic<bool> m_isBusy{false};
    std::atomic<std::size_t> m_bytes{0};
    std::array<std::atomic<Block*>, kMostWords + 1> m_batches{};
};

alignas(64) BlockCache::Depot BlockCache::s_depot;

// Calls close() for each thread that has a cache when that ends. Until the library is unloaded or
// the process ends: then what the depot and this thread have is given back, lest a module that is
// loaded again and again leaves it behind each time; other threads keep what they have.
class BlockCache::ThreadEnds {
public:
    static bool watch(OfThread* p_own) {
        // No static object: a forked child would wait for ever for a thread of its parent's that
        // was just creating it.
        (void)pthread_once(&s_once, begin);
        return s_hasKey && pthread_setspecific(s_key, p_own) == 0;
    }

private:
    static void begin() {
        if (hasSanitizer() || pthread_key_create(&s_key, atEnd) != 0) return;
        s_hasKey = true;
    }

    // Nothing that is registered on the way, for that can fail, and the thread sanitizer takes what
    // std::atexit() is given for the process's instead of the module's.
    [[gnu::destructor]] static void end() {
        if (!s_hasKey.exchange(false)) return;
        (void)pthread_key_delete(s_key);
        if (t_own.state == OfThread::State::kOpen) close(&t_own);
        s_depot.clear();
    }

    static void atEnd(void* p_own) { close(static_cast<OfThread*>(p_own)); }

    static inline pthread_once_t s_once = PTHREAD_ONCE_INIT;
    static inline pthread_key_t s_key = 0;
    // Threads that start while the process ends must not take the key, which may be somebody
    // else's then.
    static inline std::atomic<bool> s_hasKey{false};
};

bool BlockCache::isOpen(OfThread* p_own) {
    using State = OfThread::State;
    if (p_own->state == State::kNew) {
        p_own->state = ThreadEnds::watch(p_own) ? State::kOpen : State::kClosed;
        if (p_own->state == State::kOpen) p_own->room.fill(kBatch);
    }
    return p_own->state == State::kOpen;
}

void BlockCache::close(OfThread* p_own) {
    p_own->state = OfThread::State::kClosed;
    for (std::size_t words = kLeastWords; words <= kMostWords; ++words) {
        const bool isBatch = std::exchange(p_own->room[words], 0) == 0;
        giveBack(std::exchange(p_own->blocks[words], nullptr), isBatch, words);
    }
}

void BlockCache::giveBack(Block* p_first, bool isBatch, std::size_t words) {
    if (isBatch && s_depot.put(p_first, words)) return;
    while (p_first != nullptr) ::operator delete(std::exchange(p_first, p_first->p_next));
}

void* BlockCache::allocateSlowly(std::size_t words) {
    OfThread& own = t_own;
    if (isOpen(&own)) {
        if (Block* const p_batch = s_depot.take(words)) {
            own.blocks[words] = p_batch;
            own.room[words] = 0;
            pop(&own, words);
            return p_batch;
        }
    }
    return ::operator new(words* kWord);
}

void BlockCache::freeSlowly(void* p_memory, std::size_t words) noexcept {
    OfThread& own = t_own;
    if (!isOpen(&own)) return ::operator delete(p_memory);
    while (own.room[words] == 0) {
        own.room[words] = kBatch;  // First: a client's operator delete may come back here.
        giveBack(std::exchange(own.blocks[words], nullptr), true, words);
    }
    push(&own, p_memory, words);
}

}  // namespace tevalon::base::event_dispatcher

#endif

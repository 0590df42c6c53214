// A module with a cache of its own, as one has that the static library is linked into.

#include <pthread.h>

#include <array>
#include <thread>

#include "event_dispatcher/block_cache.h"

namespace {

using tevalon::base::event_dispatcher::BlockCache;

constexpr std::size_t kSize = 7 * sizeof(void*);

int* g_p_strayValues = nullptr;

void useCache() {
    std::array<void*, 200> blocks{};
    for (void*& p_block : blocks) p_block = BlockCache::allocate(kSize);
    for (void* const p_block : blocks) BlockCache::free(p_block, kSize);
}

/// Made before the first use of the cache, and so destroyed after it was shut down: counts what a
/// thread that starts then finds in keys of which nobody has set a value.
class LateThread {
public:
    ~LateThread() {
        if (g_p_strayValues == nullptr) return;
        std::array<pthread_key_t, 8> keys{};
        for (pthread_key_t& key : keys) (void)pthread_key_create(&key, nullptr);
        std::thread([&] {
            useCache();
            for (const pthread_key_t key : keys) {
                if (pthread_getspecific(key) != nullptr) ++*g_p_strayValues;
            }
        }).join();
        for (const pthread_key_t key : keys) (void)pthread_key_delete(key);
    }
};

const LateThread g_lateThread;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void useBlockCache();
__attribute__((visibility("default"))) void countStrayValuesWhenUnloaded(int* p_strayValues);

void useBlockCache() {
    useCache();
}

void countStrayValuesWhenUnloaded(int* p_strayValues) {
    g_p_strayValues = p_strayValues;
}
}

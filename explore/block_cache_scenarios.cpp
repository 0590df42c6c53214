// The cache of small blocks, which library builds have and other scenarios leave out.
#include <thread>

#include "event_dispatcher/block_cache.h"
#include "testkit/explore.h"

using tevalon::base::event_dispatcher::BlockCache;

namespace {

constexpr std::size_t kSize = 4 * BlockCache::kWord;
constexpr int kBatch = BlockCache::kBatch;

/// As many blocks as fill a thread's own cache, and one batch for the depot.
struct Blocks {
    void allocate() {
        for (void*& p_block : blocks) p_block = BlockCache::allocate(kSize);
    }
    void free() {
        for (void* p_block : blocks) BlockCache::free(p_block, kSize);
    }
    void* blocks[kBatch + 1];
};

}  // namespace

// One fills the depot, the other one empties it.
TEVALON_SCENARIO(BlockCacheDepot) {
    Blocks own;
    own.allocate();
    std::thread other([] {
        Blocks others;
        others.allocate();
        others.free();
    });
    own.free();
    Blocks again;
    again.allocate();
    again.free();
    other.join();
}

TEVALON_SCENARIO(BlockCacheThreadEnds) {
    std::thread first([] {
        Blocks blocks;
        blocks.allocate();
        blocks.free();
    });
    std::thread second([] {
        Blocks blocks;
        blocks.allocate();
        blocks.free();
    });
    first.join();
    second.join();
}

// What one allocates the other one writes to, and frees.
TEVALON_SCENARIO(BlockCacheHandedOver) {
    Blocks blocks;
    blocks.allocate();
    for (void* p_block : blocks.blocks) *static_cast<int*>(p_block) = 1;
    std::thread other([&] {
        for (void* p_block : blocks.blocks) *static_cast<int*>(p_block) = 2;
        blocks.free();
    });
    Blocks own;
    own.allocate();
    own.free();
    other.join();
}

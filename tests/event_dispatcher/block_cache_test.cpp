#include "event_dispatcher/block_cache.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "support/fault_injection.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::event_dispatcher::BlockAllocator;
using tevalon::base::event_dispatcher::BlockCache;

constexpr std::size_t kSize = 7 * sizeof(void*);
constexpr std::size_t kOtherSize = 3 * sizeof(void*);

std::vector<void*> allocate(std::size_t count, std::size_t size = kSize) {
    std::vector<void*> blocks;
    blocks.reserve(count);
    for (std::size_t i = 0; i < count; ++i) blocks.push_back(BlockCache::allocate(size));
    return blocks;
}

void free(const std::vector<void*>& blocks, std::size_t size = kSize) {
    for (void* const p_block : blocks) BlockCache::free(p_block, size);
}

/// Of this thread.
long allocationsDuring(const std::function<void()>& action) {
    const test::CountCalls allocations(Call::New, When().everyTime());
    action();
    return allocations.seen();
}

/// In a thread that has no cache yet; whatever it keeps, it hands back at its end.
void onNewThread(const std::function<void()>& action) {
    std::thread(action).join();
}

/// Everything that the depot keeps of this size is taken out and freed for good.
void emptyDepot(std::size_t size = kSize) {
    onNewThread([&] {
        for (void* const p_block : allocate(BlockCache::kMostInDepot / size + 1, size)) {
            ::operator delete(p_block);
        }
    });
}

TEST(BlockCacheTest, ABlockThatWasFreedIsAllocatedAgain) {
    onNewThread([] {
        void* const p_block = BlockCache::allocate(kSize);
        BlockCache::free(p_block, kSize);

        void* const p_again = BlockCache::allocate(kSize);

        EXPECT_EQ(p_again, p_block);
        BlockCache::free(p_again, kSize);
    });
}

TEST(BlockCacheTest, EachSizeHasItsOwn) {
    onNewThread([] {
        emptyDepot(kOtherSize);
        void* const p_block = BlockCache::allocate(kSize);
        BlockCache::free(p_block, kSize);

        void* const p_other = BlockCache::allocate(kOtherSize);

        EXPECT_NE(p_other, p_block);
        BlockCache::free(p_other, kOtherSize);
    });
}

TEST(BlockCacheTest, AFullBatchReachesOtherThreads) {
    emptyDepot();
    onNewThread([] { free(allocate(BlockCache::kBatch + 1)); });
    onNewThread([] {
        std::vector<void*> blocks;
        blocks.reserve(BlockCache::kBatch + 1);

        const long allocations = allocationsDuring([&] {
            for (int i = 0; i <= BlockCache::kBatch; ++i) {
                blocks.push_back(BlockCache::allocate(kSize));
            }
        });

        EXPECT_EQ(allocations, 1);
        free(blocks);
    });
    emptyDepot();
}

TEST(BlockCacheTest, KeepsNoMoreThanItMay) {
    constexpr std::size_t kMany = 10'000;
    emptyDepot();
    onNewThread([] { free(allocate(kMany)); });
    onNewThread([] {
        std::vector<void*> blocks;
        blocks.reserve(kMany);

        const long allocations = allocationsDuring([&] {
            for (std::size_t i = 0; i < kMany; ++i) blocks.push_back(BlockCache::allocate(kSize));
        });

        const std::size_t kept = kMany - static_cast<std::size_t>(allocations);
        EXPECT_LE(kept * kSize, BlockCache::kMostInDepot);
        EXPECT_GT(kept * kSize, BlockCache::kMostInDepot - BlockCache::kBatch * kSize);
        free(blocks);
    });
    emptyDepot();
}

TEST(BlockCacheTest, TheBoundIsForAllSizesTogether) {
    constexpr std::size_t kMany = 10'000;
    emptyDepot();
    emptyDepot(kOtherSize);
    onNewThread([] {
        free(allocate(kMany));
        free(allocate(kMany, kOtherSize), kOtherSize);
    });
    onNewThread([] {
        std::vector<void*> blocks;
        blocks.reserve(kMany);

        const long allocations = allocationsDuring([&] {
            for (std::size_t i = 0; i < kMany; ++i) {
                blocks.push_back(BlockCache::allocate(kOtherSize));
            }
        });

        const std::size_t kept = kMany - static_cast<std::size_t>(allocations);
        EXPECT_LE(kept * kOtherSize, BlockCache::kBatch * (kSize + kOtherSize));
        free(blocks, kOtherSize);
    });
    emptyDepot();
    emptyDepot(kOtherSize);
}

TEST(BlockCacheTest, TheLargestSizeIsKept) {
    constexpr std::size_t kLargest = BlockCache::kMostWords * sizeof(void*);
    emptyDepot(kLargest);
    onNewThread([] {
        const long allocations = allocationsDuring([] {
            for (int i = 0; i < 10; ++i) BlockCache::free(BlockCache::allocate(kLargest), kLargest);
        });

        EXPECT_EQ(allocations, 1);
    });
}

// What is no multiple of a word, too small for two links, or too large, is left to the global
// operators: each is a call of them.
TEST(BlockCacheTest, OtherSizesAreNotKept) {
    onNewThread([] {
        for (const std::size_t size : {std::size_t{1}, sizeof(void*), kSize + 1,
                                       (BlockCache::kMostWords + 1) * sizeof(void*)}) {
            const long allocations = allocationsDuring([&] {
                for (int i = 0; i < 10; ++i) BlockCache::free(BlockCache::allocate(size), size);
            });

            EXPECT_EQ(allocations, 10) << size;
        }
    });
}

TEST(BlockCacheTest, ABlockOfTheGlobalOperatorIsAsGood) {
    onNewThread([] {
        void* const p_block = ::operator new(kSize);
        BlockCache::free(p_block, kSize);

        EXPECT_EQ(BlockCache::allocate(kSize), p_block);
        ::operator delete(p_block);
    });
}

TEST(BlockCacheTest, NullIsFreedAsEver) {
    onNewThread([] {
        BlockCache::free(nullptr, kSize);

        void* const p_block = BlockCache::allocate(kSize);
        EXPECT_NE(p_block, nullptr);
        BlockCache::free(p_block, kSize);
    });
}

TEST(BlockCacheTest, WithoutMemoryItThrows) {
    emptyDepot();
    onNewThread([] {
        const test::FailCall noMemory(Call::New, 0);

        EXPECT_THROW((void)BlockCache::allocate(kSize), std::bad_alloc);
    });
}

// A thread-local object that is destroyed after the thread's cache.
TEST(BlockCacheTest, WorksToTheVeryEndOfAThread) {
    struct AtEnd {
        ~AtEnd() { free(allocate(std::size_t{2} * BlockCache::kBatch)); }
    };
    // glibc destroys thread-local objects first, then the values of keys, in rounds: one that a
    // destructor sets is destroyed in the next.
    static pthread_key_t s_key;
    ASSERT_EQ(pthread_key_create(&s_key,
                                 [](void* p_round) {
                                     free(allocate(std::size_t{2} * BlockCache::kBatch));
                                     if (p_round == &s_key)
                                         (void)pthread_setspecific(s_key, &s_key + 1);
                                 }),
              0);

    onNewThread([] {
        free(allocate(std::size_t{2} * BlockCache::kBatch));
        static thread_local AtEnd t_atEnd;
        (void)t_atEnd;
        (void)pthread_setspecific(s_key, &s_key);
    });

    (void)pthread_key_delete(s_key);
}

TEST(BlockCacheTest, TheAllocatorServesContainers) {
    std::deque<int, BlockAllocator<int>> numbers;
    for (int i = 0; i < 1000; ++i) numbers.push_back(i);
    const auto copy = numbers;

    EXPECT_EQ(copy, numbers);
    EXPECT_TRUE(BlockAllocator<int>() == BlockAllocator<char>());
    EXPECT_FALSE(BlockAllocator<int>() != BlockAllocator<char>());
}

/// Blocks on their way from one thread to another.
class Channel {
public:
    void push(void* p_block) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_blocks.push_back(p_block);
    }
    void* pop() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_blocks.empty()) return nullptr;
        void* const p_block = m_blocks.front();
        m_blocks.pop_front();
        return p_block;
    }

private:
    std::mutex m_mutex;
    std::deque<void*> m_blocks;
};

// Each block is written by the thread that has it, and has kept what was written when it is freed:
// it is never handed out twice. A race on it would be found as well.
TEST(BlockCacheTest, NeverHandsOutABlockTwice) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20'000;
    Channel channel;
    std::atomic<int> damaged{0};
    std::vector<std::thread> threads;
    for (int number = 1; number <= kThreads; ++number) {
        threads.emplace_back([&, number] {
            for (int i = 0; i < kRounds; ++i) {
                void* const p_made = BlockCache::allocate(kSize);
                std::memset(p_made, number, kSize);
                channel.push(p_made);
                auto* const p_got = static_cast<unsigned char*>(channel.pop());
                if (p_got == nullptr) continue;
                for (std::size_t at = 1; at < kSize; ++at) damaged += p_got[at] != p_got[0];
                BlockCache::free(p_got, kSize);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    while (void* const p_block = channel.pop()) BlockCache::free(p_block, kSize);

    EXPECT_EQ(damaged, 0);
    emptyDepot();
}

// Who finds the depot busy frees what it has no room for.
TEST(BlockCacheTest, ThreadsThatMeetAtTheDepotLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 5'000;
    constexpr std::size_t kAllocatorsOwn = std::size_t{256} * 1024;
    const auto hammer = [] {
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([] {
                for (int round = 0; round < kRounds; ++round)
                    free(allocate(3 * BlockCache::kBatch));
            });
        }
        for (std::thread& thread : threads) thread.join();
        emptyDepot();
    };
    hammer();  // Arenas and the like are there from then on.
    const std::size_t before = mallinfo2().uordblks;

    hammer();

    EXPECT_LT(mallinfo2().uordblks, before + kAllocatorsOwn);
}

/// A module with a cache of its own, while it is loaded.
class Module {
public:
    Module() : m_handle(dlopen(kPath, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(m_handle, nullptr) << dlerror();
    }
    ~Module() {
        (void)dlclose(m_handle);
        EXPECT_EQ(dlopen(kPath, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
    }

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void useCache() const { reinterpret_cast<void (*)()>(find("useBlockCache"))(); }
    void countStrayValuesWhenUnloaded(int* p_strayValues) const {
        reinterpret_cast<void (*)(int*)>(find("countStrayValuesWhenUnloaded"))(p_strayValues);
    }

private:
    static constexpr const char* kPath = TEVALON_TEST_BLOCK_CACHE_MODULE;

    [[nodiscard]] void* find(const char* name) const { return dlsym(m_handle, name); }

    void* const m_handle;
};

// Seen by the address sanitizer as well, which counts no memory here. The loader keeps a little of
// its own each time.
TEST(BlockCacheTest, AModuleThatIsUnloadedLeavesNoBlocksBehind) {
    constexpr std::size_t kRounds = 10;
    Module().useCache();
    const std::size_t before = mallinfo2().uordblks;

    for (std::size_t i = 0; i < kRounds; ++i) Module().useCache();

    EXPECT_LT(mallinfo2().uordblks, before + kRounds * BlockCache::kBatch * kSize);
}

// The key that it was told of their ends by may be another's then.
TEST(BlockCacheTest, ThreadsThatStartAfterItsEndLeaveKeysAlone) {
    int strayValues = 0;
    {
        const Module module;
        module.countStrayValuesWhenUnloaded(&strayValues);
        module.useCache();
    }

    EXPECT_EQ(strayValues, 0);
}

TEST(BlockCacheTest, IsShutDownByAThreadThatNeverUsedIt) {
    int strayValues = 0;
    {
        const Module module;
        module.countStrayValuesWhenUnloaded(&strayValues);
        onNewThread([&] { module.useCache(); });
    }

    EXPECT_EQ(strayValues, 0);
}

}  // namespace

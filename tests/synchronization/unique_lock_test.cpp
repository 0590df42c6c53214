#include "base/synchronization/unique_lock.h"

#include "synchronization/guard_tests.h"

namespace {

using tevalon::base::Mutex;
using tevalon::base::UniqueLock;

struct UniqueLockIdentity {
    template <typename NativeMutex>
    using On = UniqueLock<NativeMutex>;

    static constexpr const char* kFile = "unique_lock.h";
    static constexpr const char* kName = "UniqueLock";
    static constexpr int kLockLine = 33;
    static constexpr int kUnlockLine = 47;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Guards, GuardTest, UniqueLockIdentity, GuardNames);

TEST(UniqueLockTest, DeducesWhatItHolds) {
    Mutex mutex;
    pthread_mutex_t native = PTHREAD_MUTEX_INITIALIZER;
    std::mutex standard;

    const UniqueLock first(mutex);
    const UniqueLock second(native);
    const UniqueLock third(standard);

    EXPECT_TRUE((std::is_same<decltype(first), const UniqueLock<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(second), const UniqueLock<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(third), const UniqueLock<std::mutex>>::value));
}

TEST(UniqueLockTest, HoldsTheMutexAPointerNames) {
    pthread_mutex_t native = PTHREAD_MUTEX_INITIALIZER;
    std::mutex standard;
    {
        const UniqueLock lock(&native);
        const UniqueLock other(&standard);
        EXPECT_TRUE(isHeld(&native));
        EXPECT_TRUE(isHeld(standard.native_handle()));
    }
    EXPECT_FALSE(isHeld(&native));
    EXPECT_FALSE(isHeld(standard.native_handle()));
}

TEST(UniqueLockTest, OverNullHoldsNothingAndDoesNothing) {
    test::LogCapture log;
    const test::When always = test::When().everyTime();
    test::CountCalls locks(test::Call::PthreadMutexLock, always);
    test::CountCalls unlocks(test::Call::PthreadMutexUnlock, always);
    {
        pthread_mutex_t* const p_none = nullptr;
        std::mutex* const p_noStandard = nullptr;
        const UniqueLock<pthread_mutex_t> lock(p_none);
        const UniqueLock<std::mutex> other(p_noStandard);
        EXPECT_EQ(lock.nativeHandle(), nullptr);
        EXPECT_EQ(other.nativeHandle(), nullptr);
    }
    EXPECT_EQ(locks.seen(), 0);
    EXPECT_EQ(unlocks.seen(), 0);
    EXPECT_TRUE(log.entries().empty());
}

TEST(UniqueLockTest, NativeHandleIsThePosixMutexThatItHolds) {
    Mutex mutex;
    std::mutex standard;

    const UniqueLock lock(mutex);
    const UniqueLock other(standard);

    EXPECT_EQ(lock.nativeHandle(), mutex.nativeHandle());
    EXPECT_EQ(other.nativeHandle(), standard.native_handle());
}

}  // namespace

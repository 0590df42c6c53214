#include "base/synchronization/lock_guard.h"

#include "synchronization/guard_tests.h"

namespace {

using tevalon::base::LockGuard;
using tevalon::base::Mutex;

struct LockGuardIdentity {
    template <typename NativeMutex>
    using On = LockGuard<NativeMutex>;

    static constexpr const char* kFile = "lock_guard.h";
    static constexpr const char* kName = "LockGuard";
    static constexpr int kLockLine = 29;
    static constexpr int kUnlockLine = 43;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Guards, GuardTest, LockGuardIdentity, GuardNames);

TEST(LockGuardTest, DeducesWhatItHolds) {
    Mutex mutex;
    pthread_mutex_t native = PTHREAD_MUTEX_INITIALIZER;
    std::mutex standard;

    const LockGuard first(mutex);
    const LockGuard second(native);
    const LockGuard third(standard);

    EXPECT_TRUE((std::is_same<decltype(first), const LockGuard<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(second), const LockGuard<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(third), const LockGuard<std::mutex>>::value));
}

}  // namespace

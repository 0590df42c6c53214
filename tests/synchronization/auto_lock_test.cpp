#include "base/synchronization/auto_lock.h"

#include "synchronization/guard_tests.h"

namespace {

using tevalon::base::AutoLock;
using tevalon::base::Mutex;

struct AutoLockIdentity {
    template <typename NativeMutex>
    using On = AutoLock<NativeMutex>;

    static constexpr const char* kFile = "auto_lock.h";
    static constexpr const char* kName = "AutoLock";
    static constexpr int kLockLine = 31;
    static constexpr int kUnlockLine = 44;
};

INSTANTIATE_TYPED_TEST_SUITE_P(Guards, GuardTest, AutoLockIdentity, GuardNames);

TEST(AutoLockTest, DeducesWhatItHolds) {
    Mutex mutex;
    pthread_mutex_t native = PTHREAD_MUTEX_INITIALIZER;
    std::mutex standard;

    const AutoLock first(mutex);
    const AutoLock second(native);
    const AutoLock third(standard);

    EXPECT_TRUE((std::is_same<decltype(first), const AutoLock<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(second), const AutoLock<pthread_mutex_t>>::value));
    EXPECT_TRUE((std::is_same<decltype(third), const AutoLock<std::mutex>>::value));
}

}  // namespace

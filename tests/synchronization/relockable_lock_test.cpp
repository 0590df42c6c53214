#include "base/synchronization/relockable_lock.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include "support/event.h"
#include "support/fault_injection.h"
#include "synchronization/guard_tests.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::Mutex;
using tevalon::base::RelockableLock;

TEST(RelockableLockTest, HoldsAMutexForItsScope) {
    Mutex mutex;
    {
        const RelockableLock lock(mutex);
        EXPECT_TRUE(lock.owns_lock());
        EXPECT_EQ(lock.nativeHandle(), mutex.nativeHandle());
        EXPECT_TRUE(isHeld(mutex.nativeHandle()));
    }
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));
}

TEST(RelockableLockTest, IsReleasedAndTakenAgain) {
    Mutex mutex;
    {
        RelockableLock lock(mutex);
        lock.unlock();
        EXPECT_FALSE(lock.owns_lock());
        EXPECT_EQ(lock.nativeHandle(), nullptr);
        EXPECT_FALSE(isHeld(mutex.nativeHandle()));
        lock.lock();
        EXPECT_TRUE(lock.owns_lock());
        EXPECT_TRUE(isHeld(mutex.nativeHandle()));
    }
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));
}

TEST(RelockableLockTest, ReleasedAtItsEndItUnlocksNothing) {
    Mutex mutex;
    test::CountCalls unlocks(Call::PthreadMutexUnlock, When().on(mutex.nativeHandle()).everyTime());
    {
        RelockableLock lock(mutex);
        lock.unlock();
    }
    EXPECT_EQ(unlocks.seen(), 1);
}

TEST(RelockableLockTest, TriesWithoutWaiting) {
    Mutex mutex;
    RelockableLock lock(mutex);
    lock.unlock();
    mutex.lock();
    EXPECT_FALSE(lock.try_lock());
    EXPECT_FALSE(lock.owns_lock());
    mutex.unlock();

    EXPECT_TRUE(lock.try_lock());
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_TRUE(isHeld(mutex.nativeHandle()));
}

TEST(RelockableLockTest, LetsOthersInWhileItIsReleased) {
    Mutex mutex;
    int value = 0;
    test::Event written;
    RelockableLock lock(mutex);
    std::thread other([&] {
        const RelockableLock theirs(mutex);
        value = 7;
        written.set();
    });
    lock.unlock();
    EXPECT_TRUE(written.wait());
    lock.lock();
    EXPECT_EQ(value, 7);
    lock.unlock();
    other.join();
}

TEST(RelockableLockTest, ThrowsWhenTheMutexCannotBeLocked) {
    Mutex mutex;
    test::FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(mutex.nativeHandle()));
    std::string text;
    errno = EDOM;

    try {
        const RelockableLock lock(mutex);
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ(text, "Mutex lock error: " + std::string(std::strerror(EDOM)));
}

TEST(RelockableLockTest, HoldsNothingAfterAFailureToLockAgain) {
    Mutex mutex;
    RelockableLock lock(mutex);
    lock.unlock();
    test::FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(mutex.nativeHandle()));

    EXPECT_THROW(lock.lock(), std::runtime_error);

    EXPECT_FALSE(lock.owns_lock());
}

TEST(RelockableLockTest, IsALockOfTheStandardLibrary) {
    Mutex first;
    Mutex second;
    RelockableLock lock(first);
    lock.unlock();

    { const std::scoped_lock<RelockableLock, Mutex> both(lock, second); }

    EXPECT_FALSE(lock.owns_lock());
    EXPECT_FALSE(std::is_copy_constructible<RelockableLock>::value);
    EXPECT_FALSE(std::is_copy_assignable<RelockableLock>::value);
}

}  // namespace

#include "base/synchronization/mutex.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#include "support/fault_injection.h"
#include "support/threads.h"
#include "synchronization/guard_tests.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::Mutex;

// Not in a test, where the analysis takes it for a call.
constexpr bool kIsUnlockNoexcept = noexcept(std::declval<Mutex&>().unlock());

TEST(MutexTest, IsInitialisedWithDefaultAttributes) {
    pthread_mutex_t* initialised = nullptr;
    const pthread_mutexattr_t* attributes = nullptr;
    test::ReplaceCall<int(pthread_mutex_t*, const pthread_mutexattr_t*)> init(
        Call::PthreadMutexInit,
        [&](pthread_mutex_t* p_mutex, const pthread_mutexattr_t* p_attributes) {
            initialised = p_mutex;
            attributes = p_attributes;
            return pthread_mutex_init(p_mutex, p_attributes);
        });

    Mutex mutex;

    EXPECT_EQ(initialised, mutex.nativeHandle());
    EXPECT_EQ(attributes, nullptr);
    EXPECT_EQ(init.hits(), 1);
}

TEST(MutexTest, IsNotRecursive) {
    Mutex mutex;
    ASSERT_EQ(pthread_mutex_lock(mutex.nativeHandle()), 0);

    EXPECT_EQ(pthread_mutex_trylock(mutex.nativeHandle()), EBUSY);

    pthread_mutex_unlock(mutex.nativeHandle());
}

TEST(MutexTest, ThrowsWithTheDescriptionOfErrnoWhenItCannotBeInitialised) {
    test::FailCall fail(Call::PthreadMutexInit, ENOMEM);
    test::CountCalls destroyed(Call::PthreadMutexDestroy);
    std::string text;
    errno = EDOM;

    try {
        const Mutex mutex;
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ(text, "Mutex init error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(fail.hits(), 1);
    EXPECT_EQ(destroyed.seen(), 0);
}

TEST(MutexTest, DescribesErrorZeroWhenErrnoHasNothingToTell) {
    test::FailCall fail(Call::PthreadMutexInit, ENOMEM);
    std::string text;
    errno = 0;

    try {
        const Mutex mutex;
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ(text, "Mutex init error: Success");
}

TEST(MutexTest, IsDestroyedOnceWhateverCameOfIt) {
    auto p_mutex = std::make_unique<Mutex>();
    test::FailCall destroyed(Call::PthreadMutexDestroy, EBUSY,
                             When().on(p_mutex->nativeHandle()).afterTheCall());

    p_mutex.reset();

    EXPECT_EQ(destroyed.seen(), 1);
}

TEST(MutexTest, IsLockedTriedAndUnlocked) {
    Mutex mutex;

    mutex.lock();
    EXPECT_TRUE(isHeld(mutex.nativeHandle()));
    EXPECT_FALSE(mutex.try_lock());
    mutex.unlock();
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));

    const bool isLocked = mutex.try_lock();
    ASSERT_TRUE(isHeld(mutex.nativeHandle()));
    if (isLocked) mutex.unlock();
    EXPECT_TRUE(isLocked);
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));
}

TEST(MutexTest, WorksInTheGuardsOfTheStandardLibrary) {
    Mutex first;
    Mutex second;
    {
        const std::lock_guard<Mutex> lock(first);
        EXPECT_TRUE(isHeld(first.nativeHandle()));
    }
    {
        const std::scoped_lock<Mutex, Mutex> lock(first, second);
        EXPECT_TRUE(isHeld(first.nativeHandle()));
        EXPECT_TRUE(isHeld(second.nativeHandle()));
    }
    {
        std::unique_lock<Mutex> lock(first);
        lock.unlock();
        EXPECT_FALSE(isHeld(first.nativeHandle()));
        EXPECT_TRUE(lock.try_lock());
    }
    EXPECT_FALSE(isHeld(first.nativeHandle()));
    EXPECT_FALSE(isHeld(second.nativeHandle()));
}

TEST(MutexTest, ExcludesOthersAndShowsThemWhatWasWritten) {
    constexpr int kRounds = 1000;
    Mutex mutex;
    int count = 0;
    test::runAtOnce(3, [&](int) {
        for (int i = 0; i < kRounds; ++i) {
            if (i % 2 == 0) {
                mutex.lock();
            } else {
                while (!mutex.try_lock()) std::this_thread::yield();
            }
            ++count;
            mutex.unlock();
        }
    });

    EXPECT_EQ(count, 3 * kRounds);
}

TEST(MutexTest, ThrowsWithTheDescriptionOfErrnoWhenItCannotBeLocked) {
    Mutex mutex;
    test::FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(mutex.nativeHandle()));
    std::string text;
    errno = EDOM;

    const auto lock = [&]() TEVALON_NO_THREAD_SAFETY_ANALYSIS { mutex.lock(); };
    try {
        lock();
    } catch (const std::runtime_error& error) {
        text = error.what();
    }

    EXPECT_EQ(text, "Mutex lock error: " + std::string(std::strerror(EDOM)));
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));
}

TEST(MutexTest, AFailedUnlockIsNotReported) {
    const test::LogCapture log;
    Mutex mutex;
    mutex.lock();
    test::FailCall fail(Call::PthreadMutexUnlock, EPERM,
                        When().on(mutex.nativeHandle()).afterTheCall());

    mutex.unlock();

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_TRUE(kIsUnlockNoexcept);
    EXPECT_TRUE(log.entries().empty());
}

TEST(MutexTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<Mutex>::value);
    EXPECT_FALSE(std::is_copy_assignable<Mutex>::value);
}

}  // namespace

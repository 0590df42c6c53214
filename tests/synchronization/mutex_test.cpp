#include "base/synchronization/mutex.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "support/fault_injection.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::Mutex;

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

TEST(MutexTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<Mutex>::value);
    EXPECT_FALSE(std::is_copy_assignable<Mutex>::value);
}

}  // namespace

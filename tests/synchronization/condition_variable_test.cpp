#include "base/synchronization/condition_variable.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/lock_guard.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "synchronization/guard_tests.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::AutoLock;
using tevalon::base::ConditionVariable;
using tevalon::base::LockGuard;
using tevalon::base::Mutex;
using tevalon::base::UniqueLock;

/// What @p action throws with errno at @p error before; "" when it throws nothing.
std::string thrownText(int error, const std::function<void()>& action) {
    errno = error;
    try {
        action();
    } catch (const std::runtime_error& thrown) {
        return thrown.what();
    }
    return "";
}

TEST(ConditionVariableTest, IsZeroFilledAndInitialisedWithDefaultAttributes) {
    bool wasZero = false;
    const pthread_condattr_t* attributes = nullptr;
    test::ReplaceCall<int(pthread_cond_t*, const pthread_condattr_t*)> init(
        Call::PthreadCondInit, [&](pthread_cond_t* p_cond, const pthread_condattr_t* p_attributes) {
            const char* const bytes = reinterpret_cast<const char*>(p_cond);
            wasZero =
                std::all_of(bytes, bytes + sizeof *p_cond, [](char byte) { return byte == 0; });
            attributes = p_attributes;
            return pthread_cond_init(p_cond, p_attributes);
        });
    alignas(ConditionVariable) unsigned char memory[sizeof(ConditionVariable)];
    std::memset(memory, 0xA5, sizeof memory);

    auto* const p_condition = new (memory) ConditionVariable;

    p_condition->~ConditionVariable();
    EXPECT_EQ(init.hits(), 1);
    EXPECT_TRUE(wasZero);
    EXPECT_EQ(attributes, nullptr);
}

TEST(ConditionVariableTest, ThrowsWithTheDescriptionOfErrnoWhenItCannotBeInitialised) {
    test::FailCall fail(Call::PthreadCondInit, ENOMEM, When().times(2));
    test::CountCalls destroyed(Call::PthreadCondDestroy);
    const auto make = [] { const ConditionVariable condition; };

    EXPECT_EQ(thrownText(EDOM, make),
              "ConditionVariable init error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(thrownText(0, make), "ConditionVariable init error: Success");

    EXPECT_EQ(fail.hits(), 2);
    EXPECT_EQ(destroyed.seen(), 0);
}

TEST(ConditionVariableTest, IsDestroyedOnceWhateverCameOfIt) {
    test::FailCall destroyed(Call::PthreadCondDestroy, EBUSY, When().afterTheCall());

    { const ConditionVariable condition; }

    EXPECT_EQ(destroyed.seen(), 1);
}

TEST(ConditionVariableTest, LeavesTheMutexOfItsOwnerDestroyedWhenItCannotBeInitialised) {
    struct Owner {
        Mutex mutex;
        ConditionVariable condition;
    };
    test::FailCall fail(Call::PthreadCondInit, ENOMEM);
    test::CountCalls destroyed(Call::PthreadMutexDestroy);

    EXPECT_THROW(Owner(), std::runtime_error);

    EXPECT_EQ(destroyed.seen(), 1);
}

TEST(ConditionVariableTest, WaitThrowsForALockThatHoldsNothing) {
    ConditionVariable condition;
    pthread_mutex_t* const p_none = nullptr;
    UniqueLock<pthread_mutex_t> lock(p_none);
    test::CountCalls waits(Call::PthreadCondWait);
    const auto wait = [&] { condition.wait(lock); };

    EXPECT_EQ(thrownText(EDOM, wait),
              "ConditionVariable wait error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(thrownText(0, wait), "ConditionVariable wait error: Success");

    EXPECT_EQ(waits.seen(), 0);
}

TEST(ConditionVariableTest, WaitThrowsForAStandardLockThatHoldsNothing) {
    ConditionVariable condition;
    std::mutex* const p_none = nullptr;
    UniqueLock<std::mutex> lock(p_none);

    EXPECT_EQ(thrownText(0, [&] { condition.wait(lock); }),
              "ConditionVariable wait error: Success");
}

TEST(ConditionVariableTest, WaitThrowsWhenItFails) {
    Mutex mutex;
    ConditionVariable condition;
    test::FailCall fail(Call::PthreadCondWait, EINVAL, When().times(2));
    const auto wait = [&] {
        UniqueLock lock(mutex);
        condition.wait(lock);
    };

    EXPECT_EQ(thrownText(EDOM, wait),
              "ConditionVariable cond_wait error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(thrownText(0, wait), "ConditionVariable cond_wait error: Success");

    EXPECT_EQ(fail.hits(), 2);
}

TEST(ConditionVariableTest, NotifyOneThrowsWhenItFails) {
    ConditionVariable condition;
    test::FailCall fail(Call::PthreadCondSignal, EINVAL, When().times(2));
    const auto notify = [&] { condition.notify_one(); };

    EXPECT_EQ(thrownText(EDOM, notify),
              "ConditionVariable notify_one error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(thrownText(0, notify), "ConditionVariable notify_one error: Success");
}

TEST(ConditionVariableTest, GuardsAroundAFailureAreReleased) {
    Mutex mutex;
    Mutex outer;
    Mutex middle;
    ConditionVariable condition;
    test::FailCall fail(Call::PthreadCondWait, EINVAL);

    EXPECT_NE(thrownText(0,
                         [&] {
                             const AutoLock first(outer);
                             const LockGuard second(middle);
                             UniqueLock lock(mutex);
                             condition.wait(lock);
                         }),
              "");

    EXPECT_FALSE(isHeld(outer.nativeHandle()));
    EXPECT_FALSE(isHeld(middle.nativeHandle()));
    EXPECT_FALSE(isHeld(mutex.nativeHandle()));
}

TEST(ConditionVariableTest, WaitReturnsFromOneWakeUpWithoutLookingForAReason) {
    Mutex mutex;
    ConditionVariable condition;
    UniqueLock lock(mutex);
    test::FailCall wakeUp(Call::PthreadCondWait, 0, When().everyTime());

    condition.wait(lock);

    EXPECT_EQ(wakeUp.seen(), 1);
    EXPECT_TRUE(isHeld(mutex.nativeHandle()));
}

template <typename AnyMutex>
void handOver(AnyMutex& mutex) {
    ConditionVariable condition;
    test::Event waiting;
    bool ready = false;
    bool seen = false;
    test::RunAtCall atWait(
        Call::PthreadCondWait, [&] { waiting.set(); }, When().anyThread());
    std::thread waiter([&] {
        UniqueLock lock(mutex);
        while (!ready) condition.wait(lock);
        seen = ready;
    });

    // The waiter holds the mutex until it waits: after that it is its turn to be woken.
    ASSERT_TRUE(waiting.wait());
    {
        const AutoLock lock(mutex);
        ready = true;
    }
    condition.notify_one();
    waiter.join();

    EXPECT_TRUE(seen);
}

TEST(ConditionVariableTest, NotifyOneWakesAWaiterThatHasReleasedItsMutex) {
    Mutex mutex;
    handOver(mutex);
}

TEST(ConditionVariableTest, NotifyOneWakesAWaiterThatHasReleasedItsStandardMutex) {
    std::mutex mutex;
    handOver(mutex);
}

TEST(ConditionVariableTest, NotifyOneWithoutAWaiterDoesNothing) {
    ConditionVariable condition;

    EXPECT_NO_THROW(condition.notify_one());
}

TEST(ConditionVariableTest, WakesAsManyWaitersAsItIsNotified) {
    constexpr int kWaiters = 3;
    Mutex mutex;
    ConditionVariable condition;
    int tokens = 0;
    int taken = 0;
    std::thread waiters[kWaiters];
    for (std::thread& waiter : waiters) {
        waiter = std::thread([&] {
            UniqueLock lock(mutex);
            while (tokens == 0) condition.wait(lock);
            --tokens;
            ++taken;
        });
    }

    for (int i = 0; i < kWaiters; ++i) {
        const LockGuard lock(mutex);
        ++tokens;
        condition.notify_one();
    }
    for (std::thread& waiter : waiters) waiter.join();

    EXPECT_EQ(taken, kWaiters);
    EXPECT_EQ(tokens, 0);
}

TEST(ConditionVariableTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<ConditionVariable>::value);
    EXPECT_FALSE(std::is_copy_assignable<ConditionVariable>::value);
}

}  // namespace

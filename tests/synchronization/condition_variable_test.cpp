#include "base/synchronization/condition_variable.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <new>
#include <ratio>
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

using namespace std::chrono_literals;
using test::Call;
using test::When;
using tevalon::base::AutoLock;
using tevalon::base::ConditionVariable;
using tevalon::base::LockGuard;
using tevalon::base::Mutex;
using tevalon::base::RelockableLock;
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

TEST(ConditionVariableTest, NotifyAllWakesAllThatWait) {
    constexpr int kWaiters = 3;
    Mutex mutex;
    ConditionVariable condition;
    test::Countdown waiting(kWaiters);
    bool isOpen = false;
    int passed = 0;
    std::thread waiters[kWaiters];
    for (std::thread& waiter : waiters) {
        waiter = std::thread([&] {
            RelockableLock lock(mutex);
            waiting.arrive();
            condition.wait(lock, [&] { return isOpen; });
            if (isOpen) ++passed;
        });
    }
    ASSERT_TRUE(waiting.wait());
    {
        const LockGuard lock(mutex);
        isOpen = true;
        condition.notify_all();
    }
    for (std::thread& waiter : waiters) waiter.join();

    EXPECT_EQ(passed, kWaiters);
}

TEST(ConditionVariableTest, NotifyAllThrowsWhenItFails) {
    ConditionVariable condition;
    test::FailCall fail(Call::PthreadCondBroadcast, EINVAL, When().times(2));
    const auto notify = [&] { condition.notify_all(); };

    EXPECT_EQ(thrownText(EDOM, notify),
              "ConditionVariable notify_all error: " + std::string(std::strerror(EDOM)));
    EXPECT_EQ(thrownText(0, notify), "ConditionVariable notify_all error: Success");
}

/// What a wait is given as its end, and how it ends: once the condition variable is woken @p wakes
/// times, for no reason, the time is over.
struct ScriptedWait {
    explicit ScriptedWait(int wakes)
        : m_wait(
              Call::PthreadCondClockwait,
              [this, wakes](pthread_cond_t*, pthread_mutex_t* p_mutex, clockid_t waitClock,
                            const timespec* p_deadline) {
                  clock = waitClock;
                  deadline = *p_deadline;
                  mutex = p_mutex;
                  return ++waits > wakes ? ETIMEDOUT : 0;
              },
              When().everyTime()) {}

    int waits = 0;
    clockid_t clock = -1;
    timespec deadline{};
    pthread_mutex_t* mutex = nullptr;

private:
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> m_wait;
};

timespec monotonicTime() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

std::int64_t nanosecondsFrom(const timespec& begin, const timespec& end) {
    return std::int64_t{end.tv_sec - begin.tv_sec} * 1'000'000'000 + (end.tv_nsec - begin.tv_nsec);
}

TEST(ConditionVariableTest, TimedWaitsCountOnTheMonotonicClock) {
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    ScriptedWait script(0);
    const timespec before = monotonicTime();

    EXPECT_FALSE(condition.wait_for(lock, 1500ms));

    EXPECT_EQ(script.clock, CLOCK_MONOTONIC);
    EXPECT_EQ(script.mutex, mutex.nativeHandle());
    EXPECT_GE(nanosecondsFrom(before, script.deadline), 1'500'000'000);
    EXPECT_LE(nanosecondsFrom(monotonicTime(), script.deadline), 1'500'000'000);
    const auto moment = std::chrono::steady_clock::time_point(3s + 7ns);
    EXPECT_FALSE(condition.wait_until(lock, moment));
    EXPECT_EQ(script.deadline.tv_sec, 3);
    EXPECT_EQ(script.deadline.tv_nsec, 7);
}

TEST(ConditionVariableTest, NoDurationIsTooLongOrTooShortForAWait) {
    using Seconds = std::chrono::duration<double>;
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    ScriptedWait script(0);
    const auto secondsOf = [&](auto duration) {
        const timespec before = monotonicTime();
        EXPECT_FALSE(condition.wait_for(lock, duration));
        return nanosecondsFrom(before, script.deadline) / 1'000'000'000;
    };

    EXPECT_EQ(secondsOf(std::chrono::hours::max()), 1'000'000'000);
    EXPECT_EQ(secondsOf(std::chrono::nanoseconds::max()), 1'000'000'000);
    EXPECT_EQ(secondsOf(Seconds(std::numeric_limits<double>::infinity())), 1'000'000'000);
    const timespec before = monotonicTime();
    (void)condition.wait_for(lock, std::chrono::duration<double, std::nano>(0.25));
    EXPECT_GE(nanosecondsFrom(before, script.deadline), 1);
    for (const Seconds over : {Seconds(0), Seconds(-1), Seconds(std::nan(""))}) {
        (void)condition.wait_for(lock, over);
        EXPECT_EQ(script.deadline.tv_sec, 0);
        EXPECT_EQ(script.deadline.tv_nsec, 0);
    }
    (void)condition.wait_until(lock, std::chrono::steady_clock::time_point::max());
    EXPECT_EQ(script.deadline.tv_sec, 2'000'000'000);
    (void)condition.wait_until(lock, std::chrono::steady_clock::time_point::min());
    EXPECT_EQ(script.deadline.tv_sec, 0);
}

// Units in which a second's nanoseconds are no whole number: samples, ticks of a transport stream.
TEST(ConditionVariableTest, LongDurationsMayBeCountedInAnyUnit) {
    using Samples = std::chrono::duration<std::int64_t, std::ratio<1, 44100>>;
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 90000>>;
    using Fields = std::chrono::duration<std::int64_t, std::ratio<1001, 60000>>;
    constexpr std::int64_t kYears = 1'500'000'000;  // 47 of them.
    const auto at = [](auto sinceStart) { return tevalon::base::internal::deadlineAt(sinceStart); };

    EXPECT_EQ(at(Samples(44100 * kYears + 1)).tv_sec, kYears);
    EXPECT_EQ(at(Samples(44100 * kYears + 1)).tv_nsec, 22676);  // 22675.7
    EXPECT_EQ(at(Ticks(90000 * kYears + 90)).tv_sec, kYears);
    EXPECT_EQ(at(Ticks(90000 * kYears + 90)).tv_nsec, 1'000'000);
    EXPECT_EQ(at(Fields(60000 * (kYears / 1001))).tv_sec, kYears / 1001 * 1001);
    EXPECT_EQ(at(std::chrono::duration<double>(1.25)).tv_nsec, 250'000'000);
    const std::int64_t before = std::chrono::steady_clock::now().time_since_epoch() / 1s;
    EXPECT_GE(tevalon::base::internal::deadlineIn(Samples(44100LL * 900'000'000)).tv_sec,
              before + 900'000'000);
}

TEST(ConditionVariableTest, WithoutAClockTheTimeIsOver) {
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    test::FailCall noClock(Call::ClockGettime, EIO);

    EXPECT_FALSE(condition.wait_for(lock, 1h));
}

TEST(ConditionVariableTest, ATimedWaitIsNotOverBeforeItsTimeAndHoldsTheLockThen) {
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    const timespec before = monotonicTime();

    EXPECT_FALSE(condition.wait_for(lock, 20ms, [] { return false; }));

    EXPECT_GE(nanosecondsFrom(before, monotonicTime()), 20'000'000);
    EXPECT_TRUE(lock.owns_lock());
    EXPECT_TRUE(isHeld(mutex.nativeHandle()));
}

TEST(ConditionVariableTest, ATimedWaitSaysWhetherItWasWoken) {
    Mutex mutex;
    ConditionVariable condition;
    UniqueLock lock(mutex);
    ScriptedWait script(1);

    EXPECT_TRUE(condition.wait_for(lock, 1h));
    EXPECT_FALSE(condition.wait_for(lock, 1h));
}

TEST(ConditionVariableTest, AWaitWithAPredicateTakesNoNoticeOfSpuriousWakeUps) {
    Mutex mutex;
    ConditionVariable condition;
    UniqueLock lock(mutex);
    int asked = 0;
    {
        ScriptedWait script(3);
        EXPECT_FALSE(condition.wait_for(lock, 1h, [&] { return ++asked > 10; }));
        EXPECT_EQ(script.waits, 4);
        EXPECT_EQ(asked, 5);
    }
    {
        ScriptedWait script(3);
        asked = 0;
        EXPECT_TRUE(condition.wait_until(lock, std::chrono::steady_clock::now() + 1h,
                                         [&] { return ++asked == 3; }));
        EXPECT_EQ(script.waits, 2);
    }
}

TEST(ConditionVariableTest, APredicateThatComesTrueAtTheLastMomentCounts) {
    Mutex mutex;
    ConditionVariable condition;
    UniqueLock lock(mutex);
    ScriptedWait script(0);
    int asked = 0;

    EXPECT_TRUE(condition.wait_for(lock, 1h, [&] { return ++asked == 2; }));
    EXPECT_EQ(script.waits, 1);
}

TEST(ConditionVariableTest, APredicateThatIsTrueAlreadyIsNotWaitedFor) {
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    test::CountCalls waits(Call::PthreadCondWait, When().everyTime());
    test::CountCalls timedWaits(Call::PthreadCondClockwait, When().everyTime());
    bool isDone = true;  // A constant the compiler would take for no condition.
    const auto yes = [&isDone] { return isDone; };

    condition.wait(lock, yes);
    EXPECT_TRUE(condition.wait_for(lock, 1h, yes));
    EXPECT_TRUE(condition.wait_until(lock, std::chrono::steady_clock::now() + 1h, yes));

    EXPECT_EQ(waits.seen(), 0);
    EXPECT_EQ(timedWaits.seen(), 0);
}

TEST(ConditionVariableTest, TimedWaitsThrowLikeOthers) {
    Mutex mutex;
    ConditionVariable condition;
    RelockableLock lock(mutex);
    {
        test::FailCall fail(Call::PthreadCondClockwait, EINVAL);
        EXPECT_EQ(thrownText(EDOM, [&] { (void)condition.wait_for(lock, 1h); }),
                  "ConditionVariable cond_wait error: " + std::string(std::strerror(EDOM)));
    }
    lock.unlock();
    std::unique_lock<Mutex> standard(mutex, std::defer_lock);
    const std::string text = "ConditionVariable wait error: Success";
    EXPECT_EQ(thrownText(0, [&] { (void)condition.wait_for(lock, 1h); }), text);
    EXPECT_EQ(thrownText(0, [&] { condition.wait(lock); }), text);
    EXPECT_EQ(thrownText(0, [&] { condition.wait(standard); }), text);
}

/// Waits with each kind of lock until another thread has set a flag.
template <typename Lock, typename WaitedMutex>
void handOverTimed(WaitedMutex& mutex) {
    ConditionVariable condition;
    bool ready = false;
    Lock lock(mutex);
    std::thread setter([&] {
        const LockGuard guard(mutex);
        ready = true;
        condition.notify_all();
    });

    EXPECT_TRUE(condition.wait_for(lock, test::kPatience, [&] { return ready; }));
    condition.wait(lock, [&] { return ready; });

    setter.join();
}

TEST(ConditionVariableTest, WaitsWithAnyKindOfLock) {
    Mutex mutex;
    std::mutex standard;
    handOverTimed<UniqueLock<pthread_mutex_t>>(mutex);
    handOverTimed<UniqueLock<std::mutex>>(standard);
    handOverTimed<RelockableLock>(mutex);
    handOverTimed<std::unique_lock<Mutex>>(mutex);
}

TEST(ConditionVariableTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible<ConditionVariable>::value);
    EXPECT_FALSE(std::is_copy_assignable<ConditionVariable>::value);
}

}  // namespace

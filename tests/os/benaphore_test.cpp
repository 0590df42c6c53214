#include "locks/benaphore.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "os/monotonic_time.h"
#include "os/slept_clock.h"
#include "support/event.h"
#include "support/fault_injection.h"

namespace {

using tevalon::base::Benaphore;
using tevalon::base::monotonicNanoseconds;

TEST(BenaphoreTest, AHeldOneIsNotGotHoweverOftenItIsTried) {
    Benaphore lock;
    lock.reset();
    lock.lock();
    const std::uint64_t deadline = monotonicNanoseconds() + 50'000'000;

    EXPECT_FALSE(lock.tryUntil(deadline));

    EXPECT_GE(monotonicNanoseconds(), deadline);
    lock.unlock();
    EXPECT_TRUE(lock.tryUntil(0));
}

TEST(BenaphoreTest, AFreeOneIsGotEvenIfItsTimeHasPassed) {
    Benaphore lock;
    lock.reset();

    EXPECT_TRUE(lock.tryUntil(0));

    EXPECT_FALSE(lock.tryUntil(0));
    lock.unlock();
}

TEST(BenaphoreTest, AHeldOneIsGivenUpAsSoonAsItsTimeHasComeAndNotBefore) {
    Benaphore lock;
    lock.reset();
    lock.lock();
    const test::SleptClock clock;
    const std::uint64_t deadline = clock.now() + 10'000'000;  // A multiple of its pauses.

    EXPECT_FALSE(lock.tryUntil(deadline));

    EXPECT_EQ(clock.now(), deadline);
}

using SemWait = test::ReplaceCall<int(sem_t*)>;

/// Has another thread wait for a lock that this one holds.
void expectToBeHadOneAfterTheOther(Benaphore* p_lock) {
    test::Event waits;
    p_lock->lock();
    std::thread other([&] {
        const SemWait wait(test::Call::SemWait, [&](sem_t* p_wakeUps) {
            EXPECT_NE(sem_trywait(p_wakeUps), 0) << "is had by two";
            waits.set();
            return sem_wait(p_wakeUps);
        });
        p_lock->lock();
        p_lock->unlock();
    });
    EXPECT_TRUE(waits.wait());
    p_lock->unlock();
    other.join();
    EXPECT_TRUE(p_lock->tryUntil(0));
    p_lock->unlock();
}

TEST(BenaphoreTest, WhoWaitsGetsItWhenItIsUnlocked) {
    static Benaphore s_lock;
    s_lock.init();

    expectToBeHadOneAfterTheOther(&s_lock);
}

TEST(BenaphoreTest, WhoIsInterruptedInAWaitGoesOnWaiting) {
    static Benaphore s_lock;
    s_lock.init();
    s_lock.lock();
    std::atomic<bool> isUnlocked{false};
    test::Event waitsAgain;
    std::thread other([&] {
        const test::FailCall interruption(test::Call::SemWait, EINTR);
        const test::RunAtCall again(
            test::Call::SemWait, [&] { waitsAgain.set(); }, test::When().nth(2));
        s_lock.lock();
        EXPECT_TRUE(isUnlocked);
        EXPECT_EQ(interruption.hits(), 1);
        s_lock.unlock();
    });
    EXPECT_TRUE(waitsAgain.wait());

    isUnlocked = true;
    s_lock.unlock();

    other.join();
}

// The one who was woken in the parent does not exist in the child, and takes nothing.
TEST(BenaphoreTest, AfterAResetNobodyIsLeftWhoWaitedOrWasWoken) {
    static Benaphore s_lock;
    s_lock.init();
    s_lock.lock();
    ++s_lock.count;  // As one who waits.
    s_lock.unlock();

    s_lock.reset();

    expectToBeHadOneAfterTheOther(&s_lock);
}

/// Waits for a lock with its cancellation pending.
void* lockWhenCancelled(void* p_argument) {
    auto& lock = *static_cast<Benaphore*>(p_argument);
    {
        const test::RunAtCall wait(test::Call::SemWait, [&] {
            (void)pthread_cancel(pthread_self());
            lock.unlock();  // For the one who holds it, and waits for this thread's end.
        });
        lock.lock();
        lock.unlock();
    }
    // The end of the thread, seen by a sanitizer, should not be an unwinding.
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return nullptr;
}

TEST(BenaphoreTest, AThreadThatIsCancelledWhileItWaitsGetsItAllTheSame) {
    static Benaphore s_lock;
    s_lock.init();
    s_lock.lock();
    pthread_t thread = {};
    void* p_result = PTHREAD_CANCELED;

    ASSERT_EQ(pthread_create(&thread, nullptr, lockWhenCancelled, &s_lock), 0);
    ASSERT_EQ(pthread_join(thread, &p_result), 0);

    EXPECT_EQ(p_result, nullptr);
    EXPECT_TRUE(s_lock.tryUntil(0));
    s_lock.unlock();
}

}  // namespace

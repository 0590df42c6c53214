#include "locks/patient_lock.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdint>
#include <thread>

#include "os/slept_clock.h"
#include "support/event.h"

namespace {

using tevalon::base::PatientLock;

/// Held by a thread of its own until it is released.
class HeldMutex {
public:
    HeldMutex() { EXPECT_TRUE(m_isHeld.wait()); }
    ~HeldMutex() { release(); }

    HeldMutex(const HeldMutex&) = delete;
    HeldMutex& operator=(const HeldMutex&) = delete;

    pthread_mutex_t* get() { return &m_mutex; }
    void release() {
        m_mayGo.set();
        if (m_holder.joinable()) m_holder.join();
    }

private:
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    test::Event m_isHeld;
    test::Event m_mayGo;
    std::thread m_holder{[this] {
        (void)pthread_mutex_lock(&m_mutex);
        m_isHeld.set();
        (void)m_mayGo.wait();
        (void)pthread_mutex_unlock(&m_mutex);
    }};
};

TEST(PatientLockTest, GivesUpAsSoonAsItsTimeHasComeAndNotBefore) {
    HeldMutex mutex;
    const test::SleptClock clock;
    const std::uint64_t deadline = clock.now() + 10'000'000;  // A multiple of its pauses.

    const PatientLock lock(mutex.get(), deadline);

    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(clock.now(), deadline);
}

TEST(PatientLockTest, GetsAMutexThatIsUnlockedInTime) {
    HeldMutex mutex;
    {
        test::SleptClock clock;
        clock.atEachSleep([&] {
            if (clock.sleeps() == 3) mutex.release();
        });

        const PatientLock lock(mutex.get(), clock.now() + 10'000'000);

        EXPECT_TRUE(lock.isLocked());
        EXPECT_EQ(clock.sleeps(), 3);
        EXPECT_EQ(pthread_mutex_trylock(mutex.get()), EBUSY);
    }
    ASSERT_EQ(pthread_mutex_trylock(mutex.get()), 0);
    (void)pthread_mutex_unlock(mutex.get());
}

TEST(PatientLockTest, GetsAFreeMutexEvenIfItsTimeHasPassed) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;

    const PatientLock lock(&mutex, 0);

    EXPECT_TRUE(lock.isLocked());
}

TEST(PatientLockTest, TriesAHeldMutexJustOnceIfItsTimeHasPassed) {
    HeldMutex mutex;
    const test::SleptClock clock;

    const PatientLock lock(mutex.get(), clock.now() - 1);

    EXPECT_FALSE(lock.isLocked());
    EXPECT_EQ(clock.sleeps(), 0);
}

}  // namespace

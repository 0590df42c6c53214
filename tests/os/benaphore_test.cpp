#include "locks/benaphore.h"

#include <gtest/gtest.h>

#include "os/monotonic_time.h"

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

}  // namespace

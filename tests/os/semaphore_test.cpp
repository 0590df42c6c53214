#include "os/semaphore.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <new>
#include <thread>

#include "os/monotonic_time.h"
#include "support/event.h"
#include "support/fault_injection.h"

namespace {

using namespace tevalon::base;

constexpr std::int64_t kFar = 3'600'000'000'000;

std::int64_t now() {
    return static_cast<std::int64_t>(monotonicNanoseconds());
}

TEST(SemaphoreTest, IsZeroAtFirstWhateverWasThere) {
    alignas(Semaphore) std::array<std::byte, sizeof(Semaphore)> memory;
    memory.fill(std::byte{0xFF});
    auto* const p_semaphore = new (memory.data()) Semaphore;

    EXPECT_FALSE(p_semaphore->waitUntil(now()));

    p_semaphore->~Semaphore();
}

TEST(SemaphoreTest, EachPostIsForOneWait) {
    Semaphore semaphore;
    semaphore.post();
    semaphore.post();

    semaphore.wait();
    EXPECT_TRUE(semaphore.waitUntil(now() + kFar));
    EXPECT_FALSE(semaphore.waitUntil(now()));
}

TEST(SemaphoreTest, NoWaitEndsBeforeItsTime) {
    Semaphore semaphore;
    const std::int64_t until = now() + 20'000'000;

    EXPECT_FALSE(semaphore.waitUntil(until));

    EXPECT_GE(now(), until);
}

TEST(SemaphoreTest, WaitsGoOnAfterASignal) {
    Semaphore semaphore;
    semaphore.post();
    semaphore.post();
    const test::FailCall clockwait(test::Call::SemClockwait, EINTR);
    const test::FailCall wait(test::Call::SemWait, EINTR);

    EXPECT_TRUE(semaphore.waitUntil(now() + kFar));
    semaphore.wait();

    EXPECT_EQ(clockwait.hits(), 1);
    EXPECT_EQ(wait.hits(), 1);
    EXPECT_FALSE(semaphore.waitUntil(now()));
}

TEST(SemaphoreTest, APostWakesAnotherThread) {
    Semaphore semaphore;
    test::Event isPosted;
    std::thread waiting([&] {
        EXPECT_TRUE(semaphore.waitUntil(now() + kFar));
        isPosted.set();
    });

    semaphore.post();

    EXPECT_TRUE(isPosted.wait());
    waiting.join();
}

}  // namespace

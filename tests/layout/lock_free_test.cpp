// What is shared between threads without a lock is read and written by single instructions.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>

#include "base/event_dispatcher/browser_event.h"
#include "base/logging/debug_memory.h"
#include "base/timer/timer_execution_context.h"
#include "timer/expired_time.h"

namespace {

using namespace tevalon::base;

template <typename... Types>
void expectLockFree() {
    EXPECT_TRUE((std::atomic<Types>::is_always_lock_free && ...));
    EXPECT_TRUE(((sizeof(std::atomic<Types>) == sizeof(Types)) && ...));
    EXPECT_TRUE(((alignof(std::atomic<Types>) == sizeof(Types)) && ...));
}

TEST(LockFreeTest, Numbers) {
    expectLockFree<bool, std::uint16_t, std::int32_t, std::uint32_t, unsigned, std::size_t>();
}

TEST(LockFreeTest, Pointers) {
    expectLockFree<char*, const void*>();
}

TEST(LockFreeTest, Times) {
    expectLockFree<double, simple_timer::ExpiredTime, simple_timer::Timeout>();
}

TEST(LockFreeTest, TheWordOfASingleton) {
    EXPECT_TRUE(__atomic_always_lock_free(sizeof(std::intptr_t), nullptr));
}

// They stand where a plain field is expected.
TEST(LockFreeTest, PublicAtomicsAreAsWideAsWhatTheyHold) {
    using event_dispatcher::BrowserEvent;
    EXPECT_EQ(sizeof(BrowserEvent::replied), sizeof(bool));
    EXPECT_EQ(sizeof(BrowserEvent::result), sizeof(std::int32_t));
    EXPECT_EQ(sizeof(timer::TimerExecutionContext::aliveMagic), sizeof(std::uint32_t));
    EXPECT_EQ(sizeof(debug::g_webengine_memory_debug_enabled), sizeof(bool));
    EXPECT_EQ(sizeof(debug::g_webengine_memory_debug_info), sizeof(char*));
}

}  // namespace

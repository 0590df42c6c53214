#include "base/timer/timer_execution_context.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <thread>

namespace {

using tevalon::base::timer::TimerExecutable;
using tevalon::base::timer::TimerExecutionContext;

class Executable : public TimerExecutable {};

TEST(TimerExecutionContextTest, IsAliveUntilMarkedDead) {
    Executable executable;
    TimerExecutionContext context(&executable);
    EXPECT_EQ(context.aliveMagic, 0xADDECEFAU);
    EXPECT_EQ(context.executable, &executable);

    context.markAsDead();

    EXPECT_EQ(context.aliveMagic, 0U);
    EXPECT_EQ(context.executable, &executable);
}

TEST(TimerExecutionContextTest, MayHoldNothing) {
    TimerExecutionContext context(nullptr);
    EXPECT_EQ(context.aliveMagic, 0xADDECEFAU);

    context.markAsDead();

    EXPECT_EQ(context.aliveMagic, 0U);
    EXPECT_EQ(context.executable, nullptr);
}

TEST(TimerExecutionContextTest, DestructionLeavesTheMark) {
    alignas(TimerExecutionContext) unsigned char memory[sizeof(TimerExecutionContext)];
    auto* const p_context = new (memory) TimerExecutionContext(nullptr);

    p_context->~TimerExecutionContext();

    const unsigned char expected[] = {0xFA, 0xCE, 0xDE, 0xAD};
    EXPECT_EQ(std::memcmp(memory, expected, sizeof(expected)), 0);
}

TEST(TimerExecutionContextTest, FieldsAreInTheirOrder) {
    EXPECT_EQ(offsetof(TimerExecutionContext, aliveMagic), 0U);
    EXPECT_EQ(offsetof(TimerExecutionContext, executable), sizeof(void*));
    EXPECT_EQ(sizeof(TimerExecutionContext), 2 * sizeof(void*));
}

TEST(TimerExecutionContextTest, OneThreadMarksWhileAnotherLooks) {
    TimerExecutionContext context(nullptr);
    std::thread owner([&] { context.markAsDead(); });
    while (context.aliveMagic == TimerExecutionContext::kAliveMagic) std::this_thread::yield();
    owner.join();

    EXPECT_EQ(context.aliveMagic, 0U);
}

}  // namespace

// The order in which the classes that clients derive from keep their virtual functions.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/event_dispatcher/event_param.h"
#include "base/threading/runnable.h"
#include "base/timer/timer_task.h"

namespace {

using tevalon::base::event_dispatcher::EventParam;
using tevalon::base::Threading::Runnable;
using tevalon::base::timer::TimerTaskBase;

constexpr std::size_t kDestructor = 0;
constexpr std::size_t kDeletingDestructor = 1;
constexpr std::size_t kFirstOwn = 2;

std::string g_calls;  // What has been called, in order.

/// Calls the virtual function in @p slot of @p p_object, as a module compiled earlier does.
template <typename Result, typename Base>
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
Result
callSlot(Base* p_object, std::size_t slot) {
    using Function = Result (*)(Base*);
    Function* table = nullptr;
    std::memcpy(&table, static_cast<void*>(p_object), sizeof(table));
    return table[slot](p_object);
}

/// Tells when it is destroyed, and when its memory is given back.
template <typename Base>
class Witness : public Base {
public:
    using Base::Base;
    ~Witness() override { g_calls += "destructor "; }

    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void* operator new(std::size_t, void* p_memory) { return p_memory; }
    static void operator delete(void* p_memory) {
        g_calls += "delete ";
        ::operator delete(p_memory);
    }
};

class Task : public Witness<TimerTaskBase> {
public:
    void fire() override { g_calls += "fire "; }
};

class Param : public Witness<EventParam> {
public:
    std::int32_t intValue() override {
        g_calls += "intValue ";
        return 5;
    }
};

class Job : public Witness<Runnable> {
public:
    Job() : Witness<Runnable>(1) {}
    std::int32_t run() override {
        g_calls += "run ";
        return 5;
    }
    void stop() override { g_calls += "stop "; }
    void pause() override { g_calls += "pause "; }
    void resume() override { g_calls += "resume "; }
    void execute() override { g_calls += "execute "; }
};

class VirtualSlotsTest : public testing::Test {
protected:
    void SetUp() override { g_calls.clear(); }

    template <typename Base, typename Derived>
    static void expectDestructorsFirst() {
        alignas(Derived) unsigned char memory[sizeof(Derived)];
        Base* const p_here = ::new (static_cast<void*>(memory)) Derived;
        callSlot<void>(p_here, kDestructor);
        EXPECT_EQ(g_calls, "destructor ");

        g_calls.clear();
        Base* const p_owned = new Derived;
        callSlot<void>(p_owned, kDeletingDestructor);
        EXPECT_EQ(g_calls, "destructor delete ");
    }
};

TEST_F(VirtualSlotsTest, OfTimerTaskBase) {
    expectDestructorsFirst<TimerTaskBase, Task>();
    g_calls.clear();
    Task task;

    callSlot<void>(static_cast<TimerTaskBase*>(&task), kFirstOwn);

    EXPECT_EQ(g_calls, "fire ");
}

TEST_F(VirtualSlotsTest, OfEventParam) {
    expectDestructorsFirst<EventParam, Param>();
    g_calls.clear();
    Param param;

    EXPECT_EQ(callSlot<std::int32_t>(static_cast<EventParam*>(&param), kFirstOwn), 5);

    EXPECT_EQ(g_calls, "intValue ");
}

TEST_F(VirtualSlotsTest, OfRunnable) {
    expectDestructorsFirst<Runnable, Job>();
    g_calls.clear();
    Job job;
    Runnable* const p_job = &job;

    EXPECT_EQ(callSlot<std::int32_t>(p_job, kFirstOwn), 5);
    for (std::size_t slot = kFirstOwn + 1; slot < kFirstOwn + 5; ++slot) {
        callSlot<void>(p_job, slot);
    }

    EXPECT_EQ(g_calls, "run stop pause resume execute ");
}

}  // namespace

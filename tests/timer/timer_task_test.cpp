#include "base/timer/timer_task.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "support/fresh_process.h"
#include "support/threads.h"

namespace {

using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerTaskBase;

class PlainTask : public TimerTaskBase {
public:
    explicit PlainTask(bool* p_deleted = nullptr) : m_deleted(p_deleted) {}
    ~PlainTask() override {
        if (m_deleted != nullptr) *m_deleted = true;
    }
    void fire() override { ++fires; }
    using TimerTaskBase::setTaskId;

    int fires = 0;

private:
    bool* m_deleted;
};

TEST(TimerTaskTest, SessionIdsCountFromOneInAFreshProcess) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const PlainTask tasks[3];
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(tasks[i].sessionId(), i + 1);
            EXPECT_EQ(tasks[i].taskId(), 0);
            EXPECT_EQ(tasks[i].getNextFireTime(), 0.0);
        }
    });
}

TEST(TimerTaskTest, SessionIdsAreNeverGivenAgain) {
    std::int32_t first = 0;
    {
        const PlainTask task;
        first = task.sessionId();
    }
    const CallableTimerTask second([] {});

    EXPECT_EQ(second.sessionId(), first + 1);
}

TEST(TimerTaskTest, SessionIdsOfManyThreadsDiffer) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 500;
    std::vector<std::int32_t> ids(kThreads * kTasks);

    test::runAtOnce(kThreads, [&](int thread) {
        for (int i = 0; i < kTasks; ++i) {
            ids[static_cast<std::size_t>(thread * kTasks + i)] = PlainTask().sessionId();
        }
    });

    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

TEST(TimerTaskTest, KeepsItsFireTimeAsItIs) {
    PlainTask task;
    for (const double time : {12.5, 0.0, -1.0, 1e300, std::numeric_limits<double>::infinity()}) {
        task.setNextFireTime(time);
        EXPECT_EQ(task.getNextFireTime(), time);
    }
}

TEST(TimerTaskTest, ADerivedClassSetsTheTaskId) {
    PlainTask task;
    const std::int32_t session = task.sessionId();

    task.setTaskId(-42);

    EXPECT_EQ(task.taskId(), -42);
    EXPECT_EQ(task.sessionId(), session);
}

TEST(TimerTaskTest, IsDestroyedThroughItsBase) {
    bool deleted = false;
    std::unique_ptr<TimerTaskBase> p_task = std::make_unique<PlainTask>(&deleted);

    p_task.reset();

    EXPECT_TRUE(deleted);
}

TEST(TimerTaskTest, FieldsAreInTheirOrder) {
    struct Fields {
        void* p_table;
        double fireTime;
        std::int32_t sessionId;
        std::int32_t taskId;
    };
    static_assert(sizeof(TimerTaskBase) == sizeof(Fields));
    PlainTask task;
    task.setNextFireTime(12.5);
    task.setTaskId(9);
    Fields fields;
    std::memcpy(&fields, static_cast<void*>(static_cast<TimerTaskBase*>(&task)), sizeof(fields));

    EXPECT_EQ(fields.fireTime, 12.5);
    EXPECT_EQ(fields.sessionId, task.sessionId());
    EXPECT_EQ(fields.taskId, 9);
}

#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
void callSlot(TimerTaskBase* p_task, std::size_t slot) {
    using Function = void (*)(TimerTaskBase*);
    Function* table = nullptr;
    std::memcpy(&table, static_cast<void*>(p_task), sizeof(table));
    table[slot](p_task);
}

TEST(TimerTaskTest, VirtualFunctionsAreInTheirSlots) {
    bool deleted = false;
    auto* const p_task = new PlainTask(&deleted);

    callSlot(p_task, 2);
    EXPECT_EQ(p_task->fires, 1);

    callSlot(p_task, 1);
    EXPECT_TRUE(deleted);
}

TEST(CallableTimerTaskTest, FiringCallsWhatItWasGiven) {
    int calls = 0;
    CallableTimerTask task([&] { ++calls; });

    task.fire();
    task.fire();

    EXPECT_EQ(calls, 2);
    EXPECT_EQ(task.taskId(), 0);
    EXPECT_EQ(task.getNextFireTime(), 0.0);
}

TEST(CallableTimerTaskTest, TakesATaskId) {
    const CallableTimerTask task([] {}, 17);

    EXPECT_EQ(task.taskId(), 17);
}

TEST(CallableTimerTaskTest, LetsGoOfWhatItWasGiven) {
    auto captured = std::make_shared<int>(1);
    {
        const CallableTimerTask task([captured] {});
        EXPECT_EQ(captured.use_count(), 2);
    }
    EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace

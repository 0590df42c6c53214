#include "timer_thread/task_slab.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "support/fault_injection.h"

namespace {

using tevalon::base::timer::TaskSlab;
using tevalon::base::timer::TimerTaskBase;

class IdleTask : public TimerTaskBase {
public:
    void fire() override {}
};

TaskSlab::Index putOne(TaskSlab& slab, std::int32_t session) {
    slab.reserve();
    return slab.put(std::make_shared<IdleTask>(), session, 0);
}

TEST(TaskSlabTest, FreeSlotsAreReusedLastInFirstOut) {
    TaskSlab slab;
    const TaskSlab::Index first = putOne(slab, 1);
    const TaskSlab::Index second = putOne(slab, 2);
    const TaskSlab::Index third = putOne(slab, 3);
    slab.take(second);
    slab.take(first);
    slab.take(third);

    EXPECT_EQ(putOne(slab, 4), third);
    EXPECT_EQ(putOne(slab, 5), first);
    EXPECT_EQ(putOne(slab, 6), second);
    EXPECT_EQ(slab.used(), 3U);
}

TEST(TaskSlabTest, FewSlotsAreKeptWhenItBecomesEmpty) {
    TaskSlab slab;
    slab.take(putOne(slab, 1));
    slab.shrink();

    EXPECT_EQ(slab.used(), 1U);
    const test::FailCall noMemory(test::Call::New, 0);
    EXPECT_NO_THROW(slab.reserve());
}

TEST(TaskSlabTest, TheMemoryOfManySlotsIsReturnedWhenItBecomesEmpty) {
    for (const std::size_t count : {40U, 1000U}) {
        TaskSlab slab;
        std::vector<TaskSlab::Index> taken(count);
        std::int32_t session = 0;
        for (TaskSlab::Index& index : taken) index = putOne(slab, ++session);
        for (const TaskSlab::Index index : taken) slab.take(index);
        slab.shrink();

        EXPECT_EQ(slab.used(), 0U);
        const test::FailCall noMemory(test::Call::New, 0);
        EXPECT_THROW(slab.reserve(), std::bad_alloc) << count << " slots";
    }
}

TEST(TaskSlabTest, ManySlotsShareFewBlocksOfMemory) {
    TaskSlab slab;
    std::vector<TaskSlab::Task> tasks(1000);
    for (TaskSlab::Task& task : tasks) task = std::make_shared<IdleTask>();

    const test::CountCalls allocations(test::Call::New, test::When().everyTime());
    for (TaskSlab::Task& task : tasks) {
        slab.reserve();
        slab.put(std::move(task), 1, 0);
    }
    EXPECT_LT(allocations.seen(), 100);
}

TEST(TaskSlabTest, AnEmptySlabHasNoTaskOfASession) {
    TaskSlab slab;
    EXPECT_EQ(slab.first(1), TaskSlab::kNone);

    for (std::int32_t session = 0; session < 1000; ++session) putOne(slab, session);
    for (TaskSlab::Index index = 0; index < 1000; ++index) slab.take(index);
    slab.shrink();
    EXPECT_EQ(slab.first(1), TaskSlab::kNone);
}

}  // namespace

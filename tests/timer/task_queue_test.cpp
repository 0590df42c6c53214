#include "timer_thread/task_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <limits>
#include <new>
#include <random>
#include <utility>
#include <vector>

#include "support/fault_injection.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::timer::TaskQueue;
using tevalon::base::timer::TimerTaskBase;
using Task = std::shared_ptr<TimerTaskBase>;

class IdleTask : public TimerTaskBase {
public:
    explicit IdleTask(double fireTime, std::int32_t id = 0) {
        setNextFireTime(fireTime);
        setTaskId(id);
    }
    void fire() override {}
};

Task taskAt(double fireTime, std::int32_t id = 0) {
    return std::make_shared<IdleTask>(fireTime, id);
}

// The rule itself: a walk from the front to the first task whose time is strictly greater.
class PlainQueue {
public:
    void insert(const Task& task) {
        auto place = m_tasks.begin();
        while (place != m_tasks.end() && !((*place)->getNextFireTime() > task->getNextFireTime())) {
            ++place;
        }
        m_tasks.insert(place, task);
    }

    Task popFront() {
        if (m_tasks.empty()) return nullptr;
        Task first = m_tasks.front();
        m_tasks.pop_front();
        return first;
    }

    const std::deque<Task>& tasks() const { return m_tasks; }

private:
    std::deque<Task> m_tasks;
};

std::vector<const TimerTaskBase*> orderOf(TaskQueue& queue) {
    std::vector<const TimerTaskBase*> order;
    queue.forEach([&order](TimerTaskBase& task) { order.push_back(&task); });
    return order;
}

std::vector<const TimerTaskBase*> orderOf(const PlainQueue& queue) {
    std::vector<const TimerTaskBase*> order;
    for (const Task& task : queue.tasks()) order.push_back(task.get());
    return order;
}

using Cancelled = std::vector<const TimerTaskBase*>;

// Both queues share the tasks: what one sees of their times, the other sees too.
Cancelled cancel(TaskQueue& queue, std::int32_t sessionId) {
    Cancelled cancelled;
    const auto cancelOne = [&](TimerTaskBase& task) {
        task.setNextFireTime(0.0);
        cancelled.push_back(&task);
    };
    queue.cancelSession(sessionId, cancelOne);
    return cancelled;
}

Cancelled cancelGroup(TaskQueue& queue, std::int32_t taskId) {
    Cancelled cancelled;
    const auto cancelOne = [&](TimerTaskBase& task) {
        task.setNextFireTime(0.0);
        cancelled.push_back(&task);
    };
    queue.cancelWhere(&TimerTaskBase::taskId, taskId, cancelOne);
    return cancelled;
}

std::vector<Task> tasksInOrder(std::size_t count) {
    std::vector<Task> tasks;
    double fireTime = 0;
    while (tasks.size() < count) tasks.push_back(taskAt(fireTime += 10));
    return tasks;
}

// How often memory is asked for.
template <typename Action>
long allocationsOf(Action action) {
    const test::CountCalls allocations(Call::New, When().everyTime());
    action();
    return allocations.seen();
}

// Which ones a walk from the front would cancel, and in what order.
template <typename IsWanted>
Cancelled wanted(const PlainQueue& queue, IsWanted isWanted) {
    Cancelled found;
    for (const Task& task : queue.tasks()) {
        if (isWanted(*task)) found.push_back(task.get());
    }
    return found;
}

TEST(TaskQueueTest, AnEmptyQueueHasNoFirstTask) {
    TaskQueue queue;

    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(queue.front(), nullptr);
    EXPECT_EQ(queue.popFront(), nullptr);
    EXPECT_EQ(cancel(queue, 1), Cancelled{});
}

TEST(TaskQueueTest, EqualTimesStayInTheOrderOfTheirInsertion) {
    TaskQueue queue;
    const std::vector<Task> tasks = {taskAt(5), taskAt(5), taskAt(5), taskAt(4)};
    for (const Task& task : tasks) queue.insert(Task(task));

    EXPECT_EQ(queue.popFront(), tasks[3]);
    EXPECT_EQ(queue.popFront(), tasks[0]);
    EXPECT_EQ(queue.popFront(), tasks[1]);
    EXPECT_EQ(queue.popFront(), tasks[2]);
    EXPECT_TRUE(queue.empty());
}

TEST(TaskQueueTest, CancelledTasksKeepTheirPlaceAndAreWalkedOver) {
    TaskQueue queue;
    const Task first = taskAt(10);
    const Task cancelled = taskAt(20);
    const Task last = taskAt(30);
    for (const Task& task : {first, cancelled, last}) queue.insert(Task(task));
    cancel(queue, cancelled->sessionId());

    const Task added = taskAt(15);
    queue.insert(Task(added));

    EXPECT_EQ(orderOf(queue), (std::vector<const TimerTaskBase*>{first.get(), cancelled.get(),
                                                                 added.get(), last.get()}));
}

TEST(TaskQueueTest, ANegativeTimeGoesInFrontOfACancelledTask) {
    TaskQueue queue;
    const Task cancelled = taskAt(20);
    queue.insert(Task(cancelled));
    cancel(queue, cancelled->sessionId());

    const Task negative = taskAt(-5);
    queue.insert(Task(negative));

    EXPECT_EQ(queue.popFront(), negative);
}

TEST(TaskQueueTest, TheQueueLetsGoOfItsTasks) {
    const Task task = taskAt(1);
    {
        TaskQueue queue;
        queue.insert(Task(task));
        EXPECT_EQ(task.use_count(), 2);
    }
    EXPECT_EQ(task.use_count(), 1);
}

TEST(TaskQueueTest, IsAsGoodAsNewWhenManyTasksAreGone) {
    TaskQueue queue;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 500; ++i) queue.insert(taskAt(1000 - i));
        for (int i = 0; i < 500; ++i) ASSERT_EQ(queue.popFront()->getNextFireTime(), 501 + i);
        EXPECT_TRUE(queue.empty());
        EXPECT_EQ(queue.size(), 0U);
    }
}

TEST(TaskQueueTest, WithoutMemoryNothingIsInserted) {
    TaskQueue queue;
    PlainQueue plain;
    int refusals = 0;
    for (int i = 0; i < 300; ++i) {
        const Task task = taskAt(i * 7 % 100);
        for (int n = 1;; ++n) {
            const test::FailCall noMemory(Call::New, 0, When().nth(n));
            try {
                queue.insert(Task(task));
            } catch (const std::bad_alloc&) {
                ++refusals;
                EXPECT_EQ(task.use_count(), 1);
                ASSERT_EQ(queue.size(), plain.tasks().size());
                continue;
            }
            break;
        }
        plain.insert(task);
    }

    EXPECT_GT(refusals, 3);
    EXPECT_EQ(orderOf(queue), orderOf(plain));
}

TEST(TaskQueueTest, ACancellationThatThrowsLeavesTheQueueInOrder) {
    TaskQueue queue;
    PlainQueue plain;
    for (int i = 0; i < 200; ++i) {
        const Task task = taskAt(1 + i * 7 % 100, i % 3);
        plain.insert(task);
        queue.insert(Task(task));
    }
    int left = 20;
    const auto cancelSome = [&](TimerTaskBase& task) {
        task.setNextFireTime(0.0);
        if (--left == 0) throw std::bad_alloc();
    };

    EXPECT_THROW(queue.cancelWhere(&TimerTaskBase::taskId, 1, cancelSome), std::bad_alloc);
    left = 1;
    EXPECT_THROW(queue.cancelSession(plain.tasks().back()->sessionId(), cancelSome),
                 std::bad_alloc);

    for (int i = 0; i < 100; ++i) {
        const Task task = taskAt(i);
        plain.insert(task);
        queue.insert(Task(task));
    }
    EXPECT_EQ(orderOf(queue), orderOf(plain));
}

// The last to the first, so that each goes behind many that were cancelled before.
TEST(TaskQueueTest, AllCanBeCancelledBackwards) {
    TaskQueue queue;
    PlainQueue plain;
    for (int i = 0; i < 1000; ++i) {
        const Task task = taskAt(1 + i % 10);
        plain.insert(task);
        queue.insert(Task(task));
    }
    std::vector<std::int32_t> sessions;
    for (const Task& task : plain.tasks()) sessions.push_back(task->sessionId());

    for (auto session = sessions.rbegin(); session != sessions.rend(); ++session) {
        ASSERT_EQ(cancel(queue, *session).size(), 1U);
    }
    EXPECT_EQ(orderOf(queue), orderOf(plain));
    const Task last = taskAt(0.5);
    plain.insert(last);
    queue.insert(Task(last));
    EXPECT_EQ(orderOf(queue), orderOf(plain));
    while (!plain.tasks().empty()) ASSERT_EQ(queue.popFront(), plain.popFront());
    EXPECT_TRUE(queue.empty());
}

// As those of a thread that gets every 1,024th task of a process.
TEST(TaskQueueTest, SessionsThatAreFarApartAreFound) {
    std::vector<Task> tasks;
    for (int i = 0; i < 200; ++i) {
        for (int other = 0; other < 1023; ++other) (void)IdleTask(1.0);
        tasks.push_back(taskAt(1000 - i));
    }
    TaskQueue queue;
    for (const Task& task : tasks) queue.insert(Task(task));

    for (const Task& task : tasks) {
        EXPECT_EQ(cancel(queue, task->sessionId()), Cancelled{task.get()});
    }
    EXPECT_EQ(cancel(queue, tasks.front()->sessionId() - 1), Cancelled{});
}

// However many there are: the later half is gone, and what comes then is later still.
TEST(TaskQueueTest, TasksGoToTheirPlacesWhereOthersWereCancelled) {
    for (std::size_t count = 1; count <= 150; ++count) {
        TaskQueue queue;
        PlainQueue plain;
        const auto insert = [&](const Task& task) {
            plain.insert(task);
            queue.insert(Task(task));
        };
        const std::vector<Task> tasks = tasksInOrder(count);
        for (const Task& task : tasks) insert(task);
        insert(taskAt(5));
        for (std::size_t i = count / 2; i < count; ++i) {
            ASSERT_EQ(cancel(queue, tasks[i]->sessionId()), Cancelled{tasks[i].get()});
        }

        insert(taskAt(20000));
        insert(taskAt(10000));
        ASSERT_EQ(orderOf(queue), orderOf(plain)) << count << " tasks";
    }
}

TEST(TaskQueueTest, TheFirstCanBeCancelledHoweverManyAreGone) {
    for (std::size_t gone = 0; gone < 150; ++gone) {
        TaskQueue queue;
        const std::vector<Task> tasks = tasksInOrder(gone + 2);
        for (const Task& task : tasks) queue.insert(Task(task));
        for (std::size_t i = 0; i < gone; ++i) ASSERT_EQ(queue.popFront(), tasks[i]);

        ASSERT_EQ(cancel(queue, tasks[gone]->sessionId()), Cancelled{tasks[gone].get()});
        ASSERT_EQ(queue.popFront(), tasks[gone]) << gone << " are gone";
        ASSERT_EQ(queue.front(), tasks[gone + 1].get()) << gone << " are gone";
        ASSERT_EQ(queue.popFront(), tasks[gone + 1]);
        ASSERT_TRUE(queue.empty());
    }
}

TEST(TaskQueueTest, ManyTasksShareFewBlocksOfMemory) {
    TaskQueue queue;
    const std::vector<Task> tasks = tasksInOrder(1000);

    EXPECT_LT(allocationsOf([&] {
                  for (const Task& task : tasks) queue.insert(Task(task));
              }),
              200);
}

TEST(TaskQueueTest, TheRoomOfAPoppedTaskIsUsedAgain) {
    for (std::size_t count = 1; count <= 150; ++count) {
        TaskQueue queue;
        for (const Task& task : tasksInOrder(count)) queue.insert(Task(task));
        (void)queue.popFront();
        const Task first = taskAt(15);

        EXPECT_EQ(allocationsOf([&] { queue.insert(Task(first)); }), 0) << count << " tasks";
        EXPECT_EQ(queue.popFront(), first);
    }
}

TEST(TaskQueueTest, TasksThatComeAndGoNeedNoMoreMemory) {
    TaskQueue queue;
    double latest = 0;
    for (int i = 0; i < 200; ++i) queue.insert(taskAt(++latest));
    const auto postEachAgain = [&] {
        for (int i = 0; i < 200; ++i) {
            Task task = queue.popFront();
            task->setNextFireTime(++latest);
            queue.insert(std::move(task));
        }
    };
    postEachAgain();

    EXPECT_EQ(allocationsOf([&] {
                  for (int round = 0; round < 10; ++round) postEachAgain();
              }),
              0);
}

TEST(TaskQueueTest, TasksThatComeAndAreCancelledNeedNoMoreMemory) {
    TaskQueue queue;
    queue.insert(taskAt(1e6));  // It stays: with the last task the memory would go.
    const std::vector<Task> tasks = tasksInOrder(200);
    const auto cancelOne = [](TimerTaskBase& task) { task.setNextFireTime(0.0); };
    const auto postAndCancelAll = [&] {
        double fireTime = 0;
        for (const Task& task : tasks) {
            task->setNextFireTime(++fireTime);
            queue.insert(Task(task));
        }
        for (const Task& task : tasks) queue.cancelSession(task->sessionId(), cancelOne);
        for (const Task& task : tasks) ASSERT_EQ(queue.popFront(), task);
    };
    postAndCancelAll();

    EXPECT_EQ(allocationsOf([&] {
                  for (int round = 0; round < 10; ++round) postAndCancelAll();
              }),
              0);
}

TEST(TaskQueueTest, TheMemoryOfOneTaskIsKept) {
    TaskQueue queue;
    queue.insert(taskAt(1));
    (void)queue.popFront();
    const Task task = taskAt(2);

    EXPECT_EQ(allocationsOf([&] { queue.insert(Task(task)); }), 0);
}

// The first insertion tells of the memory for tasks, the second of that for their order.
TEST(TaskQueueTest, TheMemoryOfManyTasksIsReturnedWhenAllAreGone) {
    for (const std::size_t count : {100U, 1000U}) {
        TaskQueue queue;
        for (const Task& task : tasksInOrder(count)) queue.insert(Task(task));
        while (!queue.empty()) (void)queue.popFront();
        const Task unsorted = taskAt(0.0);
        const Task sorted = taskAt(1.0);

        EXPECT_GT(allocationsOf([&] { queue.insert(Task(unsorted)); }), 0) << count << " tasks";
        EXPECT_GT(allocationsOf([&] { queue.insert(Task(sorted)); }), 0) << count << " tasks";
    }
}

// A list that grew with each round would need ever larger blocks.
TEST(TaskQueueTest, NothingGrowsWithTheTimesThatAllAreGone) {
    TaskQueue queue;
    const std::vector<Task> tasks = tasksInOrder(100);
    std::size_t largest = 0;
    const auto note = [&largest](std::size_t size) {
        largest = std::max(largest, size);
        return ::operator new(size);
    };
    const test::ReplaceCall<void*(std::size_t)> sizes(Call::New, note);
    const auto postAndPopAll = [&] {
        for (const Task& task : tasks) queue.insert(Task(task));
        for (const Task& task : tasks) ASSERT_EQ(queue.popFront(), task);
    };
    postAndPopAll();
    const std::size_t atFirst = std::exchange(largest, 0);
    for (int round = 0; round < 500; ++round) postAndPopAll();

    EXPECT_GT(atFirst, 0U);
    EXPECT_EQ(largest, atFirst);
}

class TaskQueueAgainstWalkTest : public ::testing::TestWithParam<unsigned> {};

// Posts, pops and cancellations in any mixture, compared with the walk after each step.
TEST_P(TaskQueueAgainstWalkTest, PlacesAreThoseOfTheWalk) {
    constexpr int kSteps = 3000;
    std::mt19937 random(GetParam());
    const std::vector<double> specialTimes = {0.0,
                                              -0.0,
                                              -1.0,
                                              -3.5,
                                              std::numeric_limits<double>::infinity(),
                                              -std::numeric_limits<double>::infinity(),
                                              std::numeric_limits<double>::quiet_NaN()};
    std::uniform_int_distribution<int> chance(0, 99);
    std::uniform_int_distribution<int> coarseTime(-5, 20);  // Few values: many are equal.
    std::uniform_int_distribution<std::size_t> special(0, specialTimes.size() - 1);
    const int postChance = GetParam() % 2 == 0 ? 55 : 75;  // Short queues, and growing ones.

    TaskQueue queue;
    PlainQueue plain;
    for (int step = 0; step < kSteps; ++step) {
        const int dice = chance(random);
        if (dice < postChance) {
            const bool isSpecial = chance(random) < 10;
            Task task = taskAt(isSpecial ? specialTimes[special(random)] : coarseTime(random),
                               coarseTime(random));
            // Some are queued twice, at the time that they have.
            if (!plain.tasks().empty() && chance(random) < 5) task = plain.tasks().back();
            plain.insert(task);
            queue.insert(Task(task));
        } else if (dice < 90) {
            ASSERT_EQ(queue.popFront(), plain.popFront());
        } else if (!plain.tasks().empty()) {
            std::uniform_int_distribution<std::size_t> any(0, plain.tasks().size() - 1);
            const Task task = plain.tasks()[any(random)];
            if (dice < 99) {
                const auto isWanted = [&](const TimerTaskBase& other) {
                    return other.sessionId() == task->sessionId();
                };
                const Cancelled expected = wanted(plain, isWanted);
                ASSERT_EQ(cancel(queue, task->sessionId()), expected);
            } else {
                const auto isWanted = [&](const TimerTaskBase& other) {
                    return other.taskId() == task->taskId();
                };
                const Cancelled expected = wanted(plain, isWanted);
                ASSERT_EQ(cancelGroup(queue, task->taskId()), expected);
            }
        }
        ASSERT_EQ(queue.size(), plain.tasks().size());
        ASSERT_EQ(queue.front(), plain.tasks().empty() ? nullptr : plain.tasks().front().get());
        if (step % 16 == 0) {
            ASSERT_EQ(orderOf(queue), orderOf(plain)) << "step " << step;
        }
    }
    ASSERT_EQ(orderOf(queue), orderOf(plain));
}

INSTANTIATE_TEST_SUITE_P(Seeds, TaskQueueAgainstWalkTest, ::testing::Range(0U, 12U));

}  // namespace

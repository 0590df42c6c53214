// Callables that are posted, and the handles that cancel them.

#include "base/timer/task_handle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/fresh_process.h"
#include "timer/timer_fixtures.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using namespace std::chrono_literals;
using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;

using Lines = std::vector<LogEntry>;
using Thread = TimerThreadPool::Thread;

constexpr auto kFar = 1h;

/// Set when the last copy of it is destroyed.
std::shared_ptr<void> setsAtItsEnd(test::Event* p_gone) {
    return {static_cast<void*>(p_gone), [p_gone](void*) { p_gone->set(); }};
}

/// Returns when all that was due on @p thread before has been seen to.
void passThrough(TimerThread& thread) {
    test::Event passed;
    thread.post([&] { passed.set(); }, 0);
    EXPECT_TRUE(passed.wait());
}

TEST(TaskHandleTest, WorkIsDoneOnTheThreadAndNotBeforeItsTime) {
    test::Event done;
    double at = 0;
    std::int32_t by = 0;
    TimerThread thread;
    const double begin = monotonicNow();

    thread.post(
        [&] {
            at = monotonicNow();
            by = currentThread();
            done.set();
        },
        20);

    ASSERT_TRUE(done.wait());
    EXPECT_GE(at - begin, 0.020);
    EXPECT_EQ(by, thread.threadId());
}

TEST(TaskHandleTest, ADelayMayHaveAnyUnit) {
    FireLog fired;
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));
    const double begin = monotonicNow();
    double at = 0;

    thread.post([&] { fired.add(1); }, std::chrono::hours::min());
    thread.post([&] { fired.add(2); }, std::chrono::duration<float>(-2.5F));
    thread.post(
        [&] {
            at = monotonicNow();
            fired.add(4);
        },
        std::chrono::duration<double, std::milli>(500.5));
    thread.post([&] { fired.add(3); }, 100ns);
    thread.post([&] { fired.add(5); }, std::chrono::hours::max());
    thread.post([&] { fired.add(6); },
                std::chrono::duration<double>(std::numeric_limits<double>::infinity()));
    thread.postTask(makeTask([&] { fired.add(7); }), kFar);
    holder.letGo();

    ASSERT_TRUE(fired.waitFor(4));
    EXPECT_EQ(fired.fired(), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_GE(at - begin, 0.5005);
    EXPECT_EQ(thread.taskCount(), 3);
}

TEST(TaskHandleTest, WorkOfEqualTimesIsDoneInTheOrderOfPosting) {
    FireLog fired;
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));

    for (int i = 0; i < 3; ++i) thread.post([&fired, i] { fired.add(i); }, -1000 + i);
    holder.letGo();

    ASSERT_TRUE(fired.waitFor(3));
    EXPECT_EQ(fired.fired(), (std::vector<int>{0, 1, 2}));
}

TEST(TaskHandleTest, WorkNeedNotBeCopyableNorReturnNothing) {
    test::Event done;
    int seen = 0;
    TimerThread thread;
    auto number = std::make_unique<int>(7);

    thread.post(
        [&, number = std::move(number)]() mutable {
            seen = std::exchange(*number, 0);
            done.set();
            return seen;
        },
        0ms);

    ASSERT_TRUE(done.wait());
    EXPECT_EQ(seen, 7);
}

TEST(TaskHandleTest, WorkThatIsNamedIsCopied) {
    FireLog fired;
    TimerThread thread;
    const std::function<void()> work = [&] { fired.add(1); };

    thread.post(work, 0);
    thread.post(work, 0ns);

    EXPECT_TRUE(fired.waitFor(2));
    EXPECT_TRUE(work != nullptr);
}

TEST(TaskHandleTest, WorkIsDestroyedOnTheThreadRightAfterItsCall) {
    TimerThread thread;
    std::int32_t by = 0;
    bool wasBusy = false;
    test::Event gone;
    std::shared_ptr<void> held(nullptr, [&](void*) {
        by = currentThread();
        wasBusy = thread.isBusy();
        gone.set();
    });

    const TaskHandle handle = thread.post([held = std::move(held)] {}, 0);

    ASSERT_TRUE(gone.wait());
    EXPECT_EQ(by, thread.threadId());
    EXPECT_TRUE(wasBusy);
}

TEST(TaskHandleTest, CancelledWorkIsDestroyedAtOnceAndNeverDone) {
    FireLog fired;
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));
    const auto held = std::make_shared<int>(0);
    TaskHandle handle = thread.post([&, held] { fired.add(1); }, 0);
    thread.post([&] { fired.add(2); }, 0);

    const bool isCancelled = handle.cancel();

    EXPECT_TRUE(isCancelled);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(thread.taskCount(), 2);
    holder.letGo();
    ASSERT_TRUE(fired.waitFor(1));
    EXPECT_EQ(fired.fired(), std::vector<int>{2});
}

TEST(TaskHandleTest, OneOfSeveralCallsHasCancelled) {
    TimerThread thread;
    TaskHandle handle = thread.post([] {}, kFar);
    TaskHandle copy = handle;

    EXPECT_TRUE(copy.cancel());
    EXPECT_FALSE(handle.cancel());
    EXPECT_FALSE(copy.cancel());
}

TEST(TaskHandleTest, WorkInHandIsNotCancelledByItselfNorByOthers) {
    TimerThread thread;
    test::Event posted;
    test::Event entered;
    test::Event release;
    test::Event done;
    TaskHandle handle;
    bool itself = true;
    handle = thread.post(
        [&] {
            EXPECT_TRUE(posted.wait());
            itself = handle.cancel();
            entered.set();
            EXPECT_TRUE(release.wait());
            done.set();
        },
        0);
    posted.set();
    ASSERT_TRUE(entered.wait());

    const bool other = handle.cancel();
    release.set();

    EXPECT_TRUE(done.wait());
    EXPECT_FALSE(itself);
    EXPECT_FALSE(other);
}

// The thread has taken it from its queue, and said so.
TEST(TaskHandleTest, WorkThatIsCancelledJustBeforeItsCallIsNeverDone) {
    struct Last {
        static void capture(void* p_self, const DebugLevelRecord*, const char* text,
                            std::size_t length) {
            auto& self = *static_cast<Last*>(p_self);
            const bool begins =
                std::string_view(text, length).find("Begin fire task") != std::string_view::npos;
            if (begins && !self.isCancelled) self.isCancelled = self.handle.cancel();
        }
        TaskHandle handle;
        bool isCancelled = false;
    };
    Last last;
    bool isDone = false;
    const LogCapture log(kLogAlways);  // Puts levels and output back as they were.
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));
    last.handle = thread.post([&] { isDone = true; }, 0);
    zorDebugInstallCapture(&Last::capture, &last);
    holder.letGo();

    passThrough(thread);

    EXPECT_TRUE(last.isCancelled);
    EXPECT_FALSE(isDone);
}

TEST(TaskHandleTest, WorkThatIsDoneIsNotCancelled) {
    TimerThread thread;
    TaskHandle handle = thread.post([] {}, 0);
    passThrough(thread);

    EXPECT_FALSE(handle.cancel());
    EXPECT_FALSE(TaskHandle().cancel());
}

TEST(TaskHandleTest, AHandleThatIsDroppedCancelsNothing) {
    FireLog fired;
    TimerThread thread;
    {
        Holder holder;
        ASSERT_TRUE(holder.hold(thread));
        std::optional<TaskHandle> handle = thread.post([&] { fired.add(1); }, 0);
        handle.reset();
    }
    EXPECT_TRUE(fired.waitFor(1));
}

TEST(TaskHandleTest, AHandleMayOutliveItsThreadAndKeepsNoWork) {
    TaskHandle handle;
    test::Event gone;
    {
        TimerThread thread;
        handle = thread.post([held = setsAtItsEnd(&gone)] {}, kFar);
    }

    EXPECT_TRUE(gone.isSet());
    EXPECT_FALSE(handle.cancel());
}

TEST(TaskHandleTest, WorkMayDestroyItsThread) {
    auto thread = std::make_shared<TimerThread>();
    test::Event gone;
    auto held = setsAtItsEnd(&gone);
    TimerThread& first = *thread;
    TaskHandle handle = first.post(
        [thread = std::move(thread), held = std::move(held)]() mutable { thread.reset(); }, 0);

    ASSERT_TRUE(gone.wait());
    EXPECT_FALSE(handle.cancel());
}

TEST(TaskHandleTest, CancelledWorkMayCancelAndPostAsItGoes) {
    FireLog fired;
    TimerThread thread;
    TaskHandle other = thread.post([&] { fired.add(1); }, kFar);
    std::shared_ptr<void> held(nullptr, [&](void*) {
        EXPECT_TRUE(other.cancel());
        thread.post([&] { fired.add(2); }, 0);
    });
    TaskHandle handle = thread.post([held = std::move(held)] {}, kFar);

    EXPECT_TRUE(handle.cancel());

    ASSERT_TRUE(fired.waitFor(1));
    EXPECT_EQ(fired.fired(), std::vector<int>{2});
}

TEST(TaskHandleTest, TheThreadDropsACancelledTaskWithItsUsualLine) {
    LogCapture log(kLogDebug);
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));
    TaskHandle handle = thread.post([] {}, 0);
    ASSERT_TRUE(handle.cancel());
    log.clear();

    holder.letGo();
    passThrough(thread);

    int drops = 0;
    for (const LogEntry& entry : linesOf("run", log.entriesWithoutLineNumbers())) {
        if (entry.text.find("fireTime is 0, is a canceled task.\n") != std::string::npos) ++drops;
    }
    EXPECT_EQ(drops, 1);
}

TEST(TaskHandleTest, WorkThatCannotBePostedIsDestroyed) {
    TimerThread thread;
    const auto held = std::make_shared<int>(0);
    FailCall noThread(Call::PthreadCreate, EAGAIN);

    EXPECT_THROW(thread.post([held] {}, 0), std::runtime_error);

    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(thread.hasTask());
}

TEST(TaskHandleTest, ACancellationByTaskIdTakesPostedWorkAlong) {
    TimerThread thread;
    Holder holder;
    ASSERT_TRUE(holder.hold(thread));  // It would drop what is cancelled.
    TaskHandle handle = thread.post([] { ADD_FAILURE() << "is done"; }, kFar);

    thread.cancelTaskByTaskId(0);

    EXPECT_TRUE(handle.cancel());
    holder.letGo();
}

TEST(TaskHandleTest, AnEmptyTaskIsReportedWhateverTheDelay) {
    LogCapture log(kLogError);
    TimerThread thread;
    const LogEntry refusal = threadLine(kLogError, "postTask", "Invalid Empty task\n");

    thread.postTask(nullptr, 5ms);
    TimerThreadPool::postTask(Thread::Background, nullptr, 5);

    EXPECT_EQ(log.entriesWithoutLineNumbers(), (Lines{refusal, refusal}));
}

TEST(TaskHandleTest, ThePoolPostsToEachOfItsThreads) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogAlways);
        const auto isOn = [](Thread thread) {
            test::Event done;
            std::vector<bool> answers;
            TimerThreadPool::post(
                thread,
                [&] {
                    answers = {TimerThreadPool::isMainThread(),
                               TimerThreadPool::isForegroundThread(),
                               TimerThreadPool::isBackgroundThread()};
                    done.set();
                },
                0ms);
            EXPECT_TRUE(done.wait());
            return answers;
        };
        EXPECT_EQ(isOn(Thread::Main), (std::vector<bool>{true, false, false}));
        EXPECT_EQ(isOn(Thread::Foreground), (std::vector<bool>{false, true, false}));
        EXPECT_EQ(isOn(Thread::Background), (std::vector<bool>{false, false, true}));
        log.clear();
        EXPECT_EQ(isOn(Thread::Worker), (std::vector<bool>{false, false, false}));
        EXPECT_EQ(linesOf("postWorkerTask", log.entriesWithoutLineNumbers()),
                  Lines{poolLine(kLogAlways, "postWorkerTask", "Crate Worker Thread: 0\n")});
    });
}

TEST(TaskHandleTest, ThePoolPostsTasksAndWorkWithADelay) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::Countdown left(4);
        double earliest = std::numeric_limits<double>::infinity();
        const auto note = [&] {
            earliest = std::min(earliest, monotonicNow());
            left.arrive();
        };
        const double begin = monotonicNow();

        TimerThreadPool::post(Thread::Main, note, 20);
        TimerThreadPool::post(Thread::Main, note, 20ms);
        TimerThreadPool::postTask(Thread::Main, makeTask(note), 20);
        TimerThreadPool::postTask(Thread::Main, makeTask(note), 20ms);

        EXPECT_TRUE(left.wait());
        EXPECT_GE(earliest - begin, 0.020);
    });
}

TEST(TaskHandleTest, WorkForWhichThePoolHasNoWorkerIsDestroyed) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        TimerThreadPool::init(0);
        const auto held = std::make_shared<int>(0);

        TaskHandle handle = TimerThreadPool::post(
            Thread::Worker, [held] {}, kFar);

        EXPECT_EQ(held.use_count(), 1);
        EXPECT_FALSE(handle.cancel());
        EXPECT_EQ(log.entriesWithoutLineNumbers(),
                  Lines{poolLine(kLogError, "postWorkerTask",
                                 "No worker threads available. ignore task.\n")});
    });
}

}  // namespace

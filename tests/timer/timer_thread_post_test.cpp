// What a post owes the worker, the other posts, and an object that is being destroyed.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::CountCalls;
using test::LogCapture;
using test::When;

constexpr std::int32_t kHourMs = 3600 * 1000;

// The worker sleeps for the front as it was; a client has moved that forward meanwhile.
TEST(TimerThreadPostTest, APostSeesThatTheFrontHasBeenMovedForward) {
    test::setLogLevel(0);
    FireLog fired;
    TimerThread thread;
    test::Event asleep;
    const auto front = makeTask([&] { fired.add(1); });
    {
        test::RunAtCall atWait(
            Call::PthreadCondClockwait, [&] { asleep.set(); }, When().anyThread());
        thread.postTask(front, kHourMs);
        ASSERT_TRUE(asleep.wait());
    }
    // Its wait may still be about to begin; the lock that it holds until then is the post's too.
    front->setNextFireTime(monotonicNow());

    thread.postTask(makeTask([] {}), 2 * kHourMs);

    EXPECT_TRUE(fired.waitFor(1));
    test::setLogLevel(kLogError);
}

// A task may fire at once, and its owner destroy the thread: the last thing that a post does to
// it is to release the lock.
TEST(TimerThreadPostTest, TheWorkerIsWokenUnderTheLock) {
    TimerThread thread;
    test::Event asleep;
    {
        test::RunAtCall atWait(
            Call::PthreadCondClockwait, [&] { asleep.set(); }, When().anyThread());
        thread.postTask(makeTask([] {}), kHourMs);
        ASSERT_TRUE(asleep.wait());
    }
    const auto task = makeTask([] {}, monotonicNow());
    CountCalls locked(Call::PthreadMutexLock, When().everyTime());
    CountCalls unlocked(Call::PthreadMutexUnlock, When().everyTime());
    long held = -1;
    test::RunAtCall atSignal(Call::PthreadCondSignal,
                             [&] { held = locked.seen() - unlocked.seen(); });

    thread.postTask(task);

    EXPECT_EQ(atSignal.hits(), 1);
    EXPECT_EQ(held, 1);
}

/// Posts another task when it is destroyed.
class RepostingTask : public TimerTaskBase {
public:
    RepostingTask(TimerThread* p_thread, std::shared_ptr<TimerTaskBase> next)
        : m_thread(p_thread), m_next(std::move(next)) {}
    ~RepostingTask() override { m_thread->postTask(std::move(m_next), 0); }

    void fire() override {}

private:
    TimerThread* const m_thread;
    std::shared_ptr<TimerTaskBase> m_next;
};

TEST(TimerThreadPostTest, ATaskThatPostsWhenItIsDestroyedWithItsThreadStartsNothing) {
    FireLog fired;
    auto thread = std::make_unique<TimerThread>();
    TimerThread* const p_thread = thread.get();
    auto next = makeTask([&] { fired.add(1); });
    const std::weak_ptr<TestTask> posted = next;
    thread->postTask(std::make_shared<RepostingTask>(p_thread, std::move(next)), kHourMs);
    CountCalls threads(Call::PthreadCreate, When().anyThread());

    thread.reset();

    EXPECT_TRUE(posted.expired());
    EXPECT_EQ(threads.seen(), 0);
    EXPECT_TRUE(fired.fired().empty());
}

TEST(TimerThreadPostTest, AWorkerThatHasWokenByItselfIsNotWoken) {
    Holder holder;
    TimerThread thread;
    thread.postTask(holder.task(), 50);
    ASSERT_TRUE(holder.waitUntilHeld());
    const CountCalls wakes(Call::PthreadCondSignal, When().everyTime());

    thread.postTask(makeTask([] {}, -1.0));

    EXPECT_EQ(wakes.seen(), 0);
    holder.letGo();
}

// The first of two posts has claimed the start, and could not have a thread; the second has come in
// between.
TEST(TimerThreadPostTest, APostDuringTheStartOfAnotherStartsTheThreadItself) {
    test::setLogLevel(0);
    FireLog fired;
    TimerThread thread;
    std::thread first([&] {
        test::FailCall noThread(Call::PthreadCreate, EAGAIN);
        const auto task = makeTask([&] { fired.add(1); }, 1.0);
        // The start has been claimed when its line is to be written.
        test::RunAtCall atLine(Call::ZorDebugCheckLevel, [&] {
            std::thread([&] { thread.postTask(makeTask([&] { fired.add(2); }, 0.5)); }).join();
            EXPECT_TRUE(fired.waitFor(1));
        });
        thread.postTask(task);
        EXPECT_EQ(noThread.hits(), 0);  // It needs none any more.
    });
    first.join();

    EXPECT_TRUE(fired.waitFor(2));
    EXPECT_EQ(fired.fired(), (std::vector<int>{2, 1}));
    test::setLogLevel(kLogError);
}

// The second post relies on the first one's start, which fails before its task is queued.
TEST(TimerThreadPostTest, APostStartsTheThreadWhereTheStartOfAnotherHasJustFailed) {
    const test::LogCapture log(kLogAlways);
    FireLog fired;
    TimerThread thread;
    test::Event isClaimed;
    test::Event mayFail;
    test::Event hasFailed;
    std::thread first([&] {
        const test::FailCall noThread(Call::PthreadCreate, EAGAIN);
        const test::RunAtCall atLine(Call::ZorDebugCheckLevel, [&] {
            isClaimed.set();
            (void)mayFail.wait();
        });
        EXPECT_THROW(thread.postTask(makeTask([&] { fired.add(1); }, 1.0)), std::runtime_error);
        hasFailed.set();
    });
    ASSERT_TRUE(isClaimed.wait());
    {
        const test::RunAtCall atLine(Call::ZorDebugCheckLevel, [&] {
            mayFail.set();
            EXPECT_TRUE(hasFailed.wait());
        });
        thread.postTask(makeTask([&] { fired.add(2); }, 0.5));
        EXPECT_EQ(atLine.hits(), 1);
    }
    first.join();

    EXPECT_TRUE(fired.waitFor(1));
    EXPECT_EQ(fired.fired(), std::vector<int>{2});
    const std::string line = "[" + address(&thread) + "]:Need start TimerThread.\n";
    const test::LogEntry start = threadLine(kLogAlways, "postTask", line);
    EXPECT_EQ(linesOf("postTask", log.entriesWithoutLineNumbers()),
              (std::vector<test::LogEntry>{start, start}));
}

// The worker that another post has started during the first one's start has been stopped by its
// task, and has left.
TEST(TimerThreadPostTest, APostDuringTheStartOfAnotherNeverWaitsForIt) {
    const test::LogCapture log(kLogAlways);
    FireLog fired;
    TimerThread thread;
    std::thread first([&] {
        const test::RunAtCall atLine(Call::ZorDebugCheckLevel, [&] {
            std::thread([&] { thread.postTask(makeTask([&] { thread.stop(); }, 0.5)); }).join();
            EXPECT_TRUE(log.waitFor("Exiting Timer Thread..."));
            std::thread([&] { thread.postTask(makeTask([&] { fired.add(2); }, 0.5)); }).join();
        });
        thread.postTask(makeTask([&] { fired.add(1); }, 1.0));
    });
    first.join();

    EXPECT_TRUE(fired.waitFor(2));
    EXPECT_EQ(fired.fired(), (std::vector<int>{2, 1}));
}

TEST(TimerThreadPostTest, WhereNeitherCanHaveAThreadBothLearnOfIt) {
    test::setLogLevel(0);
    FireLog fired;
    TimerThread thread;
    std::atomic<int> failures{0};
    const auto post = [&](int number) {
        test::FailCall noThread(Call::PthreadCreate, EAGAIN);
        try {
            thread.postTask(makeTask([&fired, number] { fired.add(number); }, 1.0));
        } catch (const std::runtime_error&) {
            ++failures;
        }
    };

    std::thread first([&] {
        test::RunAtCall atLine(Call::ZorDebugCheckLevel,
                               [&] { std::thread([&] { post(2); }).join(); });
        post(1);
    });
    first.join();

    EXPECT_EQ(failures, 2);
    EXPECT_FALSE(thread.hasTask());
    test::setLogLevel(kLogError);
}

}  // namespace

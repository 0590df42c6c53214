// Who comes to a timer thread's queue while another thread is at it.

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "support/contention.h"
#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::keepsWaiting;
using test::When;

constexpr std::int32_t kHourMs = 3600 * 1000;

class TimerThreadLockTest : public testing::Test {
protected:
    void TearDown() override { m_holder.letGo(); }

    const test::LogCapture m_log{0};
    Holder m_holder;
    TimerThread m_thread;
    const std::function<void()> m_count = [this] { (void)m_thread.taskCount(); };
};

TEST_F(TimerThreadLockTest, EachCallKeepsOthersFromTheQueue) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    const auto isBusy = [this] { (void)m_thread.isBusy(); };

    EXPECT_TRUE(keepsWaiting(m_count, isBusy));
    EXPECT_TRUE(keepsWaiting(isBusy, m_count));
    EXPECT_TRUE(keepsWaiting([this] { m_thread.postTask(makeTask([] {}), kHourMs); }, m_count));
    EXPECT_TRUE(keepsWaiting([this] { (void)m_thread.getNextFiringInterval(); }, m_count));
    EXPECT_TRUE(keepsWaiting([this] { m_thread.cancelTaskBySessionId(1); }, m_count));
    EXPECT_TRUE(keepsWaiting([this] { m_thread.cancelTaskByTaskId(1); }, m_count));
    EXPECT_TRUE(keepsWaiting([this] { (void)m_thread.popFirstTask(); }, m_count));
    EXPECT_TRUE(keepsWaiting([this] { m_thread.start(); }, m_count));
}

TEST_F(TimerThreadLockTest, APostKeepsOthersFromTheQueueWhenItStartsTheThread) {
    // It claims the start, starts, and queues its task.
    const auto post = [this] { m_thread.postTask(makeTask([] {}), kHourMs); };
    for (long step = 1; step <= 3; ++step) {
        EXPECT_TRUE(keepsWaiting(post, m_count, When().nth(step))) << step;
        m_thread.stop();
    }
}

TEST_F(TimerThreadLockTest, AStopKeepsOthersFromTheQueueInEachStep) {
    // It takes the worker, wakes it, is called once more by the worker's handle, and tells of the
    // end.
    for (long step = 1; step <= 4; ++step) {
        m_thread.start();
        EXPECT_TRUE(keepsWaiting([this] { m_thread.stop(); }, m_count, When().nth(step))) << step;
    }
}

TEST_F(TimerThreadLockTest, AWorkerThatLeavesKeepsOthersFromTheQueue) {
    for (const bool isExit : {false, true}) {
        test::Event isDecided;
        bool hasToWait = false;
        std::unique_ptr<test::Contender> contender;
        std::optional<test::RunAtCall> atUnlock;
        m_thread.postTask(makeTask([&] {
                              m_thread.stop();
                              atUnlock.emplace(Call::PthreadMutexUnlock, [&] {
                                  contender = std::make_unique<test::Contender>(m_count);
                                  hasToWait = contender->hasToWait();
                                  isDecided.set();
                              });
                              if (isExit) pthread_exit(nullptr);
                          }),
                          0);

        EXPECT_TRUE(isDecided.wait());
        contender.reset();
        EXPECT_TRUE(hasToWait);
        m_thread.stop();
        atUnlock.reset();
    }
}

// The destruction has begun, and is about to wait for the task.
TEST_F(TimerThreadLockTest, ATaskInHandMayPostWhileItsThreadIsBeingDestroyed) {
    test::Event isThere;
    test::UnorderedTurn turn;
    auto next = makeTask([] {});
    const std::weak_ptr<TestTask> posted = next;
    auto thread = std::make_unique<TimerThread>();
    TimerThread* const p_thread = thread.get();
    thread->postTask(makeTask([&] {
                         isThere.set();
                         turn.use([&] { p_thread->postTask(std::move(next), kHourMs); });
                     }),
                     0);
    ASSERT_TRUE(isThere.wait());
    {
        const test::RunAtCall atLock(
            Call::PthreadMutexLock, [&] { turn.give(); }, When().nth(2));
        thread.reset();
    }

    EXPECT_TRUE(posted.expired());
}

// ---- what comes in between ----

TEST_F(TimerThreadLockTest, APostToAWorkerThatIsAboutToLeaveHasItStay) {
    FireLog fired;
    std::optional<test::RunAtCall> atLock;
    m_thread.postTask(makeTask([&] {
                          m_thread.stop();
                          // The worker has seen that it is to leave.
                          atLock.emplace(Call::PthreadMutexLock, [&] {
                              m_thread.postTask(makeTask([&] { fired.add(1); }), 0);
                          });
                      }),
                      0);

    EXPECT_TRUE(fired.waitFor(1));
    m_thread.stop();
}

// A post has come between the end of the stop that it waited for and its own.
TEST_F(TimerThreadLockTest, AStopThatHasWaitedEndsTheWorkerThatWasStartedMeanwhile) {
    ASSERT_TRUE(m_holder.hold(m_thread));
    test::Event isJoining;
    test::Event isWaiting;
    test::Event firstIsDone;
    test::Event secondIsDone;
    std::thread first([&] {
        const test::RunAtCall atJoin(Call::PthreadJoin, [&] { isJoining.set(); });
        m_thread.stop();
        firstIsDone.set();
    });
    EXPECT_TRUE(isJoining.wait());
    std::thread second([&] {
        const test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*)> wait(
            Call::PthreadCondWait, [&](pthread_cond_t*, pthread_mutex_t* p_mutex) {
                (void)pthread_mutex_unlock(p_mutex);
                isWaiting.set();
                (void)firstIsDone.wait();
                m_thread.postTask(makeTask([] {}), kHourMs);
                return pthread_mutex_lock(p_mutex);
            });
        m_thread.stop();
        secondIsDone.set();
    });
    EXPECT_TRUE(isWaiting.wait());
    m_holder.letGo();

    const bool isDone = secondIsDone.wait();
    EXPECT_TRUE(isDone);
    if (!isDone) m_thread.postTask(makeTask([this] { m_thread.stop(); }), 0);
    first.join();
    second.join();
}

}  // namespace

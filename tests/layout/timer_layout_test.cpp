// The layouts of the timers.

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "base/simple_timer.h"
#include "base/timer.h"
#include "layout/field.h"

namespace layout {

using namespace tevalon::base::simple_timer;
using namespace tevalon::base::timer;

LAYOUT_FIELD(TimeoutSec, TimeoutTime, sec);
LAYOUT_FIELD(TimeoutMsec, TimeoutTime, msec);
LAYOUT_FIELD(TimeoutUsec, TimeoutTime, usec);

LAYOUT_FIELD(TimerHandle, Timer, m_impl);

LAYOUT_FIELD(TaskNextFireTime, TimerTaskBase, m_nextFireTime);
LAYOUT_FIELD(TaskSessionId, TimerTaskBase, m_sessionId);
LAYOUT_FIELD(TaskTaskId, TimerTaskBase, m_taskId);

LAYOUT_FIELD(ContextAliveMagic, TimerExecutionContext, aliveMagic);
LAYOUT_FIELD(ContextExecutable, TimerExecutionContext, executable);

LAYOUT_FIELD(TimerThreadState, TimerThread, m_state);

LAYOUT_FIELD(PoolMainThread, TimerThreadPool, m_mainThread);
LAYOUT_FIELD(PoolForegroundThread, TimerThreadPool, m_foregroundThread);
LAYOUT_FIELD(PoolBackgroundThread, TimerThreadPool, m_backgroundThread);
LAYOUT_FIELD(PoolWorkers, TimerThreadPool, m_workers);
LAYOUT_FIELD(PoolWorkersMutex, TimerThreadPool, m_workersMutex);
LAYOUT_FIELD(PoolMaxWorkerCount, TimerThreadPool, m_maxWorkerCount);

LAYOUT_FIELD(DogCallback, WatchDog, m_callback);
LAYOUT_FIELD(DogCallbackContext, WatchDog, m_callbackContext);
LAYOUT_FIELD(DogBeginTime, WatchDog, m_beginTime);
LAYOUT_FIELD(DogTimeout, WatchDog, m_timeout);
LAYOUT_FIELD(DogElapsed, WatchDog, m_elapsed);
LAYOUT_FIELD(DogMutex, WatchDog, m_mutex);
LAYOUT_FIELD(DogRunning, WatchDog, m_running);
LAYOUT_FIELD(DogThread, WatchDog, m_thread);

TEST(TimerLayoutTest, TimeoutTime) {
    expectLayout<TimeoutTime>(kTimeoutTime, TimeoutSec(), TimeoutMsec(), TimeoutUsec());
    EXPECT_EQ(sizeof(TimerType_e), 4U);
}

TEST(TimerLayoutTest, TimerIsOnePairOfPointers) {
    expectLayout<Timer>(kTimer, TimerHandle());
    EXPECT_EQ(sizeof(Timer), 2 * sizeof(void*));
    EXPECT_FALSE(std::is_polymorphic_v<Timer>);
}

TEST(TimerLayoutTest, TimerTaskBase) {
    expectLayout<TimerTaskBase>(kTimerTaskBase, TaskNextFireTime(), TaskSessionId(), TaskTaskId());
}

TEST(TimerLayoutTest, TimerExecutableIsAnInterface) {
    EXPECT_TRUE(std::is_abstract_v<TimerExecutable>);
    EXPECT_EQ(sizeof(TimerExecutable), kTable);
}

TEST(TimerLayoutTest, TimerExecutionContext) {
    expectLayout<TimerExecutionContext>(kTimerExecutionContext, ContextAliveMagic(),
                                        ContextExecutable());
    EXPECT_FALSE(std::is_polymorphic_v<TimerExecutionContext>);
}

TEST(TimerLayoutTest, AContextThatIsAliveBeginsWithItsMagicBytes) {
    const TimerExecutionContext context(nullptr);
    unsigned char bytes[4] = {};
    std::memcpy(bytes, static_cast<const void*>(&context), sizeof(bytes));

    const unsigned char expected[4] = {0xFA, 0xCE, 0xDE, 0xAD};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof(bytes)), 0);
}

TEST(TimerLayoutTest, TimerThread) {
    expectLayout<TimerThread>(kTimerThread, TimerThreadState());
    EXPECT_FALSE(std::is_polymorphic_v<TimerThread>);
}

TEST(TimerLayoutTest, TimerThreadPool) {
    expectLayout<TimerThreadPool>(kTimerThreadPool, PoolMainThread(), PoolForegroundThread(),
                                  PoolBackgroundThread(), PoolWorkers(), PoolWorkersMutex(),
                                  PoolMaxWorkerCount());
    EXPECT_FALSE(std::is_polymorphic_v<TimerThreadPool>);
}

TEST(TimerLayoutTest, WatchDog) {
    expectLayout<WatchDog>(kWatchDog, DogCallback(), DogCallbackContext(), DogBeginTime(),
                           DogTimeout(), DogElapsed(), DogMutex(), DogRunning(), DogThread());
    EXPECT_FALSE(std::is_polymorphic_v<WatchDog>);
    EXPECT_EQ(sizeof(WatchDog::WATCH_ID), 4U);
}

TEST(TimerLayoutTest, TheProcessesWatchDogAddsNothing) {
    EXPECT_TRUE((std::is_base_of_v<WatchDog, GLWatchDog>));
    EXPECT_EQ(sizeof(GLWatchDog), kWatchDog.size);
}

}  // namespace layout

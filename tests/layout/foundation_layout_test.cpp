// The layouts of logging, locks and threads.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <mutex>
#include <type_traits>

#include "base/logging.h"
#include "base/synchronization/auto_lock.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/unique_lock.h"
#include "base/threading.h"
#include "layout/field.h"

namespace layout {

using namespace tevalon::base;
using Threading::Runnable;

struct Owner {
    int run() { return 0; }
    void stop() {}
};
using Thread = Threading::BasicThread<Owner>;

LAYOUT_FIELD(RecordLevel, DebugLevelRecord, level);
LAYOUT_FIELD(RecordModule, DebugLevelRecord, module);
LAYOUT_FIELD(RecordFrame, DebugLevelRecord, frame);
LAYOUT_FIELD(RecordChunk, DebugLevelRecord, chunk);

LAYOUT_FIELD(TracerFunction, FunctionTracer, m_function);
LAYOUT_FIELD(TracerFile, FunctionTracer, m_file);
LAYOUT_FIELD(TracerLine, FunctionTracer, m_line);

LAYOUT_FIELD(MutexNative, Mutex, m_mutex);
LAYOUT_FIELD(ConditionNative, ConditionVariable, m_cond);
LAYOUT_FIELD(AutoLockMutex, AutoLock<pthread_mutex_t>, m_mutex);
LAYOUT_FIELD(LockGuardMutex, LockGuard<pthread_mutex_t>, m_mutex);
LAYOUT_FIELD(UniqueLockMutex, UniqueLock<pthread_mutex_t>, m_mutex);
LAYOUT_FIELD(StandardAutoLockMutex, AutoLock<std::mutex>, m_mutex);
LAYOUT_FIELD(StandardLockGuardMutex, LockGuard<std::mutex>, m_mutex);
LAYOUT_FIELD(StandardUniqueLockMutex, UniqueLock<std::mutex>, m_mutex);

LAYOUT_FIELD(RunnableInterval, Runnable, m_interval);
LAYOUT_FIELD(RunnableMutex, Runnable, m_mutex);
LAYOUT_FIELD(RunnableStopped, Runnable, m_stopped);
LAYOUT_FIELD(RunnablePaused, Runnable, m_paused);
LAYOUT_FIELD(RunnableCondition, Runnable, m_condition);

LAYOUT_FIELD(ThreadOwner, Thread, m_owner);
LAYOUT_FIELD(ThreadHandle, Thread, m_handle);

TEST(FoundationLayoutTest, DebugLevelRecord) {
    expectLayout<DebugLevelRecord>(kDebugLevelRecord, RecordLevel(), RecordModule(), RecordFrame(),
                                   RecordChunk());
}

TEST(FoundationLayoutTest, TheDebugLevelRecordBeginsWithTheLevelWord) {
    const DebugLevelRecord record = {kLogError, kBlogModule, 0, 0};
    std::uint32_t word = 0;
    std::memcpy(&word, &record, sizeof(word));

    EXPECT_EQ(word, 0x005F03E8U);
}

TEST(FoundationLayoutTest, FunctionTracer) {
    expectLayout<FunctionTracer>(kFunctionTracer, TracerFunction(), TracerFile(), TracerLine());
    EXPECT_FALSE(std::is_polymorphic_v<FunctionTracer>);
}

TEST(FoundationLayoutTest, MutexAndConditionVariable) {
    expectLayout<Mutex>(kMutex, MutexNative());
    expectLayout<ConditionVariable>(kConditionVariable, ConditionNative());
}

TEST(FoundationLayoutTest, GuardsAreOnePointer) {
    expectLayout<AutoLock<pthread_mutex_t>>(kGuard, AutoLockMutex());
    expectLayout<LockGuard<pthread_mutex_t>>(kGuard, LockGuardMutex());
    expectLayout<UniqueLock<pthread_mutex_t>>(kGuard, UniqueLockMutex());
    expectLayout<AutoLock<std::mutex>>(kGuard, StandardAutoLockMutex());
    expectLayout<LockGuard<std::mutex>>(kGuard, StandardLockGuardMutex());
    expectLayout<UniqueLock<std::mutex>>(kGuard, StandardUniqueLockMutex());
}

TEST(FoundationLayoutTest, Runnable) {
    expectLayout<Runnable>(kRunnable, RunnableInterval(), RunnableMutex(), RunnableStopped(),
                           RunnablePaused(), RunnableCondition());
}

TEST(FoundationLayoutTest, BasicThread) {
    expectLayout<Thread>(kBasicThread, ThreadOwner(), ThreadHandle());
}

}  // namespace layout

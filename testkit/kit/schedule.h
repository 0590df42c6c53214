// schedule.h: one thread at a time, and a clock that stands still.
//
// Built without sanitizers, and with the compiler's atomic operations: handing the turn from thread
// to thread must not look like synchronisation to the thread sanitizer, or it would hide the races
// of the code under test.

#ifndef TESTKIT_KIT_SCHEDULE_H
#define TESTKIT_KIT_SCHEDULE_H

#include <pthread.h>

#include <cstdint>

namespace tevalon::testkit::kit {

/// What a thread waits for.
enum class Wait {
    Nothing,
    Mutex,
    Condition,
    Semaphore,
    ReadWriteLock,
    Once,
    Futex,
    Thread,
    Time,
    Descriptors,
    Idleness,  ///< The test's thread, in runUntilIdle().
};

/// On the monotonic clock, in nanoseconds.
using Nanoseconds = std::int64_t;
inline constexpr Nanoseconds kNever = INT64_MAX;

/// Whether some descriptor is ready; must not block.
struct Readiness {
    bool (*isReady)(const void* p_context);
    const void* p_context;
};

struct Thread;

/// Puts the calling thread in control: it is the test's. Once, before there are others.
void takeOver();
/// Whether takeOver() has been called.
bool isOn();
/// Whether the calling thread takes turns: its waits are those below, not the C library's.
bool isManaged();
/// Whether the calling thread is the test's.
bool isTestThread();

/// The clock. Readable by any thread.
Nanoseconds now();
/// What the real-time clock is ahead of it.
Nanoseconds realTimeOffset();
/// A managed thread reads the clock. One that does nothing else is waiting for something: after
/// many times others get their turn, and after very many the clock goes on.
void noteClockRead();

/// Ends the calling thread's turn until it is woken, or until @p deadline. False where that came
/// first. The caller loops.
bool block(Wait wait, const void* p_object, Nanoseconds deadline,
           const Readiness* p_readiness = nullptr);
/// Ends the turn; the thread comes after all that can run.
void yieldTurn();
/// Wakes the thread that has waited longest for @p p_object; whether there was one.
bool wakeOne(Wait wait, const void* p_object);
void wakeAll(Wait wait, const void* p_object);

/// For runUntilIdle(): returns when all other threads wait.
void awaitIdleness();
/// For advance().
void advanceTo(Nanoseconds time);

/// The system's syscall(), of which the kit has a definition too.
long systemCall(long number, const void* p_first = nullptr, long second = 0, long third = 0,
                const void* p_fourth = nullptr);

/// The processor that the calling thread is said to run on; see the definition.
int processor();

/// A thread that is being created; takes turns from its start on.
Thread* newThread(void* (*start)(void*), void* p_argument);
void* runThread(void* p_thread);
void forgetThread(Thread* p_thread);
void setHandle(Thread* p_thread, pthread_t handle);
/// Blocks until that thread has ended, if it is one that takes turns.
void awaitEnd(pthread_t handle);
/// Ends its wait, whatever it is for.
void interrupt(pthread_t handle);

}  // namespace tevalon::testkit::kit

#endif  // TESTKIT_KIT_SCHEDULE_H

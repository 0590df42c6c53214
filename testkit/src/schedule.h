// schedule.h: the threads of one schedule, of which one runs at a time.

#ifndef TESTKIT_SRC_SCHEDULE_H
#define TESTKIT_SRC_SCHEDULE_H

#include <pthread.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "accesses.h"
#include "run_record.h"
#include "vector_clock.h"

namespace tevalon::testkit {

inline constexpr int kNobody = -1;
inline constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

/// An address that threads synchronise by: an atomic variable, or one of the C library's objects,
/// whose state is kept here and not in the object itself.
struct Location {
    std::uintptr_t address = 0;
    std::uint64_t version = 0;  ///< Of the last write: a hash of all that happened before.
    VectorClock released;       ///< What an acquire operation learns.
    std::int8_t firstThread = kNobody;
    bool hasSeveralThreads = false;
    bool isWritten = false;
    bool isContended = false;
    bool isDestroyed = false;
    // Mutexes and reader-writer locks.
    int owner = kNobody;
    int depth = 0;
    int readers = 0;
    // Semaphores; also how often a once-routine or a static's constructor has come to its end.
    std::uint32_t count = 0;
    bool isInitialising = false;
};

/// How a step touches its location.
enum class Touch : std::uint8_t { Read, Write };

struct Thread {
    using Ready = bool (*)(const void* p_context, bool isOver);

    int id = 0;
    std::uint32_t baton = 0;  ///< 1 where the thread is to run.
    // Null where it can run; else what it waits for, until when, and how to see that it is there.
    const char* waitsFor = nullptr;
    Location* p_awaited = nullptr;
    int awaitedThread = kNobody;
    std::int64_t deadline = kNever;
    Ready ready = nullptr;
    const void* p_context = nullptr;

    const Location* p_condition = nullptr;  ///< The condition that it waits for.
    bool isSignalled = false;
    bool hasYielded = false;
    bool isEnded = false;
    bool isDetached = false;
    bool isJoined = false;
    bool isNextRefused = false;       ///< Creation of a thread.
    bool isNextWriteRefused = false;  ///< To a pipe.

    std::uint64_t history = 0;  ///< A hash of the steps, and of all that they depend on.
    VectorClock clock;
    VectorClock seenRelaxed;  ///< What an acquire fence learns.
    VectorClock releasedByFence;
    // A wait in a loop for a value to change.
    const Location* p_lastRead = nullptr;
    std::uint64_t lastVersion = 0;
    std::uint32_t equalReads = 0;
    const void* p_lastPlace = nullptr;
    std::uint32_t equalReadsHere = 0;  ///< From the same place in the code.
    std::uint32_t clockReadings = 0;

    char name[16] = "";
    void* (*p_start)(void*) = nullptr;
    void* p_argument = nullptr;
    void* p_result = nullptr;
    pthread_t handle = 0;
};

/// The one schedule of this process. All methods are for its threads, of which only one is running.
class Schedule {
public:
    /// In a fresh process; the caller becomes thread 0. Nothing is hooked before.
    void begin(RunRecord* p_record, const ScenarioOptions& options);
    bool isActive() const { return m_isActive; }
    const ScenarioOptions& options() const { return m_options; }

    /// The calling thread. Null for threads of the process that the schedule does not know.
    static Thread* self() { return t_self; }
    Thread& thread(int id) { return m_threads[static_cast<std::size_t>(id)]; }
    Thread* threadOf(pthread_t handle);
    int alive() const { return m_alive; }

    Location& at(const volatile void* p_address);

    /// A scheduling point: the calling thread is about to touch the location. @p p_place is where
    /// in the code, for reads that may be a loop's.
    void point(Location& location, Touch touch, const char* verb, std::uint64_t value = 0,
               const void* p_place = nullptr);
    /// The step is made: for happens-before and for the state's hash.
    void happened(Location& location, Touch touch, std::uint64_t value = 0);
    void acquire(Location& location);
    void release(Location& location);

    /// Blocks until @p isReady(bool isOver), or the deadline. The caller makes the step then,
    /// before anybody else runs. False where the time is over and it is not ready.
    template <typename IsReady>
    bool waitUntil(const char* waitsFor, Location* p_location, std::int64_t deadline,
                   const IsReady& isReady, int awaitedThread = kNobody) {
        if (isReady(deadline <= m_now)) return isReady(false);
        Thread& thread = *t_self;
        thread.ready = [](const void* p_context, bool isOver) {
            return (*static_cast<const IsReady*>(p_context))(isOver);
        };
        thread.p_context = &isReady;
        block(waitsFor, p_location, deadline, awaitedThread);
        return isReady(false);
    }
    /// A choice that is none between threads; 0 is the default.
    int choose(int count, int othersCost);
    void yield();
    void sleepUntil(std::int64_t deadline);

    /// For pthread_create(): the thread is there, and waits for its turn.
    Thread* addThread();
    void removeThread(Thread* p_thread);
    /// The caller has waited for the end of that one.
    void joined(const Thread& thread);
    void awaitFirstTurn(Thread* p_thread);
    void endThread();

    void access(std::uintptr_t address, std::size_t size, Access access, std::uintptr_t place) {
        if (m_count > 1 || access.isFree) checkAccess(address, size, access, place);
    }
    /// The memory ends, and with it the locations in it: the calling thread touches them.
    void freed(std::uintptr_t address, std::size_t size, std::uintptr_t place);
    /// Fails where the object's memory was freed.
    void checkAlive(const Location& location, std::size_t size, std::uintptr_t place);

    std::int64_t now() const { return m_now; }
    /// As a thread sees it that reads it: it goes on for one that does nothing else.
    std::int64_t readClock();
    void advance(std::int64_t nanoseconds);
    void standStill(int by) { m_standStill += by; }

    /// A line of the story.
    void tell(const char* verb, std::uintptr_t object, std::uint64_t value = 0);
    bool isTold() const { return m_record->isTold; }

    [[noreturn]] void finish(Outcome outcome, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

private:
    struct Options {
        std::array<std::uint8_t, kMostThreads> values{};
        int count = 0;
        void add(int value) {
            values[static_cast<std::size_t>(count++)] = static_cast<std::uint8_t>(value);
        }
    };

    Thread* reuseThread();
    void beginThread(Thread* p_thread, std::uint64_t earlierHistory);
    bool canRun(const Thread& thread) const;
    Location* find(std::uintptr_t address, std::size_t* p_slot);
    void touch(Location& location, Touch touch, const Thread& self);
    bool isLoop(const Location& location, Touch touch, const void* p_place, Thread& self);
    void offerPreemption(Thread& self, std::uint32_t moment);
    void countStep();
    bool isDeviationDue(std::uint32_t moment);
    void pruneIfVisited(int running);
    int decide(std::uint32_t moment, const Options& options, int othersCost);
    int indexByPolicy(const Options& options);
    int indexOfDeviation(std::uint32_t moment, const Options& options);
    int indexOfPriority(const Options& options);
    std::uint64_t random();
    void block(const char* waitsFor, Location* p_location, std::int64_t deadline,
               int awaitedThread);
    Thread* nextThread();
    Options runnable(bool areYieldedLeftOut) const;
    bool advanceToDeadline();
    void switchTo(Thread& next);
    void noteEnd(const Thread& thread);
    void noteEndState();
    void checkAccess(std::uintptr_t address, std::size_t size, Access access, std::uintptr_t place);
    [[noreturn]] void reportConflict(const Accesses::Conflict& conflict, std::uintptr_t address,
                                     Access access);
    [[noreturn]] void reportDeadlock();
    void setHistory(Thread& thread, std::uint64_t history);

    static __attribute__((tls_model("initial-exec"))) thread_local Thread* t_self;

    bool m_isActive = false;
    RunRecord* m_record = nullptr;
    ScenarioOptions m_options;
    std::array<Thread, kMostThreads> m_threads;
    int m_count = 0;
    int m_alive = 0;
    std::uint32_t m_moment = 0;
    std::uint32_t m_steps = 0;
    std::uint32_t m_nextDeviation = 0;
    int m_preemptions = 0;
    std::int64_t m_now = 0;
    int m_standStill = 0;
    std::uint64_t m_state = 0;  // Sum of the threads' histories.
    std::uint64_t m_random = 0;
    std::array<std::uint32_t, kMostThreads> m_priorities{};
    std::array<std::uint32_t, RunRecord::kMostChanges> m_changes{};
    std::uint32_t m_decisions = 0;
    int m_lastTold = kNobody;

    std::uint16_t m_locationCount = 0;
};

extern Schedule g_schedule;

/// Waits for the system's thread, which comes to its end by itself.
void joinEnded(pthread_t handle);

/// Work of the runtime's own on a thread of the schedule, which is not hooked.
class Unhooked {
public:
    Unhooked() { ++t_depth; }
    ~Unhooked() { --t_depth; }
    Unhooked(const Unhooked&) = delete;
    Unhooked& operator=(const Unhooked&) = delete;
    static bool isOn() { return t_depth > 0; }

private:
    static __attribute__((tls_model("initial-exec"))) thread_local int t_depth;
};

/// Whether a call is one of the schedule's, on one of its threads.
inline bool isHooked() {
    return g_schedule.isActive() && Schedule::self() != nullptr && !Unhooked::isOn();
}

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_SCHEDULE_H

#include "schedule.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "interposition.h"

TEVALON_KIT_NEXT(syscall, long, (long, const void*, long, long, const void*, long, long))
TEVALON_KIT_NEXT(clock_gettime, int, (clockid_t, timespec*))
TEVALON_KIT_NEXT(pthread_rwlock_rdlock, int, (pthread_rwlock_t*))
TEVALON_KIT_NEXT(pthread_rwlock_wrlock, int, (pthread_rwlock_t*))
TEVALON_KIT_NEXT(pthread_rwlock_unlock, int, (pthread_rwlock_t*))

namespace tevalon::testkit::kit {

enum class State { Free, Runnable, Blocked };

// All fields but `turn` are touched only by the thread whose turn it is, and by a thread for itself
// before its first turn.
struct Thread {
    std::uint32_t turn;  // A futex: 1 once it is this thread's turn.
    State state;
    Wait wait;
    const void* p_object;
    const Readiness* p_readiness;
    Nanoseconds deadline;
    bool isTimedOut;
    std::uint64_t
        order;       // Of becoming runnable, or of beginning to wait: first come, first served.
    int clockReads;  // Since it last waited.
    int processor;
    int wakerProcessor;
    unsigned wakeUps;
    int endRounds;
    int number;    // In the order of creation, for people; 0 is the test's.
    int systemId;  // As mutexes have their owner; 0 before its first turn.
    pthread_t handle;
    void* (*start)(void*);
    void* p_argument;
};

namespace {

constexpr int kMostThreads = 512;
// So often may threads yield in a row, with nothing else happening, before they are taken for idle.
constexpr int kMostYields = 1000;
constexpr int kClockReadsPerYield = 1000;
constexpr int kMostClockReads = 10'000;
constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr Nanoseconds kSecond = 1'000'000'000;
// So much later is as good as on time: whoever reckons in floating-point seconds, as task threads
// do, is a few nanoseconds late, more the longer the machine is up.
constexpr Nanoseconds kRounding = 1000;
// How long threads may wait for a descriptor, on the real clock, while nothing else happens.
constexpr int kPatienceInMilliseconds = 30'000;
// How far the clock may go on by itself while the test waits without a limit.
constexpr Nanoseconds kLongestWait = Nanoseconds{24} * 3600 * kSecond;

// Those that there have been are at its front.
class Threads {
public:
    Thread* begin() { return m_threads; }
    Thread* end() { return m_threads + m_count; }
    /// One that is free; null where there are too many.
    Thread* find() {
        for (Thread& thread : *this) {
            if (thread.state == State::Free) return &thread;
        }
        return m_count < kMostThreads ? &m_threads[m_count++] : nullptr;
    }

private:
    Thread m_threads[kMostThreads];
    int m_count;
};

Threads g_threads;
int g_created;  // Threads, but for the test's.
Thread* g_testThread;
std::uint64_t g_order;
int g_yields;
Nanoseconds g_now;
Nanoseconds g_waitedUntil = kNever;  // Of the test's wait without a limit.
Nanoseconds g_realTimeOffset;
pthread_key_t g_ends;
thread_local Thread* t_self;
pthread_rwlock_t g_testsSteps = PTHREAD_RWLOCK_INITIALIZER;

// What a test's step by runUntilIdle() or advance() orders, for the thread sanitizer to see: what
// the test did before it comes before what threads do in it, which comes before what the test does
// behind it. Readers are not ordered among each other, so that races between threads stay visible.
void noteThreadsPartOfStep() {
    (void)next_pthread_rwlock_rdlock()(&g_testsSteps);
    (void)next_pthread_rwlock_unlock()(&g_testsSteps);
}

void noteTestsPartOfStep() {
    (void)next_pthread_rwlock_wrlock()(&g_testsSteps);
    (void)next_pthread_rwlock_unlock()(&g_testsSteps);
}

template <typename T>
T load(const T* p_value) {
    return __atomic_load_n(p_value, __ATOMIC_ACQUIRE);
}

template <typename T>
void store(T* p_value, T value) {
    __atomic_store_n(p_value, value, __ATOMIC_RELEASE);
}

void futex(std::uint32_t* p_word, int operation, std::uint32_t value) {
    const int savedErrno = errno;
    (void)systemCall(SYS_futex, p_word, operation, static_cast<long>(value));
    errno = savedErrno;
}

Nanoseconds realClock(clockid_t clock) {
    timespec time = {};
    (void)next_clock_gettime()(clock, &time);
    return static_cast<Nanoseconds>(time.tv_sec) * kSecond + time.tv_nsec;
}

void sleepForARealMillisecond() {
    const int savedErrno = errno;
    timespec duration = {};
    duration.tv_nsec = kMillisecond;
    static const auto s_sleep =
        reinterpret_cast<int (*)(const timespec*, timespec*)>(definitionOfTheSystem("nanosleep"));
    (void)s_sleep(&duration, nullptr);
    errno = savedErrno;
}

int systemId() {
    return static_cast<int>(systemCall(SYS_gettid));
}

const char* nameOf(Wait wait) {
    switch (wait) {
        case Wait::Nothing:
            return "for nothing";
        case Wait::Mutex:
            return "for a mutex";
        case Wait::Condition:
            return "for a condition variable";
        case Wait::Semaphore:
            return "for a semaphore";
        case Wait::ReadWriteLock:
            return "for a read-write lock";
        case Wait::Futex:
            return "for a futex, as of std::future";
        case Wait::Once:
            return "for a once-routine";
        case Wait::Thread:
            return "for a thread to end";
        case Wait::Time:
            return "for time to pass";
        case Wait::Descriptors:
            return "for a descriptor";
        case Wait::Idleness:
            return "until the others are idle";
    }
    return "";
}

void printName(const Thread& thread) {
    char name[16] = "?";
    (void)pthread_getname_np(thread.handle, name, sizeof(name));
    if (&thread == g_testThread) {
        (void)std::fprintf(stderr, "the test, '%s',", name);
    } else {
        (void)std::fprintf(stderr, "thread %d, '%s',", thread.number, name);
    }
}

// The system's number of the thread that has locked what is waited for; 0 where that is not known.
int ownerOf(const Thread& waiting) {
    if (waiting.wait == Wait::Mutex) {
        return static_cast<const pthread_mutex_t*>(waiting.p_object)->__data.__owner;
    }
    if (waiting.wait == Wait::ReadWriteLock) {
        return static_cast<const pthread_rwlock_t*>(waiting.p_object)->__data.__cur_writer;
    }
    return 0;
}

void printOwner(const Thread& waiting) {
    const int owner = ownerOf(waiting);
    if (owner == 0) return;
    (void)std::fputs(", locked by ", stderr);
    if (owner == waiting.systemId) {
        (void)std::fputs("itself", stderr);
        return;
    }
    for (const Thread& thread : g_threads) {
        if (thread.state == State::Free || thread.systemId != owner) continue;
        if (&thread == g_testThread) {
            (void)std::fputs("the test", stderr);
        } else {
            (void)std::fprintf(stderr, "thread %d", thread.number);
        }
        return;
    }
    (void)std::fputs("a thread that has ended", stderr);
}

void printWait(const Thread& thread) {
    (void)std::fputs(" waits ", stderr);
    if (thread.wait == Wait::Thread) {
        (void)std::fputs("for ", stderr);
        printName(*static_cast<const Thread*>(thread.p_object));
        (void)std::fputs(" to end", stderr);
    } else {
        (void)std::fputs(nameOf(thread.wait), stderr);
        const bool isLasting = thread.wait != Wait::Descriptors;  // Not an argument of a call.
        if (thread.p_object != nullptr && isLasting) {
            (void)std::fprintf(stderr, ", %p", thread.p_object);
            printOwner(thread);
        }
    }
    if (thread.deadline != kNever) {
        (void)std::fprintf(stderr, ", for %.6f s at most",
                           static_cast<double>(thread.deadline - g_now) / 1e9);
    }
}

[[noreturn]] void giveUp(const char* reason) {
    (void)std::fprintf(stderr, "testkit: %s\n", reason);
    for (const Thread& thread : g_threads) {
        if (thread.state == State::Free) continue;
        (void)std::fputs("    ", stderr);
        printName(thread);
        if (thread.state == State::Runnable) {
            (void)std::fputs(" can run", stderr);
        } else {
            printWait(thread);
        }
        (void)std::fputs("\n", stderr);
    }
    std::abort();
}

void makeRunnable(Thread* p_thread, bool isTimedOut) {
    p_thread->state = State::Runnable;
    p_thread->order = ++g_order;
    p_thread->isTimedOut = isTimedOut;
    p_thread->wakerProcessor = t_self != nullptr ? t_self->processor : 0;
    g_yields = 0;
}

template <typename Condition>
Thread* first(Condition isWanted) {
    Thread* p_first = nullptr;
    for (Thread& thread : g_threads) {
        if (thread.state == State::Free || !isWanted(thread)) continue;
        if (p_first == nullptr || thread.order < p_first->order) p_first = &thread;
    }
    return p_first;
}

Thread* firstRunnable() {
    return first([](const Thread& thread) { return thread.state == State::Runnable; });
}

// Woken all, for one may take what made another one ready.
bool wakeReady() {
    bool isAnyReady = false;
    for (Thread& thread : g_threads) {
        if (thread.state != State::Blocked || thread.p_readiness == nullptr) continue;
        if (!thread.p_readiness->isReady(thread.p_readiness->p_context)) continue;
        makeRunnable(&thread, false);
        isAnyReady = true;
    }
    return isAnyReady;
}

Thread* earliest() {
    Thread* p_earliest = nullptr;
    for (Thread& thread : g_threads) {
        if (thread.state != State::Blocked || thread.deadline == kNever) continue;
        if (p_earliest == nullptr || thread.deadline < p_earliest->deadline ||
            (thread.deadline == p_earliest->deadline && thread.order < p_earliest->order)) {
            p_earliest = &thread;
        }
    }
    return p_earliest;
}

void timeOut(Thread* p_thread) {
    if (p_thread->deadline > now()) store(&g_now, p_thread->deadline);
    makeRunnable(p_thread, true);
}

bool anyWaitsForDescriptors() {
    return first([](const Thread& thread) {
               return thread.state == State::Blocked && thread.p_readiness != nullptr;
           }) != nullptr;
}

// Nobody can run: whoever the test waits for is helped by time, or by somebody outside.
void letTimePass() {
    if (Thread* const p_due = earliest()) {
        if (g_waitedUntil == kNever && g_testThread->deadline == kNever) {
            g_waitedUntil = now() + kLongestWait;
        }
        if (p_due->deadline > g_waitedUntil) {
            giveUp("the test has waited for a day on the clock, in vain");
        }
        timeOut(p_due);
        return;
    }
    if (!anyWaitsForDescriptors())
        giveUp("nobody can run, and no time would change that: a deadlock");
    for (int waited = 0; waited < kPatienceInMilliseconds; ++waited) {
        sleepForARealMillisecond();
        if (wakeReady()) return;
    }
    giveUp("no descriptor that is waited for becomes ready");
}

Thread* pickNext() {
    while (true) {
        Thread* const p_runnable = firstRunnable();
        const bool isSpinning = g_yields > kMostYields;
        if (p_runnable != nullptr && !isSpinning) return p_runnable;
        if (wakeReady()) continue;
        Thread* const p_due = earliest();
        if (p_due != nullptr && p_due->deadline <= now()) {
            timeOut(p_due);
            continue;
        }
        if (g_testThread->state == State::Blocked && g_testThread->wait == Wait::Idleness) {
            g_yields = 0;
            return g_testThread;
        }
        if (p_runnable != nullptr && p_due == nullptr) return p_runnable;
        letTimePass();
    }
}

void awaitTurn(Thread* p_self) {
    while (load(&p_self->turn) == 0) futex(&p_self->turn, FUTEX_WAIT_PRIVATE, 0);
    store(&p_self->turn, 0U);
    if (p_self == g_testThread) g_waitedUntil = kNever;
}

void giveTurn(Thread* p_next) {
    store(&p_next->turn, 1U);
    futex(&p_next->turn, FUTEX_WAKE_PRIVATE, 1);
}

void pass(Thread* p_self) {
    Thread* const p_next = pickNext();
    if (p_next == p_self) {
        if (p_self == g_testThread) g_waitedUntil = kNever;
        return;
    }
    if (p_self != g_testThread) noteThreadsPartOfStep();
    giveTurn(p_next);
    awaitTurn(p_self);
    if (p_self != g_testThread) noteThreadsPartOfStep();
}

// The clean-up of thread-specific data is the thread's last code. What others clean up there may
// still wait, so this puts itself off until the last round.
void endThread(void* p_thread) {
    auto* const p_self = static_cast<Thread*>(p_thread);
    if (++p_self->endRounds < PTHREAD_DESTRUCTOR_ITERATIONS) {
        noteThreadsPartOfStep();  // Not in the last round, when the sanitizer knows no thread.
        (void)pthread_setspecific(g_ends, p_self);
        return;
    }
    wakeAll(Wait::Thread, p_self);
    p_self->state = State::Free;
    t_self = nullptr;
    giveTurn(pickNext());
}

void reduceToThisThread() {
    if (t_self == nullptr) return;
    for (Thread& thread : g_threads) {
        if (&thread != t_self) thread = Thread{};
    }
    g_testThread = t_self;
    g_testThread->systemId = systemId();
    g_created = 0;
}

Thread* findThread(pthread_t handle) {
    return first(
        [handle](const Thread& thread) { return pthread_equal(thread.handle, handle) != 0; });
}

}  // namespace

void takeOver() {
    if (g_testThread != nullptr) return;
    if (sizeof(time_t) > sizeof(long)) {
        // The C library has other functions for these, which are not replaced.
        giveUp("not supported: 64-bit times on a 32-bit system");
    }
    g_now = realClock(CLOCK_MONOTONIC);
    g_realTimeOffset = realClock(CLOCK_REALTIME) - g_now;
    if (pthread_key_create(&g_ends, endThread) != 0) std::abort();
    (void)pthread_atfork(nullptr, nullptr, reduceToThisThread);
    Thread& self = *g_threads.find();
    self.state = State::Runnable;
    self.handle = pthread_self();
    self.systemId = systemId();
    t_self = &self;
    store(&g_testThread, &self);
}

bool isOn() {
    return load(&g_testThread) != nullptr;
}

bool isManaged() {
    return t_self != nullptr;
}

bool isTestThread() {
    return t_self != nullptr && t_self == g_testThread;
}

Nanoseconds now() {
    return load(&g_now);
}

Nanoseconds realTimeOffset() {
    return g_realTimeOffset;
}

void noteClockRead() {
    const int reads = ++t_self->clockReads;
    if (reads % kClockReadsPerYield != 0) return;
    if (reads >= kMostClockReads) store(&g_now, g_now + kMillisecond);
    yieldTurn();
}

bool block(Wait wait, const void* p_object, Nanoseconds deadline, const Readiness* p_readiness) {
    Thread& self = *t_self;
    self.clockReads = 0;
    self.wait = wait;
    self.p_object = p_object;
    self.p_readiness = p_readiness;
    self.deadline = deadline;
    self.order = ++g_order;
    self.state = State::Blocked;
    if (deadline <= now()) makeRunnable(&self, true);
    pass(&self);
    self.wait = Wait::Nothing;
    self.p_readiness = nullptr;
    if (!self.isTimedOut) {
        self.processor = self.wakerProcessor ^ static_cast<int>(++self.wakeUps & 1U);
    }
    return !self.isTimedOut;
}

void yieldTurn() {
    const int yields = g_yields + 1;
    makeRunnable(t_self, false);
    g_yields = yields;
    pass(t_self);
}

bool wakeOne(Wait wait, const void* p_object) {
    Thread* const p_thread = first([=](const Thread& thread) {
        return thread.state == State::Blocked && thread.wait == wait && thread.p_object == p_object;
    });
    if (p_thread != nullptr) makeRunnable(p_thread, false);
    return p_thread != nullptr;
}

void wakeAll(Wait wait, const void* p_object) {
    const std::uint64_t last = g_order;
    while (Thread* const p_thread = first([=](const Thread& thread) {
               return thread.state == State::Blocked && thread.wait == wait &&
                      thread.p_object == p_object && thread.order <= last;
           })) {
        makeRunnable(p_thread, false);
    }
}

void awaitIdleness() {
    noteTestsPartOfStep();
    (void)block(Wait::Idleness, nullptr, kNever);
    noteTestsPartOfStep();
}

// One at a time, in the order of their times, each followed by all that it gives the others to do.
void advanceTo(Nanoseconds time) {
    awaitIdleness();
    while (Thread* const p_due = earliest()) {
        if (p_due->deadline > time + kRounding) break;
        timeOut(p_due);
        awaitIdleness();
    }
    if (time > now()) store(&g_now, time);
}

long systemCall(long number, const void* p_first, long second, long third, const void* p_fourth) {
    return next_syscall()(number, p_first, second, third, p_fourth, 0, 0);
}

// The library spins before it waits where its waits have been short and woken from another
// processor, and naps where they have been short and woken from the same one. Both would be in
// vain here, and the nap would need time to pass. So a thread is told in turn that it was woken
// from its own processor and from another one.
int processor() {
    return t_self->processor;
}

Thread* newThread(void* (*start)(void*), void* p_argument) {
    Thread* const p_thread = g_threads.find();
    if (p_thread == nullptr) giveUp("more threads at once than can be kept apart");
    *p_thread = Thread{};
    p_thread->start = start;
    p_thread->p_argument = p_argument;
    p_thread->handle = pthread_self();  // Its own follows; none is null.
    p_thread->number = ++g_created;
    makeRunnable(p_thread, false);
    return p_thread;
}

void* runThread(void* p_thread) {
    auto* const p_self = static_cast<Thread*>(p_thread);
    t_self = p_self;
    p_self->systemId = systemId();
    awaitTurn(p_self);
    noteThreadsPartOfStep();
    (void)pthread_setspecific(g_ends, p_self);
    return p_self->start(p_self->p_argument);
}

void forgetThread(Thread* p_thread) {
    p_thread->state = State::Free;
}

void setHandle(Thread* p_thread, pthread_t handle) {
    p_thread->handle = handle;
}

void awaitEnd(pthread_t handle) {
    Thread* const p_thread = findThread(handle);
    if (p_thread == nullptr || p_thread == t_self) return;
    while (findThread(handle) == p_thread) (void)block(Wait::Thread, p_thread, kNever);
}

void interrupt(pthread_t handle) {
    Thread* const p_thread = findThread(handle);
    if (p_thread != nullptr && p_thread->state == State::Blocked) makeRunnable(p_thread, false);
}

}  // namespace tevalon::testkit::kit

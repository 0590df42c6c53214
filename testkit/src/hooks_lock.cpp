// Mutexes, reader-writer locks, conditions and semaphores. Their state is kept by address; of the
// objects themselves only what their initialisation says of their kind is read.
#include <pthread.h>
#include <semaphore.h>

#include <cerrno>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

Location& located(const volatile void* p_object, std::size_t size, const void* p_place) {
    Location& location = g_schedule.at(p_object);
    const auto place = reinterpret_cast<std::uintptr_t>(p_place);
    g_schedule.checkAlive(location, size, place);
    // As an atomic variable is touched: in a race with the end of its memory alone.
    g_schedule.access(location.address, 1, {true, true, false}, place);
    return location;
}

int kindOf(const pthread_mutex_t* p_mutex) {
    return p_mutex->__data.__kind & 3;
}

void take(Location& mutex) {
    mutex.owner = Schedule::self()->id;
    mutex.depth = 1;
    g_schedule.acquire(mutex);
    g_schedule.happened(mutex, Touch::Write);
}

bool isFree(const Location& mutex) {
    return mutex.owner == kNobody && mutex.readers == 0;
}

int lock(pthread_mutex_t* p_mutex, std::int64_t deadline, const void* p_place) {
    Location& mutex = located(p_mutex, sizeof(*p_mutex), p_place);
    g_schedule.point(mutex, Touch::Write, "locks");
    if (mutex.owner == Schedule::self()->id) {
        if (kindOf(p_mutex) == PTHREAD_MUTEX_RECURSIVE) {
            ++mutex.depth;
            return 0;
        }
        if (kindOf(p_mutex) == PTHREAD_MUTEX_ERRORCHECK) return EDEADLK;
    }
    const bool isTaken = g_schedule.waitUntil(
        "the mutex", &mutex, deadline, [&mutex](bool isOver) { return isFree(mutex) || isOver; });
    if (!isTaken && !isFree(mutex)) return ETIMEDOUT;
    take(mutex);
    return 0;
}

int tryLock(pthread_mutex_t* p_mutex, const void* p_place) {
    Location& mutex = located(p_mutex, sizeof(*p_mutex), p_place);
    g_schedule.point(mutex, Touch::Write, "tries to lock");
    if (mutex.owner == Schedule::self()->id && kindOf(p_mutex) == PTHREAD_MUTEX_RECURSIVE) {
        ++mutex.depth;
        return 0;
    }
    if (!isFree(mutex)) {
        g_schedule.happened(mutex, Touch::Read);
        return EBUSY;
    }
    take(mutex);
    return 0;
}

void giveUp(Location& mutex) {
    mutex.owner = kNobody;
    mutex.depth = 0;
    g_schedule.release(mutex);
    g_schedule.happened(mutex, Touch::Write);
}

int unlock(pthread_mutex_t* p_mutex, const void* p_place) {
    Location& mutex = located(p_mutex, sizeof(*p_mutex), p_place);
    g_schedule.point(mutex, Touch::Write, "unlocks");
    if (mutex.owner != Schedule::self()->id) {
        if (kindOf(p_mutex) != PTHREAD_MUTEX_NORMAL) return EPERM;
        g_schedule.finish(Outcome::Misuse,
                          "a thread unlocks the mutex at %#zx that it has not locked",
                          mutex.address);
    }
    if (--mutex.depth > 0) return 0;
    giveUp(mutex);
    return 0;
}

int destroy(const volatile void* p_object, std::size_t size, const void* p_place) {
    Location& location = located(p_object, size, p_place);
    if (location.owner != kNobody) {
        g_schedule.finish(Outcome::UseAfterEnd, "a locked mutex is destroyed at %#zx",
                          location.address);
    }
    location.isDestroyed = true;
    return 0;
}

void initialise(const volatile void* p_object) {
    Location& location = g_schedule.at(p_object);
    location.isDestroyed = false;
    location.owner = kNobody;
    location.depth = 0;
    location.readers = 0;
    location.count = 0;
}

int wait(pthread_cond_t* p_condition, pthread_mutex_t* p_mutex, std::int64_t deadline,
         const void* p_place) {
    Location& condition = located(p_condition, sizeof(*p_condition), p_place);
    Location& mutex = located(p_mutex, sizeof(*p_mutex), p_place);
    Thread& self = *Schedule::self();
    g_schedule.point(condition, Touch::Write, "begins to wait for the condition");
    if (mutex.owner != self.id) {
        g_schedule.finish(Outcome::Misuse, "a thread waits with a mutex that it has not locked");
    }
    const bool isSpurious = g_schedule.options().hasSpuriousWakeUps && g_schedule.choose(2, 1) == 1;
    const int depth = mutex.depth;
    self.isSignalled = isSpurious;
    self.p_condition = &condition;
    g_schedule.happened(condition, Touch::Write);
    giveUp(mutex);
    const auto isReady = [&](bool isOver) { return (self.isSignalled || isOver) && isFree(mutex); };
    // Whoever is woken waits for the mutex, and is not to be told from others that do.
    (void)g_schedule.waitUntil("the condition", &condition, deadline, isReady);
    const bool isSignalled = self.isSignalled;
    self.p_condition = nullptr;
    self.isSignalled = false;
    take(mutex);
    mutex.depth = depth;
    if (g_schedule.isTold()) {
        g_schedule.tell(isSignalled ? "is woken and has the mutex again" : "times out", 0);
    }
    return isSignalled ? 0 : ETIMEDOUT;
}

// Whichever of those that wait: POSIX does not say.
int wake(pthread_cond_t* p_condition, bool isAll, const void* p_place) {
    Location& condition = located(p_condition, sizeof(*p_condition), p_place);
    g_schedule.point(condition, Touch::Write, isAll ? "notifies all" : "notifies one");
    std::array<Thread*, kMostThreads> waiting{};
    int count = 0;
    for (int i = 0; i < kMostThreads; ++i) {
        Thread& thread = g_schedule.thread(i);
        if (thread.p_condition == &condition && !thread.isSignalled) {
            waiting[static_cast<std::size_t>(count++)] = &thread;
        }
    }
    if (count > 0 && !isAll) {
        waiting[0] = waiting[static_cast<std::size_t>(g_schedule.choose(count, 0))];
        count = 1;
    }
    for (int i = 0; i < count; ++i) waiting[static_cast<std::size_t>(i)]->isSignalled = true;
    g_schedule.happened(condition, Touch::Write, static_cast<std::uint64_t>(count));
    return 0;
}

int lockShared(pthread_rwlock_t* p_lock, std::int64_t deadline, const void* p_place) {
    Location& lock = located(p_lock, sizeof(*p_lock), p_place);
    g_schedule.point(lock, Touch::Write, "locks shared");
    const auto isReady = [&](bool isOver) { return lock.owner == kNobody || isOver; };
    (void)g_schedule.waitUntil("the lock, shared", &lock, deadline, isReady);
    if (lock.owner != kNobody) return ETIMEDOUT;
    ++lock.readers;
    g_schedule.acquire(lock);
    g_schedule.happened(lock, Touch::Write);
    return 0;
}

int lockExclusive(pthread_rwlock_t* p_lock, std::int64_t deadline, const void* p_place) {
    Location& lock = located(p_lock, sizeof(*p_lock), p_place);
    g_schedule.point(lock, Touch::Write, "locks exclusively");
    const auto isReady = [&](bool isOver) { return isFree(lock) || isOver; };
    (void)g_schedule.waitUntil("the lock, exclusively", &lock, deadline, isReady);
    if (!isFree(lock)) return ETIMEDOUT;
    take(lock);
    return 0;
}

int unlockEither(pthread_rwlock_t* p_lock, const void* p_place) {
    Location& lock = located(p_lock, sizeof(*p_lock), p_place);
    g_schedule.point(lock, Touch::Write, "unlocks");
    if (lock.owner == Schedule::self()->id) {
        giveUp(lock);
    } else if (lock.readers > 0) {
        --lock.readers;
        g_schedule.release(lock);
        g_schedule.happened(lock, Touch::Write);
    }
    return 0;
}

int waitForPost(sem_t* p_semaphore, std::int64_t deadline, const void* p_place) {
    Location& semaphore = located(p_semaphore, sizeof(*p_semaphore), p_place);
    g_schedule.point(semaphore, Touch::Write, "waits for the semaphore");
    const auto isReady = [&](bool isOver) { return semaphore.count > 0 || isOver; };
    (void)g_schedule.waitUntil("the semaphore", &semaphore, deadline, isReady);
    if (semaphore.count == 0) {
        errno = ETIMEDOUT;
        return -1;
    }
    --semaphore.count;
    g_schedule.acquire(semaphore);
    g_schedule.happened(semaphore, Touch::Write);
    return 0;
}

}  // namespace

void linkLockHooks() {}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;
using testkit::g_schedule;
using testkit::isHooked;
using testkit::kNever;

#define TESTKIT_PLACE __builtin_return_address(0)
#define TESTKIT_UNLESS_HOOKED(name, ...) \
    if (!isHooked()) return TESTKIT_REAL(name)(__VA_ARGS__)

// Before a schedule there is one thread, and nobody to keep out.
TESTKIT_HOOK int pthread_mutex_lock(pthread_mutex_t* p_mutex) {
    if (!isHooked()) return 0;
    return testkit::lock(p_mutex, kNever, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_mutex_unlock(pthread_mutex_t* p_mutex) {
    if (!isHooked()) return 0;
    return testkit::unlock(p_mutex, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_mutex_trylock(pthread_mutex_t* p_mutex) {
    if (!isHooked()) return 0;
    return testkit::tryLock(p_mutex, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_mutex_timedlock(pthread_mutex_t* p_mutex, const timespec* p_until) {
    if (!isHooked()) return 0;
    return testkit::lock(p_mutex, testkit::deadlineAt(CLOCK_REALTIME, *p_until), TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_mutex_clocklock(pthread_mutex_t* p_mutex, clockid_t clock,
                                         const timespec* p_until) {
    if (!isHooked()) return 0;
    return testkit::lock(p_mutex, testkit::deadlineAt(clock, *p_until), TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_mutex_init(pthread_mutex_t* p_mutex,
                                    const pthread_mutexattr_t* p_attributes) {
    if (isHooked()) testkit::initialise(p_mutex);
    return TESTKIT_REAL(pthread_mutex_init)(p_mutex, p_attributes);
}
TESTKIT_HOOK int pthread_mutex_destroy(pthread_mutex_t* p_mutex) {
    if (!isHooked()) return 0;
    return testkit::destroy(p_mutex, sizeof(*p_mutex), TESTKIT_PLACE);
}

TESTKIT_HOOK int pthread_cond_init(pthread_cond_t* p_condition,
                                   const pthread_condattr_t* p_attributes) {
    if (isHooked()) testkit::initialise(p_condition);
    return TESTKIT_REAL(pthread_cond_init)(p_condition, p_attributes);
}
TESTKIT_HOOK int pthread_cond_destroy(pthread_cond_t* p_condition) {
    if (!isHooked()) return 0;
    return testkit::destroy(p_condition, sizeof(*p_condition), TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_cond_wait(pthread_cond_t* p_condition, pthread_mutex_t* p_mutex) {
    TESTKIT_UNLESS_HOOKED(pthread_cond_wait, p_condition, p_mutex);
    return testkit::wait(p_condition, p_mutex, kNever, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_cond_timedwait(pthread_cond_t* p_condition, pthread_mutex_t* p_mutex,
                                        const timespec* p_until) {
    TESTKIT_UNLESS_HOOKED(pthread_cond_timedwait, p_condition, p_mutex, p_until);
    // glibc notes the clock that the condition was initialised with in its second flag.
    constexpr unsigned kIsMonotonic = 2;
    const bool isMonotonic = (p_condition->__data.__wrefs & kIsMonotonic) != 0;
    return testkit::wait(
        p_condition, p_mutex,
        testkit::deadlineAt(isMonotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, *p_until),
        TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_cond_clockwait(pthread_cond_t* p_condition, pthread_mutex_t* p_mutex,
                                        clockid_t clock, const timespec* p_until) {
    TESTKIT_UNLESS_HOOKED(pthread_cond_clockwait, p_condition, p_mutex, clock, p_until);
    if (p_until->tv_sec < 0 || p_until->tv_nsec < 0 || p_until->tv_nsec > 999'999'999)
        return EINVAL;
    return testkit::wait(p_condition, p_mutex, testkit::deadlineAt(clock, *p_until), TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_cond_signal(pthread_cond_t* p_condition) {
    if (!isHooked()) return 0;
    return testkit::wake(p_condition, false, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_cond_broadcast(pthread_cond_t* p_condition) {
    if (!isHooked()) return 0;
    return testkit::wake(p_condition, true, TESTKIT_PLACE);
}

TESTKIT_HOOK int pthread_rwlock_rdlock(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::lockShared(p_lock, kNever, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_rwlock_wrlock(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::lockExclusive(p_lock, kNever, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_rwlock_tryrdlock(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::lockShared(p_lock, 0, TESTKIT_PLACE) == 0 ? 0 : EBUSY;
}
TESTKIT_HOOK int pthread_rwlock_trywrlock(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::lockExclusive(p_lock, 0, TESTKIT_PLACE) == 0 ? 0 : EBUSY;
}
TESTKIT_HOOK int pthread_rwlock_unlock(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::unlockEither(p_lock, TESTKIT_PLACE);
}
TESTKIT_HOOK int pthread_rwlock_destroy(pthread_rwlock_t* p_lock) {
    if (!isHooked()) return 0;
    return testkit::destroy(p_lock, sizeof(*p_lock), TESTKIT_PLACE);
}

TESTKIT_HOOK int sem_init(sem_t* p_semaphore, int isShared, unsigned value) noexcept {
    if (isHooked()) {
        testkit::initialise(p_semaphore);
        g_schedule.at(p_semaphore).count = value;
    }
    return TESTKIT_REAL(sem_init)(p_semaphore, isShared, value);
}
TESTKIT_HOOK int sem_destroy(sem_t* p_semaphore) noexcept {
    if (!isHooked()) return 0;
    return testkit::destroy(p_semaphore, sizeof(*p_semaphore), TESTKIT_PLACE);
}
TESTKIT_HOOK int sem_post(sem_t* p_semaphore) noexcept {
    TESTKIT_UNLESS_HOOKED(sem_post, p_semaphore);
    testkit::Location& semaphore =
        testkit::located(p_semaphore, sizeof(*p_semaphore), TESTKIT_PLACE);
    g_schedule.point(semaphore, testkit::Touch::Write, "posts the semaphore");
    ++semaphore.count;
    g_schedule.release(semaphore);
    g_schedule.happened(semaphore, testkit::Touch::Write);
    return 0;
}
TESTKIT_HOOK int sem_wait(sem_t* p_semaphore) {
    TESTKIT_UNLESS_HOOKED(sem_wait, p_semaphore);
    return testkit::waitForPost(p_semaphore, kNever, TESTKIT_PLACE);
}
TESTKIT_HOOK int sem_trywait(sem_t* p_semaphore) noexcept {
    TESTKIT_UNLESS_HOOKED(sem_trywait, p_semaphore);
    const int result = testkit::waitForPost(p_semaphore, 0, TESTKIT_PLACE);
    if (result != 0) errno = EAGAIN;
    return result;
}
TESTKIT_HOOK int sem_timedwait(sem_t* p_semaphore, const timespec* p_until) {
    TESTKIT_UNLESS_HOOKED(sem_timedwait, p_semaphore, p_until);
    return testkit::waitForPost(p_semaphore, testkit::deadlineAt(CLOCK_REALTIME, *p_until),
                                TESTKIT_PLACE);
}
TESTKIT_HOOK int sem_clockwait(sem_t* p_semaphore, clockid_t clock, const timespec* p_until) {
    TESTKIT_UNLESS_HOOKED(sem_clockwait, p_semaphore, clock, p_until);
    return testkit::waitForPost(p_semaphore, testkit::deadlineAt(clock, *p_until), TESTKIT_PLACE);
}
TESTKIT_HOOK int sem_getvalue(sem_t* p_semaphore, int* p_value) noexcept {
    TESTKIT_UNLESS_HOOKED(sem_getvalue, p_semaphore, p_value);
    testkit::Location& semaphore =
        testkit::located(p_semaphore, sizeof(*p_semaphore), TESTKIT_PLACE);
    g_schedule.point(semaphore, testkit::Touch::Read, "reads the semaphore");
    *p_value = static_cast<int>(semaphore.count);
    g_schedule.happened(semaphore, testkit::Touch::Read);
    return 0;
}

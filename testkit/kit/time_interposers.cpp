// What threads wait by, and the clocks: they obey the schedule once that is on, and can fail. Built
// without sanitizers.
//
// Mutexes, semaphores and read-write locks are really taken, by calls that do not block, so that a
// sanitizer and the C library see what they are used to. Condition variables have no waiters but
// ours.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>

#include "interposition.h"
#include "schedule.h"

namespace tevalon::testkit::kit {

void linkTimeInterposers() {}

namespace {

constexpr Nanoseconds kSecond = 1'000'000'000;

bool isValid(const timespec& time) {
    return time.tv_nsec >= 0 && time.tv_nsec < kSecond;
}

Nanoseconds nanosecondsOf(const timespec& time) {
    constexpr std::int64_t kMostSeconds = INT64_MAX / kSecond / 2;
    const auto seconds = std::clamp<std::int64_t>(time.tv_sec, -kMostSeconds, kMostSeconds);
    return seconds * kSecond + time.tv_nsec;
}

timespec timeOf(Nanoseconds nanoseconds) {
    timespec time = {};
    time.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
    time.tv_nsec = static_cast<long>(nanoseconds % kSecond);
    return time;
}

bool isRealTime(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

bool isMonotonic(clockid_t clock) {
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_RAW ||
           clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

Nanoseconds deadlineOf(clockid_t clock, const timespec& time) {
    const Nanoseconds deadline = nanosecondsOf(time);
    return isRealTime(clock) ? deadline - realTimeOffset() : deadline;
}

Nanoseconds after(Nanoseconds duration) {
    return duration > kNever - now() ? kNever : now() + duration;
}

void sleepUntil(Nanoseconds deadline) {
    // Cancelled threads are woken too early.
    do {
        (void)block(Wait::Time, nullptr, deadline);
        pthread_testcancel();
    } while (now() < deadline);
}

using MutexFunction = int (*)(pthread_mutex_t*);

bool isOwnErrorCheckingMutex(const pthread_mutex_t* p_mutex) {
    return (p_mutex->__data.__kind & 3) == PTHREAD_MUTEX_ERRORCHECK &&
           p_mutex->__data.__owner == static_cast<int>(systemCall(SYS_gettid));
}

// Whether the mutex cannot be locked now, and can be later. Asked so that the sanitizers do not see
// an attempt, for they learn less from that than from a lock.
bool isLockedByOther(pthread_mutex_t* p_mutex) {
    static const auto s_tryLock =
        reinterpret_cast<MutexFunction>(definitionOfTheSystem("pthread_mutex_trylock"));
    static const auto s_unlock =
        reinterpret_cast<MutexFunction>(definitionOfTheSystem("pthread_mutex_unlock"));
    constexpr int kKinds = 3;
    if ((p_mutex->__data.__kind & ~kKinds) != 0) return false;  // Robust or with priorities.
    const int error = s_tryLock(p_mutex);
    if (error == 0) (void)s_unlock(p_mutex);
    return error == EBUSY && !isOwnErrorCheckingMutex(p_mutex);
}

// False where the deadline came first.
bool awaitMutex(pthread_mutex_t* p_mutex, Nanoseconds deadline) {
    while (isLockedByOther(p_mutex)) {
        if (!block(Wait::Mutex, p_mutex, deadline)) return !isLockedByOther(p_mutex);
    }
    return true;
}

// Without blocking.
int pollOfTheSystem(pollfd* p_entries, nfds_t count) {
    static const auto s_poll =
        reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(definitionOfTheSystem("poll"));
    return s_poll(p_entries, count, 0);
}

int selectOfTheSystem(int count, fd_set* p_read, fd_set* p_write, fd_set* p_except) {
    static const auto s_select =
        reinterpret_cast<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>(
            definitionOfTheSystem("select"));
    timeval none = {};
    return s_select(count, p_read, p_write, p_except, &none);
}

}  // namespace
}  // namespace tevalon::testkit::kit

using tevalon::testkit::kit::after;
using tevalon::testkit::kit::awaitMutex;
using tevalon::testkit::kit::block;
using tevalon::testkit::kit::deadlineOf;
using tevalon::testkit::kit::isManaged;
using tevalon::testkit::kit::isValid;
using tevalon::testkit::kit::kNever;
using tevalon::testkit::kit::Nanoseconds;
using tevalon::testkit::kit::now;
using tevalon::testkit::kit::Readiness;
using tevalon::testkit::kit::sleepUntil;
using tevalon::testkit::kit::timeOf;
using tevalon::testkit::kit::Wait;
using tevalon::testkit::kit::wakeAll;
using tevalon::testkit::kit::wakeOne;
namespace kit = tevalon::testkit::kit;

// --- Threads ---

TEVALON_KIT_DEFINE(pthread_create, int,
                   (pthread_t * p_handle, const pthread_attr_t* p_attributes, void* (*start)(void*),
                    void* p_argument)) {
    TEVALON_KIT_FAIL(PthreadCreate, ErrorNumber);
    const auto create = next_pthread_create();
    if (!isManaged()) return create(p_handle, p_attributes, start, p_argument);
    kit::Thread* const p_thread = kit::newThread(start, p_argument);
    const int error = create(p_handle, p_attributes, kit::runThread, p_thread);
    if (error == 0) {
        kit::setHandle(p_thread, *p_handle);
    } else {
        kit::forgetThread(p_thread);
    }
    return error;
}

TEVALON_KIT_DEFINE(pthread_join, int, (pthread_t handle, void** pp_result)) {
    if (isManaged()) kit::awaitEnd(handle);
    return next_pthread_join()(handle, pp_result);
}

TEVALON_KIT_DEFINE(pthread_cancel, int, (pthread_t handle)) {
    const int error = next_pthread_cancel()(handle);
    if (error == 0 && isManaged()) kit::interrupt(handle);
    return error;
}

TEVALON_KIT_DEFINE(sched_yield, int, ()) {
    if (!isManaged()) return next_sched_yield()();
    kit::yieldTurn();
    return 0;
}

TEVALON_KIT_DEFINE(sched_getcpu, int, ()) {
    return isManaged() ? kit::processor() : next_sched_getcpu()();
}

// --- Mutexes ---

TEVALON_KIT_DEFINE(pthread_mutex_lock, int, (pthread_mutex_t * p_mutex)) {
    TEVALON_KIT_FAIL(PthreadMutexLock, ErrorNumber);
    if (isManaged()) (void)awaitMutex(p_mutex, kNever);
    return next_pthread_mutex_lock()(p_mutex);
}

static int lockUntil(pthread_mutex_t* p_mutex, clockid_t clock, const timespec* p_deadline) {
    if (!isValid(*p_deadline)) return EINVAL;
    if (!awaitMutex(p_mutex, deadlineOf(clock, *p_deadline))) return ETIMEDOUT;
    return next_pthread_mutex_lock()(p_mutex);
}

TEVALON_KIT_DEFINE(pthread_mutex_timedlock, int,
                   (pthread_mutex_t * p_mutex, const timespec* p_deadline)) {
    if (!isManaged()) return next_pthread_mutex_timedlock()(p_mutex, p_deadline);
    return lockUntil(p_mutex, CLOCK_REALTIME, p_deadline);
}

TEVALON_KIT_DEFINE(pthread_mutex_clocklock, int,
                   (pthread_mutex_t * p_mutex, clockid_t clock, const timespec* p_deadline)) {
    if (!isManaged()) return next_pthread_mutex_clocklock()(p_mutex, clock, p_deadline);
    return lockUntil(p_mutex, clock, p_deadline);
}

TEVALON_KIT_DEFINE(pthread_mutex_unlock, int, (pthread_mutex_t * p_mutex)) {
    const int error = next_pthread_mutex_unlock()(p_mutex);
    if (isManaged()) wakeAll(Wait::Mutex, p_mutex);
    return error;
}

// --- Condition variables ---

static int waitForCondition(pthread_cond_t* p_condition, pthread_mutex_t* p_mutex,
                            Nanoseconds deadline) {
    const int error = next_pthread_mutex_unlock()(p_mutex);
    if (error != 0) return error;
    wakeAll(Wait::Mutex, p_mutex);
    const bool isWoken = block(Wait::Condition, p_condition, deadline);
    (void)awaitMutex(p_mutex, kNever);
    (void)next_pthread_mutex_lock()(p_mutex);
    pthread_testcancel();
    return isWoken ? 0 : ETIMEDOUT;
}

TEVALON_KIT_DEFINE(pthread_cond_wait, int,
                   (pthread_cond_t * p_condition, pthread_mutex_t* p_mutex)) {
    TEVALON_KIT_FAIL(PthreadCondWait, ErrorNumber);
    if (!isManaged()) return next_pthread_cond_wait()(p_condition, p_mutex);
    return waitForCondition(p_condition, p_mutex, kNever);
}

TEVALON_KIT_DEFINE(pthread_cond_clockwait, int,
                   (pthread_cond_t * p_condition, pthread_mutex_t* p_mutex, clockid_t clock,
                    const timespec* p_deadline)) {
    TEVALON_KIT_FAIL(PthreadCondTimedwait, ErrorNumber);
    if (!isManaged()) return next_pthread_cond_clockwait()(p_condition, p_mutex, clock, p_deadline);
    if (!isValid(*p_deadline)) return EINVAL;
    return waitForCondition(p_condition, p_mutex, deadlineOf(clock, *p_deadline));
}

TEVALON_KIT_DEFINE(pthread_cond_timedwait, int,
                   (pthread_cond_t * p_condition, pthread_mutex_t* p_mutex,
                    const timespec* p_deadline)) {
    TEVALON_KIT_FAIL(PthreadCondTimedwait, ErrorNumber);
    if (!isManaged()) return next_pthread_cond_timedwait()(p_condition, p_mutex, p_deadline);
    if (!isValid(*p_deadline)) return EINVAL;
    // Where glibc keeps what pthread_condattr_setclock() has said.
    constexpr unsigned kIsMonotonic = 2;
    const bool isMonotonic = (p_condition->__data.__wrefs & kIsMonotonic) != 0;
    return waitForCondition(
        p_condition, p_mutex,
        deadlineOf(isMonotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, *p_deadline));
}

TEVALON_KIT_DEFINE(pthread_cond_signal, int, (pthread_cond_t * p_condition)) {
    if (!isManaged()) return next_pthread_cond_signal()(p_condition);
    wakeOne(Wait::Condition, p_condition);
    return 0;
}

TEVALON_KIT_DEFINE(pthread_cond_broadcast, int, (pthread_cond_t * p_condition)) {
    if (!isManaged()) return next_pthread_cond_broadcast()(p_condition);
    wakeAll(Wait::Condition, p_condition);
    return 0;
}

// --- Semaphores ---

TEVALON_KIT_NEXT(sem_trywait, int, (sem_t * p_semaphore))

static int waitForSemaphore(sem_t* p_semaphore, Nanoseconds deadline) {
    const int savedErrno = errno;
    while (next_sem_trywait()(p_semaphore) != 0) {
        if (errno != EAGAIN) return -1;
        if (!block(Wait::Semaphore, p_semaphore, deadline)) {
            if (next_sem_trywait()(p_semaphore) == 0) break;
            errno = ETIMEDOUT;
            return -1;
        }
        pthread_testcancel();
    }
    errno = savedErrno;
    return 0;
}

TEVALON_KIT_DEFINE(sem_wait, int, (sem_t * p_semaphore)) {
    TEVALON_KIT_FAIL(SemWait, MinusOne);
    if (!isManaged()) return next_sem_wait()(p_semaphore);
    return waitForSemaphore(p_semaphore, kNever);
}

static int waitForSemaphoreUntil(sem_t* p_semaphore, clockid_t clock, const timespec* p_deadline) {
    if (isValid(*p_deadline)) return waitForSemaphore(p_semaphore, deadlineOf(clock, *p_deadline));
    errno = EINVAL;
    return -1;
}

TEVALON_KIT_DEFINE(sem_timedwait, int, (sem_t * p_semaphore, const timespec* p_deadline)) {
    TEVALON_KIT_FAIL(SemTimedwait, MinusOne);
    if (!isManaged()) return next_sem_timedwait()(p_semaphore, p_deadline);
    return waitForSemaphoreUntil(p_semaphore, CLOCK_REALTIME, p_deadline);
}

TEVALON_KIT_DEFINE(sem_clockwait, int,
                   (sem_t * p_semaphore, clockid_t clock, const timespec* p_deadline)) {
    TEVALON_KIT_FAIL(SemTimedwait, MinusOne);
    if (!isManaged()) return next_sem_clockwait()(p_semaphore, clock, p_deadline);
    return waitForSemaphoreUntil(p_semaphore, clock, p_deadline);
}

TEVALON_KIT_DEFINE(sem_post, int, (sem_t * p_semaphore)) {
    const int result = next_sem_post()(p_semaphore);
    if (isManaged()) wakeOne(Wait::Semaphore, p_semaphore);
    return result;
}

// --- Read-write locks ---

TEVALON_KIT_NEXT(pthread_rwlock_tryrdlock, int, (pthread_rwlock_t * p_lock))
TEVALON_KIT_NEXT(pthread_rwlock_trywrlock, int, (pthread_rwlock_t * p_lock))

TEVALON_KIT_DEFINE(pthread_rwlock_rdlock, int, (pthread_rwlock_t * p_lock)) {
    if (!isManaged()) return next_pthread_rwlock_rdlock()(p_lock);
    int error = 0;
    while ((error = next_pthread_rwlock_tryrdlock()(p_lock)) == EBUSY) {
        (void)block(Wait::ReadWriteLock, p_lock, kNever);
    }
    return error;
}

TEVALON_KIT_DEFINE(pthread_rwlock_wrlock, int, (pthread_rwlock_t * p_lock)) {
    if (!isManaged()) return next_pthread_rwlock_wrlock()(p_lock);
    int error = 0;
    while ((error = next_pthread_rwlock_trywrlock()(p_lock)) == EBUSY) {
        (void)block(Wait::ReadWriteLock, p_lock, kNever);
    }
    return error;
}

TEVALON_KIT_DEFINE(pthread_rwlock_unlock, int, (pthread_rwlock_t * p_lock)) {
    const int error = next_pthread_rwlock_unlock()(p_lock);
    if (isManaged()) wakeAll(Wait::ReadWriteLock, p_lock);
    return error;
}

// --- Once-routines ---

namespace {

// Of the one that runs: such routines may nest, and may be unwound by an exception.
struct RunningOnce {
    explicit RunningOnce(const pthread_once_t* p_once) : p_control(p_once), p_next(s_first) {
        s_first = this;
    }
    ~RunningOnce() {
        RunningOnce** pp_link = &s_first;
        while (*pp_link != this) pp_link = &(*pp_link)->p_next;
        *pp_link = p_next;
        wakeAll(Wait::Once, p_control);
    }

    RunningOnce(const RunningOnce&) = delete;
    RunningOnce& operator=(const RunningOnce&) = delete;

    static bool isRunning(const pthread_once_t* p_once) {
        for (const RunningOnce* p_running = s_first; p_running != nullptr;
             p_running = p_running->p_next) {
            if (p_running->p_control == p_once) return true;
        }
        return false;
    }

    const pthread_once_t* p_control;
    RunningOnce* p_next;
    static RunningOnce* s_first;
};

RunningOnce* RunningOnce::s_first = nullptr;

}  // namespace

TEVALON_KIT_DEFINE(pthread_once, int, (pthread_once_t * p_once, void (*routine)())) {
    if (!isManaged()) return next_pthread_once()(p_once, routine);
    while (RunningOnce::isRunning(p_once)) (void)block(Wait::Once, p_once, kNever);
    const RunningOnce running(p_once);
    return next_pthread_once()(p_once, routine);
}

// --- Futexes: those of the C++ library's futures and atomic waits, and of modules ---

namespace {

long waitForFutex(const std::uint32_t* p_word, long operation, std::uint32_t value,
                  const timespec* p_timeout) {
    const bool isAbsolute = (operation & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET;
    Nanoseconds deadline = kNever;
    if (p_timeout != nullptr && isAbsolute) {
        const bool isRealTime = (operation & FUTEX_CLOCK_REALTIME) != 0;
        deadline = deadlineOf(isRealTime ? CLOCK_REALTIME : CLOCK_MONOTONIC, *p_timeout);
    } else if (p_timeout != nullptr) {
        deadline = after(kit::nanosecondsOf(*p_timeout));
    }
    if (__atomic_load_n(p_word, __ATOMIC_SEQ_CST) != value) {
        errno = EAGAIN;
        return -1;
    }
    if (block(Wait::Futex, p_word, deadline)) return 0;
    errno = ETIMEDOUT;
    return -1;
}

long wakeFutex(const std::uint32_t* p_word, long count) {
    long woken = 0;
    while (woken < count && wakeOne(Wait::Futex, p_word)) ++woken;
    return woken;
}

}  // namespace

// Others pass with as many arguments as there can be, in registers or on the stack.
TEVALON_KIT_DEFINE(syscall, long,
                   (long number, const void* p_first, long second, long third, const void* p_fourth,
                    long fifth, long sixth)) {
    if (number == SYS_futex && isManaged()) {
        const auto* const p_word = static_cast<const std::uint32_t*>(p_first);
        switch (second & FUTEX_CMD_MASK) {
            case FUTEX_WAIT:
            case FUTEX_WAIT_BITSET:
                return waitForFutex(p_word, second, static_cast<std::uint32_t>(third),
                                    static_cast<const timespec*>(p_fourth));
            case FUTEX_WAKE:
            case FUTEX_WAKE_BITSET:
                return wakeFutex(p_word, third);
            default:
                break;
        }
    }
    return next_syscall()(number, p_first, second, third, p_fourth, fifth, sixth);
}

// --- Clocks ---

TEVALON_KIT_DEFINE(clock_gettime, int, (clockid_t clock, timespec* p_time)) {
    TEVALON_KIT_FAIL(ClockGettime, MinusOne);
    if (!kit::isOn() || !(kit::isRealTime(clock) || kit::isMonotonic(clock))) {
        return next_clock_gettime()(clock, p_time);
    }
    if (isManaged()) kit::noteClockRead();
    *p_time = timeOf(kit::isRealTime(clock) ? now() + kit::realTimeOffset() : now());
    return 0;
}

TEVALON_KIT_DEFINE(gettimeofday, int, (timeval * p_time, void* p_zone)) {
    if (!kit::isOn()) return next_gettimeofday()(p_time, p_zone);
    const timespec time = timeOf(now() + kit::realTimeOffset());
    p_time->tv_sec = time.tv_sec;
    p_time->tv_usec = static_cast<suseconds_t>(time.tv_nsec / 1000);
    return 0;
}

TEVALON_KIT_DEFINE(time, time_t, (time_t * p_time)) {
    if (!kit::isOn()) return next_time()(p_time);
    const time_t seconds = timeOf(now() + kit::realTimeOffset()).tv_sec;
    if (p_time != nullptr) *p_time = seconds;
    return seconds;
}

// --- Sleeps ---

TEVALON_KIT_DEFINE(nanosleep, int, (const timespec* p_duration, timespec* p_remainder)) {
    TEVALON_KIT_FAIL(Nanosleep, MinusOne);
    if (!isManaged()) return next_nanosleep()(p_duration, p_remainder);
    if (!isValid(*p_duration) || p_duration->tv_sec < 0) {
        errno = EINVAL;
        return -1;
    }
    sleepUntil(after(kit::nanosecondsOf(*p_duration)));
    return 0;
}

TEVALON_KIT_DEFINE(clock_nanosleep, int,
                   (clockid_t clock, int flags, const timespec* p_time, timespec* p_remainder)) {
    TEVALON_KIT_FAIL(Nanosleep, ErrorNumber);
    if (!isManaged()) return next_clock_nanosleep()(clock, flags, p_time, p_remainder);
    if (!isValid(*p_time) || p_time->tv_sec < 0) return EINVAL;
    sleepUntil((flags & TIMER_ABSTIME) != 0 ? deadlineOf(clock, *p_time)
                                            : after(kit::nanosecondsOf(*p_time)));
    return 0;
}

TEVALON_KIT_DEFINE(usleep, int, (useconds_t duration)) {
    if (!isManaged()) return next_usleep()(duration);
    sleepUntil(after(Nanoseconds{duration} * 1000));
    return 0;
}

TEVALON_KIT_DEFINE(sleep, unsigned, (unsigned seconds)) {
    if (!isManaged()) return next_sleep()(seconds);
    sleepUntil(after(Nanoseconds{seconds} * kit::kSecond));
    return 0;
}

// --- Descriptors ---

TEVALON_KIT_DEFINE(select, int,
                   (int count, fd_set* p_read, fd_set* p_write, fd_set* p_except,
                    timeval* p_timeout)) {
    TEVALON_KIT_FAIL(Select, MinusOne);
    if (!isManaged()) return next_select()(count, p_read, p_write, p_except, p_timeout);

    // The sets may be larger than an fd_set: so large as the highest descriptor needs.
    constexpr int kBitsPerWord = static_cast<int>(sizeof(unsigned long)) * CHAR_BIT;
    using Set = std::array<unsigned long, 65536 / kBitsPerWord>;
    struct Sets {
        int count;
        std::array<fd_set*, 3> sets;

        std::size_t bytes() const {
            return static_cast<std::size_t>((count + kBitsPerWord - 1) / kBitsPerWord) *
                   sizeof(unsigned long);
        }
        // Not by memcpy(), which sanitizers replace: see definitionOfTheSystem().
        static void copy(const fd_set* p_set, std::size_t words, Set* p_copy) {
            const auto* const p_words = reinterpret_cast<const volatile unsigned long*>(p_set);
            for (std::size_t word = 0; word < words; ++word) (*p_copy)[word] = p_words[word];
        }
        int ready() const {
            std::array<Set, 3> copies;
            std::array<fd_set*, 3> asked = {};
            for (std::size_t i = 0; i < sets.size(); ++i) {
                if (sets[i] == nullptr) continue;
                copy(sets[i], bytes() / sizeof(unsigned long), &copies[i]);
                asked[i] = reinterpret_cast<fd_set*>(copies[i].data());
            }
            return kit::selectOfTheSystem(count, asked[0], asked[1], asked[2]);
        }
    };
    const Sets sets = {std::clamp(count, 0, 65536), {p_read, p_write, p_except}};
    const Readiness readiness = {
        [](const void* p_sets) { return static_cast<const Sets*>(p_sets)->ready() != 0; }, &sets};
    const Nanoseconds deadline =
        p_timeout == nullptr
            ? kNever
            : after(Nanoseconds{p_timeout->tv_sec} * kit::kSecond + p_timeout->tv_usec * 1000);
    while (sets.ready() == 0) {
        if (!block(Wait::Descriptors, p_read, deadline, &readiness)) break;
        pthread_testcancel();
    }
    timeval none = {};
    const int result = next_select()(count, p_read, p_write, p_except, &none);
    if (p_timeout != nullptr) {
        const timespec left = timeOf(std::max<Nanoseconds>(deadline - now(), 0));
        p_timeout->tv_sec = left.tv_sec;
        p_timeout->tv_usec = static_cast<suseconds_t>(left.tv_nsec / 1000);
    }
    return result;
}

namespace {

struct Polled {
    pollfd* p_entries;
    nfds_t count;
};

}  // namespace

TEVALON_KIT_DEFINE(poll, int, (pollfd * p_entries, nfds_t count, int timeoutMs)) {
    TEVALON_KIT_FAIL(Poll, MinusOne);
    if (!isManaged()) return next_poll()(p_entries, count, timeoutMs);
    const Polled polled = {p_entries, count};
    const Readiness readiness = {
        [](const void* p_context) {
            const auto* const p_polled = static_cast<const Polled*>(p_context);
            return kit::pollOfTheSystem(p_polled->p_entries, p_polled->count) != 0;
        },
        &polled};
    const Nanoseconds deadline = timeoutMs < 0 ? kNever : after(Nanoseconds{timeoutMs} * 1'000'000);
    int result = 0;
    while ((result = next_poll()(p_entries, count, 0)) == 0) {
        if (!block(Wait::Descriptors, p_entries, deadline, &readiness)) {
            return next_poll()(p_entries, count, 0);
        }
        pthread_testcancel();
    }
    return result;
}

static bool awaitReadable(int descriptor, Nanoseconds deadline) {
    const Readiness readiness = {
        [](const void* p_descriptor) {
            pollfd entry = {*static_cast<const int*>(p_descriptor), POLLIN, 0};
            return kit::pollOfTheSystem(&entry, 1) != 0;
        },
        &descriptor};
    while (!readiness.isReady(&descriptor)) {
        if (!block(Wait::Descriptors, nullptr, deadline, &readiness)) return false;
        pthread_testcancel();
    }
    return true;
}

TEVALON_KIT_DEFINE(epoll_wait, int,
                   (int descriptor, epoll_event* p_events, int count, int timeoutMs)) {
    TEVALON_KIT_FAIL(EpollWait, MinusOne);
    if (!isManaged()) return next_epoll_wait()(descriptor, p_events, count, timeoutMs);
    (void)awaitReadable(descriptor,
                        timeoutMs < 0 ? kNever : after(Nanoseconds{timeoutMs} * 1'000'000));
    return next_epoll_wait()(descriptor, p_events, count, 0);
}

TEVALON_KIT_DEFINE(read, ssize_t, (int descriptor, void* p_buffer, std::size_t size)) {
    TEVALON_KIT_FAIL(Read, MinusOne);
    if (isManaged() && (fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0) {
        (void)awaitReadable(descriptor, kNever);
    }
    return next_read()(descriptor, p_buffer, size);
}

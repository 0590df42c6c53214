// Threads, and routines that run once.
#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

pthread_key_t g_endKey;

// After the destructors of the thread's own objects and of its other keys: glibc calls them in
// PTHREAD_DESTRUCTOR_ITERATIONS rounds, and this one waits for the last.
void onEnd(void* p_rounds) {
    const auto rounds = reinterpret_cast<std::uintptr_t>(p_rounds);
    if (rounds > 1) {
        (void)pthread_setspecific(g_endKey, reinterpret_cast<void*>(rounds - 1));
        return;
    }
    g_schedule.endThread();
}

void* run(void* p_thread) {
    auto* const p_self = static_cast<Thread*>(p_thread);
    allocateFrom(p_self->id);
    g_schedule.awaitFirstTurn(p_self);
    (void)pthread_setspecific(
        g_endKey, reinterpret_cast<void*>(std::uintptr_t{PTHREAD_DESTRUCTOR_ITERATIONS}));
    p_self->p_result = p_self->p_start(p_self->p_argument);
    return p_self->p_result;
}

int startThread(Thread* p_thread) {
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setstack(&attributes, stackOf(p_thread->id), kStackBytes);
    const int error = TESTKIT_REAL(pthread_create)(&p_thread->handle, &attributes, run, p_thread);
    (void)pthread_attr_destroy(&attributes);
    return error;
}

bool isCreatedDetached(const pthread_attr_t* p_attributes) {
    int state = PTHREAD_CREATE_JOINABLE;
    if (p_attributes != nullptr) (void)pthread_attr_getdetachstate(p_attributes, &state);
    return state == PTHREAD_CREATE_DETACHED;
}

int create(pthread_t* p_handle, const pthread_attr_t* p_attributes, void* (*p_start)(void*),
           void* p_argument) {
    Thread& self = *Schedule::self();
    if (self.isNextRefused) {
        self.isNextRefused = false;
        return EAGAIN;
    }
    Thread* const p_thread = g_schedule.addThread();
    p_thread->p_start = p_start;
    p_thread->p_argument = p_argument;
    p_thread->isDetached = isCreatedDetached(p_attributes);
    (void)std::snprintf(p_thread->name, sizeof(p_thread->name), "thread %d", p_thread->id);
    if (g_schedule.isTold()) {
        g_schedule.tell("creates thread", 0, static_cast<std::uint64_t>(p_thread->id));
    }
    const int error = startThread(p_thread);
    if (error != 0) {
        g_schedule.removeThread(p_thread);
        return error;
    }
    *p_handle = p_thread->handle;
    return 0;
}

int join(pthread_t handle, void** p_result) {
    Thread* const p_thread = g_schedule.threadOf(handle);
    if (p_thread == nullptr) g_schedule.finish(Outcome::DoubleJoin, "no such thread is joined");
    if (p_thread->isJoined || p_thread->isDetached) {
        g_schedule.finish(Outcome::DoubleJoin, "thread %d, %s, is joined when it is %s already",
                          p_thread->id, p_thread->name, p_thread->isJoined ? "joined" : "detached");
    }
    if (p_thread == Schedule::self()) return EDEADLK;
    p_thread->isJoined = true;
    if (g_schedule.isTold()) {
        g_schedule.tell("joins thread", 0, static_cast<std::uint64_t>(p_thread->id));
    }
    (void)g_schedule.waitUntil(
        "the end of a thread", nullptr, kNever, [p_thread](bool) { return p_thread->isEnded; },
        p_thread->id);
    g_schedule.joined(*p_thread);
    if (p_result != nullptr) *p_result = p_thread->p_result;
    return 0;
}

int detach(pthread_t handle) {
    Thread* const p_thread = g_schedule.threadOf(handle);
    if (p_thread == nullptr || p_thread->isJoined || p_thread->isDetached) {
        g_schedule.finish(Outcome::DoubleJoin, "a thread that is gone already is detached");
    }
    p_thread->isDetached = true;
    return 0;
}

constexpr std::uint32_t kIsDone = 1;

}  // namespace

void linkThreadHooks() {
    (void)pthread_key_create(&g_endKey, onEnd);
}

void joinEnded(pthread_t handle) {
    (void)TESTKIT_REAL(pthread_join)(handle, nullptr);
}

/// For once-routines and the constructors of static objects: true for the one who has to run it.
bool claimOnce(Location& once) {
    g_schedule.point(once, Touch::Write, "enters what is done once");
    (void)g_schedule.waitUntil("somebody else's initialisation", &once, kNever,
                               [&once](bool) { return !once.isInitialising; });
    g_schedule.acquire(once);
    if (once.count == kIsDone) {
        g_schedule.happened(once, Touch::Read);
        return false;
    }
    once.isInitialising = true;
    once.owner = Schedule::self()->id;
    g_schedule.happened(once, Touch::Write);
    return true;
}

void endOnce(Location& once, bool isDone) {
    g_schedule.point(once, Touch::Write, "has done what is done once");
    once.isInitialising = false;
    once.owner = kNobody;
    once.count = isDone ? kIsDone : 0;
    g_schedule.release(once);
    g_schedule.happened(once, Touch::Write);
}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;
using testkit::g_schedule;
using testkit::isHooked;
using testkit::Schedule;

TESTKIT_HOOK int pthread_create(pthread_t* p_handle, const pthread_attr_t* p_attributes,
                                void* (*p_start)(void*), void* p_argument) {
    if (!isHooked()) {
        return TESTKIT_REAL(pthread_create)(p_handle, p_attributes, p_start, p_argument);
    }
    return testkit::create(p_handle, p_attributes, p_start, p_argument);
}
TESTKIT_HOOK int pthread_join(pthread_t handle, void** p_result) {
    if (!isHooked()) return TESTKIT_REAL(pthread_join)(handle, p_result);
    return testkit::join(handle, p_result);
}
TESTKIT_HOOK int pthread_detach(pthread_t handle) {
    if (!isHooked()) return TESTKIT_REAL(pthread_detach)(handle);
    return testkit::detach(handle);
}
TESTKIT_HOOK void pthread_exit(void* p_result) {
    if (isHooked()) Schedule::self()->p_result = p_result;
    TESTKIT_REAL(pthread_exit)(p_result);
    __builtin_unreachable();
}
TESTKIT_HOOK int pthread_cancel(pthread_t handle) {
    if (isHooked()) {
        g_schedule.finish(testkit::Outcome::Unsupported, "pthread_cancel() is not explored");
    }
    return TESTKIT_REAL(pthread_cancel)(handle);
}
TESTKIT_HOOK int pthread_setname_np(pthread_t handle, const char* name) {
    if (!isHooked()) return TESTKIT_REAL(pthread_setname_np)(handle, name);
    if (testkit::Thread* const p_thread = g_schedule.threadOf(handle)) {
        (void)std::snprintf(p_thread->name, sizeof(p_thread->name), "%s", name);
    }
    return 0;
}
TESTKIT_HOOK int sched_yield() noexcept {
    if (!isHooked()) return TESTKIT_REAL(sched_yield)();
    g_schedule.yield();
    return 0;
}
TESTKIT_HOOK int sched_getcpu() noexcept {
    if (!isHooked()) return TESTKIT_REAL(sched_getcpu)();
    return g_schedule.options().isOneProcessor ? 0 : Schedule::self()->id;
}

TESTKIT_HOOK int pthread_once(pthread_once_t* p_once, void (*p_routine)()) {
    if (!isHooked()) return TESTKIT_REAL(pthread_once)(p_once, p_routine);
    constexpr int kHasRun = 2;  // As glibc writes it.
    testkit::Location& once = g_schedule.at(p_once);
    if (*p_once == kHasRun) once.count = testkit::kIsDone;
    if (!testkit::claimOnce(once)) return 0;
    try {
        p_routine();
    } catch (...) {
        testkit::endOnce(once, false);
        throw;
    }
    *p_once = kHasRun;
    testkit::endOnce(once, true);
    return 0;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the compiler calls.

// The compiler's guards of static objects in functions: the first byte says that one is there.
TESTKIT_HOOK int __cxa_guard_acquire(unsigned char* p_guard) {
    if (!isHooked()) return *p_guard == 0 ? 1 : 0;
    if (*p_guard != 0) g_schedule.at(p_guard).count = testkit::kIsDone;
    return testkit::claimOnce(g_schedule.at(p_guard)) ? 1 : 0;
}
TESTKIT_HOOK void __cxa_guard_release(unsigned char* p_guard) {
    if (isHooked()) testkit::endOnce(g_schedule.at(p_guard), true);
    *p_guard = 1;
}
TESTKIT_HOOK void __cxa_guard_abort(unsigned char* p_guard) {
    if (isHooked()) testkit::endOnce(g_schedule.at(p_guard), false);
}
// NOLINTEND(bugprone-reserved-identifier)

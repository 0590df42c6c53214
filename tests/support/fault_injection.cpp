#include "support/fault_injection.h"

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "support/interposition.h"
#include "zor_debug/zor_debug.h"

namespace test {
namespace {

constexpr int kSlotCount = 32;
constexpr int kCallCount = static_cast<int>(Call::Count);

enum SlotState { kFree, kClaimed, kArmed };

using ActionFunction = bool (*)(void*, void*, void* const*);

struct Slot {
    int state;  // A SlotState.
    int users;  // Threads that look at it right now.
    int call;
    const void* thread;
    const void* object;
    long first;
    long times;
    bool afterTheCall;
    ActionFunction action;  // Null: fail with error.
    void* context;
    int error;
    long seen;
    long hits;
};

Slot g_slots[kSlotCount];
int g_armed[kCallCount];  // How many slots want a call, so that the others cost one load.
CallWatcher g_watcher;
BlockWatcher g_blockWatcher;
thread_local char t_self;
thread_local int t_passing;

template <typename T>
T load(const T* p_value) {
    return __atomic_load_n(p_value, __ATOMIC_SEQ_CST);
}

template <typename T>
void store(T* p_value, T value) {
    __atomic_store_n(p_value, value, __ATOMIC_SEQ_CST);
}

int claimSlot() {
    for (int i = 0; i < kSlotCount; ++i) {
        int expected = kFree;
        if (__atomic_compare_exchange_n(&g_slots[i].state, &expected, static_cast<int>(kClaimed),
                                        false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
            return i;
        }
    }
    std::fputs("fault injection: too many interventions at once\n", stderr);
    std::abort();
}

class SlotUse {
public:
    explicit SlotUse(Slot* p_slot) : m_slot(p_slot) {
        __atomic_add_fetch(&m_slot->users, 1, __ATOMIC_SEQ_CST);
    }
    ~SlotUse() { __atomic_sub_fetch(&m_slot->users, 1, __ATOMIC_SEQ_CST); }

    SlotUse(const SlotUse&) = delete;
    SlotUse& operator=(const SlotUse&) = delete;

    bool matches(int call, const void* object) const {
        return load(&m_slot->state) == kArmed && m_slot->call == call &&
               (m_slot->thread == nullptr || m_slot->thread == &t_self) &&
               (m_slot->object == nullptr || m_slot->object == object);
    }

    /// Counts the use; true when it is one to interfere with.
    bool isDue() {
        const long use = __atomic_add_fetch(&m_slot->seen, 1, __ATOMIC_SEQ_CST);
        return use >= m_slot->first && use - m_slot->first < m_slot->times;
    }

private:
    Slot* m_slot;
};

Decision apply(Slot* p_slot, void* p_result, void* const* pp_arguments) {
    __atomic_add_fetch(&p_slot->hits, 1, __ATOMIC_SEQ_CST);
    if (p_slot->action != nullptr) {
        const PassCalls pass;
        const bool replaced = p_slot->action(p_slot->context, p_result, pp_arguments);
        return {replaced ? Verdict::Replaced : Verdict::Pass, 0};
    }
    return {p_slot->afterTheCall ? Verdict::FailAfterwards : Verdict::Fail, p_slot->error};
}

Decision askWatcher(CallWatcher watcher, Call call, const void* caller, void* const* pp_arguments) {
    const PassCalls pass;
    const CallFailure failure = watcher(call, caller, pp_arguments);
    if (!failure.isWanted) return {};
    return {failure.isAfterTheCall ? Verdict::FailAfterwards : Verdict::Fail, failure.error};
}

}  // namespace

Decision decide(Call which, const void* caller, const void* object, void* p_result,
                void* const* pp_arguments) {
    const int call = static_cast<int>(which);
    const CallWatcher watcher = load(&g_watcher);
    if (t_passing > 0) return {};
    if (watcher != nullptr) return askWatcher(watcher, which, caller, pp_arguments);
    Decision decision;
    if (load(&g_armed[call]) == 0) return decision;
    for (Slot& slot : g_slots) {
        SlotUse use(&slot);
        if (!use.matches(call, object) || !use.isDue()) continue;
        if (decision.verdict != Verdict::Pass) continue;
        decision = apply(&slot, p_result, pp_arguments);
    }
    return decision;
}

void* next(void** pp_known, const char* name) {
    void* known = load(pp_known);
    if (known != nullptr) return known;
    const int savedErrno = errno;
    known = dlsym(RTLD_NEXT, name);
    if (known == nullptr) {
        std::fprintf(stderr, "fault injection: '%s' has no other definition\n", name);
        std::abort();
    }
    store(pp_known, known);
    errno = savedErrno;
    return known;
}

bool isSupported(Call call) {
#ifdef TEVALON_TEST_SANITIZED
    return call != Call::Malloc;
#else
    (void)call;
    return true;
#endif
}

void setCallWatcher(CallWatcher watcher) {
    store(&g_watcher, watcher);
}

void setBlockWatcher(BlockWatcher watcher) {
    store(&g_blockWatcher, watcher);
}

void tellBlockWatcher(Call call, const void* p_block) {
    const BlockWatcher watcher = load(&g_blockWatcher);
    if (watcher == nullptr || t_passing > 0) return;
    const PassCalls pass;
    watcher(call, p_block);
}

When::When() : m_thread(&t_self) {}

Intervention::Intervention(Call call, const When& when) : m_slot(claimSlot()) {
    Slot& slot = g_slots[m_slot];
    slot.call = static_cast<int>(call);
    slot.thread = when.m_thread;
    slot.object = when.m_object;
    slot.first = when.m_first;
    slot.times = when.m_times;
    slot.afterTheCall = when.m_afterTheCall;
    slot.action = nullptr;
    slot.context = nullptr;
    slot.error = 0;
    store(&slot.seen, 0L);
    store(&slot.hits, 0L);
}

Intervention::~Intervention() {
    store(&g_slots[m_slot].state, static_cast<int>(kFree));
}

void Intervention::startFailing(int error) {
    g_slots[m_slot].error = error;
    store(&g_slots[m_slot].state, static_cast<int>(kArmed));
    __atomic_add_fetch(&g_armed[g_slots[m_slot].call], 1, __ATOMIC_SEQ_CST);
}

void Intervention::startRunning(Action action, void* p_self) {
    g_slots[m_slot].action = action;
    g_slots[m_slot].context = p_self;
    startFailing(0);
}

void Intervention::stop() {
    const PassCalls pass;
    Slot& slot = g_slots[m_slot];
    __atomic_sub_fetch(&g_armed[slot.call], 1, __ATOMIC_SEQ_CST);
    store(&slot.state, static_cast<int>(kClaimed));
    while (load(&slot.users) != 0) sched_yield();
}

long Intervention::seen() const {
    return load(&g_slots[m_slot].seen);
}

long Intervention::hits() const {
    return load(&g_slots[m_slot].hits);
}

PassCalls::PassCalls() {
    ++t_passing;
}

PassCalls::~PassCalls() {
    --t_passing;
}

}  // namespace test

// clang-format off
TEVALON_TEST_INTERPOSE(PthreadMutexInit, ErrorNumber, pthread_mutex_init, int,
                       (pthread_mutex_t* p_mutex, const pthread_mutexattr_t* p_attributes),
                       p_mutex, (nextCall, p_mutex, p_attributes))
TEVALON_TEST_INTERPOSE(PthreadMutexDestroy, ErrorNumber, pthread_mutex_destroy, int,
                       (pthread_mutex_t* p_mutex), p_mutex, (nextCall, p_mutex))
TEVALON_TEST_INTERPOSE(PthreadMutexLock, ErrorNumber, pthread_mutex_lock, int,
                       (pthread_mutex_t* p_mutex), p_mutex, (nextCall, p_mutex))
TEVALON_TEST_INTERPOSE(PthreadMutexUnlock, ErrorNumber, pthread_mutex_unlock, int,
                       (pthread_mutex_t* p_mutex), p_mutex, (nextCall, p_mutex))
TEVALON_TEST_INTERPOSE(PthreadCondInit, ErrorNumber, pthread_cond_init, int,
                       (pthread_cond_t* p_cond, const pthread_condattr_t* p_attributes),
                       p_cond, (nextCall, p_cond, p_attributes))
TEVALON_TEST_INTERPOSE(PthreadCondDestroy, ErrorNumber, pthread_cond_destroy, int,
                       (pthread_cond_t* p_cond), p_cond, (nextCall, p_cond))
TEVALON_TEST_INTERPOSE(PthreadCondWait, ErrorNumber, pthread_cond_wait, int,
                       (pthread_cond_t* p_cond, pthread_mutex_t* p_mutex),
                       p_cond, (nextCall, p_cond, p_mutex))
TEVALON_TEST_INTERPOSE(PthreadCondClockwait, ErrorNumber, pthread_cond_clockwait, int,
                       (pthread_cond_t* p_cond, pthread_mutex_t* p_mutex, clockid_t clock,
                        const timespec* p_deadline),
                       p_cond, (nextCall, p_cond, p_mutex, clock, p_deadline))
TEVALON_TEST_INTERPOSE(PthreadCondSignal, ErrorNumber, pthread_cond_signal, int,
                       (pthread_cond_t* p_cond), p_cond, (nextCall, p_cond))
TEVALON_TEST_INTERPOSE(PthreadCondBroadcast, ErrorNumber, pthread_cond_broadcast, int,
                       (pthread_cond_t* p_cond), p_cond, (nextCall, p_cond))
TEVALON_TEST_INTERPOSE(PthreadCreate, ErrorNumber, pthread_create, int,
                       (pthread_t* p_thread, const pthread_attr_t* p_attributes,
                        void* (*p_start)(void*), void* p_argument),
                       p_thread, (nextCall, p_thread, p_attributes, p_start, p_argument))
TEVALON_TEST_INTERPOSE(PthreadJoin, ErrorNumber, pthread_join, int,
                       (pthread_t thread, void** pp_result),
                       nullptr, (nextCall, thread, pp_result))
TEVALON_TEST_INTERPOSE(SemWait, MinusOneAndErrno, sem_wait, int, (sem_t* p_semaphore),
                       p_semaphore, (nextCall, p_semaphore))
TEVALON_TEST_INTERPOSE(SemClockwait, MinusOneAndErrno, sem_clockwait, int,
                       (sem_t* p_semaphore, clockid_t clock, const timespec* p_deadline),
                       p_semaphore, (nextCall, p_semaphore, clock, p_deadline))
TEVALON_TEST_INTERPOSE(SemPost, MinusOneAndErrno, sem_post, int, (sem_t* p_semaphore),
                       p_semaphore, (nextCall, p_semaphore))
TEVALON_TEST_INTERPOSE(ClockGettime, MinusOneAndErrno, clock_gettime, int,
                       (clockid_t clock, timespec* p_time), nullptr, (nextCall, clock, p_time))
TEVALON_TEST_INTERPOSE(SchedYield, MinusOneAndErrno, sched_yield, int, (), nullptr, (nextCall))
TEVALON_TEST_INTERPOSE(PthreadCondTimedwait, ErrorNumber, pthread_cond_timedwait, int,
                       (pthread_cond_t* p_cond, pthread_mutex_t* p_mutex,
                        const timespec* p_deadline),
                       p_cond, (nextCall, p_cond, p_mutex, p_deadline))
TEVALON_TEST_INTERPOSE(Nanosleep, MinusOneAndErrno, nanosleep, int,
                       (const timespec* p_duration, timespec* p_remainder),
                       nullptr, (nextCall, p_duration, p_remainder))
TEVALON_TEST_INTERPOSE(ClockNanosleep, ErrorNumber, clock_nanosleep, int,
                       (clockid_t clock, int flags, const timespec* p_time, timespec* p_left),
                       nullptr, (nextCall, clock, flags, p_time, p_left))
TEVALON_TEST_INTERPOSE(Usleep, MinusOneAndErrno, usleep, int, (useconds_t duration),
                       nullptr, (nextCall, duration))
// As many words as any use has.
TEVALON_TEST_INTERPOSE(Prctl, MinusOneAndErrno, prctl, int,
                       (int option, unsigned long a, unsigned long b, unsigned long c,
                        unsigned long d),
                       nullptr, (nextCall, option, a, b, c, d))
TEVALON_TEST_INTERPOSE(Pipe2, MinusOneAndErrno, pipe2, int, (int* p_descriptors, int flags),
                       nullptr, (nextCall, p_descriptors, flags))
TEVALON_TEST_INTERPOSE(Select, MinusOneAndErrno, select, int,
                       (int count, fd_set* p_read, fd_set* p_write, fd_set* p_except,
                        timeval* p_timeout),
                       nullptr, (nextCall, count, p_read, p_write, p_except, p_timeout))
TEVALON_TEST_INTERPOSE(Read, MinusOneAndErrno, read, ssize_t,
                       (int descriptor, void* p_buffer, std::size_t size),
                       nullptr, (nextCall, descriptor, p_buffer, size))
TEVALON_TEST_INTERPOSE(Write, MinusOneAndErrno, write, ssize_t,
                       (int descriptor, const void* p_data, std::size_t size),
                       nullptr, (nextCall, descriptor, p_data, size))
TEVALON_TEST_INTERPOSE(Access, MinusOneAndErrno, access, int, (const char* p_path, int mode),
                       nullptr, (nextCall, p_path, mode))
TEVALON_TEST_INTERPOSE(Opendir, NullAndErrno, opendir, DIR*, (const char* p_path),
                       nullptr, (nextCall, p_path))
// The names by which the headers call these two, as everything here is built.
static_assert(sizeof(off_t) == 8);
TEVALON_TEST_INTERPOSE(Readdir, NullAndErrno, readdir64, dirent*, (DIR* p_folder),
                       p_folder, (nextCall, p_folder))
TEVALON_TEST_INTERPOSE(Stat, MinusOneAndErrno, stat64, int,
                       (const char* p_path, struct stat* p_status),
                       nullptr, (nextCall, p_path, p_status))
TEVALON_TEST_INTERPOSE(Closedir, MinusOneAndErrno, closedir, int, (DIR* p_folder),
                       p_folder, (nextCall, p_folder))
TEVALON_TEST_INTERPOSE(Unlink, MinusOneAndErrno, unlink, int, (const char* p_path),
                       nullptr, (nextCall, p_path))
TEVALON_TEST_INTERPOSE(Rmdir, MinusOneAndErrno, rmdir, int, (const char* p_path),
                       nullptr, (nextCall, p_path))
TEVALON_TEST_INTERPOSE(Openat, MinusOneAndErrno, openat64, int,
                       (int folder, const char* p_path, int flags, unsigned mode),
                       nullptr, (nextCall, folder, p_path, flags, mode))
TEVALON_TEST_INTERPOSE(Fdopendir, NullAndErrno, fdopendir, DIR*, (int descriptor),
                       nullptr, (nextCall, descriptor))
TEVALON_TEST_INTERPOSE(Unlinkat, MinusOneAndErrno, unlinkat, int,
                       (int folder, const char* p_path, int flags),
                       nullptr, (nextCall, folder, p_path, flags))
TEVALON_TEST_INTERPOSE(PosixFallocate, ErrorNumber, posix_fallocate64, int,
                       (int descriptor, off_t offset, off_t length),
                       nullptr, (nextCall, descriptor, offset, length))
TEVALON_TEST_INTERPOSE(PthreadAtfork, ErrorNumber, __register_atfork, int,
                       (void (*p_prepare)(), void (*p_parent)(), void (*p_child)(), void* p_module),
                       nullptr, (nextCall, p_prepare, p_parent, p_child, p_module))
TEVALON_TEST_INTERPOSE(ZorDebugCheckLevel, ErrorNumber, zorDebugCheckLevelGetFrameAndChunk,
                       std::int32_t, (DebugLevelRecord* p_record),
                       p_record, (nextCall, p_record))
// clang-format on

extern "C" void tevalonTest_uuid_generate(unsigned char* p_bytes) __asm__("uuid_generate");
extern "C" __attribute__((visibility("default"))) void tevalonTest_uuid_generate(
    unsigned char* p_bytes) {
    static void* s_next;
    const auto nextCall =
        reinterpret_cast<void (*)(unsigned char*)>(test::next(&s_next, "uuid_generate"));
    const auto call = [nextCall](unsigned char* p_destination) {
        nextCall(p_destination);
        return 0;
    };
    (void)test::Passage<test::ErrorNumber, int>{
        test::Call::UuidGenerate, __builtin_return_address(0), p_bytes}(call, p_bytes);
}

#ifndef TEVALON_TEST_SANITIZED
// dlsym() may allocate, so the next definition is not looked up but known.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* tevalonTest_malloc(std::size_t size) __asm__("malloc");
extern "C" __attribute__((visibility("default"))) void* tevalonTest_malloc(std::size_t size) {
    void* const p_block = test::Passage<test::NullAndErrno, void*>{
        test::Call::Malloc, __builtin_return_address(0), nullptr}(__libc_malloc, size);
    test::tellBlockWatcher(test::Call::Malloc, p_block);
    return p_block;
}
#endif

namespace test {
namespace {

thread_local int t_insideNew;

class InsideNew {
public:
    InsideNew() { ++t_insideNew; }
    ~InsideNew() { --t_insideNew; }

    InsideNew(const InsideNew&) = delete;
    InsideNew& operator=(const InsideNew&) = delete;
};

// The forms of operator new call each other; only the outermost counts.
template <typename... Arguments>
void* passNewOn(const void* caller, void** pp_next, const char* name, std::size_t size,
                Arguments... arguments) {
    const auto nextNew =
        reinterpret_cast<void* (*)(std::size_t, Arguments...)>(next(pp_next, name));
    if (t_insideNew == 0) {
        void* result = nullptr;
        void* const pointers[] = {&size, nullptr};
        const Verdict verdict = decide(Call::New, caller, nullptr, &result, pointers).verdict;
        if (verdict == Verdict::Replaced) return result;
        if (verdict != Verdict::Pass) throw std::bad_alloc();
    }
    const InsideNew inside;
    void* const p_block = nextNew(size, arguments...);
    if (t_insideNew == 1) tellBlockWatcher(Call::New, p_block);
    return p_block;
}

template <typename... Arguments>
void* passNothrowNewOn(const void* caller, void** pp_next, const char* name, std::size_t size,
                       Arguments... arguments) noexcept {
    try {
        return passNewOn<Arguments...>(caller, pp_next, name, size, arguments...);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace
}  // namespace test

// The mangled names say what std::size_t is.
#if __SIZEOF_SIZE_T__ == 8
#define TEVALON_TEST_NEW(form, rest) form "m" rest
#else
#define TEVALON_TEST_NEW(form, rest) form "j" rest
#endif

void* operator new(std::size_t size) {
    static void* s_next;
    return test::passNewOn(__builtin_return_address(0), &s_next, TEVALON_TEST_NEW("_Znw", ""),
                           size);
}

void* operator new[](std::size_t size) {
    static void* s_next;
    return test::passNewOn(__builtin_return_address(0), &s_next, TEVALON_TEST_NEW("_Zna", ""),
                           size);
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    static void* s_next;
    return test::passNewOn(__builtin_return_address(0), &s_next,
                           TEVALON_TEST_NEW("_Znw", "St11align_val_t"), size, alignment);
}

void* operator new[](std::size_t size, std::align_val_t alignment) {
    static void* s_next;
    return test::passNewOn(__builtin_return_address(0), &s_next,
                           TEVALON_TEST_NEW("_Zna", "St11align_val_t"), size, alignment);
}

void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
    static void* s_next;
    return test::passNothrowNewOn<const std::nothrow_t&>(__builtin_return_address(0), &s_next,
                                                         TEVALON_TEST_NEW("_Znw", "RKSt9nothrow_t"),
                                                         size, tag);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    static void* s_next;
    return test::passNothrowNewOn<const std::nothrow_t&>(__builtin_return_address(0), &s_next,
                                                         TEVALON_TEST_NEW("_Zna", "RKSt9nothrow_t"),
                                                         size, tag);
}

void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& tag) noexcept {
    static void* s_next;
    return test::passNothrowNewOn<std::align_val_t, const std::nothrow_t&>(
        __builtin_return_address(0), &s_next,
        TEVALON_TEST_NEW("_Znw", "St11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}

void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& tag) noexcept {
    static void* s_next;
    return test::passNothrowNewOn<std::align_val_t, const std::nothrow_t&>(
        __builtin_return_address(0), &s_next,
        TEVALON_TEST_NEW("_Zna", "St11align_val_tRKSt9nothrow_t"), size, alignment, tag);
}

#include "faults/engine.h"

#include <dirent.h>
#include <fcntl.h>
#include <link.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/fault_injection.h"

// Built without sanitizers, and with the compiler's atomic operations, as fault_injection.cpp is.

namespace faults {
namespace {

using test::Call;
using test::CallFailure;

// As the C library calls them, in the order of test::Call.
constexpr const char* kNames[] = {
    "pthread_mutex_init",
    "pthread_mutex_destroy",
    "pthread_mutex_lock",
    "pthread_mutex_unlock",
    "pthread_cond_init",
    "pthread_cond_destroy",
    "pthread_cond_wait",
    "pthread_cond_clockwait",
    "pthread_cond_signal",
    "pthread_cond_broadcast",
    "pthread_create",
    "pthread_join",
    "pthread_cond_timedwait",
    "sem_wait",
    "sem_clockwait",
    "sem_post",
    "clock_gettime",
    "sched_yield",
    "nanosleep",
    "clock_nanosleep",
    "usleep",
    "pipe2",
    "select",
    "read",
    "write",
    "access",
    "opendir",
    "readdir",
    "closedir",
    "stat",
    "unlink",
    "rmdir",
    "openat",
    "fdopendir",
    "unlinkat",
    "posix_fallocate",
    "pthread_atfork",
    "uuid_generate",
    "zorDebugCheckLevelGetFrameAndChunk",
    "new",
    "malloc",
    "open",
    "close",
    "fcntl",
    "fstat",
    "fstatfs",
    "isatty",
    "poll",
    "fopen",
    "fread",
    "fclose",
    "printf",
    "fprintf",
    "vsnprintf",
    "getrlimit",
    "mmap",
    "munmap",
    "realloc",
    "prctl",
    "syscall",
    "sysconf",
    "sched_getcpu",
    "pthread_attr_init",
    "pthread_key_create",
    "pthread_setspecific",
    "pthread_setname_np",
    "pthread_getname_np",
    "pthread_mutex_trylock",
    "pthread_sigmask",
    "sigpending",
    "sigtimedwait",
    "rename",
};
static_assert(sizeof(kNames) / sizeof(kNames[0]) == static_cast<std::size_t>(Call::Count));

constexpr int kModules = 3;
constexpr const char* kModuleNames[kModules] = {"base", "zor", "program"};
constexpr int kMaxFrames = 16;
constexpr int kMaxUsers = 4096;
constexpr int kMaxBlocks = 65536;
constexpr int kNobody = -1;
// Past so many failures in a row a loop that repeats the call for ever has shown that it does.
constexpr int kMaxLaterFailures = 400;

struct Range {
    std::uintptr_t begin;  // Where the file's address 0 is.
    std::uintptr_t codeBegin;
    std::uintptr_t codeEnd;
};

/// Who makes a call: the library's frames, innermost first, and for syscall() its number.
struct User {
    std::uint64_t key;  // 0: free.
    int call;
    long number;
    int frames;
    Module modules[kMaxFrames];
    std::uintptr_t offsets[kMaxFrames];
    long count;
    long armedCount;  // Of these, those that could fail.
    long failures;
    long alive;  // Blocks.
};

struct Block {
    const void* p_begin;  // Null: free; kRemoved: was used.
    int user;
};

enum class Way { Fails, FailsAfterwards, IsShort };

struct Failure {
    bool isPlanned = false;
    Way way = Way::Fails;
    int error = 0;
};

struct Plan {
    std::uint64_t key = 0;  // 0: none.
    long use = 0;
    bool andLater = false;
    Failure failure;
};

Range g_ranges[kModules];
User g_users[kMaxUsers];
Block g_blocks[kMaxBlocks];
const char* const kRemoved = "";
Plan g_plan;
Failure g_later[static_cast<int>(Call::Count)];
Module g_module = Module::Library;
int g_isCounting;
int g_isArmed;
int g_areAllFailing;
int g_laterFailures;
long g_alive;
int g_lock;
int g_report = STDOUT_FILENO;
__attribute__((tls_model("initial-exec"))) thread_local int t_user[static_cast<int>(Call::Count)];

class SpinLock {
public:
    SpinLock() {
        while (__atomic_exchange_n(&g_lock, 1, __ATOMIC_ACQUIRE) != 0) syscall(SYS_sched_yield);
    }
    ~SpinLock() { __atomic_store_n(&g_lock, 0, __ATOMIC_RELEASE); }

    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;
};

// ---- who calls ----

int findRange(dl_phdr_info* p_info, std::size_t, void*) {
    int module = -1;
    if (p_info->dlpi_name[0] == '\0') module = static_cast<int>(Module::Program);
    if (std::strstr(p_info->dlpi_name, "libtevalon-base.so") != nullptr) {
        module = static_cast<int>(Module::Library);
    }
    if (std::strstr(p_info->dlpi_name, "libzor-debug.so") != nullptr) {
        module = static_cast<int>(Module::ZorDebug);
    }
    if (module < 0 || g_ranges[module].codeEnd != 0) return 0;
    for (int i = 0; i < p_info->dlpi_phnum; ++i) {
        const auto& header = p_info->dlpi_phdr[i];
        if (header.p_type != PT_LOAD || (header.p_flags & PF_X) == 0) continue;
        Range& range = g_ranges[module];
        range.begin = p_info->dlpi_addr;
        range.codeBegin = p_info->dlpi_addr + header.p_vaddr;
        range.codeEnd = range.codeBegin + header.p_memsz;
    }
    return 0;
}

int moduleOf(std::uintptr_t address) {
    for (int i = 0; i < kModules; ++i) {
        if (address >= g_ranges[i].codeBegin && address < g_ranges[i].codeEnd) return i;
    }
    return -1;
}

struct Walk {
    std::uintptr_t caller;
    bool isThere;  // At the caller: before it are the frames of the fault injection.
    User user;
};

_Unwind_Reason_Code addFrame(_Unwind_Context* p_context, void* p_argument) {
    Walk& walk = *static_cast<Walk*>(p_argument);
    const std::uintptr_t address = _Unwind_GetIP(p_context);
    walk.isThere = walk.isThere || address == walk.caller;
    if (!walk.isThere) return _URC_NO_REASON;
    const int module = moduleOf(address);
    if (module < 0) return _URC_NO_REASON;  // libstdc++ and the like, on somebody's behalf.
    if (module != static_cast<int>(g_module)) return _URC_END_OF_STACK;
    User& user = walk.user;
    user.modules[user.frames] = static_cast<Module>(module);
    user.offsets[user.frames] = address - g_ranges[module].begin;
    ++user.frames;
    return user.frames == kMaxFrames ? _URC_END_OF_STACK : _URC_NO_REASON;
}

std::uint64_t keyOf(const User& user) {
    std::uint64_t key = 0xcbf29ce484222325;  // FNV-1a, by words.
    const auto mix = [&key](std::uint64_t word) { key = (key ^ word) * 0x100000001b3; };
    mix(static_cast<std::uint64_t>(user.call));
    mix(static_cast<std::uint64_t>(user.number));
    for (int i = 0; i < user.frames; ++i) mix(user.offsets[i]);
    return key | 1;
}

// Locked.
int findOrAdd(const User& user) {
    for (std::uint64_t i = user.key >> 8;; ++i) {
        const int index = static_cast<int>(i % kMaxUsers);
        if (g_users[index].key == user.key) return index;
        if (g_users[index].key != 0) continue;
        g_users[index] = user;
        return index;
    }
}

/// kNobody where it is not the library's call.
int userOf(Call call, const void* caller, long number) {
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    const int module = moduleOf(address);
    if (module >= 0 && module != static_cast<int>(g_module)) return kNobody;
    Walk walk = {};
    walk.caller = address;
    walk.user.call = static_cast<int>(call);
    walk.user.number = number;
    (void)_Unwind_Backtrace(addFrame, &walk);
    if (walk.user.frames == 0) return kNobody;
    walk.user.key = keyOf(walk.user);
    const SpinLock lock;
    return findOrAdd(walk.user);
}

// ---- what fails ----

void makeShort(Call call, void* const* pp_arguments) {
    constexpr int kSize = 2;  // Of read(), write() and fread(); one further on in syscall().
    void* const p_size = pp_arguments[call == Call::Syscall ? kSize + 1 : kSize];
    std::size_t size = 0;
    std::memcpy(&size, p_size, sizeof(size));
    if (size > 1) size /= 2;
    std::memcpy(p_size, &size, sizeof(size));
}

CallFailure fail(const Failure& failure, Call call, void* const* pp_arguments) {
    if (!failure.isPlanned) return {};
    if (failure.way == Way::IsShort) {
        makeShort(call, pp_arguments);
        return {};
    }
    return {true, failure.way == Way::FailsAfterwards, failure.error};
}

CallFailure failLater(User& user, void* const* pp_arguments) {
    const auto call = static_cast<Call>(user.call);
    const Failure& failure = g_later[user.call];
    const bool isClose = call == Call::Syscall && user.number == SYS_close;
    if (!failure.isPlanned || isClose) return {};
    if (__atomic_add_fetch(&g_laterFailures, 1, __ATOMIC_RELAXED) > kMaxLaterFailures) return {};
    __atomic_add_fetch(&user.failures, 1, __ATOMIC_RELAXED);
    return fail(failure, call, pp_arguments);
}

CallFailure watchCall(Call call, const void* caller, void* const* pp_arguments) {
    const int error = errno;
    t_user[static_cast<int>(call)] = kNobody;
    if (__atomic_load_n(&g_isCounting, __ATOMIC_ACQUIRE) == 0) return {};
    // What is beneath new counts as new.
    if (call == Call::Malloc && g_module == Module::Program) return {};
    const long number = call == Call::Syscall ? *static_cast<long*>(pp_arguments[0]) : 0;
    const int user = userOf(call, caller, number);
    errno = error;
    t_user[static_cast<int>(call)] = user;
    if (user == kNobody) return {};
    __atomic_add_fetch(&g_users[user].count, 1, __ATOMIC_RELAXED);
    if (__atomic_load_n(&g_isArmed, __ATOMIC_ACQUIRE) == 0) return {};
    const long use = __atomic_add_fetch(&g_users[user].armedCount, 1, __ATOMIC_RELAXED);
    if (__atomic_load_n(&g_areAllFailing, __ATOMIC_RELAXED) != 0) {
        return failLater(g_users[user], pp_arguments);
    }
    if (g_users[user].key != g_plan.key || use != g_plan.use) return {};
    report("failed %s %016" PRIx64 " %ld\n", kNames[static_cast<int>(call)], g_plan.key, use);
    errno = error;
    if (g_plan.andLater) __atomic_store_n(&g_areAllFailing, 1, __ATOMIC_RELAXED);
    return fail(g_plan.failure, call, pp_arguments);
}

// ---- what is alive ----

std::size_t placeOf(const void* p_block) {
    const std::uint64_t address = reinterpret_cast<std::uintptr_t>(p_block);
    return static_cast<std::size_t>((address >> 4) * 0x9E3779B97F4A7C15 >> 48);
}

[[maybe_unused]] void watchBlock(Call call, const void* p_block) {
    const int user = t_user[static_cast<int>(call)];
    if (user == kNobody || p_block == nullptr) return;
    if (__atomic_load_n(&g_isCounting, __ATOMIC_ACQUIRE) == 0) return;
    const SpinLock lock;
    for (std::size_t i = placeOf(p_block);; ++i) {
        Block& block = g_blocks[i % kMaxBlocks];
        if (block.p_begin != nullptr && block.p_begin != kRemoved && block.p_begin != p_block) {
            continue;
        }
        if (block.p_begin == p_block) return;  // Mapped over.
        block = {p_block, user};
        ++g_users[user].alive;
        ++g_alive;
        return;
    }
}

long aliveNow() {
    const SpinLock lock;
    return g_alive;
}

void pauseFor(long milliseconds) {
    const timespec pause = {0, milliseconds * 1000000};
    (void)syscall(SYS_nanosleep, &pause, nullptr);
}

int countDescriptors() {
    const test::PassCalls pass;
    int count = 0;
    DIR* const p_folder = opendir("/proc/self/fd");
    while (p_folder != nullptr && readdir(p_folder) != nullptr) ++count;
    if (p_folder != nullptr) (void)closedir(p_folder);
    return count;
}

// ---- what the script says ----

// "22": fails with that; "22+": is made, then fails; "s": is made with half the size.
Failure parseFailure(const char* p_text) {
    Failure failure;
    failure.isPlanned = true;
    if (*p_text == 's') {
        failure.way = Way::IsShort;
        return failure;
    }
    char* p_end = nullptr;
    failure.error = static_cast<int>(std::strtol(p_text, &p_end, 10));
    if (*p_end == '+') failure.way = Way::FailsAfterwards;
    return failure;
}

int callOf(const char* p_name, std::size_t length) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(Call::Count); ++i) {
        if (std::strlen(kNames[i]) == length && std::memcmp(kNames[i], p_name, length) == 0) {
            return static_cast<int>(i);
        }
    }
    std::fprintf(stderr, "faults: unknown call '%s'\n", p_name);
    std::abort();
}

void writeAll(const char* p_text, std::size_t length) {
    while (length > 0) {
        const long written = syscall(SYS_write, g_report, p_text, length);
        if (written <= 0) return;
        p_text += written;
        length -= static_cast<std::size_t>(written);
    }
}

}  // namespace

// The library may write to standard output and standard error, or close them.
void openReport() {
    constexpr int kHighEnough = 900;
    g_report = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, kHighEnough);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    (void)dup2(nowhere, STDOUT_FILENO);
    (void)close(nowhere);
}

void report(const char* p_format, ...) {
    const test::PassCalls pass;
    char text[1024];
    va_list arguments;
    va_start(arguments, p_format);
    const int length = std::vsnprintf(text, sizeof(text), p_format, arguments);
    va_end(arguments);
    if (length > 0) writeAll(text, std::min(static_cast<std::size_t>(length), sizeof(text) - 1));
}

// KEY:USE:FAILURE or KEY:USE:FAILURE:later
void planFailure(const char* p_text) {
    if (p_text == nullptr) return;
    char* p_end = nullptr;
    g_plan.key = std::strtoull(p_text, &p_end, 16);
    g_plan.use = std::strtol(p_end + 1, &p_end, 10);
    g_plan.failure = parseFailure(p_end + 1);
    g_plan.andLater = std::strstr(p_end + 1, ":later") != nullptr;
}

// NAME=FAILURE,...
void planLaterFailures(const char* p_text) {
    while (p_text != nullptr && *p_text != '\0') {
        const char* const p_equals = std::strchr(p_text, '=');
        const int call = callOf(p_text, static_cast<std::size_t>(p_equals - p_text));
        g_later[call] = parseFailure(p_equals + 1);
        p_text = std::strchr(p_equals, ',');
        if (p_text != nullptr) ++p_text;
    }
}

void startCounting(Module module) {
    const test::PassCalls pass;
    (void)dl_iterate_phdr(findRange, nullptr);
    g_module = module;
    // The unwinder's own first use allocates.
    Walk walk = {};
    (void)_Unwind_Backtrace(addFrame, &walk);
    __atomic_store_n(&g_isArmed, 1, __ATOMIC_RELEASE);
    __atomic_store_n(&g_isCounting, 1, __ATOMIC_RELEASE);
    test::setCallWatcher(watchCall);
#ifndef TEVALON_TEST_SANITIZED  // Which brings its own free(), and finds leaks itself.
    test::setBlockWatcher(watchBlock);
#endif
}

void calmDown() {
    __atomic_store_n(&g_isArmed, 0, __ATOMIC_RELEASE);
}

bool isAllFailing() {
    return g_plan.andLater;
}

long callsOf(const char* name) {
    const int call = callOf(name, std::strlen(name));
    const SpinLock lock;
    long count = 0;
    for (const User& user : g_users) {
        if (user.key != 0 && user.call == call) {
            count += __atomic_load_n(&user.count, __ATOMIC_RELAXED);
        }
    }
    return count;
}

void waitForBlocks(long expected) {
    constexpr int kPatience = 300;  // Of 10 ms.
    constexpr int kLongEnough = 5;
    long before = -1;
    int unchanged = 0;
    for (int i = 0; i < kPatience; ++i) {
        const long now = aliveNow();
        unchanged = now == before ? unchanged + 1 : 0;
        if (expected >= 0 ? now <= expected : unchanged == kLongEnough) return;
        before = now;
        pauseFor(10);
    }
}

void reportCounts() {
    __atomic_store_n(&g_isCounting, 0, __ATOMIC_RELEASE);
    const SpinLock lock;
    for (const User& user : g_users) {
        if (user.key == 0) continue;
        report("call %s %ld %016" PRIx64 " %ld %ld %ld", kNames[user.call], user.number, user.key,
               user.armedCount, user.failures, user.alive);
        for (int i = 0; i < user.frames; ++i) {
            report(" %s:%" PRIxPTR, kModuleNames[static_cast<int>(user.modules[i])],
                   user.offsets[i]);
        }
        report("\n");
    }
    report("alive %ld\n", g_alive);
    report("descriptors %d\n", countDescriptors());
}

bool blockIsFreed(const void* p_block) {
    if (__atomic_load_n(&g_isCounting, __ATOMIC_ACQUIRE) == 0 || p_block == nullptr) return false;
    const SpinLock lock;
    for (std::size_t i = placeOf(p_block);; ++i) {
        Block& block = g_blocks[i % kMaxBlocks];
        if (block.p_begin == nullptr) return false;
        if (block.p_begin != p_block) continue;
        block.p_begin = kRemoved;
        --g_users[block.user].alive;
        --g_alive;
        return true;
    }
}

}  // namespace faults

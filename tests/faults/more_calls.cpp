// More calls for fault_injection.h: those that only the program of this folder interferes with.

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "faults/engine.h"
#include "support/interposition.h"

namespace test {
namespace {

struct ZeroAndErrno {
    static int failed(int error) {
        errno = error;
        return 0;
    }
};
struct NoItemsAndErrno {
    static std::size_t failed(int error) {
        errno = error;
        return 0;
    }
};
struct MapFailedAndErrno {
    static void* failed(int error) {
        errno = error;
        return MAP_FAILED;
    }
};

}  // namespace
}  // namespace test

// clang-format off
TEVALON_TEST_INTERPOSE(Close, MinusOneAndErrno, close, int, (int descriptor),
                       nullptr, (nextCall, descriptor))
TEVALON_TEST_INTERPOSE(Fstat, MinusOneAndErrno, fstat64, int,
                       (int descriptor, struct stat* p_status),
                       nullptr, (nextCall, descriptor, p_status))
TEVALON_TEST_INTERPOSE(Fstatfs, MinusOneAndErrno, fstatfs64, int,
                       (int descriptor, struct statfs* p_status),
                       nullptr, (nextCall, descriptor, p_status))
TEVALON_TEST_INTERPOSE(Isatty, ZeroAndErrno, isatty, int, (int descriptor),
                       nullptr, (nextCall, descriptor))
TEVALON_TEST_INTERPOSE(Poll, MinusOneAndErrno, poll, int,
                       (pollfd* p_descriptors, nfds_t count, int timeoutMs),
                       nullptr, (nextCall, p_descriptors, count, timeoutMs))
TEVALON_TEST_INTERPOSE(Fopen, NullAndErrno, fopen64, FILE*, (const char* p_path, const char* p_mode),
                       nullptr, (nextCall, p_path, p_mode))
TEVALON_TEST_INTERPOSE(Fread, NoItemsAndErrno, fread, std::size_t,
                       (void* p_buffer, std::size_t size, std::size_t count, FILE* p_file),
                       nullptr, (nextCall, p_buffer, size, count, p_file))
TEVALON_TEST_INTERPOSE(Fclose, MinusOneAndErrno, fclose, int, (FILE* p_file),
                       nullptr, (nextCall, p_file))
TEVALON_TEST_INTERPOSE(Vsnprintf, MinusOneAndErrno, vsnprintf, int,
                       (char* p_text, std::size_t size, const char* p_format, va_list arguments),
                       nullptr, (nextCall, p_text, size, p_format, arguments))
TEVALON_TEST_INTERPOSE(Getrlimit, MinusOneAndErrno, getrlimit64, int,
                       (int resource, rlimit* p_limit), nullptr, (nextCall, resource, p_limit))
TEVALON_TEST_INTERPOSE(Sysconf, MinusOneAndErrno, sysconf, long, (int name),
                       nullptr, (nextCall, name))
TEVALON_TEST_INTERPOSE(SchedGetcpu, MinusOneAndErrno, sched_getcpu, int, (), nullptr, (nextCall))
TEVALON_TEST_INTERPOSE(PthreadAttrInit, ErrorNumber, pthread_attr_init, int,
                       (pthread_attr_t* p_attributes), nullptr, (nextCall, p_attributes))
TEVALON_TEST_INTERPOSE(PthreadKeyCreate, ErrorNumber, pthread_key_create, int,
                       (pthread_key_t* p_key, void (*p_destroy)(void*)),
                       nullptr, (nextCall, p_key, p_destroy))
TEVALON_TEST_INTERPOSE(PthreadSetspecific, ErrorNumber, pthread_setspecific, int,
                       (pthread_key_t key, const void* p_value), nullptr, (nextCall, key, p_value))
TEVALON_TEST_INTERPOSE(PthreadSetname, ErrorNumber, pthread_setname_np, int,
                       (pthread_t thread, const char* p_name), nullptr, (nextCall, thread, p_name))
TEVALON_TEST_INTERPOSE(PthreadGetname, ErrorNumber, pthread_getname_np, int,
                       (pthread_t thread, char* p_name, std::size_t size),
                       nullptr, (nextCall, thread, p_name, size))
TEVALON_TEST_INTERPOSE(PthreadMutexTrylock, ErrorNumber, pthread_mutex_trylock, int,
                       (pthread_mutex_t* p_mutex), p_mutex, (nextCall, p_mutex))
TEVALON_TEST_INTERPOSE(PthreadSigmask, ErrorNumber, pthread_sigmask, int,
                       (int how, const sigset_t* p_set, sigset_t* p_before),
                       nullptr, (nextCall, how, p_set, p_before))
TEVALON_TEST_INTERPOSE(Sigpending, MinusOneAndErrno, sigpending, int, (sigset_t* p_set),
                       nullptr, (nextCall, p_set))
TEVALON_TEST_INTERPOSE(Rename, MinusOneAndErrno, rename, int, (const char* p_from, const char* p_to),
                       nullptr, (nextCall, p_from, p_to))
TEVALON_TEST_INTERPOSE(Sigtimedwait, MinusOneAndErrno, sigtimedwait, int,
                       (const sigset_t* p_set, siginfo_t* p_info, const timespec* p_timeout),
                       nullptr, (nextCall, p_set, p_info, p_timeout))

// The rest has a variable number of arguments. As many words as any use has are passed on: the
// callee reads those that are meant.
TEVALON_TEST_INTERPOSE(Open, MinusOneAndErrno, open64, int,
                       (const char* p_path, int flags, unsigned mode),
                       nullptr, (nextCall, p_path, flags, mode))
TEVALON_TEST_INTERPOSE(Fcntl, MinusOneAndErrno, fcntl64, int,
                       (int descriptor, int command, long argument),
                       nullptr, (nextCall, descriptor, command, argument))
TEVALON_TEST_INTERPOSE(Syscall, MinusOneAndErrno, syscall, long,
                       (long number, long a, long b, long c, long d, long e, long f),
                       nullptr, (nextCall, number, a, b, c, d, e, f))
// clang-format on

extern "C" int tevalonTest_printf(const char* p_format, ...) __asm__("printf")
    __attribute__((format(printf, 1, 2)));
extern "C" __attribute__((visibility("default"))) int tevalonTest_printf(const char* p_format,
                                                                         ...) {
    va_list arguments;
    va_start(arguments, p_format);
    const auto call = [&](const char*) { return std::vprintf(p_format, arguments); };
    const int result = test::Passage<test::MinusOneAndErrno, int>{
        test::Call::Printf, __builtin_return_address(0), nullptr}(call, p_format);
    va_end(arguments);
    return result;
}

extern "C" int tevalonTest_fprintf(FILE* p_file, const char* p_format, ...) __asm__("fprintf")
    __attribute__((format(printf, 2, 3)));
extern "C" __attribute__((visibility("default"))) int tevalonTest_fprintf(FILE* p_file,
                                                                          const char* p_format,
                                                                          ...) {
    va_list arguments;
    va_start(arguments, p_format);
    const auto call = [&](const char*) { return std::vfprintf(p_file, p_format, arguments); };
    const int result = test::Passage<test::MinusOneAndErrno, int>{
        test::Call::Fprintf, __builtin_return_address(0), nullptr}(call, p_format);
    va_end(arguments);
    return result;
}

extern "C" void* tevalonTest_mmap64(void* p_where, std::size_t size, int protection, int flags,
                                    int descriptor, off_t offset) __asm__("mmap64");
extern "C" __attribute__((visibility("default"))) void* tevalonTest_mmap64(
    void* p_where, std::size_t size, int protection, int flags, int descriptor, off_t offset) {
    static void* s_next;
    const auto nextCall = reinterpret_cast<void* (*)(void*, std::size_t, int, int, int, off_t)>(
        test::next(&s_next, "mmap64"));
    void* const p_memory = test::Passage<test::MapFailedAndErrno, void*>{
        test::Call::Mmap, __builtin_return_address(0),
        nullptr}(nextCall, p_where, size, protection, flags, descriptor, offset);
    if (p_memory != MAP_FAILED) test::tellBlockWatcher(test::Call::Mmap, p_memory);
    return p_memory;
}

extern "C" int tevalonTest_munmap(void* p_memory, std::size_t size) __asm__("munmap");
extern "C" __attribute__((visibility("default"))) int tevalonTest_munmap(void* p_memory,
                                                                         std::size_t size) {
    static void* s_next;
    const auto nextCall =
        reinterpret_cast<int (*)(void*, std::size_t)>(test::next(&s_next, "munmap"));
    faults::blockIsFreed(p_memory);
    return test::Passage<test::MinusOneAndErrno, int>{
        test::Call::Munmap, __builtin_return_address(0), nullptr}(nextCall, p_memory, size);
}

#ifndef TEVALON_TEST_SANITIZED
extern "C" void __libc_free(void* p_block);
extern "C" void* __libc_realloc(void* p_block, std::size_t size);

extern "C" void tevalonTest_free(void* p_block) __asm__("free");
extern "C" __attribute__((visibility("default"))) void tevalonTest_free(void* p_block) {
    faults::blockIsFreed(p_block);
    __libc_free(p_block);
}

extern "C" void* tevalonTest_realloc(void* p_block, std::size_t size) __asm__("realloc");
extern "C" __attribute__((visibility("default"))) void* tevalonTest_realloc(void* p_block,
                                                                            std::size_t size) {
    // Off the list for a moment: where it fails, the block stays the caller's, and on the list.
    const bool wasKnown = faults::blockIsFreed(p_block);
    void* const p_new = test::Passage<test::NullAndErrno, void*>{
        test::Call::Realloc, __builtin_return_address(0), nullptr}(__libc_realloc, p_block, size);
    if (p_new != nullptr) {
        test::tellBlockWatcher(test::Call::Realloc, p_new);
    } else if (wasKnown) {
        test::tellBlockWatcher(test::Call::Realloc, p_block);
    }
    return p_new;
}
#endif

#include "ends/cancellation_points.h"

#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/select.h>
#include <time.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string_view>

#ifdef TEVALON_ADDRESS_SANITIZER
extern "C" void __asan_handle_no_return();  // NOLINT: its name.
#endif

namespace ends {
namespace {

thread_local int t_left;  // Points before the thread is cancelled; 0 where it is not to be.
std::atomic<bool> g_hasWaited{false};
char g_ownCall[kCallBytes];
char* g_call = g_ownCall;

void point(const char* name) {
    if (t_left == 0) return;
    if (std::string_view(name) == "pthread_cond_wait") g_hasWaited = true;
    int before = PTHREAD_CANCEL_ENABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    (void)pthread_setcancelstate(before, nullptr);
    if (before == PTHREAD_CANCEL_DISABLE || --t_left > 0) return;
    (void)snprintf(g_call, kCallBytes, "%s", name);
    (void)pthread_cancel(pthread_self());
#ifdef TEVALON_ADDRESS_SANITIZER
    __asan_handle_no_return();  // The unwinding of a cancellation is not seen by the sanitizer.
#endif
    pthread_testcancel();
}

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void cancelThisThreadAt(int number) {
    t_left = number;
}

void cancelThisThreadNoMore() {
    t_left = 0;
}

bool hasWaited() {
    return g_hasWaited;
}

void keepCallIn(char* p_text) {
    g_call = p_text;
}

const char* cancelledAt() {
    return g_call;
}

}  // namespace ends

// Bears another name in the source, lest it disagree with the attributes of the system's headers.
#define CANCELLATION_POINT(NAME, RESULT, PARAMETERS, ARGUMENTS)                       \
    extern "C" RESULT ends_##NAME PARAMETERS __asm__(#NAME);                          \
    extern "C" __attribute__((visibility("default"))) RESULT ends_##NAME PARAMETERS { \
        static const auto s_next = ::ends::next<RESULT(*) PARAMETERS>(#NAME);         \
        ::ends::point(#NAME);                                                         \
        return s_next ARGUMENTS;                                                      \
    }

// Those that the C library's headers do not mark as never throwing: what they mark is none.
// clang-format off
CANCELLATION_POINT(write, ssize_t, (int fd, const void* p_data, std::size_t size), (fd, p_data, size))
CANCELLATION_POINT(read, ssize_t, (int fd, void* p_data, std::size_t size), (fd, p_data, size))
CANCELLATION_POINT(close, int, (int fd), (fd))
CANCELLATION_POINT(select, int, (int count, fd_set* p_in, fd_set* p_out, fd_set* p_else, timeval* p_time),
                   (count, p_in, p_out, p_else, p_time))
CANCELLATION_POINT(pthread_cond_wait, int, (pthread_cond_t* p_cond, pthread_mutex_t* p_mutex),
                   (p_cond, p_mutex))
CANCELLATION_POINT(pthread_cond_clockwait, int,
                   (pthread_cond_t* p_cond, pthread_mutex_t* p_mutex, clockid_t clock, const timespec* p_end),
                   (p_cond, p_mutex, clock, p_end))
CANCELLATION_POINT(sem_wait, int, (void* p_semaphore), (p_semaphore))
CANCELLATION_POINT(pthread_join, int, (pthread_t thread, void** pp_result), (thread, pp_result))
CANCELLATION_POINT(nanosleep, int, (const timespec* p_time, timespec* p_left), (p_time, p_left))
CANCELLATION_POINT(clock_nanosleep, int, (clockid_t clock, int flags, const timespec* p_time, timespec* p_left),
                   (clock, flags, p_time, p_left))
CANCELLATION_POINT(posix_fallocate64, int, (int fd, off_t offset, off_t length), (fd, offset, length))
CANCELLATION_POINT(fopen64, FILE*, (const char* path, const char* mode), (path, mode))
CANCELLATION_POINT(fread, std::size_t, (void* p_data, std::size_t size, std::size_t count, FILE* p_file),
                   (p_data, size, count, p_file))
CANCELLATION_POINT(fclose, int, (FILE* p_file), (p_file))
CANCELLATION_POINT(opendir, DIR*, (const char* path), (path))
CANCELLATION_POINT(openat64, int, (int folder, const char* path, int flags, unsigned mode),
                   (folder, path, flags, mode))
CANCELLATION_POINT(readdir64, dirent*, (DIR* p_folder), (p_folder))
CANCELLATION_POINT(closedir, int, (DIR* p_folder), (p_folder))
// clang-format on

// A platform with all levels on, whose output is a cancellation point.
extern "C" __attribute__((visibility("default"))) std::int32_t zorDebugCheckLevelGetFrameAndChunk(
    void*) {
    return 1;
}

extern "C" __attribute__((visibility("default"))) int zorDebugOutput0(const char*, ...) {
    ends::point("zorDebugOutput0");
    return 0;
}

extern "C" __attribute__((visibility("default"))) int zorDebugOutputV(const char*, va_list) {
    ends::point("zorDebugOutputV");
    return 0;
}

// Of what the library prints nothing is wanted.
extern "C" int ends_printf(const char* format, ...) __asm__("printf");
extern "C" __attribute__((visibility("default"))) int ends_printf(const char*, ...) {
    ends::point("printf");
    return 0;
}

// What files, folders and sockets are used by: it can fail. Built without sanitizers.
#include <dirent.h>
#include <dlfcn.h>
#include <semaphore.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>

#include "interposition.h"

namespace tevalon::testkit::kit {

void linkTimeInterposers();

void linkInterposers() {
    linkTimeInterposers();
}

void* next(void** pp_known, const char* name) {
    void* p_known = __atomic_load_n(pp_known, __ATOMIC_ACQUIRE);
    if (p_known != nullptr) return p_known;
    const int savedErrno = errno;
    p_known = dlsym(RTLD_NEXT, name);
    if (p_known == nullptr) {
        (void)std::fprintf(stderr, "testkit: '%s' has no other definition\n", name);
        std::abort();
    }
    __atomic_store_n(pp_known, p_known, __ATOMIC_RELEASE);
    errno = savedErrno;
    return p_known;
}

void* definitionOfTheSystem(const char* name) {
    static void* const s_library = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
    void* const p_function = s_library != nullptr ? dlsym(s_library, name) : nullptr;
    if (p_function == nullptr) std::abort();
    return p_function;
}

}  // namespace tevalon::testkit::kit

// clang-format off
TEVALON_KIT_CAN_FAIL(PthreadMutexInit, ErrorNumber, pthread_mutex_init, int,
                     (pthread_mutex_t* p_mutex, const pthread_mutexattr_t* p_attributes),
                     (p_mutex, p_attributes))
TEVALON_KIT_CAN_FAIL(PthreadCondInit, ErrorNumber, pthread_cond_init, int,
                     (pthread_cond_t* p_condition, const pthread_condattr_t* p_attributes),
                     (p_condition, p_attributes))
TEVALON_KIT_CAN_FAIL(SemInit, MinusOne, sem_init, int,
                     (sem_t* p_semaphore, int isShared, unsigned value),
                     (p_semaphore, isShared, value))
TEVALON_KIT_CAN_FAIL(Pipe, MinusOne, pipe, int, (int* p_descriptors), (p_descriptors))
TEVALON_KIT_CAN_FAIL(Pipe, MinusOne, pipe2, int, (int* p_descriptors, int flags),
                     (p_descriptors, flags))
// The mode is passed on as it came, whether or not the caller gave one.
TEVALON_KIT_CAN_FAIL(Open, MinusOne, open, int, (const char* p_path, int flags, unsigned mode),
                     (p_path, flags, mode))
TEVALON_KIT_CAN_FAIL(Open, MinusOne, open64, int, (const char* p_path, int flags, unsigned mode),
                     (p_path, flags, mode))
TEVALON_KIT_CAN_FAIL(Open, MinusOne, openat, int,
                     (int folder, const char* p_path, int flags, unsigned mode),
                     (folder, p_path, flags, mode))
TEVALON_KIT_CAN_FAIL(Open, MinusOne, openat64, int,
                     (int folder, const char* p_path, int flags, unsigned mode),
                     (folder, p_path, flags, mode))
TEVALON_KIT_CAN_FAIL(Write, MinusOne, write, ssize_t,
                     (int descriptor, const void* p_data, std::size_t size),
                     (descriptor, p_data, size))
TEVALON_KIT_CAN_FAIL(Close, MinusOne, close, int, (int descriptor), (descriptor))
TEVALON_KIT_CAN_FAIL(Stat, MinusOne, stat, int, (const char* p_path, void* p_status),
                     (p_path, p_status))
TEVALON_KIT_CAN_FAIL(Stat, MinusOne, stat64, int, (const char* p_path, void* p_status),
                     (p_path, p_status))
TEVALON_KIT_CAN_FAIL(Access, MinusOne, access, int, (const char* p_path, int mode), (p_path, mode))
TEVALON_KIT_CAN_FAIL(Opendir, Null, opendir, DIR*, (const char* p_path), (p_path))
TEVALON_KIT_CAN_FAIL(Mkdir, MinusOne, mkdir, int, (const char* p_path, mode_t mode), (p_path, mode))
TEVALON_KIT_CAN_FAIL(Rmdir, MinusOne, rmdir, int, (const char* p_path), (p_path))
TEVALON_KIT_CAN_FAIL(Unlink, MinusOne, unlink, int, (const char* p_path), (p_path))
TEVALON_KIT_CAN_FAIL(Unlink, MinusOne, unlinkat, int,
                     (int folder, const char* p_path, int flags), (folder, p_path, flags))
TEVALON_KIT_CAN_FAIL(Rename, MinusOne, rename, int, (const char* p_from, const char* p_to),
                     (p_from, p_to))
TEVALON_KIT_CAN_FAIL(Socket, MinusOne, socket, int, (int domain, int type, int protocol),
                     (domain, type, protocol))
TEVALON_KIT_CAN_FAIL(Connect, MinusOne, connect, int,
                     (int socket, const sockaddr* p_address, socklen_t length),
                     (socket, p_address, length))
TEVALON_KIT_CAN_FAIL(Accept, MinusOne, accept, int,
                     (int socket, sockaddr* p_address, socklen_t* p_length),
                     (socket, p_address, p_length))
TEVALON_KIT_CAN_FAIL(Send, MinusOne, send, ssize_t,
                     (int socket, const void* p_data, std::size_t size, int flags),
                     (socket, p_data, size, flags))
TEVALON_KIT_CAN_FAIL(Recv, MinusOne, recv, ssize_t,
                     (int socket, void* p_data, std::size_t size, int flags),
                     (socket, p_data, size, flags))
// clang-format on

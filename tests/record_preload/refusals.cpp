// refusals.cpp: preloaded behind the recorder, refuses the call that the environment names, as
// a system without memory would, or tells the recorder of rights that the program does not have.

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

bool isRefused(const char* call) {
    const char* const p_refused = std::getenv("REFUSED_CALL");
    return p_refused != nullptr && std::strcmp(p_refused, call) == 0;
}

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Whether this thread has set an alternate stack.
thread_local bool t_hasStack = false;

}  // namespace

// Under names of their own: the headers' declarations have attributes that differ from one to the
// next.
extern "C" {

int refusesAttributes(pthread_attr_t* p_attributes) __asm__("pthread_attr_init");
__attribute__((visibility("default"))) int refusesAttributes(pthread_attr_t* p_attributes) {
    if (isRefused("pthread_attr_init")) return ENOMEM;
    return next<int (*)(pthread_attr_t*)>("pthread_attr_init")(p_attributes);
}

int refusesThread(pthread_t* p_thread, const pthread_attr_t* p_attributes, void* (*run)(void*),
                  void* p_argument) __asm__("pthread_create");
__attribute__((visibility("default"))) int refusesThread(pthread_t* p_thread,
                                                         const pthread_attr_t* p_attributes,
                                                         void* (*run)(void*), void* p_argument) {
    using Function = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    if (isRefused("pthread_create")) return EAGAIN;
    return next<Function>("pthread_create")(p_thread, p_attributes, run, p_argument);
}

int refusesStack(const stack_t* p_new, stack_t* p_old) __asm__("sigaltstack");
__attribute__((visibility("default"))) int refusesStack(const stack_t* p_new, stack_t* p_old) {
    const char* const call = p_new != nullptr ? "sigaltstack"
                             : t_hasStack     ? "look at own stack"
                                              : "look at stack";
    if (isRefused(call)) {
        errno = EPERM;
        return -1;
    }
    t_hasStack = t_hasStack || p_new != nullptr;
    return next<int (*)(const stack_t*, stack_t*)>("sigaltstack")(p_new, p_old);
}

void* refusesMemory(void* p_at, std::size_t bytes, int protection, int flags, int fd,
                    off64_t offset) __asm__("mmap64");
__attribute__((visibility("default"))) void* refusesMemory(void* p_at, std::size_t bytes,
                                                           int protection, int flags, int fd,
                                                           off64_t offset) {
    using Function = void* (*)(void*, std::size_t, int, int, int, off64_t);
    if ((flags & MAP_STACK) != 0 && isRefused("mmap of a stack")) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return next<Function>("mmap64")(p_at, bytes, protection, flags, fd, offset);
}

unsigned long refusesRights(unsigned long type) __asm__("getauxval");
__attribute__((visibility("default"))) unsigned long refusesRights(unsigned long type) {
    if (type == AT_SECURE && isRefused("special rights")) return 1;
    return next<unsigned long (*)(unsigned long)>("getauxval")(type);
}
}

__attribute__((visibility("default"))) void* operator new(std::size_t bytes,
                                                          const std::nothrow_t&) noexcept {
    if (isRefused("new")) return nullptr;
    try {
        return ::operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

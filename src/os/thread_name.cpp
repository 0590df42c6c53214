#include "os/thread_name.h"

#include <pthread.h>

#include <cstdarg>
#include <cstdio>

namespace tevalon::base {

void nameThisThread(const char* format, ...) {
    char name[16];  // The kernel's limit, with the final zero.
    va_list args;
    va_start(args, format);
    std::vsnprintf(name, sizeof(name), format, args);
    va_end(args);
    (void)pthread_setname_np(pthread_self(), name);
}

}  // namespace tevalon::base

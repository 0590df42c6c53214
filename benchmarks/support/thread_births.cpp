#include "support/thread_births.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>

namespace {

using Clock = std::chrono::steady_clock;
using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

std::atomic<Clock::time_point> g_latest{Clock::time_point()};

}  // namespace

// In the program it stands before the C library's, also for the libraries that it has loaded.
extern "C" __attribute__((visibility("default"))) int pthread_create(
    pthread_t* p_thread, const pthread_attr_t* p_attributes, void* (*p_body)(void*),
    void* p_argument) {
    static const auto s_create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    g_latest = Clock::now();
    return s_create(p_thread, p_attributes, p_body, p_argument);
}

namespace bench {

Clock::time_point latestThreadBirth() {
    return g_latest;
}

}  // namespace bench

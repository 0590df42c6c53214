// threads.cpp: gives each thread of the process an alternate signal stack, which a thread has to
// set for itself: stands in front of the C library's pthread_create().

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>

#include "alternate_stack.h"
#include "reporter.h"

namespace tevalon::record_preload {
namespace {

using Run = void* (*)(void*);
using CreateThread = int (*)(pthread_t*, const pthread_attr_t*, Run, void*);

struct Start {
    Run run;
    void* p_argument;
};

void* runWithAlternateStack(void* p_start) {
    const AlternateStack stack;  // Also gone where the thread is cancelled: that unwinds.
    const Start start = *static_cast<Start*>(p_start);
    delete static_cast<Start*>(p_start);
    return start.run(start.p_argument);
}

int createThread(pthread_t* p_thread, const pthread_attr_t* p_attributes, Run run,
                 void* p_argument) {
    static const auto s_next = reinterpret_cast<CreateThread>(dlsym(RTLD_NEXT, "pthread_create"));
    if (s_next == nullptr) return EAGAIN;
    if (!hasReporter()) return s_next(p_thread, p_attributes, run, p_argument);
    std::unique_ptr<Start> start(new (std::nothrow) Start{run, p_argument});
    if (start == nullptr) return EAGAIN;
    const int error = s_next(p_thread, p_attributes, runWithAlternateStack, start.get());
    if (error == 0) (void)start.release();  // The thread's.
    return error;
}

}  // namespace
}  // namespace tevalon::record_preload

extern "C" __attribute__((visibility("default"))) int tevalonRecordCreateThread(
    pthread_t* p_thread, const pthread_attr_t* p_attributes, void* (*run)(void*),
    void* p_argument) __asm__("pthread_create");

// Under a name of its own: the headers' declaration has attributes that differ from one to the
// next.
extern "C" int tevalonRecordCreateThread(pthread_t* p_thread, const pthread_attr_t* p_attributes,
                                         void* (*run)(void*), void* p_argument) {
    return tevalon::record_preload::createThread(p_thread, p_attributes, run, p_argument);
}

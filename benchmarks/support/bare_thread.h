// bare_thread.h: the barest thread that nobody joins.

#ifndef BENCHMARKS_SUPPORT_BARE_THREAD_H
#define BENCHMARKS_SUPPORT_BARE_THREAD_H

#include <pthread.h>

#include <cstdlib>

namespace bench {

/// Runs @p p_body, which has to be there until it has begun to end. Detached from the start: after
/// std::thread::detach() glibc reads what a thread that has ended may have given back.
template <typename Body>
void startBareThread(Body* p_body) {
    const auto run = [](void* p_argument) -> void* {
        (*static_cast<Body*>(p_argument))();
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_t thread;
    if (pthread_attr_init(&attributes) != 0 ||
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) != 0 ||
        pthread_create(&thread, &attributes, run, p_body) != 0) {
        std::abort();  // The figures would be of something else.
    }
    (void)pthread_attr_destroy(&attributes);
}

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_BARE_THREAD_H

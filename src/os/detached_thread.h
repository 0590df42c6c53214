// detached_thread.h: a thread that nobody joins.

#ifndef SRC_OS_DETACHED_THREAD_H
#define SRC_OS_DETACHED_THREAD_H

#include <pthread.h>

#include <memory>
#include <utility>

#include "os/system_error.h"

namespace tevalon::base {
namespace internal {

/// Returns an errno value, 0 where the thread has been created.
inline int createDetached(void* (*run)(void*), void* p_argument) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error == 0) {
        (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_t thread = {};
        error = pthread_create(&thread, &attributes, run, p_argument);
        (void)pthread_attr_destroy(&attributes);
    }
    return error;
}

template <typename Body>
void* runBody(void* p_argument) {
    const std::unique_ptr<Body> body(static_cast<Body*>(p_argument));
    (*body)();
    return nullptr;
}

}  // namespace internal

/// Runs @p body on a new thread, which is created detached: glibc's pthread_detach() reads the
/// thread's descriptor once more after marking it detached, when the thread may have ended and its
/// stack, with the descriptor, may have been unmapped.
///
/// Throws std::system_error where there is no thread.
template <typename Body>
void startDetachedThread(Body body) {
    auto owned = std::make_unique<Body>(std::move(body));
    const int error = internal::createDetached(internal::runBody<Body>, owned.get());
    if (error == 0) (void)owned.release();  // The thread's.
    throwUnlessOk(error);
}

}  // namespace tevalon::base

#endif  // SRC_OS_DETACHED_THREAD_H

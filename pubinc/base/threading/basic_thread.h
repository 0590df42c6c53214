// basic_thread.h: a thread that runs its owner, and is stopped and joined with its handle.

#ifndef BASE_THREADING_BASIC_THREAD_H
#define BASE_THREADING_BASIC_THREAD_H

#include <pthread.h>

#include <cstdint>
#include <utility>

#include "base/synchronization/internal/system_error.h"

namespace tevalon::base::Threading {

/// A POSIX thread that calls its owner's `int run()`. Held by std::shared_ptr: the last holder
/// that lets go waits for the thread. Where that is the thread itself, it is detached instead; the
/// owner then sees to it that run() returns without touching what is gone.
///
/// T has `int run()`, the thread's body, and `void stop()`, which makes run() return soon and
/// may be called at any time.
template <typename T>
class BasicThread {
public:
    /// Starts the thread. @p p_owner is not owned and must outlive this object. Throws
    /// std::runtime_error, "Thread initialization failed", when the system refuses.
    explicit BasicThread(T* p_owner) : m_owner(p_owner) {
        if (pthread_create(&m_handle, nullptr, runOwner, p_owner) != 0) {
            internal::throwRuntimeError("Thread initialization failed");
        }
    }

    /// As end().
    ~BasicThread() { end(); }

    BasicThread(const BasicThread&) = delete;
    BasicThread& operator=(const BasicThread&) = delete;

    /// Stops the owner and waits until its run() has returned; once. No cancellation point.
    void end() {
        T* const p_owner = std::exchange(m_owner, nullptr);
        if (p_owner == nullptr) return;
        p_owner->stop();
        if (pthread_equal(m_handle, pthread_self()) != 0) {
            (void)pthread_detach(m_handle);
            return;
        }
        // A join is a cancellation point, and a destructor that is cancelled ends the process.
        int cancelStateBefore = PTHREAD_CANCEL_ENABLE;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelStateBefore);
        (void)pthread_join(m_handle, nullptr);
        (void)pthread_setcancelstate(cancelStateBefore, nullptr);
    }

    /// For a forked child, where the parent's thread does not exist: there is nothing to end then.
    void abandon() { m_owner = nullptr; }

private:
    static void* runOwner(void* p_owner) {
        const std::intptr_t result = static_cast<T*>(p_owner)->run();
        return reinterpret_cast<void*>(result);
    }

    T* m_owner;
    pthread_t m_handle;
};

}  // namespace tevalon::base::Threading

#endif  // BASE_THREADING_BASIC_THREAD_H

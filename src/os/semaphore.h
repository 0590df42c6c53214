// semaphore.h: a count that can be waited for.

#ifndef SRC_OS_SEMAPHORE_H
#define SRC_OS_SEMAPHORE_H

#include <semaphore.h>
#include <time.h>

#include <cerrno>
#include <cstdint>

namespace tevalon::base {

/// A POSIX semaphore, zero at first. Where one thread waits for another it is cheaper than a
/// condition variable: that re-acquires its mutex marked contended, which costs an extra futex call
/// at unlock, to wake nobody.
///
/// Thread-safety: all but construction and destruction.
class Semaphore {
public:
    Semaphore() { (void)sem_init(&m_count, kOfThisProcess, 0); }
    ~Semaphore() { (void)sem_destroy(&m_count); }

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    void post() { (void)sem_post(&m_count); }

    void wait() {
        while (sem_wait(&m_count) != 0) {  // Interrupted by a signal.
        }
    }

    /// False where nobody has posted until then, in nanoseconds on the monotonic clock.
    // Not inlined: the address sanitizer does not see that a cancelled thread unwinds its frames,
    // and callers that only wait() would have the deadline in theirs.
    __attribute__((noinline)) bool waitUntil(std::int64_t nanoseconds) {
        constexpr std::int64_t kSecond = 1000000000;
        timespec deadline = {};
        deadline.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
        deadline.tv_nsec = static_cast<long>(nanoseconds % kSecond);
        while (sem_clockwait(&m_count, CLOCK_MONOTONIC, &deadline) != 0) {
            if (errno != EINTR) return false;
        }
#ifdef __SANITIZE_THREAD__
        // The thread sanitizer does not know sem_clockwait(); from these it learns of the post.
        post();
        wait();
#endif
        return true;
    }

private:
    static constexpr int kOfThisProcess = 0;

    sem_t m_count;
};

}  // namespace tevalon::base

#endif  // SRC_OS_SEMAPHORE_H

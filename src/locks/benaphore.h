// benaphore.h: a lock for moments, which costs one atomic operation while nobody waits for it.

#ifndef SRC_LOCKS_BENAPHORE_H
#define SRC_LOCKS_BENAPHORE_H

#include <semaphore.h>
#include <time.h>

#include <atomic>
#include <cstdint>

#include "os/monotonic_time.h"
#include "os/no_cancellation.h"

namespace tevalon::base {

/// Counts those who have or want it; only from the second on is there a semaphore to wait for
/// (Schillings, "Benaphores", Be Newsletter 1996). A tenth of a mutex's instructions.
///
/// Of static storage, zeroed: there is no constructor, lest one has to run when the library is
/// loaded. Not recursive. No cancellation point.
struct Benaphore {
    /// Before anything else, once.
    void init() { (void)sem_init(&wakeUps, 0, 0); }
    /// In a forked child, where nobody else is, and this thread holds it or nobody.
    void reset() {
        count.store(0, std::memory_order_relaxed);
        init();
    }

    void lock() {
        if (count.fetch_add(1, std::memory_order_acquire) > 0) wait();
    }
    /// Tries until it gets it or @p untilNs on the monotonic clock has come; once at least.
    bool tryUntil(std::uint64_t untilNs) {
        constexpr timespec kPause = {0, 500'000};
        std::int32_t free = 0;
        while (!count.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                              std::memory_order_relaxed)) {
            free = 0;
            if (monotonicNanoseconds() >= untilNs) return false;
            (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &kPause, nullptr);
        }
        return true;
    }
    void unlock() {
        if (count.fetch_sub(1, std::memory_order_release) > 1) (void)sem_post(&wakeUps);
    }

    std::atomic<std::int32_t> count;
    sem_t wakeUps;

private:
    __attribute__((noinline, cold)) void wait() {
        const NoCancellation noCancellation;
        while (sem_wait(&wakeUps) != 0) {  // Interrupted by a signal.
        }
    }
};

}  // namespace tevalon::base

#endif  // SRC_LOCKS_BENAPHORE_H

// semaphore.h: a count that can be waited for.

#ifndef SRC_OS_SEMAPHORE_H
#define SRC_OS_SEMAPHORE_H

#include <semaphore.h>

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

private:
    static constexpr int kOfThisProcess = 0;

    sem_t m_count;
};

}  // namespace tevalon::base

#endif  // SRC_OS_SEMAPHORE_H

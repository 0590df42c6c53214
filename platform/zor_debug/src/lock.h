// lock.h: a lock that needs no construction, works before main and is never destroyed.

#ifndef ZOR_DEBUG_SRC_LOCK_H
#define ZOR_DEBUG_SRC_LOCK_H

#include <pthread.h>

namespace zor_debug {

struct Lock {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds a lock for a scope. A lock that cannot be taken is passed over: the caller's line
/// matters more than its neighbours' order.
class Locked {
public:
    explicit Locked(Lock& lock) : m_lock(lock), m_held(pthread_mutex_lock(&lock.mutex) == 0) {}
    ~Locked() {
        if (m_held) (void)pthread_mutex_unlock(&m_lock.mutex);
    }

    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    Lock& m_lock;
    const bool m_held;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LOCK_H

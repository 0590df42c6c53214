// queue_lock.h: the guard of a timer thread's queue.

#ifndef SRC_TIMER_THREAD_QUEUE_LOCK_H
#define SRC_TIMER_THREAD_QUEUE_LOCK_H

#include <mutex>

#include "base/synchronization/auto_lock.h"
#include "locks/annotated_mutex.h"

namespace tevalon::base::timer {

/// An AutoLock on an annotated mutex: a lock that fails is reported by AutoLock's error line, and
/// the operation goes on.
class TEVALON_SCOPED_CAPABILITY QueueLock {
public:
    explicit QueueLock(AnnotatedMutex& mutex) TEVALON_ACQUIRE(mutex) : m_lock(mutex.native()) {}
    ~QueueLock() TEVALON_RELEASE() {}

    QueueLock(const QueueLock&) = delete;
    QueueLock& operator=(const QueueLock&) = delete;

private:
    const AutoLock<std::mutex> m_lock;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_QUEUE_LOCK_H

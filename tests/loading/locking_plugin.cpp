// A module that uses nothing of the library but its guards, and hides none of its own symbols.

#include <mutex>

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/unique_lock.h"

using tevalon::base::AutoLock;
using tevalon::base::LockGuard;
using tevalon::base::Mutex;
using tevalon::base::UniqueLock;

/// How many locks it took.
extern "C" int lockingPluginWork() {
    int locks = 0;
    Mutex mutex;
    std::mutex standardMutex;
    for (int round = 0; round < 2; ++round) {
        const AutoLock first(mutex);
        const UniqueLock second(standardMutex);
        ++locks;
    }
    {
        const LockGuard lock(mutex);
        ++locks;
    }
    const UniqueLock lock(mutex);
    return locks + 1;
}

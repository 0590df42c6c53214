// guarded_mutex.h: what the three guards share: locking either kind of mutex, and reporting
// a failure instead of throwing it.

#ifndef BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H
#define BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H

#include <pthread.h>

#include <mutex>

#include "base/synchronization/internal/system_error.h"

namespace tevalon::base::internal {

inline void lockMutex(pthread_mutex_t* p_mutex) {
    if (pthread_mutex_lock(p_mutex) != 0) throwSystemError("Mutex lock error: ");
}

// Throws std::system_error, which is a std::runtime_error too.
inline void lockMutex(std::mutex* p_mutex) {
    p_mutex->lock();
}

inline void unlockMutex(pthread_mutex_t* p_mutex) {
    if (pthread_mutex_unlock(p_mutex) != 0) throwSystemError("Mutex unlock error: ");
}

inline void unlockMutex(std::mutex* p_mutex) {
    p_mutex->unlock();
}

inline pthread_mutex_t* posixMutex(pthread_mutex_t* p_mutex) {
    return p_mutex;
}

inline pthread_mutex_t* posixMutex(std::mutex* p_mutex) {
    return p_mutex->native_handle();
}

// Location as separate arguments, put together only where a call has failed: as static members they
// were STB_GNU_UNIQUE symbols, which keep a client's module from being unloaded.

template <typename NativeMutex>
void lockOrLog(NativeMutex* p_mutex, const char* file, int line, const char* function) {
    try {
        lockMutex(p_mutex);
    } catch (const std::runtime_error& error) {
        logGuardFailure({file, line, function}, error);
    }
}

template <typename NativeMutex>
void unlockOrLog(NativeMutex* p_mutex, const char* file, int line, const char* function) {
    try {
        unlockMutex(p_mutex);
    } catch (const std::runtime_error& error) {
        logGuardFailure({file, line, function}, error);
    }
}

}  // namespace tevalon::base::internal

#endif  // BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H

// guarded_mutex.h: what the three guards share: locking either kind of mutex, and reporting
// a failure instead of throwing it.

#ifndef BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H
#define BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H

#include <pthread.h>

#include <cerrno>
#include <mutex>

#include "base/synchronization/internal/system_error.h"

namespace tevalon::base::internal {

inline pthread_mutex_t* posixMutex(pthread_mutex_t* p_mutex) {
    return p_mutex;
}

inline pthread_mutex_t* posixMutex(std::mutex* p_mutex) {
    return p_mutex->native_handle();
}

// Location as separate arguments, put together only where a call has failed: as static members they
// were STB_GNU_UNIQUE symbols, which keep a client's module from being unloaded.

// Nothing is thrown to be caught again: clients built with -fno-exceptions, and those that share
// these functions with them in one process, get the same line.

inline void lockOrLog(pthread_mutex_t* p_mutex, const char* file, int line, const char* function) {
    if (pthread_mutex_lock(p_mutex) != 0) {
        logGuardFailure({file, line, function}, "Mutex lock error: ", errno);
    }
}

// By its native handle, which is what its lock() locks, and throws the status of.
inline void lockOrLog(std::mutex* p_mutex, const char* file, int line, const char* function) {
    const int status = pthread_mutex_lock(p_mutex->native_handle());
    if (status != 0) logGuardFailure({file, line, function}, nullptr, status);
}

inline void unlockOrLog(pthread_mutex_t* p_mutex, const char* file, int line,
                        const char* function) {
    if (pthread_mutex_unlock(p_mutex) != 0) {
        logGuardFailure({file, line, function}, "Mutex unlock error: ", errno);
    }
}

inline void unlockOrLog(std::mutex* p_mutex, const char*, int, const char*) {
    p_mutex->unlock();
}

}  // namespace tevalon::base::internal

#endif  // BASE_SYNCHRONIZATION_INTERNAL_GUARDED_MUTEX_H

// guarded_mutex.h: kept for clients that include it by this name; what it held is internal.
// name.

#ifndef BASE_SYNCHRONIZATION_GUARDED_MUTEX_H
#define BASE_SYNCHRONIZATION_GUARDED_MUTEX_H

#include "base/synchronization/internal/guarded_mutex.h"

#endif  // BASE_SYNCHRONIZATION_GUARDED_MUTEX_H

// guarded_mutex.h: where what the guards share used to be; for clients that include it by this name.

#ifndef BASE_SYNCHRONIZATION_GUARDED_MUTEX_H
#define BASE_SYNCHRONIZATION_GUARDED_MUTEX_H

#include "base/synchronization/internal/guarded_mutex.h"

#endif  // BASE_SYNCHRONIZATION_GUARDED_MUTEX_H

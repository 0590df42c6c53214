// system_error.h: kept for clients that include it by this name; what it held is internal.
// name.

#ifndef BASE_SYNCHRONIZATION_SYSTEM_ERROR_H
#define BASE_SYNCHRONIZATION_SYSTEM_ERROR_H

#include "base/synchronization/internal/system_error.h"

#endif  // BASE_SYNCHRONIZATION_SYSTEM_ERROR_H

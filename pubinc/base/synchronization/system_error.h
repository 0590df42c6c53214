// system_error.h: where how the wrappers throw used to be; for clients that include it by this name.

#ifndef BASE_SYNCHRONIZATION_SYSTEM_ERROR_H
#define BASE_SYNCHRONIZATION_SYSTEM_ERROR_H

#include "base/synchronization/internal/system_error.h"

#endif  // BASE_SYNCHRONIZATION_SYSTEM_ERROR_H

// system_error.h: how a failed POSIX call of the lock wrappers is reported.

#ifndef BASE_SYNCHRONIZATION_INTERNAL_SYSTEM_ERROR_H
#define BASE_SYNCHRONIZATION_INTERNAL_SYSTEM_ERROR_H

#include <stdexcept>

#include "base/export.h"

namespace tevalon::base::internal {

/// Throws std::runtime_error: @p prefix (null adds nothing) and the system's description of
/// the calling thread's errno. The thread functions of POSIX return their error and leave
/// errno alone, so the description may be that of an earlier error.
[[noreturn]] TEVALON_BASE_EXPORT void throwSystemError(const char* prefix);

/// Where a guard stands in its header, as its log lines name it.
struct GuardPlace {
    const char* file;
    int line;
    const char* function;
};

/// Writes the error line for a failure that a guard caught.
TEVALON_BASE_EXPORT void logGuardFailure(const GuardPlace& place, const std::runtime_error& error);

}  // namespace tevalon::base::internal

#endif  // BASE_SYNCHRONIZATION_INTERNAL_SYSTEM_ERROR_H

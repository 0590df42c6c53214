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

/// The same for one that has not been thrown: @p prefix (null adds nothing) and the system's
/// description of @p error, an errno.
TEVALON_BASE_EXPORT void logGuardFailure(const GuardPlace& place, const char* prefix, int error);

/// Throws std::runtime_error with this text, also in the name of a client that is built with
/// -fno-exceptions, which then ends.
[[noreturn]] TEVALON_BASE_EXPORT void throwRuntimeError(const char* text);

}  // namespace tevalon::base::internal

#endif  // BASE_SYNCHRONIZATION_INTERNAL_SYSTEM_ERROR_H

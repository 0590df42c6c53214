// system_error.h: a failed call as std::system_error.

#ifndef SRC_OS_SYSTEM_ERROR_H
#define SRC_OS_SYSTEM_ERROR_H

#include <system_error>

namespace tevalon::base {

/// Throws std::system_error for @p error, an errno value, unless it is 0. Out of line, for the size
/// of what it does.
void throwUnlessOk(int error);

}  // namespace tevalon::base

#endif  // SRC_OS_SYSTEM_ERROR_H

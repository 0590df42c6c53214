// boot_id.h: a number that tells one run of the process from another.

#ifndef BASE_LOGGING_BOOT_ID_H
#define BASE_LOGGING_BOOT_ID_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base {

/// Returns the nanoseconds field (0 to 999,999,999) that the monotonic clock showed on the
/// first call, the same on every later one; 4660 when the clock cannot be read. A reading of
/// exactly 0 is returned but not kept. Any thread; threads that race on the first call may
/// see different values once.
TEVALON_BASE_EXPORT std::uint32_t bootID();

}  // namespace tevalon::base

#endif  // BASE_LOGGING_BOOT_ID_H

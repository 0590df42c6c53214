// uuid.h: identifiers that are unique everywhere.

#ifndef BASE_UTILS_UUID_H
#define BASE_UTILS_UUID_H

#include <string>

#include "base/export.h"

namespace tevalon::base {

/// Returns a new identifier, 35 characters in capitals: "01234567-89AB-CDEF-0123456789ABCDEF"
/// with its first three groups as numbers in the processor's byte order. When
/// there is no memory to format it in, it writes an error line and returns "". Any thread.
TEVALON_BASE_EXPORT std::string generateUUID();

}  // namespace tevalon::base

#endif  // BASE_UTILS_UUID_H

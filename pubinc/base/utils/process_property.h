// process_property.h: named strings that all modules of the process share.

#ifndef BASE_UTILS_PROCESS_PROPERTY_H
#define BASE_UTILS_PROCESS_PROPERTY_H

#include <string>

#include "base/export.h"

/// Not tevalon::base. Whoever opens namespace tevalon, or says `using namespace tevalon`, has two
/// namespaces called base: inside the first, `base` is tevalon::base, which has no process
/// properties; after the second it is ambiguous. `::base::get_process_property` is right
/// everywhere.
namespace base {

/// Returns the value stored under @p name, or "" when there is none or @p name is null. Any
/// thread, also while the process exits, when it answers as for an empty table. Throws
/// std::runtime_error, "Mutex init error: " and the system's description, when the first use
/// cannot make the table.
TEVALON_BASE_EXPORT std::string get_process_property(const char* name);

/// Stores @p value under @p name and returns what it replaced, or "". Both are copied; "" is
/// as good a name or value as any. Throws std::logic_error, and stores nothing, when either is
/// null. Threads and further errors as above.
TEVALON_BASE_EXPORT std::string set_process_property(const char* name, const char* value);

}  // namespace base

#endif  // BASE_UTILS_PROCESS_PROPERTY_H

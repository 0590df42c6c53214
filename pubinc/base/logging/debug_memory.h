// debug_memory.h: reports of the system's memory, switched on by the environment.

#ifndef BASE_LOGGING_DEBUG_MEMORY_H
#define BASE_LOGGING_DEBUG_MEMORY_H

#include <atomic>

#include "base/export.h"

namespace tevalon::base::debug {

/// Whether the environment asked for reports; set by debug_init(), never cleared.
extern TEVALON_BASE_EXPORT std::atomic<bool> g_webengine_memory_debug_enabled;

/// The text of the file shown last, in a buffer of 4096 bytes that is never freed; null before
/// the first debug_init(). Rewritten by each showFileContents().
extern TEVALON_BASE_EXPORT std::atomic<char*> g_webengine_memory_debug_info;

/// Makes the reports possible. Returns whether SHOW_MEMORY_DEBUG_INFO in the environment is
/// "TRUE", "1" or "true". Any thread.
TEVALON_BASE_EXPORT bool debug_init();

/// Whether the environment asked for reports at any debug_init() so far. Any thread.
TEVALON_BASE_EXPORT bool debug_memory_debug_enabled();

/// There are no allocator statistics here. Returns true.
TEVALON_BASE_EXPORT bool debug_init_tcmalloc_extension();
/// Does nothing: there are no allocator statistics here.
TEVALON_BASE_EXPORT void debug_dump_tcmalloc_status();

/// Shows /proc/meminfo; see showFileContents().
TEVALON_BASE_EXPORT void debug_dump_system_memory_status();

/// Prints @p title and the beginning of the file at @p path, up to 4094 bytes, to standard
/// output, and to the log at the level that always shows. The last byte that was read is left
/// out: for a file that is shown whole that is its final line end. Does nothing before
/// debug_init(), or when either is null. A file that cannot be opened or is empty is reported
/// by an error line. Any thread.
TEVALON_BASE_EXPORT void showFileContents(const char* title, const char* path);

}  // namespace tevalon::base::debug

#endif  // BASE_LOGGING_DEBUG_MEMORY_H

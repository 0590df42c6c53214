// entry_points.h: the C entry points through which other modules log.

#ifndef BASE_LOGGING_ENTRY_POINTS_H
#define BASE_LOGGING_ENTRY_POINTS_H

#include <string>

#include "base/export.h"

extern "C" {

/// Returns the part of @p path behind its last '/', or @p path itself when it holds none.
/// Points into @p path; allocates nothing. @p path must not be null.
TEVALON_BASE_EXPORT const char* blog_base_name(const char* path);

/// Writes "[tag]file:line:function:", the formatted message and a line end as three pieces,
/// each only if the level is on at that moment. @p file is shortened to its base name.
///
/// @param levelIndex  0 to 4, for the levels 1, 1000, 3000, 4000, 5000; any other index
///                    writes nothing.
/// @param tag,file,function  Null is taken as "".
/// @param line        As it is to be shown.
/// @param format      printf format without a line end; null writes nothing at all.
///
/// Any thread, at any time. Reports no failure.
TEVALON_BASE_EXPORT void print_browser_log(int levelIndex, const char* tag, const char* file,
                                           int line, const char* function, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/// The same as print_browser_log, for the HbbTV controller.
TEVALON_BASE_EXPORT void print_hbbtv_controller_log(int levelIndex, const char* tag,
                                                    const char* file, int line,
                                                    const char* function, const char* format, ...)
    __attribute__((format(printf, 6, 7)));

/// Writes @p data as hexadecimal at the debug level: a line with @p title, then a line per
/// 16 bytes. All lines of one dump carry the same identifier, the nanoseconds of the
/// monotonic clock when it began.
///
/// @param title   Null is shown as "(null)".
/// @param data    Not kept. Null writes the title alone.
/// @param length  In bytes; less than 1 writes the title alone.
///
/// Any thread, at any time. A dump that begins while the debug level is off asks for it once and
/// does nothing else.
TEVALON_BASE_EXPORT void dump_memory(const char* title, const unsigned char* data, int length);

#if defined(__clang__)
#pragma clang diagnostic push
// The name is unmangled for the modules that look it up by name; all of them are C++.
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

/// Returns "file:line:function():". A null @p file gives the empty string; a null
/// @p function ends the text behind the second ':'. Throws std::bad_alloc.
TEVALON_BASE_EXPORT std::string dbg_location(const char* file, int line, const char* function);

#if defined(__clang__)
#pragma clang diagnostic pop
#endif

}  // extern "C"

#endif  // BASE_LOGGING_ENTRY_POINTS_H

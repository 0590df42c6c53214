// blog.h: BLOG, the one log statement.

#ifndef BASE_LOGGING_BLOG_H
#define BASE_LOGGING_BLOG_H

#include <cstring>

#include "base/logging/entry_points.h"
#include "base/logging/log_level.h"
#include "zor_debug/zor_debug.h"

/// The tag at the front of this source file's log lines. A source that wants its own defines
/// BLOG_TAG before its first include.
#ifndef BLOG_TAG
#define BLOG_TAG "B-LOG"
#endif

/// The module number that this source file's log lines and traces have in the platform's debug
/// output, by which their levels are set and their lines told apart. A module that wants its own
/// defines BLOG_MODULE before the first include, best for all of its sources: a constant from 0 to
/// 0xFFFF. Lines of this library, of print_browser_log() and of FunctionTracer have kBlogModule.
#ifndef BLOG_MODULE
#define BLOG_MODULE ::tevalon::base::kBlogModule
#endif

/// @{
/// The file that this source file's lines and traces name, and the number in them. A source that
/// was split off another defines them before its first include, to keep the other's name in the log
/// and to stay clear of its numbers.
#ifndef BLOG_FILE
#define BLOG_FILE __FILE__
#endif
#ifndef BLOG_LINE
#define BLOG_LINE __LINE__
#endif
/// @}

/// BLOG(level, format, ...): writes "[tag] file:line:function(): " and the message in one
/// output call, if @p level is on. Arguments are evaluated only then.
///
///     BLOG(tevalon::base::kLogError, "Fail to open '%s'.\n", path);
///
/// @p format is a string literal, checked against the arguments (30 at most) by the compiler;
/// it brings its own line end. A single statement, so it needs no braces after an if.
/// Any thread, at any time. Reports no failure.
#define BLOG(level, ...) BLOG_AS(__func__, level, __VA_ARGS__)

/// BLOG_AS(function, level, format, ...): BLOG in the name of another function, for the steps of
/// one whose name is in the line.
#define BLOG_AS(function, level, ...) \
    BLOG_AT(BLOG_TAG, level, BLOG_FILE, BLOG_LINE, function, __VA_ARGS__)

/// BLOG_EXCEPTION(error): the line for a std::runtime_error that was caught.
#define BLOG_EXCEPTION(error) BLOG_EXCEPTION_AT(BLOG_TAG, BLOG_FILE, BLOG_LINE, __func__, error)

/// BLOG_AT(tag, level, file, line, function, format, ...): BLOG with every part of the line
/// named by the statement. For lines whose number is a promise to those who search for it,
/// and for inline functions, whose tag must not depend on the source that includes them.
#define BLOG_AT(tag, level, file, line, function, ...)                                  \
    do {                                                                                \
        if (::tevalon::base::isLogOn(level, BLOG_MODULE)) {                             \
            TEVALON_LOG_CHECK_FORMAT(__VA_ARGS__);                                      \
            ::zorDebugOutput0("[%s] %s:%d:%s(): " TEVALON_LOG_FORMAT(__VA_ARGS__), tag, \
                              ::tevalon::base::internal::baseName(file), line,          \
                              function TEVALON_LOG_ARGUMENTS(__VA_ARGS__));             \
        }                                                                               \
    } while (false)

/// BLOG_EXCEPTION with every part of the line named by the statement.
#define BLOG_EXCEPTION_AT(tag, file, line, function, error)        \
    BLOG_AT(tag, ::tevalon::base::kLogError, file, line, function, \
            "An runtime_error has been caught:%s.\n", (error).what())

namespace tevalon::base::internal {

/// blog_base_name() where the compiler sees it: of a literal nothing is left to be done.
inline const char* baseName(const char* path) {
    const char* lastSlash = std::strrchr(path, '/');
    return lastSlash != nullptr ? lastSlash + 1 : path;
}

}  // namespace tevalon::base::internal

// GCC does not warn of a format that begins in a macro of a system header, and to a CMake client
// that is what our installed headers are. Here the format begins with the client's own literal, in
// a call that is never reached. Clang warns of both kinds, and so would twice.
#if defined(__GNUC__) && !defined(__clang__)
namespace tevalon::base::internal {

inline void checkFormat(const char*, ...) __attribute__((format(printf, 1, 2)));
inline void checkFormat(const char*, ...) {}

}  // namespace tevalon::base::internal
// The blank keeps an empty message from being warned of.
#define TEVALON_LOG_CHECK_FORMAT(...)       \
    if (false)                              \
    ::tevalon::base::internal::checkFormat( \
        TEVALON_LOG_FORMAT(__VA_ARGS__) " " TEVALON_LOG_ARGUMENTS(__VA_ARGS__))
#else
#define TEVALON_LOG_CHECK_FORMAT(...)
#endif

// The line's own arguments stand between the format and the message's arguments, so the two
// are taken apart; in standard C++17, because `, ##__VA_ARGS__` warns in a pedantic client.
#define TEVALON_LOG_FORMAT(...) TEVALON_LOG_FORMAT_(__VA_ARGS__, )
#define TEVALON_LOG_FORMAT_(format, ...) format
#define TEVALON_LOG_ARGUMENTS(...) \
    TEVALON_LOG_JOIN(TEVALON_LOG_ARGUMENTS_, TEVALON_LOG_COUNT(__VA_ARGS__))(__VA_ARGS__)
#define TEVALON_LOG_ARGUMENTS_NONE(format)
#define TEVALON_LOG_ARGUMENTS_SOME(format, ...) , __VA_ARGS__
#define TEVALON_LOG_JOIN(left, right) TEVALON_LOG_JOIN_(left, right)
#define TEVALON_LOG_JOIN_(left, right) left##right
// NONE for a format alone, SOME where arguments follow: the 32nd of the statement's arguments,
// 30 SOMEs and a NONE. Hence at most 30 arguments.
// clang-format off
#define TEVALON_LOG_COUNT(...)                                                        \
    TEVALON_LOG_32ND(__VA_ARGS__, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, \
                     SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME,      \
                     SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, SOME, NONE, )
#define TEVALON_LOG_32ND(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15,   \
                         a16, a17, a18, a19, a20, a21, a22, a23, a24, a25, a26, a27, a28,    \
                         a29, a30, a31, a32, ...) a32
// clang-format on

#endif  // BASE_LOGGING_BLOG_H

// trace.h: debug-level traces of a scope and of a point in the code.

#ifndef BASE_LOGGING_TRACE_H
#define BASE_LOGGING_TRACE_H

#include "base/export.h"
#include "base/logging/blog.h"

/// Writes "[TRACE -> function(IN)] ..." here and "[TRACE <- function(OUT)] ..." when the
/// enclosing scope ends, each if the debug level is on at that moment. Both lines carry this
/// statement's line number.
#define BLOG_TRACE_SCOPE()                                                                     \
    const ::tevalon::base::internal::ScopeTrace TEVALON_LOG_JOIN(tevalonScopeTrace, __LINE__)( \
        __func__, BLOG_FILE, BLOG_LINE)

/// Writes "[TRACE] file:line signature" if the debug level is on.
#define BLOG_TRACE_POINT()                                                               \
    do {                                                                                 \
        if (::tevalon::base::isLogOn(::tevalon::base::kLogDebug)) {                      \
            ::zorDebugOutput0("[TRACE] %s:%d:%s\n",                                      \
                              ::tevalon::base::internal::baseName(BLOG_FILE), BLOG_LINE, \
                              __PRETTY_FUNCTION__);                                      \
        }                                                                                \
    } while (false)

namespace tevalon::base::internal {

/// What BLOG_TRACE_SCOPE() leaves in its scope. The strings are not copied.
class ScopeTrace {
public:
    ScopeTrace(const char* function, const char* file, int line)
        : m_function(function), m_file(file), m_line(line) {
        if (isLogOn(kLogDebug)) writeIn();
    }
    ~ScopeTrace() {
        if (isLogOn(kLogDebug)) writeOut();
    }

    ScopeTrace(const ScopeTrace&) = delete;
    ScopeTrace& operator=(const ScopeTrace&) = delete;

private:
    // Out of line: a trace that is off costs its scope two calls and no code beside them.
    TEVALON_BASE_EXPORT void writeIn() const;
    TEVALON_BASE_EXPORT void writeOut() const;

    const char* m_function;
    const char* m_file;
    int m_line;
};

}  // namespace tevalon::base::internal

#endif  // BASE_LOGGING_TRACE_H

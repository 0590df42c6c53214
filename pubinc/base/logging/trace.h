// trace.h: debug-level traces of a scope and of a point in the code.

#ifndef BASE_LOGGING_TRACE_H
#define BASE_LOGGING_TRACE_H

#include <pthread.h>

#include <cstdint>
#include <type_traits>

#include "base/export.h"
#include "base/logging/blog.h"

/// Writes "[TRACE -> function(IN)] ..." here and "[TRACE <- function(OUT)] ..." when the
/// enclosing scope ends, each if the debug level is on at that moment. Both lines carry this
/// statement's line number.
#define BLOG_TRACE_SCOPE()                                                       \
    const ::tevalon::base::internal::ScopeTraceOf<BLOG_MODULE> TEVALON_LOG_JOIN( \
        tevalonScopeTrace, __LINE__)(__func__, BLOG_FILE, BLOG_LINE)

/// Writes "[TRACE] file:line signature" if the debug level is on.
#define BLOG_TRACE_POINT()                                                               \
    do {                                                                                 \
        if (::tevalon::base::isLogOn(::tevalon::base::kLogDebug, BLOG_MODULE)) {         \
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

/// The same for a client's module, which has the code for it.
template <std::uint16_t kModule>
class ModuleScopeTrace {
public:
    ModuleScopeTrace(const char* function, const char* file, int line)
        : m_function(function), m_file(file), m_line(line) {
        if (isLogOn(kLogDebug, kModule)) writeIn();
    }
    // Cancelled in the output, the destructor would end the process.
    ~ModuleScopeTrace() {
        if (!isLogOn(kLogDebug, kModule)) return;
        int before = PTHREAD_CANCEL_ENABLE;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
        writeOut();
        (void)pthread_setcancelstate(before, &before);
    }

    ModuleScopeTrace(const ModuleScopeTrace&) = delete;
    ModuleScopeTrace& operator=(const ModuleScopeTrace&) = delete;

private:
    void writeIn() const {
        ::zorDebugOutput0("[TRACE -> %s(IN)] %s:%d:%s() \n", m_function, baseName(m_file), m_line,
                          m_function);
    }
    void writeOut() const {
        ::zorDebugOutput0("[TRACE <- %s(OUT)] %s:%d:%s() \n", m_function, baseName(m_file), m_line,
                          m_function);
    }

    const char* m_function;
    const char* m_file;
    int m_line;
};

template <std::uint16_t kModule>
using ScopeTraceOf =
    std::conditional_t<kModule == kBlogModule, ScopeTrace, ModuleScopeTrace<kModule>>;

}  // namespace tevalon::base::internal

#endif  // BASE_LOGGING_TRACE_H

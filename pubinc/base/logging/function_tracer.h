// function_tracer.h: reports that a function was entered and left.

#ifndef BASE_LOGGING_FUNCTION_TRACER_H
#define BASE_LOGGING_FUNCTION_TRACER_H

#include "base/export.h"
#include "base/logging/log_level.h"

// Empty in the one source of the library that defines these functions for modules which were built
// before they were inlined, and call them.
#ifndef TEVALON_BASE_TRACER_INLINE
#define TEVALON_BASE_TRACER_INLINE inline
#endif

namespace tevalon::base {

/// Writes one debug-level line when it is constructed and one when it is destroyed. Each
/// line has its own level check, so that a level changed in between shows just one of them.
///
/// The strings are not copied and must outlive the tracer; null is shown as "". The file is
/// shown as given, with its folders. Belongs to one thread.
class FunctionTracer {
public:
    /// Writes the line of the entry, with these in it.
    TEVALON_BASE_EXPORT FunctionTracer(const char* function, const char* file, int line);
    /// Writes the line of the way out, with the same.
    TEVALON_BASE_EXPORT ~FunctionTracer();

    FunctionTracer(const FunctionTracer&) = delete;
    FunctionTracer& operator=(const FunctionTracer&) = delete;

private:
    // Out of line: a trace that is off costs its function two calls and no code beside them.
    TEVALON_BASE_EXPORT void writeIn() const;
    TEVALON_BASE_EXPORT void writeOut() const;

    const char* m_function;
    const char* m_file;
    int m_line;
};

TEVALON_BASE_TRACER_INLINE FunctionTracer::FunctionTracer(const char* function, const char* file,
                                                          int line)
    : m_function(function), m_file(file), m_line(line) {
    if (isLogOn(kLogDebug)) writeIn();
}

TEVALON_BASE_TRACER_INLINE FunctionTracer::~FunctionTracer() {
    if (isLogOn(kLogDebug)) writeOut();
}

}  // namespace tevalon::base

#endif  // BASE_LOGGING_FUNCTION_TRACER_H

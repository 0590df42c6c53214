// function_tracer.h: reports that a function was entered and left.

#ifndef BASE_LOGGING_FUNCTION_TRACER_H
#define BASE_LOGGING_FUNCTION_TRACER_H

#include "base/export.h"

namespace tevalon::base {

/// Writes one debug-level line when it is constructed and one when it is destroyed. Each
/// line has its own level check, so that a level changed in between shows just one of them.
///
/// The strings are not copied and must outlive the tracer; null is shown as "". The file is
/// shown as given, with its folders. Belongs to one thread.
class TEVALON_BASE_EXPORT FunctionTracer {
public:
    FunctionTracer(const char* function, const char* file, int line);
    ~FunctionTracer();

    FunctionTracer(const FunctionTracer&) = delete;
    FunctionTracer& operator=(const FunctionTracer&) = delete;

private:
    const char* m_function;
    const char* m_file;
    int m_line;
};

}  // namespace tevalon::base

#endif  // BASE_LOGGING_FUNCTION_TRACER_H

// report.h: tells of a setting that cannot be used.

#ifndef ZOR_DEBUG_SRC_REPORT_H
#define ZOR_DEBUG_SRC_REPORT_H

#include <string_view>

namespace zor_debug {

/// Writes a line: which variable, what of it is @p bad, and @p p_rest: why, what is accepted, and
/// what is done instead.
void report(const char* p_variable, std::string_view bad, const char* p_rest);

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_REPORT_H

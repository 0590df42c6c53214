#include "report.h"

#include <cstdio>

#include "line_writer.h"

namespace zor_debug {

void report(const char* p_variable, std::string_view bad, const char* p_rest) {
    constexpr int kMaxShown = 200;
    char line[600];
    const int shown = bad.size() < kMaxShown ? static_cast<int>(bad.size()) : kMaxShown;
    std::snprintf(line, sizeof(line), "zor-debug: %s: cannot use '%.*s'%s\n", p_variable, shown,
                  bad.data(), p_rest);
    writeOwnLine(line);
}

}  // namespace zor_debug

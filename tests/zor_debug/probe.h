// probe.h: starts the probe, a process that uses the debug library in one named way.

#ifndef TESTS_ZOR_DEBUG_PROBE_H
#define TESTS_ZOR_DEBUG_PROBE_H

#include <string>
#include <vector>

#include "support/child_process.h"

namespace test {

/// The probe with all of the library's variables unset.
inline ChildProcess probe(const std::string& way, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {ZOR_DEBUG_PROBE, way};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ChildProcess process(arguments);
    process.variable("ZOR_DEBUG", "")
        .variable("ZOR_DEBUG_LEVELS_FILE", "")
        .variable("ZOR_DEBUG_FILE", "")
        .variable("ZOR_DEBUG_FILE_BYTES", "")
        .variable("ZOR_DEBUG_PREFIX", "");
    return process;
}

}  // namespace test

#endif  // TESTS_ZOR_DEBUG_PROBE_H

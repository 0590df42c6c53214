// state_reports.h: what tests of the state report share: having one written, and reading it.

#ifndef TESTS_DIAGNOSTICS_STATE_REPORTS_H
#define TESTS_DIAGNOSTICS_STATE_REPORTS_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "support/fault_injection.h"

namespace test {

inline std::string fileContents(const std::string& path) {
    const PassCalls pass;
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline std::string stateReport(bool isWhole = false) {
    namespace diagnostics = tevalon::base::diagnostics;
    std::string path = testing::TempDir() + "state.XXXXXX";
    const int fd = mkstemp(path.data());
    diagnostics::StateOptions options;
    options.isWhole = isWhole;
    EXPECT_EQ(diagnostics::writeState(fd, options), diagnostics::Status::Ok);
    (void)close(fd);
    const std::string text = fileContents(path);
    (void)unlink(path.c_str());
    return text;
}

/// The entries of the list of this title, each without its indentation.
inline std::vector<std::string> listOf(const std::string& report, const std::string& title) {
    std::istringstream lines(report);
    std::vector<std::string> entries;
    std::string line;
    while (std::getline(lines, line) && line.rfind(title + ":", 0) != 0) {
    }
    EXPECT_TRUE(lines) << title << " is not in\n" << report;
    while (std::getline(lines, line) && line.rfind("  ", 0) == 0) entries.push_back(line.substr(2));
    return entries;
}

/// How many entries there are of which all matches @p pattern.
inline long countOf(const std::vector<std::string>& entries, const std::string& pattern) {
    return std::count_if(entries.begin(), entries.end(), [&](const std::string& entry) {
        return std::regex_match(entry, std::regex(pattern));
    });
}

inline void expectEntry(const std::string& report, const std::string& title,
                        const std::string& pattern) {
    EXPECT_EQ(countOf(listOf(report, title), pattern), 1) << pattern << "\nis not in\n" << report;
}

}  // namespace test

#endif  // TESTS_DIAGNOSTICS_STATE_REPORTS_H

#include "base/diagnostics/state_report.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <regex>
#include <string>

#include "base/logging/boot_id.h"
#include "recordings.h"
#include "support/fresh_process.h"

namespace {

using namespace tevalon::base::diagnostics;

std::string stateReport() {
    std::string path = testing::TempDir() + "state.XXXXXX";
    const int fd = mkstemp(path.data());
    EXPECT_EQ(writeState(fd), Status::Ok);
    (void)close(fd);
    const std::string text = test::contentsOf(path);
    (void)unlink(path.c_str());
    return text;
}

std::string headPattern() {
    return "process " + std::to_string(getpid()) + " '" + program_invocation_short_name +
           "', boot id " + std::to_string(tevalon::base::bootID()) +
           "\n"
           "build id of the program [0-9a-f]{40}, of the library [0-9a-f]{40}\n"
           "at [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} UTC, "
           "monotonic [0-9]+\\.[0-9]{9}\n";
}

void expectMatch(const std::string& text, const std::string& pattern) {
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern))) << text << "is not\n" << pattern;
}

TEST(StateReportTest, TellsOfProcessTimeAndRecorder) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        expectMatch(stateReport(), headPattern() + "recorder: nothing was recorded\n");
        ASSERT_EQ(startRecording(test::optionsOf(32 * 1024)), Status::Ok);
        expectMatch(stateReport(),
                    headPattern() +
                        "recorder: recording, 3[0-9]{4} bytes, from monotonic [0-9]+\\.[0-9]{9}, "
                        "0 records lost\n");
        ASSERT_EQ(stopRecording(), Status::Ok);
        expectMatch(stateReport(),
                    headPattern() +
                        "recorder: stopped, 3[0-9]{4} bytes, from monotonic [0-9]+\\.[0-9]{9}, "
                        "0 records lost\n");
    });
}

}  // namespace

// A process may end at any moment, with all its timers, tasks and watches at work.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/child_process.h"

namespace {

class ProcessExitTest : public testing::TestWithParam<const char*> {
protected:
    static test::ChildProcess program() {
        test::ChildProcess program({TEVALON_TEST_EXIT_PROGRAM, GetParam()});
        // The thread sanitizer takes a thread that has ended, and is just about to be detached,
        // for a leak.
        const char* const p_options = std::getenv("TSAN_OPTIONS");
        const std::string options = p_options != nullptr ? p_options : "";
        return program.variable("TSAN_OPTIONS",
                                options + " report_thread_leaks=0 atexit_sleep_ms=50");
    }

    static void expectSilence(const test::ChildResult& result) {
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.signal, 0);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "");
    }
};

TEST_P(ProcessExitTest, IsSilentAndClean) {
    constexpr int kTries = 8;  // Each at another moment of the threads' work.
    for (int i = 0; i < kTries; ++i) {
        expectSilence(program().variable("ZOR_DEBUG", "off").run());
    }
}

TEST_P(ProcessExitTest, IsCleanWhileEverythingIsLogged) {
    expectSilence(
        program().variable("ZOR_DEBUG", "debug").variable("ZOR_DEBUG_FILE", "/dev/null").run());
}

INSTANTIATE_TEST_SUITE_P(From, ProcessExitTest,
                         testing::Values("return", "exit", "quick", "handler", "quick-handler",
                                         "task", "quick-task", "worker", "quick-worker",
                                         "main-task", "watch", "quick-watch", "static",
                                         "own-handler", "own-event-handler", "own-task",
                                         "own-watch"),
                         [](const auto& parameter) {
                             std::string name = parameter.param;
                             for (char& c : name) {
                                 if (c == '-') c = 'X';
                             }
                             return name;
                         });

}  // namespace

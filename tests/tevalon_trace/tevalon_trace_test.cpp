// The program tevalon-trace, on recordings of this very process.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "base/diagnostics/recorder.h"
#include "diagnostics/recordings.h"
#include "support/child_process.h"
#include "support/fresh_process.h"
#include "support/scratch_folder.h"

namespace {

using namespace tevalon::base::diagnostics;

test::ChildResult runTrace(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {TEVALON_TEST_TRACE};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return test::ChildProcess(command).run();
}

TEST(TevalonTraceTest, SaysHowItIsUsed) {
    const std::string usage = "usage: tevalon-trace [-h] (--text | --follow | --json | ";
    const test::ChildResult help = runTrace({"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_EQ(help.output.compare(0, usage.size(), usage), 0) << help.output;
    EXPECT_EQ(help.errors, "");
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{},
                                                  {"--text"},
                                                  {"file"},
                                                  {"--txt", "file"},
                                                  {"--text", "--json", "file"},
                                                  {"--text", "--last", "0", "file"},
                                                  {"--text", "--from", "2", "--to", "1", "file"},
                                                  {"--follow", "file", "file"}}) {
        const test::ChildResult result = runTrace(wrong);
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors.compare(0, usage.size(), usage), 0) << result.errors;
    }
}

TEST(TevalonTraceTest, SaysWhatItCannotRead) {
    const test::ScratchFolder folder;
    const std::string none = folder.path("none");
    const std::string other = folder.file("other");

    test::ChildResult result = runTrace({"--text", none});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "tevalon-trace: cannot read '" + none + "': No such file or directory\n");
    result = runTrace({"--text", other});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "tevalon-trace: cannot read '" + other +
                                 "': it does not begin as a recording does\n");
}

TEST(TevalonTraceTest, ShowsARecordingThatIsStillWritten) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::ScratchFolder folder;
        const std::string path = folder.path("recording");
        EXPECT_EQ(nameModule(7, "tuner"), Status::Ok);
        ASSERT_EQ(startRecording(test::optionsOf(16384, path.c_str())), Status::Ok);
        mark("tuned", 498000);
        const test::ChildResult result = runTrace({"--text", path});

        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.errors, "");
        const test::trace::Recording read = test::readFile(path);
        std::string expected = test::trace::describeHead(read);
        for (const auto& each : read.records) {
            expected += test::trace::describeRecord(read, each) + "\n";
        }
        EXPECT_EQ(result.output, expected);

        const std::string process = "process " + std::to_string(getpid()) + " '" +
                                    std::string(program_invocation_short_name, 0, 15) +
                                    "', boot id ";
        EXPECT_EQ(result.output.compare(0, process.size(), process), 0) << result.output;
        EXPECT_NE(result.output.find(", not stopped\n2 records of 1 threads\n"), std::string::npos);
        EXPECT_NE(result.output.find("  mark 'tuned' 498000\n"), std::string::npos);
    });
}

// Of tests/record_preload/client.cpp, built for 32-bit ARM and killed there.
TEST(TevalonTraceTest, ShowsARecordingOfAnotherArchitecture) {
    const test::ChildResult result = runTrace({"--text", TEVALON_TEST_ARM_RECORDING});

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output,
              "process 7738 'preload-client', boot id 841765316, on arm with 32-bit pointers\n"
              "build id of the program eefc52ff8b03b344a058cc308cd68f9f52dcbf74, of the library "
              "e97cbc9544a4447f50e78f58c6534765c643a352\n"
              "started at 2026-11-22 02:30:05.295 UTC, monotonic 16972.841813989, not stopped\n"
              "2 records of 1 threads\n"
              "16972.847425281  qemu-arm          7738  mark 'kill' 42\n"
              "16972.847425281  qemu-arm          7738  memory: resident 17.5 MiB, of it private "
              "6.1 MiB, at 2026-11-22 02:30:05.303 UTC\n");
}

TEST(TevalonTraceTest, SaysWhatIsMissing) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::ScratchFolder folder;
        for (int i = 0; i < 65; ++i) EXPECT_EQ(nameEvent(i, "event"), Status::Ok);
        ASSERT_EQ(startRecording(test::optionsOf(16384)), Status::Ok);
        mark("m");
        std::string bytes = test::writtenBytes();
        bytes.resize(bytes.size() - 300);  // A block of 256 bytes, and a bit of another.
        const std::uint32_t lost = 12;
        std::memcpy(bytes.data() + offsetof(test::record::Head, recordsLost), &lost, sizeof(lost));

        const std::string path = folder.file("damaged", bytes);
        const test::ChildResult result = runTrace({"--text", path});

        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.errors, "tevalon-trace: cannot read all of '" + path +
                                     "': it is cut off: 2 of 55 blocks are missing\n");
        EXPECT_NE(
            result.output.find("12 records lost\n2 of 55 blocks unreadable\n1 names missing\n"),
            std::string::npos)
            << result.output;
    });
}

}  // namespace

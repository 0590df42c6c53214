// The program as a user meets it.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <regex>
#include <string>

namespace {

struct Outcome {
    int status;
    std::string output;  ///< Both streams.
};

Outcome run(const std::string& arguments) {
    const std::string command = "ZOR_DEBUG=off " CHANNEL_SCANNER " " + arguments + " 2>&1";
    Outcome outcome = {-1, ""};
    std::FILE* const p_pipe = popen(command.c_str(), "r");
    if (p_pipe == nullptr) return outcome;
    char buffer[4096];
    for (std::size_t count; (count = std::fread(buffer, 1, sizeof buffer, p_pipe)) > 0;) {
        outcome.output.append(buffer, count);
    }
    const int status = pclose(p_pipe);
    if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
    return outcome;
}

const std::string kScan =
    "474 MHz: services: 3, quality 91 %\n"
    "482 MHz: nothing\n"
    "490 MHz: services: 2, quality 84 %\n"
    "498 MHz: the tuner does not answer\n"
    "506 MHz: services: 1, quality 35 %\n"
    "101 News at 474 MHz\n"
    "102 Films at 474 MHz\n"
    "103 Sports at 474 MHz\n"
    "201 Regional at 490 MHz\n"
    "202 Radio at 490 MHz\n"
    "301 Shopping at 506 MHz\n";

TEST(ChannelScannerTest, ListsWhatIsBroadcast) {
    const Outcome outcome = run("--patience 2000");

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, kScan);
}

TEST(ChannelScannerTest, SaysWhatItDoesNotUnderstand) {
    const Outcome outcome = run("--patience=soon --loud -x");

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output,
              "channel_scanner: not understood: --loud\n"
              "channel_scanner: not understood: -x\n"
              "channel_scanner: --patience takes milliseconds\n");
}

TEST(ChannelScannerTest, HelpsWithItsOptions) {
    const Outcome outcome = run("--help");

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output,
              "usage: channel_scanner [options]\n"
              "-h or --help\n\t\t\tPrints this message\n"
              "--patience=#\n\t\t\tWait so many milliseconds for the tuner (200)\n"
              "--state\n\t\t\tShow what the modules do while the tuner hangs\n");
}

TEST(ChannelScannerTest, ShowsWhatItsModulesDo) {
    const Outcome outcome = run("--patience=3000 --state");

    EXPECT_EQ(outcome.status, 0);
    for (const char* name : {"tuner", "demultiplexer", "scanner", "channel list"}) {
        const std::regex hub("module \\d '" + std::string(name) + "': thread \\d+ ");
        EXPECT_TRUE(std::regex_search(outcome.output, hub)) << name << '\n' << outcome.output;
    }
}

}  // namespace

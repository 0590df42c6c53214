// The program as a user meets it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace {

struct Outcome {
    int status;
    std::string output;  ///< Both streams.
};

[[noreturn]] void become(std::vector<std::string>* p_words, int output) {
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
    (void)setenv("ZOR_DEBUG", "off", 1);
    std::vector<char*> pointers;
    for (std::string& word : *p_words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    (void)execv(pointers[0], pointers.data());
    _exit(127);
}

Outcome run(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {CHANNEL_SCANNER};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Outcome outcome = {-1, ""};
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return outcome;
    const pid_t child = fork();
    if (child == 0) become(&words, ends[1]);
    (void)close(ends[1]);
    char buffer[4096];
    for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
        outcome.output.append(buffer, static_cast<std::size_t>(count));
    }
    (void)close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        outcome.status = WEXITSTATUS(status);
    }
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
    const Outcome outcome = run({"--patience", "2000"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, kScan);
}

TEST(ChannelScannerTest, SaysWhatItDoesNotUnderstand) {
    const Outcome outcome = run({"--patience=soon", "--loud", "-x"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output,
              "channel_scanner: not understood: --loud\n"
              "channel_scanner: not understood: -x\n"
              "channel_scanner: --patience takes milliseconds\n");
}

TEST(ChannelScannerTest, HelpsWithItsOptions) {
    const Outcome outcome = run({"--help"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output,
              "usage: channel_scanner [options]\n"
              "-h or --help\n\t\t\tPrints this message\n"
              "--patience=#\n\t\t\tWait so many milliseconds for the tuner (200)\n"
              "--state\n\t\t\tShow what the modules do while the tuner hangs\n");
}

TEST(ChannelScannerTest, ShowsWhatItsModulesDo) {
    const Outcome outcome = run({"--patience=3000", "--state"});

    EXPECT_EQ(outcome.status, 0);
    for (const char* name : {"tuner", "demultiplexer", "scanner", "channel list"}) {
        const std::regex hub("module \\d '" + std::string(name) + "': thread \\d+ ");
        EXPECT_TRUE(std::regex_search(outcome.output, hub)) << name << '\n' << outcome.output;
    }
}

}  // namespace

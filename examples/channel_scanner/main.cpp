// channel_scanner: looks for the channels that are broadcast, and lists them.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "air.h"
#include "base/diagnostics.h"
#include "base/timer.h"
#include "base/utils.h"
#include "channel_list.h"
#include "demultiplexer.h"
#include "scanner.h"
#include "tuner.h"

namespace {

using namespace scanner;
using namespace std::chrono_literals;
using namespace tevalon::base;

struct Options {
    std::chrono::milliseconds patience;
    bool showsState;
};

void reportUnknown(const std::vector<std::string>& notUnderstood) {
    for (const std::string& text : notUnderstood) {
        std::fprintf(stderr, "channel_scanner: not understood: %s\n", text.c_str());
    }
}

/// False where an argument makes no sense, which has been said.
bool readOptions(int argc, char** argv, Options* p_options) {
    utils::CommandLine commandLine(argc, argv, "usage: channel_scanner [options]\n", "", false);
    commandLine.AddOption("help", 'h', true, "Prints this message", false, nullptr);
    commandLine.AddOption("patience", "Wait so many milliseconds for the tuner (200)", true);
    commandLine.AddOption("state", "Show what the modules do while the tuner hangs", false);
    std::vector<std::string> notUnderstood;
    commandLine.Parse(&notUnderstood);
    reportUnknown(notUnderstood);

    int patienceMs = 200;
    const bool isPatienceGood =
        !commandLine.HasOption("patience") ||
        (commandLine.ReadOptionValue("patience", &patienceMs) && patienceMs > 0);
    if (!isPatienceGood) std::fprintf(stderr, "channel_scanner: --patience takes milliseconds\n");
    *p_options = {std::chrono::milliseconds(patienceMs), commandLine.HasOption("state")};
    return isPatienceGood && notUnderstood.empty();
}

void nameModules() {
    (void)diagnostics::nameModule(kTuner, "tuner");
    (void)diagnostics::nameModule(kDemultiplexer, "demultiplexer");
    (void)diagnostics::nameModule(kScanner, "scanner");
    (void)diagnostics::nameModule(kChannelList, "channel list");
    (void)diagnostics::nameEvent(kTune, "tune");
}

/// What the channel list answers to the program's own module.
int printChannels() {
    constexpr std::int32_t kProgram = 9;
    event_dispatcher::EventHub hub(kProgram);
    const auto request = event_dispatcher::makeRequest<Channels>(hub, kListChannels);
    (void)hub.sendEventSyncFor(request, kChannelList, 5s);
    const auto* const p_channels = event_dispatcher::replyOf<Channels>(request);
    if (p_channels == nullptr) return 1;
    for (const std::string& channel : *p_channels) std::printf("%s\n", channel.c_str());
    return 0;
}

int scan(const Options& options) {
    const Air air = anEveningsAir();
    const Tuner tuner(air);
    const Demultiplexer demultiplexer;
    const ChannelList list;
    Scanner scanner({options.patience, 5s},
                    [](const std::string& line) { std::printf("%s\n", line.c_str()); });
    const timer::NamedWatch watch("scan", 10s, [](const std::string& name, double seconds) {
        std::fprintf(stderr, "channel_scanner: the %s takes %.0f s\n", name.c_str(), seconds);
    });

    std::vector<int> frequencies;
    for (const Broadcast& broadcast : air) frequencies.push_back(broadcast.frequencyMhz);
    scanner.start(frequencies);
    if (options.showsState && !scanner.waitForEnd(options.patience / 2)) {
        std::fflush(stdout);
        (void)diagnostics::writeState(STDOUT_FILENO);
    }
    if (!scanner.waitForEnd(60s)) return 1;
    return printChannels();
}

}  // namespace

int main(int argc, char** argv) {
    Options options = {};
    if (!readOptions(argc, argv, &options)) return 2;
    nameModules();
    return scan(options);
}

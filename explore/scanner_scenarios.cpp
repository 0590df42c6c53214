// The channel scanner of the examples: four modules, which ask each other without waiting.
#include <chrono>
#include <optional>

#include "air.h"
#include "channel_list.h"
#include "demultiplexer.h"
#include "scanner.h"
#include "section.h"
#include "testkit/explore.h"
#include "tuner.h"

using namespace scanner;
using namespace std::chrono_literals;
using namespace tevalon::base::event_dispatcher;

namespace {

constexpr Scanner::Patience kPatience = {100ms, 200ms};

Air oneFrequency(std::chrono::milliseconds lockTime) {
    return {{474, 90, lockTime, {makeSection(0, 0, {{1, "One"}})}}};
}

/// With so many threads there are too many schedules with more preemptions than that.
tevalon::testkit::ScenarioOptions upTo(int preemptions) {
    tevalon::testkit::ScenarioOptions options;
    options.bound = preemptions;
    return options;
}

std::size_t channelsFound() {
    EventHub hub(9);
    const auto request = makeRequest<Channels>(hub, kListChannels);
    (void)hub.sendEventSync(request, kChannelList, -1);
    const auto* const p_channels = replyOf<Channels>(request);
    return p_channels != nullptr ? p_channels->size() : 0;
}

}  // namespace

TEVALON_SCENARIO_WITH(ScannerFindsWhatIsBroadcast, upTo(0)) {
    const Air air = oneFrequency(1ms);
    const Tuner tuner(air);
    const Demultiplexer demultiplexer;
    const ChannelList list;
    Scanner scanner(kPatience, [](const std::string&) {});
    scanner.start({474});
    TEVALON_EXPECT(scanner.waitForEnd(10s));
    TEVALON_EXPECT(channelsFound() == 1);
}

// The answer and the end of the patience come at one moment.
TEVALON_SCENARIO_WITH(ScannerLosesPatienceAsTheTunerLocks, upTo(1)) {
    const Air air = oneFrequency(kPatience.forLock);
    const Tuner tuner(air);
    int lines = 0;
    Scanner scanner(kPatience, [&lines](const std::string&) { ++lines; });
    scanner.start({474});
    TEVALON_EXPECT(scanner.waitForEnd(10s));
    TEVALON_EXPECT(lines == 1);
}

// In the middle of a scan; the tuner last, which still holds the request.
TEVALON_SCENARIO_WITH(ScannerIsDestroyedInTheMiddle, upTo(1)) {
    const Air air = oneFrequency(1ms);
    const Tuner tuner(air);
    Scanner scanner(kPatience, [](const std::string&) {});
    scanner.start({474, 474});
}

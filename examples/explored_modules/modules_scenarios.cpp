// The modules under every schedule with few preemptions.
#include <thread>

#include "modules.h"
#include "testkit/explore.h"

namespace {

tevalon::testkit::ScenarioOptions deadlocks() {
    tevalon::testkit::ScenarioOptions options;
    options.meantFailure = "lost wake-up";
    return options;
}

void changeChannelAndAsk(bool asksInHandler) {
    client::Guide guide(asksInHandler);
    client::Tuner tuner;
    const tevalon::testkit::TimeStandsStill still;
    tuner.changeChannel(7);
    TEVALON_EXPECT(tuner.title() > 100);
}

}  // namespace

TEVALON_SCENARIO(ChannelChangeAndTitle) {
    changeChannelAndAsk(false);
}

// The guide's handler waits for the tuner's, which waits for the guide's.
TEVALON_SCENARIO_WITH(ModulesThatAskEachOther, deadlocks()) {
    changeChannelAndAsk(true);
}

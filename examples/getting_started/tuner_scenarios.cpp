// tuner_scenarios.cpp: the tuner under every schedule with few preemptions.
#include <thread>

#include "testkit/explore.h"
#include "tuner.h"

namespace {

int tune(int channel) {
    tevalon::base::event_dispatcher::EventHub remote(tv::kRemote);
    const auto event = remote.createEvent(tv::kTune);
    event->param = new tv::Channel(channel);
    return remote.sendEventSync(event, tv::kTuner, /*timeout=*/-1);
}

}  // namespace

TEVALON_SCENARIO(TwoRemotesAtOnce) {
    tv::Tuner tuner;
    std::thread other([] { TEVALON_EXPECT(tune(2) == 2); });
    const tevalon::testkit::TimeStandsStill still;  // No wait may need a time-out to end.
    TEVALON_EXPECT(tune(3) == 3);
    other.join();
}

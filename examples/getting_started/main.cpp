// main.cpp: a remote control that asks the tuner.
#include <cstdio>

#include "tuner.h"

int main() {
    tv::Tuner tuner;
    // It only sends: a hub without handlers needs neither a thread nor to be registered.
    tevalon::base::event_dispatcher::EventHub remote(tv::kRemote);
    for (const int channel : {3, 9}) {
        const auto tune = remote.createEvent(tv::kTune);
        tune->param = new tv::Channel(channel);  // Owned by the event.
        const int reply = remote.sendEventSync(tune, tv::kTuner, /*timeout=*/1000);
        std::printf("asked for channel %d, the tuner replied %d\n", channel, reply);
    }
}

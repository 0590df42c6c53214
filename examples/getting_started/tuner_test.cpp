// tuner_test.cpp: the tuner as its clients see it.
#include "tuner.h"

#include <gtest/gtest.h>

namespace {

using tevalon::base::event_dispatcher::EventHub;

int tune(int channel) {
    EventHub remote(tv::kRemote);
    const auto event = remote.createEvent(tv::kTune);
    event->param = new tv::Channel(channel);
    return remote.sendEventSync(event, tv::kTuner, /*timeout=*/-1);
}

TEST(TunerTest, ShowsAChannelThatThereIs) {
    const tv::Tuner tuner;
    EXPECT_EQ(tune(4), 4);
}

TEST(TunerTest, RefusesAChannelThatThereIsNot) {
    const tv::Tuner tuner;
    EXPECT_EQ(tune(5), tv::kNoSuchChannel);
}

TEST(TunerTest, IsNotThereOnceItIsDestroyed) {
    { const tv::Tuner tuner; }
    EXPECT_EQ(tune(4), -1);  // "Fail to send event." in the log.
}

}  // namespace

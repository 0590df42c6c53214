// typed_events.cpp: payloads and replies of one's own types, and questions that nobody waits for.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "base/event_dispatcher.h"

using namespace std::chrono_literals;
using namespace tevalon::base::event_dispatcher;

namespace {

using Event = std::shared_ptr<BrowserEvent>;

constexpr int kScreen = 1;
constexpr int kTuner = 2;
constexpr int kTune = 10;     // To the tuner: a Channel. Replies 0 and a Signal.
constexpr int kQuality = 11;  // To the screen: a Signal, ten times a second.
constexpr int kPause = 12;    // To the screen.

struct Channel {
    std::string name;
};
struct Signal {
    int percent;
};

}  // namespace

int main() {
    EventHub screen(kScreen);
    EventHub tuner(kTuner);
    std::promise<void> isAsked;
    std::promise<void> isTold;
    std::promise<void> hasPaused;
    std::promise<void> mayGoOn;
    const std::shared_future<void> goOn = mayGoOn.get_future().share();
    bool isPausing = false;

    tuner.registerHandler(kTune, [](const Event& event) {
        const auto* p_channel = payload<Channel>(event);  // Null where it is something else.
        if (p_channel == nullptr) return;
        std::printf("tuner: %s\n", p_channel->name.c_str());
        (void)fillReply<Signal>(event, Signal{80});
        event->replyResult(0);
    });
    screen.registerHandler(kQuality, [&isTold](const Event& event) {
        const auto signal = newest<Signal>(event);
        if (!signal) return;
        std::printf("screen: %d %%\n", signal->percent);
        isTold.set_value();
    });
    screen.registerHandler(kPause, [&](const Event&) {
        if (!std::exchange(isPausing, true)) hasPaused.set_value();
        goOn.wait();
    });
    // Each until the end of the scope, in whichever way that is left.
    const HubRegistration screenRegistration(&screen);
    const HubRegistration tunerRegistration(&tuner);

    // Ask and wait: the reply is part of the request.
    const Event request = makeRequest<Signal, Channel>(screen, kTune, Channel{"News"});
    if (screen.sendEventSyncFor(request, kTuner, 1s) == 0) {
        std::printf("screen: %d %% of News\n", replyOf<Signal>(request)->percent);
    }

    // Ask and go on: the answer, or that there is none in time, comes to the screen's own thread.
    screen.sendAsync(makeRequest<Signal, Channel>(screen, kTune, Channel{"Sports"}), kTuner, 1s,
                     [&isAsked](std::int32_t result, const Event& event) {
                         const auto* p_signal = replyOf<Signal>(event);
                         if (result == 0) std::printf("screen: %d %%\n", p_signal->percent);
                         isAsked.set_value();
                     });
    isAsked.get_future().wait();

    // Tell what changes often: while one waits in the queue, a newer value takes its place.
    NewestEvent<Signal> quality(tuner, kQuality, kScreen);
    quality.send({81});
    isTold.get_future().wait();

    // A mailbox that is full refuses. One event is in its handler, one may wait, here.
    screen.setQueueLimit(1);
    tuner.sendEvent(tuner.createEvent(kPause), kScreen);
    hasPaused.get_future().wait();
    std::printf("waits: %d\n", tuner.sendEvent(tuner.createEvent(kPause), kScreen));
    std::printf("full: %d\n",
                tuner.sendEvent(tuner.createEvent(kPause), kScreen) == kEventQueueFull);
    mayGoOn.set_value();
}

// diagnostics.cpp: what the process did, and what it does.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"

using namespace tevalon::base;

int main(int argc, char** argv) {
    constexpr int kTuner = 2;
    constexpr int kTune = 100;
    const char* file = argc > 1 ? argv[1] : "tuner.recording";

    // Names stand in recordings and reports instead of numbers.
    diagnostics::nameModule(kTuner, "tuner");
    diagnostics::nameEvent(kTune, "tune");

    diagnostics::RecordingOptions options;
    options.file = file;  // Must not be there yet. Outlives the process, however that ends.
    const diagnostics::Status started = diagnostics::startRecording(options);
    std::printf("recording: %d\n", started == diagnostics::Status::Ok);

    event_dispatcher::EventHub tuner(kTuner);
    tuner.registerHandler(kTune, [](const auto& event) {
        const diagnostics::Scope scope("tune");  // From here to the end of the handler.
        diagnostics::counter("channel", 7);
        event->replyResult(0);
    });
    event_dispatcher::evtdispch_register_hub(&tuner);
    (void)tuner.receiveEvent(tuner.createEvent(kTune));

    // At any time, from any thread: who does what, who waits for whom.
    (void)diagnostics::writeState(STDERR_FILENO);

    event_dispatcher::evtdispch_unregister_hub(&tuner);
    diagnostics::mark("tuned");
    diagnostics::stopRecording();
}

// A module that is loaded, exchanges payloads with others, and is unloaded.
#include "event_dispatcher/payload_module.h"

namespace {

using namespace tevalon::base::event_dispatcher;
using Event = PayloadModule::Event;

/// Each module's own, by one name.
struct Private {
    int number = 0;
};

int numberOrNone(const SharedPayload* p_payload) {
    return p_payload != nullptr ? p_payload->number : -1;
}

const PayloadModule kModule = {
    [](const EventHub& hub, int number) {
        return makeEvent<SharedPayload>(hub, 1, number, "a text that is longer than a few words");
    },
    [](const EventHub& hub) { return makeEvent<Private>(hub, 1); },
    [](const EventHub& hub) { return makeRequest<SharedPayload, SharedList<int>>(hub, 1); },
    [](const Event& event) { return numberOrNone(payload<SharedPayload>(event)); },
    [](const Event& event) { return payload<Private>(event) != nullptr; },
    [](const Event& request, int number) {
        return fillReply<SharedPayload>(request, number, "reply");
    },
    [](const Event& request) { return numberOrNone(replyOf<SharedPayload>(request)); },
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const PayloadModule* payload_module() {
    return &kModule;
}

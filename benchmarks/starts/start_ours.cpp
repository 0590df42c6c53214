// start_ours [event]: a process with the library in it that ends at once, or when its first event
// has been handled.

#include "base/event_dispatcher.h"

namespace events = tevalon::base::event_dispatcher;

int main(int argc, char**) {
    if (argc == 1) return events::kEventResultNone == -1 ? 0 : 1;
    constexpr int kType = 1;
    constexpr int kNoLimit = -1;
    events::EventHub hub(1);
    hub.registerHandler(kType, [](const auto& event) { event->replyResult(0); });
    events::evtdispch_register_hub(&hub);
    const int reply = hub.sendEventSync(hub.createEvent(kType), hub.moduleId(), kNoLimit);
    events::evtdispch_unregister_hub(&hub);
    return reply;
}

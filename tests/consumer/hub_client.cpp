// hub_client.cpp: a client that makes a hub and logs nothing: it does not need the debug-output
// library itself, and the linker may leave it out.

#include "base/event_dispatcher.h"

int main() {
    tevalon::base::event_dispatcher::EventHub hub(1);
    return hub.createEvent(2)->srcModule == 1 ? 0 : 1;
}

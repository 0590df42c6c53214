// Reads a payload after its event is gone. The address sanitizer is to find it, whether the library
// was built with it or only this client of it: nothing may be kept in a cache then.

#include <cstdio>
#include <utility>

#include "base/event_dispatcher.h"

namespace {

using namespace tevalon::base::event_dispatcher;

struct Channel : EventParam {
    explicit Channel(int number_) : number(number_) {}

    int number;
};

}  // namespace

int main() {
    const EventHub hub(1);
    auto event = hub.createEvent(2);
    auto* const p_channel = new Channel(5);
    event->param = p_channel;

    event.reset();

    std::printf("%d\n", p_channel->number);
    return 0;
}

// events.cpp: four ways in which modules talk.
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "base/event_dispatcher.h"
#include "base/timer.h"

using namespace tevalon::base::event_dispatcher;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThread;

namespace {

using Event = std::shared_ptr<BrowserEvent>;

constexpr int kScreen = 1;
constexpr int kLoader = 2;
constexpr int kLoad = 10;       // To the loader: a Page. Replies how many bytes it has.
constexpr int kVisible = 11;    // To everybody: the screen shows something.
constexpr int kShutDown = 12;   // To the screen. Replies 0.
constexpr int kUnhandled = 13;  // Nobody has a handler for it.

struct Page : EventParam {
    explicit Page(std::string url) : address(std::move(url)) {}
    const std::string address;  // Constant: handlers read payloads without a lock.
};

}  // namespace

int main() {
    TimerThread downloads;
    EventHub screen(kScreen);
    EventHub loader(kLoader);

    // A handler may reply later, from any thread: it keeps the event.
    loader.registerHandler(kLoad, [&downloads](const Event& event) {
        const auto* page = static_cast<const Page*>(event->param);
        std::printf("loader: loading %s\n", page->address.c_str());
        downloads.postTask(
            std::make_shared<CallableTimerTask>([event] { event->replyResult(4711); }), 20);
    });
    loader.registerHandler(kVisible, [](const Event& event) {
        std::printf("loader: module %d is visible\n", event->srcModule);
    });
    // For one source only. Registered before a handler for all sources, it takes precedence.
    screen.registerHandler(kLoader, kShutDown, [](const Event& event) {
        std::printf("screen: good night\n");
        event->replyResult(0);
    });
    evtdispch_register_hub(&screen);
    evtdispch_register_hub(&loader);

    // Tell everybody, and go on. The status is that of the last hub that was asked.
    const int told = screen.sendEvent(screen.createEvent(kVisible), kAnyModule);

    // Ask, and wait for the reply. A hub handles its events in order: the other one is done then.
    const Event load = screen.createEvent(kLoad);
    load->param = new Page("http://tv.example/news");  // The event owns it.
    std::printf("screen: %d bytes\n", screen.sendEventSync(load, kLoader, 1000));
    std::printf("told everybody: %d\n", told);

    // What nobody handles, and what is for nobody, is refused at once.
    std::printf("unhandled: %d\n", screen.sendEvent(screen.createEvent(kUnhandled), kLoader));
    std::printf("for nobody: %d\n", screen.sendEvent(screen.createEvent(kLoad), 99));

    std::printf("shut down: %d\n",
                loader.sendEventSync(loader.createEvent(kShutDown), kScreen, -1));

    // Before the hubs are destroyed, and before what their handlers use is.
    evtdispch_unregister_hub(&loader);
    evtdispch_unregister_hub(&screen);
}

// The end of the process, while threads of the library are at work.
#include <time.h>

#include <cstdlib>
#include <memory>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::Semaphore;
using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::event_dispatcher::evtdispch_register_hub;
using tevalon::base::event_dispatcher::evtdispch_unregister_hub;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::Timer;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::GlobalWatchDog;
using tevalon::base::timer::TimerThread;
using tevalon::base::timer::TimerThreadPool;

namespace {

void sleepMs(int milliseconds) {
    const timespec duration = {0, milliseconds * 1'000'000L};
    (void)nanosleep(&duration, nullptr);
}

}  // namespace

TEVALON_SCENARIO(ExitAgainstSimpleTimer) {
    static Timer s_timer(
        "A", {0, 10, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
    TEVALON_EXPECT(s_timer.start() == 0);
    sleepMs(10);
    std::exit(0);
}

TEVALON_SCENARIO(ExitInSimpleTimersHandler) {
    static Semaphore s_never;
    static Timer s_timer(
        "A", {0, 10, 0}, [](Timer*, void*) { std::exit(0); }, nullptr, CONTINUE);
    TEVALON_EXPECT(s_timer.start() == 0);
    s_never.wait();
}

TEVALON_SCENARIO(ExitAgainstTimerThread) {
    static TimerThread s_thread;
    s_thread.postTask(std::make_shared<CallableTimerTask>([] { sleepMs(1); }));
    std::exit(0);
}

TEVALON_SCENARIO(ExitInTask) {
    static Semaphore s_never;
    static TimerThread s_thread;
    s_thread.postTask(std::make_shared<CallableTimerTask>([] { std::exit(0); }));
    s_never.wait();
}

TEVALON_SCENARIO(ExitAgainstPool) {
    TimerThreadPool::postWorkerTask(std::make_shared<CallableTimerTask>([] {}));
    std::exit(0);
}

TEVALON_SCENARIO(ExitAgainstHub) {
    static EventHub s_hub(1);
    evtdispch_register_hub(&s_hub);
    TEVALON_EXPECT(s_hub.registerHandler(1, [](const std::shared_ptr<BrowserEvent>&) {}) == 0);
    (void)s_hub.sendEvent(s_hub.createEvent(1), 1);
    std::exit(0);
}

// The hub goes with the process: whoever sends to it has to be done by then.
TEVALON_SCENARIO(ExitInHandler) {
    static Semaphore s_sent;
    static Semaphore s_never;
    static EventHub s_hub(1);
    TEVALON_EXPECT(s_hub.registerHandler(1, [](const std::shared_ptr<BrowserEvent>&) {
        s_sent.wait();
        std::exit(0);
    }) == 0);
    (void)s_hub.receiveEvent(s_hub.createEvent(1));
    s_sent.post();
    s_never.wait();
}

TEVALON_SCENARIO(ExitAgainstWatchDog) {
    GlobalWatchDog()->beginWatch(tevalon::base::timer::WatchDog::eWatchID_doOOM, 0.05);
    sleepMs(100);
    std::exit(0);
}

// Uses every service while the process exits: in a function given to atexit(), with static objects
// that were used before, that are new, and that are destroyed meanwhile. Status 0 and a line of
// text when each did what it does at any other time.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"

namespace {

using namespace tevalon::base;
using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;
using timer::CallableTimerTask;

constexpr int kClient = 1;
constexpr int kServer = 2;
constexpr int kAsk = 10;

void expect(bool isRight, const char* what) {
    if (isRight) return;
    std::printf("at exit: %s\n", what);
    (void)std::fflush(stdout);
    _exit(1);
}

struct Server {
    explicit Server(int module) : hub(module) {
        (void)hub.registerHandler(
            kAsk, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(7); });
        event_dispatcher::evtdispch_register_hub(&hub);
    }
    ~Server() { event_dispatcher::evtdispch_unregister_hub(&hub); }

    EventHub hub;
};

int ask(int module) {
    EventHub client(kClient);
    return client.sendEventSync(client.createEvent(kAsk), module, -1);
}

void useHubs() {
    expect(ask(kServer) == 7, "a hub that was there did not reply");
    {
        const Server another(kServer + 1);
        expect(ask(kServer + 1) == 7, "a new hub did not reply");
    }
    expect(ask(kServer + 1) == -1, "a hub that is gone replied");
}

void useTimer(simple_timer::Timer* p_timer, std::promise<void>* p_hasFired) {
    expect(p_timer->start() == 0, "a timer did not start");
    p_hasFired->get_future().wait();
    expect(p_timer->stop() == 0, "a timer did not stop");
}

void useThread(timer::TimerThread* p_thread) {
    std::promise<void> hasRun;
    p_thread->postTask(std::make_shared<CallableTimerTask>([&hasRun] { hasRun.set_value(); }), 0);
    hasRun.get_future().wait();
    p_thread->stop();
}

void usePool() {
    std::promise<bool> isBackground;
    timer::TimerThreadPool::postBackgroundTask(std::make_shared<CallableTimerTask>(
        [&isBackground] { isBackground.set_value(timer::TimerThreadPool::isBackgroundThread()); }));
    expect(isBackground.get_future().get(), "the pool's thread does not know itself");
}

void useWatchDog() {
    std::promise<void> isReported;
    timer::WatchDog watchDog;
    watchDog.setTimeoutCallback(
        [](void* p_context, timer::WatchDog::WATCH_ID id, double) {
            static std::atomic<bool> isFirst{true};
            if (id == timer::WatchDog::eWatchID_app_stop && isFirst.exchange(false)) {
                static_cast<std::promise<void>*>(p_context)->set_value();
            }
        },
        &isReported);
    watchDog.beginWatch(timer::WatchDog::eWatchID_app_stop, 0.0);
    isReported.get_future().wait();
    timer::GlobalWatchDog()->beginWatch(timer::WatchDog::eWatchID_app_stop, 3600.0);
    timer::GlobalWatchDog()->stopWatch(timer::WatchDog::eWatchID_app_stop);
}

class Once : public Threading::Runnable {
public:
    Once() : Runnable(1) {}
    void execute() override { stop(); }
};

void useRunnable() {
    Once once;
    std::thread thread([&once] { expect(once.run() == 0, "a job did not end"); });
    thread.join();
}

void useDiagnostics() {
    expect(diagnostics::startRecording() == diagnostics::Status::Ok, "nothing is recorded");
    diagnostics::mark("at exit");
    expect(diagnostics::stopRecording() == diagnostics::Status::Ok, "recording does not end");
}

// Made in this order and destroyed in the other one, after what was given to atexit() later.
std::promise<void> g_hasFired;
simple_timer::Timer g_timer(
    "at exit", {0, 1, 0}, [](simple_timer::Timer*, void*) { g_hasFired.set_value(); }, nullptr,
    simple_timer::ONCE);
timer::TimerThread g_thread;
const Server g_server(kServer);

void useEverything() {
    useHubs();
    useTimer(&g_timer, &g_hasFired);
    useThread(&g_thread);
    timer::TimerThread another;
    useThread(&another);
    usePool();
    useWatchDog();
    useRunnable();
    useDiagnostics();
    ::base::set_process_property("at exit", "yes");
    expect(::base::get_process_property("at exit") == "yes", "a property was not kept");
    std::printf("at exit: every service works\n");
}

}  // namespace

int main() {
    expect(ask(kServer) == 7, "the hub did not reply in time");
    usePool();
    ::base::set_process_property("at exit", "no");
    (void)std::atexit(useEverything);
    return 0;
}

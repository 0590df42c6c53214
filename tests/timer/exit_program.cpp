// A process full of timers, tasks and watches that ends in the manner that its argument says.
// Whatever its threads touch is never destroyed; what the library's own touch is its affair.

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"

namespace {

using namespace tevalon::base;
using simple_timer::Timer;
using timer::CallableTimerTask;
using timer::TimerThread;
using timer::TimerThreadPool;
using timer::WatchDog;

[[noreturn]] void waitForEver() {
    for (;;) (void)pause();
}

enum Place { kHandler, kTask, kWorkerTask, kMainTask, kWatch, kPlaceCount };

/// How often each place has been reached, and what to do there.
struct World {
    std::atomic<int> visits[kPlaceCount] = {};
    std::atomic<int> ending{-1};  // The place that ends the process.
    std::atomic<bool> isQuick{false};
    std::vector<std::unique_ptr<Timer>> timers;
    TimerThread thread;
    WatchDog dog;

    void visit(Place place) {
        ++visits[place];
        if (ending != place) return;
        ending = -1;  // Not twice.
        if (isQuick) std::quick_exit(0);
        std::exit(0);
    }

    bool isBusy() const {
        for (const std::atomic<int>& count : visits) {
            if (count == 0) return false;
        }
        return visits[kHandler] > 50;
    }
};

World& world() {
    static World* const s_world = new World;  // Never destroyed: its threads outlive main.
    return *s_world;
}

void repeat(Place place, void (*post)(std::shared_ptr<timer::TimerTaskBase>)) {
    post(std::make_shared<CallableTimerTask>([place, post] {
        world().visit(place);
        repeat(place, post);
    }));
}

void postToThread(std::shared_ptr<timer::TimerTaskBase> task) {
    world().thread.postTask(std::move(task), 1);
}

void fillTheWorld() {
    for (int i = 0; i < 12; ++i) {
        world().timers.push_back(std::make_unique<Timer>(
            "beat", simple_timer::TimeoutTime{0, i % 3, 500},
            [](Timer*, void*) { world().visit(kHandler); }, nullptr, simple_timer::CONTINUE));
        world().timers.push_back(std::make_unique<Timer>(
            "far", simple_timer::TimeoutTime{3600, 0, 0}, [](Timer*, void*) {}, nullptr,
            simple_timer::ONCE));
    }
    for (const auto& p_timer : world().timers) (void)p_timer->start();
    repeat(kTask, postToThread);
    repeat(kWorkerTask, TimerThreadPool::postWorkerTask);
    repeat(kMainTask, TimerThreadPool::postMainThreadTask);
    for (int i = 0; i < 100; ++i) {
        world().thread.postTask(std::make_shared<CallableTimerTask>([] {}), 3600 * 1000);
        TimerThreadPool::postForegroundTask(std::make_shared<CallableTimerTask>([] {}));
    }
    const auto report = [](void*, WatchDog::WATCH_ID, double) { world().visit(kWatch); };
    world().dog.setTimeoutCallback(report, nullptr);
    world().dog.beginWatch(WatchDog::eWatchID_app_stop, 0.0);
    timer::GlobalWatchDog()->setTimeoutCallback(report, nullptr);
    timer::GlobalWatchDog()->beginWatch(WatchDog::eWatchID_app_show, 0.0);
}

/// Timers and threads that the exit itself destroys, in the middle of their work.
void makeStaticOnes() {
    static std::atomic<int> s_runs;
    static Timer s_timer(
        "static", {0, 0, 300}, [](Timer*, void*) { ++s_runs; }, nullptr, simple_timer::CONTINUE);
    static TimerThread s_thread;
    static WatchDog s_dog;
    (void)s_timer.start();
    s_thread.postTask(std::make_shared<CallableTimerTask>([] { ++s_runs; }), 0);
    s_thread.postTask(std::make_shared<CallableTimerTask>([] {}), 3600 * 1000);
    s_dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) { ++s_runs; }, nullptr);
    s_dog.beginWatch(WatchDog::eWatchIDNull, 0.0);
    while (s_runs < 3) (void)usleep(100);
}

// Each is destroyed by the very exit that its own handler, task or callback calls.

void exitInOwnHandler() {
    static Timer s_timer(
        "own", {0, 1, 0}, [](Timer*, void*) { std::exit(0); }, nullptr, simple_timer::CONTINUE);
    (void)s_timer.start();
    waitForEver();
}

void exitInOwnEventHandler() {
    using namespace event_dispatcher;
    static std::atomic<bool> s_isSent{false};
    static EventHub s_hub(7);
    s_hub.registerHandler(5, [](const std::shared_ptr<BrowserEvent>&) {
        while (!s_isSent) (void)usleep(100);  // Nobody uses the hub while it is destroyed.
        std::exit(0);
    });
    s_hub.receiveEvent(s_hub.createEvent(5));
    s_hub.receiveEvent(s_hub.createEvent(5));
    s_isSent = true;
    waitForEver();
}

void exitInOwnTask() {
    static TimerThread s_thread;
    s_thread.postTask(std::make_shared<CallableTimerTask>([] {}), 3600 * 1000);
    s_thread.postTask(std::make_shared<CallableTimerTask>([] { std::exit(0); }), 0);
    waitForEver();
}

void exitInOwnCallback() {
    static WatchDog s_dog;
    s_dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) { std::exit(0); }, nullptr);
    s_dog.beginWatch(WatchDog::eWatchIDNull, 0.0);
    waitForEver();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string manner = argc > 1 ? argv[1] : "";
    if (manner == "own-handler") exitInOwnHandler();
    if (manner == "own-event-handler") exitInOwnEventHandler();
    if (manner == "own-task") exitInOwnTask();
    if (manner == "own-watch") exitInOwnCallback();
    if (manner == "static") makeStaticOnes();
    fillTheWorld();
    while (!world().isBusy()) (void)usleep(100);

    if (manner == "exit") std::exit(0);
    if (manner == "quick") std::quick_exit(0);
    const char* const places[] = {"handler", "task", "worker", "main-task", "watch"};
    for (int place = 0; place < kPlaceCount; ++place) {
        const std::string name = places[place];
        if (manner != name && manner != "quick-" + name) continue;
        world().isQuick = manner != name;
        world().ending = place;
        waitForEver();
    }
    return 0;
}

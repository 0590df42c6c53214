// simple_timers.cpp: handlers on threads of their own, once and over and over.
#include <cstdio>
#include <future>
#include <mutex>

#include "base/simple_timer.h"

using namespace tevalon::base::simple_timer;

int main() {
    // Once, in a quarter of a second.
    std::promise<void> isOver;
    Timer banner(
        "banner", {0, 250, 0},
        [](Timer* p_timer, void* p_over) {
            // A timer that fires once is stopped when its handler runs.
            std::printf("%s: hidden, started: %d\n", p_timer->name().c_str(), p_timer->isStarted());
            static_cast<std::promise<void>*>(p_over)->set_value();
        },
        &isOver, ONCE);
    std::printf("start: %d\n", banner.start());
    isOver.get_future().wait();

    // Every 20 ms, three times. A run that takes longer than the period has the next one beside it,
    // on another thread: what they share is guarded.
    std::promise<void> hasBeaten;
    std::mutex mutex;
    int beats = 0;
    Timer heartbeat(
        "heartbeat", {0, 20, 0},
        [&](Timer* p_timer, void*) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (beats == 3) return;
            std::printf("beat %d\n", ++beats);
            if (beats < 3) return;
            p_timer->stopNoBlock();  // stop() in its own handler does not wait either.
            hasBeaten.set_value();
        },
        nullptr, CONTINUE);
    heartbeat.start();
    hasBeaten.get_future().wait();
    heartbeat.stop();  // Waits for a run that goes on; the destructor waits for all of them.

    // What makes no sense is refused when the timer is started.
    Timer never(
        "never", {0, 0, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
    std::printf("a period of zero: %d\n", never.start());
}

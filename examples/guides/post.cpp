// post.cpp: functions as tasks, durations, and what is not wanted any more.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>
#include <utility>

#include "base/timer.h"

using namespace std::chrono_literals;
using namespace tevalon::base::timer;

int main() {
    TimerThread thread;
    std::promise<void> isDone;

    TaskHandle giveUp = thread.post([] { std::printf("gives up\n"); }, 1h);
    // What it has is moved into it; nothing has to be copyable.
    thread.post([text = std::make_unique<std::string>("loaded")] { std::puts(text->c_str()); },
                5ms);
    thread.post([&isDone] { isDone.set_value(); }, 5ms);
    isDone.get_future().wait();

    // True: it will not be called, and what it had is destroyed already.
    std::printf("cancelled: %d\n", giveUp.cancel());
    std::printf("again: %d\n", giveUp.cancel());

    // The pool takes functions, durations and delays as well.
    std::promise<bool> isMain;
    TimerThreadPool::post(
        TimerThreadPool::Thread::Main,
        [&isMain] { isMain.set_value(TimerThreadPool::isMainThread()); }, 1ms);
    std::printf("on the main thread: %d\n", isMain.get_future().get());
}

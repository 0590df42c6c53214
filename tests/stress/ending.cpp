#include "stress/ending.h"

#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"

namespace stress {
namespace {

using namespace tevalon::base;

void sleepFor(unsigned microseconds) {
    timespec left = {};
    left.tv_sec = microseconds / 1000000;
    left.tv_nsec = static_cast<long>(microseconds % 1000000) * 1000;
    while (nanosleep(&left, &left) != 0) {
    }
}

[[noreturn]] void waitForEver() {
    for (;;) (void)pause();
}

int returnFromMain() {
    return kEndStatus;
}

int callExit() {
    std::exit(kEndStatus);
}

int callExitAtOnce() {
    _exit(kEndStatus);
}

int callQuickExit() {
    std::quick_exit(kEndStatus);
}

int callAbort() {
    std::abort();
}

template <int kSignal>
int raiseSignal() {
    (void)raise(kSignal);
    return 1;
}

int callExitInThread() {
    std::thread([] { std::exit(kEndStatus); }).detach();
    waitForEver();
}

int callExitInHandler() {
    static simple_timer::Timer s_timer(
        "exit", {0, 0, 0}, [](simple_timer::Timer*, void*) { std::exit(kEndStatus); }, nullptr,
        simple_timer::ONCE);
    (void)s_timer.start();
    waitForEver();
}

int callExitInTask() {
    static timer::TimerThread s_thread;
    s_thread.postTask(std::make_shared<timer::CallableTimerTask>([] { std::exit(kEndStatus); }), 0);
    waitForEver();
}

/// Everything works without the main thread.
void endWithoutMain() {
    static event_dispatcher::EventHub s_hub(900);
    (void)s_hub.registerHandler(1, [](std::shared_ptr<event_dispatcher::BrowserEvent> event) {
        event->replyResult(kEndStatus);
    });
    (void)event_dispatcher::evtdispch_register_hub(&s_hub);
    static int s_reply = 0;
    static simple_timer::Timer s_timer(
        "end", {0, 1, 0},
        [](simple_timer::Timer*, void*) {
            timer::TimerThreadPool::postMainThreadTask(
                std::make_shared<timer::CallableTimerTask>([] {
                    s_reply = s_hub.sendEventSync(s_hub.createEvent(1), 900, -1);
                    std::quick_exit(s_reply);
                }));
        },
        nullptr, simple_timer::ONCE);
    (void)s_timer.start();
}

int leaveMainThread() {
    endWithoutMain();
    pthread_exit(nullptr);
}

struct Way {
    std::string_view name;
    int (*end)();
};

constexpr std::array kWays = {
    Way{"return", returnFromMain},
    Way{"exit", callExit},
    Way{"exit-at-once", callExitAtOnce},
    Way{"quick-exit", callQuickExit},
    Way{"abort", callAbort},
    Way{"leave-main", leaveMainThread},
    Way{"exit-in-thread", callExitInThread},
    Way{"exit-in-handler", callExitInHandler},
    Way{"exit-in-task", callExitInTask},
    Way{"segv", raiseSignal<SIGSEGV>},
    Way{"bus", raiseSignal<SIGBUS>},
    Way{"fpe", raiseSignal<SIGFPE>},
    Way{"ill", raiseSignal<SIGILL>},
    Way{"term", raiseSignal<SIGTERM>},
    Way{"kill", raiseSignal<SIGKILL>},
};

const Way* findWay(std::string_view name) {
    const auto* const p_way = std::find_if(kWays.begin(), kWays.end(),
                                           [name](const Way& way) { return way.name == name; });
    return p_way != kWays.end() ? p_way : nullptr;
}

}  // namespace

bool isWayToEnd(std::string_view way) {
    return findWay(way) != nullptr;
}

int endAfter(unsigned microseconds, std::string_view way) {
    sleepFor(microseconds);
    return findWay(way)->end();
}

}  // namespace stress

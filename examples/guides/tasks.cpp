// tasks.cpp: a thread with a queue, and the process's pool of them.
#include <cstdio>
#include <future>
#include <memory>

#include "base/timer.h"

using namespace tevalon::base::timer;

namespace {

std::shared_ptr<TimerTaskBase> say(const char* text) {
    return std::make_shared<CallableTimerTask>([text] { std::printf("%s\n", text); });
}

// A task with a kind: all queued ones of a kind are cancelled together.
constexpr int kPrefetch = 7;

// Returns when everything that was due on the thread has run.
void finish(TimerThread* p_thread, int delayMs) {
    std::promise<void> done;
    p_thread->postTask(std::make_shared<CallableTimerTask>([&done] { done.set_value(); }), delayMs);
    done.get_future().wait();
}

}  // namespace

int main() {
    TimerThread thread;
    thread.postTask(say("second, in 200 ms"), 200);
    thread.postTask(say("first, at once"), 0);
    thread.postTask(std::make_shared<CallableTimerTask>([] { std::printf("never\n"); }, kPrefetch),
                    60'000);
    const auto alone = say("never");
    thread.postTask(alone, 60'000);
    thread.cancelTaskByTaskId(kPrefetch);
    thread.cancelTaskBySessionId(alone->sessionId());
    finish(&thread, 200);  // Of equal times, in the order of posting.
    thread.stop();         // Queued tasks would stay, for the next post.

    // The pool's threads are there for the whole process, and for everybody.
    std::promise<bool> wasMain;
    TimerThreadPool::postMainThreadTask(std::make_shared<CallableTimerTask>(
        [&wasMain] { wasMain.set_value(TimerThreadPool::isMainThread()); }));
    std::printf("on the main thread: %d\n", wasMain.get_future().get());
    std::printf("and here: %d\n", TimerThreadPool::isMainThread());
}

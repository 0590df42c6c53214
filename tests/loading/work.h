// work.h: something to do for every service of the library.

#ifndef TESTS_LOADING_WORK_H
#define TESTS_LOADING_WORK_H

#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading/current_thread.h"
#include "base/timer.h"
#include "loading/plugin.h"

namespace work {

using namespace tevalon::base;

template <typename Condition>
void waitUntil(Condition condition) {
    while (!condition()) (void)usleep(100);
}

inline Services services() {
    return {timer::TimerThreadPool::GetInstance(), event_dispatcher::EventDispatcher::GetInstance(),
            timer::GLWatchDog::GetInstance()};
}

/// Runs a timer once, and sees its handler's thread out: only then is the handler's code no longer
/// needed.
inline void useTimer() {
    std::atomic<int> thread{0};
    {
        simple_timer::Timer timer(
            "once", {0, 0, 500}, [&](simple_timer::Timer*, void*) { thread = currentThread(); },
            nullptr, simple_timer::ONCE);
        (void)timer.start();
        waitUntil([&] { return thread != 0; });
    }
    const std::string task = "/proc/self/task/" + std::to_string(thread);
    waitUntil([&] { return access(task.c_str(), F_OK) != 0; });
}

/// Runs a task on the main timer thread and another on a worker. Returns the former's id.
inline int usePool() {
    int mainThread = 0;
    const auto task = std::make_shared<timer::CallableTimerTask>([&] {
        if (timer::TimerThreadPool::isMainThread()) mainThread = currentThread();
    });
    const auto hasBeenLetGo = [&] { return task.use_count() == 1; };
    timer::TimerThreadPool::postMainThreadTask(task);
    waitUntil(hasBeenLetGo);
    timer::TimerThreadPool::postWorkerTask(task);
    waitUntil(hasBeenLetGo);
    return mainThread;
}

/// Sends an event through the dispatcher to a hub, and waits for its reply. Returns it.
inline int useHub(int moduleId) {
    constexpr int kType = 1;
    event_dispatcher::EventHub hub(moduleId);
    (void)hub.registerHandler(kType, [](std::shared_ptr<event_dispatcher::BrowserEvent> event) {
        event->replyResult(7);
    });
    (void)event_dispatcher::evtdispch_register_hub(&hub);
    const int reply = hub.sendEventSync(hub.createEvent(kType), moduleId, -1);
    (void)event_dispatcher::evtdispch_unregister_hub(&hub);
    return reply;
}

inline void useWatchDog() {
    std::atomic<bool> hasReported{false};
    timer::WatchDog dog;
    dog.setTimeoutCallback([](void* p_flag, timer::WatchDog::WATCH_ID,
                              double) { *static_cast<std::atomic<bool>*>(p_flag) = true; },
                           &hasReported);
    dog.beginWatch(timer::WatchDog::eWatchID_app_show, 0.0);
    waitUntil([&] { return hasReported.load(); });
}

/// Every service once. Returns the main timer thread's id, or -1 when something did not work.
inline int useEveryService(int moduleId) {
    timer::GlobalWatchDog()->beginWatch(timer::WatchDog::eWatchID_app_hide, 3600.0);
    useTimer();
    useWatchDog();
    const int reply = useHub(moduleId);
    const int mainThread = usePool();
    return reply == 7 && mainThread != 0 ? mainThread : -1;
}

/// Every service without end. To be left alone when the process exits.
class EndlessWork {
public:
    EndlessWork() {
        (void)m_timer.start();
        postTask();
        (void)m_hub.registerHandler(0, [this](std::shared_ptr<event_dispatcher::BrowserEvent>) {
            ++m_runs[kHandler];
            postEvent();
        });
        (void)event_dispatcher::evtdispch_register_hub(&m_hub);
        postEvent();
        m_dog.setTimeoutCallback(
            [](void* p_self, timer::WatchDog::WATCH_ID, double) {
                ++static_cast<EndlessWork*>(p_self)->m_runs[kReport];
            },
            this);
        m_dog.beginWatch(timer::WatchDog::eWatchID_app_stop, 0.0);
    }

    /// Returns when each has done something again.
    void waitForMore() const {
        for (const std::atomic<int>& runs : m_runs) {
            waitUntil([&, before = runs.load()] { return runs != before; });
        }
    }

private:
    enum Place { kTimer, kTask, kHandler, kReport, kPlaceCount };
    static constexpr int kModule = 1000;

    void postTask() {
        const auto fire = [this] {
            ++m_runs[kTask];
            postTask();
        };
        m_thread.postTask(std::make_shared<timer::CallableTimerTask>(fire), 1);
    }
    void postEvent() { (void)m_hub.sendEvent(m_hub.createEvent(0), kModule); }

    std::atomic<int> m_runs[kPlaceCount] = {};
    simple_timer::Timer m_timer{"endless",
                                {0, 0, 500},
                                [this](simple_timer::Timer*, void*) { ++m_runs[kTimer]; },
                                nullptr,
                                simple_timer::CONTINUE};
    timer::TimerThread m_thread;
    event_dispatcher::EventHub m_hub{kModule};
    timer::WatchDog m_dog;
};

}  // namespace work

#endif  // TESTS_LOADING_WORK_H

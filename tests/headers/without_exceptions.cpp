#include "headers/without_exceptions.h"

#include <future>
#include <memory>
#include <utility>

#include "base/container.h"
#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/singleton.h"
#include "base/synchronization.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"

#if defined(__cpp_exceptions) || (defined(__cpp_rtti) && !defined(TEVALON_TEST_WITH_RTTI))
#error "This is the client without either."
#endif

namespace without_exceptions {
namespace {

using tevalon::base::Singleton;
using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kModule = 77;
constexpr std::int32_t kEvent = 5;

template <typename NativeMutex>
void lockByEach(NativeMutex& mutex) {
    { const tevalon::base::AutoLock<NativeMutex> lock(mutex); }
    { const tevalon::base::LockGuard<NativeMutex> lock(mutex); }
    { const tevalon::base::UniqueLock<NativeMutex> lock(mutex); }
}

std::string useEvents() {
    EventHub hub(kModule);
    std::promise<void> handled;
    (void)hub.registerHandler(kEvent,
                              [&](const std::shared_ptr<BrowserEvent>&) { handled.set_value(); });
    (void)evtdispch_register_hub(&hub);
    (void)hub.sendEvent(hub.createEvent(kEvent), kModule);
    handled.get_future().wait();
    (void)evtdispch_unregister_hub(&hub);
    return "event handled, ";
}

std::string useTimer() {
    using namespace tevalon::base::simple_timer;
    std::promise<void> fired;
    Timer timer(
        "once", {0, 1, 0}, [&](Timer*, void*) { fired.set_value(); }, nullptr, ONCE);
    (void)timer.start();
    fired.get_future().wait();
    return "timer fired, ";
}

std::string useTask() {
    using namespace tevalon::base::timer;
    std::promise<void> ran;
    TimerThread thread;
    thread.postTask(std::make_shared<CallableTimerTask>([&] { ran.set_value(); }), 1);
    ran.get_future().wait();
    return "task ran, ";
}

class Job : public tevalon::base::Threading::Runnable {
public:
    Job() : Runnable(1) {}
    std::future<void> done() { return m_done.get_future(); }
    void execute() override {
        stop();
        m_done.set_value();
    }

private:
    std::promise<void> m_done;
};

std::string useThread() {
    Job job;
    const tevalon::base::Threading::BasicThread<Job> thread(&job);
    job.done().wait();
    return "job done, ";
}

struct Once {
    int value = 1;
};

}  // namespace

void lockByEachGuard(pthread_mutex_t* p_mutex) {
    lockByEach(*p_mutex);
}

void lockByEachGuard(std::mutex* p_mutex) {
    lockByEach(*p_mutex);
}

std::string useEachFamily() {
    BLOG(tevalon::base::kLogInfo, "a line of %d\n", Singleton<Once>::GetInstance()->value);
    std::string said = useEvents() + useTimer() + useTask() + useThread();
    said += Singleton<Once>::GetInstance() == Singleton<Once>::GetInstance() ? "one object, " : "";

    const auto list = tevalon::base::container::CommonValue::list({1, "two"});
    said += list.convertToStringType();

    char program[] = "program";
    char option[] = "--volume=30";
    char* arguments[] = {program, option, nullptr};
    tevalon::base::utils::CommandLine commandLine(2, arguments, "", "", false);
    commandLine.AddOption("volume", "Start at this volume", true);
    commandLine.Parse();
    return said + ", volume " + std::to_string(commandLine.GetOptionValue("volume", 0));
}

}  // namespace without_exceptions

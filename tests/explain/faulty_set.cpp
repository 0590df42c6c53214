// faulty_set.cpp: a small set at work, with one fault in it that the command line names. Its logs
// are kept beside it, for tevalon-explain to find each fault; renew_logs.py makes them anew.

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/synchronization.h"
#include "base/timer.h"
#include "base/utils/files.h"

namespace {

using namespace tevalon::base;
using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;
using simple_timer::CONTINUE;
using simple_timer::ONCE;
using simple_timer::Timer;
using timer::CallableTimerTask;
using timer::TimerThread;
using timer::TimerThreadPool;
using timer::WatchDog;

constexpr int kTuner = 10;
constexpr int kRemote = 20;
constexpr int kGuide = 30;
constexpr int kKey = 1;

// What is wrong goes on for so long before the log ends, while the rest of the set goes on.
void letItGoOn(int ms = 4000) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

[[noreturn]] void waitForEver() {
    while (true) letItGoOn();
}

void post(TimerThread* p_thread, int id, std::function<void()> work) {
    p_thread->postTask(std::make_shared<CallableTimerTask>(std::move(work), id), 0);
}

// What is sound in it: two modules that talk, a timer, a task thread.
class Set {
public:
    Set()
        : m_tuner(kTuner),
          m_remote(kRemote),
          m_heartbeat(
              "heartbeat", {0, 700, 0}, [](Timer*, void*) {}, nullptr, CONTINUE) {
        (void)m_tuner.registerHandler(
            kKey, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(0); });
        (void)event_dispatcher::evtdispch_register_hub(&m_tuner);
        (void)m_heartbeat.start();
        for (int id = 1; id <= 3; ++id) {
            (void)press(kTuner);
            post(&m_work, id, [] {});
        }
    }
    ~Set() {
        m_work.stop();
        (void)event_dispatcher::evtdispch_unregister_hub(&m_tuner);
    }

    int press(int module) {
        return m_remote.sendEventSync(m_remote.createEvent(kKey), module, 1000);
    }

    TimerThread& work() { return m_work; }

private:
    EventHub m_tuner;
    EventHub m_remote;
    Timer m_heartbeat;
    TimerThread m_work;
};

void healthy() {
    Set set;
    letItGoOn(1500);
}

// The guide was never started.
void noReceiver() {
    Set set;
    for (int i = 0; i < 3; ++i) {
        (void)set.press(kGuide);
        letItGoOn(200);
    }
}

// A handler waits for something that never comes; its module is shut down.
void unregisterHangs() {
    Set set;
    EventHub guide(kGuide);
    std::atomic<bool> isInHandler{false};
    (void)guide.registerHandler(kKey, [&](const std::shared_ptr<BrowserEvent>&) {
        isInHandler = true;
        waitForEver();
    });
    (void)event_dispatcher::evtdispch_register_hub(&guide);
    (void)guide.sendEvent(guide.createEvent(kKey), kGuide);
    while (!isInHandler) std::this_thread::yield();
    std::thread([&] { (void)event_dispatcher::evtdispch_unregister_hub(&guide); }).detach();
    letItGoOn();
    std::_Exit(0);
}

// The handler wants a lock that the thread which stops the timer holds.
void timerStopHangs() {
    Set set;
    static std::mutex s_lock;
    static std::atomic<bool> s_isInHandler{false};
    static Timer s_poll(
        "epg_poll", {0, 50, 0},
        [](Timer*, void*) {
            s_isInHandler = true;
            const std::lock_guard<std::mutex> lock(s_lock);
        },
        nullptr, ONCE);
    std::thread([] {
        const std::lock_guard<std::mutex> lock(s_lock);
        (void)s_poll.start();
        while (!s_isInHandler) std::this_thread::yield();
        (void)s_poll.stop();
    }).detach();
    letItGoOn();
    std::_Exit(0);
}

void taskHangs() {
    Set set;
    post(&set.work(), 77, [] { waitForEver(); });
    for (int id = 100; id < 104; ++id) post(&set.work(), id, [] {});
    letItGoOn();
    std::_Exit(0);
}

// The application is shown in the end, but takes its time.
void watchOverrun() {
    Set set;
    WatchDog watchDog;
    watchDog.beginWatch(WatchDog::eWatchID_app_show, 0.5);
    letItGoOn(1800);
    watchDog.stopWatch(WatchDog::eWatchID_app_show);
    watchDog.stop();
}

// A handler that never returns keeps a thread for each of its runs.
void threadsExhausted() {
    auto* const p_set = new Set;
    rlimit limit = {};
    (void)getrlimit(RLIMIT_AS, &limit);
    long pages = 0;
    if (std::FILE* p_file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(p_file, "%ld", &pages) != 1) pages = 0;
        (void)std::fclose(p_file);
    }
    limit.rlim_cur = static_cast<rlim_t>(pages) * 4096 + 120 * 1048576;
    (void)setrlimit(RLIMIT_AS, &limit);
    Timer leak(
        "teletext", {0, 20, 0}, [](Timer*, void*) { waitForEver(); }, nullptr, CONTINUE);
    (void)leak.start();
    letItGoOn(700);
    EventHub guide(kGuide);
    (void)guide.registerHandler(kKey, [](const std::shared_ptr<BrowserEvent>&) {});
    (void)p_set->press(kGuide);
    std::_Exit(0);
}

// Somebody opens and never closes, long before the first timer.
void descriptorsExhausted() {
    rlimit limit = {64, 64};
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
    }
    Set set;
    (void)isPathExists("/no/such/cache");
    (void)set.press(kGuide);
    letItGoOn(300);
}

// "Closes everything", as a daemon does, while the scheduler is at work.
void pipeClosed() {
    auto* const p_set = new Set;
    for (int descriptor = 3; descriptor < 64; ++descriptor) {
        struct stat status = {};
        if (fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode)) (void)close(descriptor);
    }
    Timer banner(
        "banner", {0, 10, 0}, [](Timer*, void*) {}, nullptr, ONCE);
    (void)banner.start();
    (void)p_set->press(kGuide);
    letItGoOn(30);
    std::_Exit(0);
}

// A mutex that another thread unlocks.
void mutexMisused() {
    Set set;
    pthread_mutexattr_t attributes;
    (void)pthread_mutexattr_init(&attributes);
    (void)pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    pthread_mutex_t mutex;
    (void)pthread_mutex_init(&mutex, &attributes);
    {
        const UniqueLock<pthread_mutex_t> outer(mutex);
        const UniqueLock<pthread_mutex_t> again(mutex);
        (void)set.press(kTuner);
    }
    Timer poll(
        "epg_poll", {1, 0, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
    (void)poll.start();
    (void)poll.changeTimeout({2, 0, 0});
}

// A period that a setting should have given, and did not.
void zeroPeriod() {
    Set set;
    for (int i = 0; i < 2; ++i) {
        Timer poll(
            "epg_poll", {0, 0, 0}, [](Timer*, void*) {}, nullptr, CONTINUE);
        (void)poll.start();
        (void)isPathExists("/no/such/cache");
    }
}

void noWorkers() {
    Set set;
    TimerThreadPool::init(0);
    for (int id = 1; id <= 3; ++id) {
        TimerThreadPool::postWorkerTask(std::make_shared<CallableTimerTask>([] {}, id));
    }
}

void handlerTwice() {
    Set set;
    EventHub guide(kGuide);
    for (int i = 0; i < 2; ++i) {
        (void)guide.registerHandler(kKey, [](const std::shared_ptr<BrowserEvent>&) {});
    }
}

void folderNotEmpty() {
    Set set;
    char folder[] = "/tmp/faulty_setXXXXXX";
    const std::string path = mkdtemp(folder);
    (void)mkfifo((path + "/socket").c_str(), 0600);
    (void)rmDir(path.c_str());
    (void)unlink((path + "/socket").c_str());
    (void)rmdir(path.c_str());
}

const std::map<std::string, void (*)()> kFaults = {
    {"healthy", healthy},
    {"no-receiver", noReceiver},
    {"unregister-hangs", unregisterHangs},
    {"timer-stop-hangs", timerStopHangs},
    {"task-hangs", taskHangs},
    {"watch-overrun", watchOverrun},
    {"threads-exhausted", threadsExhausted},
    {"descriptors-exhausted", descriptorsExhausted},
    {"pipe-closed", pipeClosed},
    {"mutex-misused", mutexMisused},
    {"zero-period", zeroPeriod},
    {"no-workers", noWorkers},
    {"handler-twice", handlerTwice},
    {"folder-not-empty", folderNotEmpty},
};

}  // namespace

int main(int argc, char** argv) {
    const auto fault = argc == 2 ? kFaults.find(argv[1]) : kFaults.end();
    if (fault == kFaults.end()) return 2;
    fault->second();
    return 0;
}

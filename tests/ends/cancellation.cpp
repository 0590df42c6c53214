// Cancels a client's thread at each of its cancellation points inside of the library, in turn.
//
//     cancellation [SCENARIO [NUMBER [unused]]]
//
// Each time in a process of its own, in which afterwards the object that the thread used has to be
// usable or destroyable, and every service has to work; and none where the documentation names
// none. Prints how many points each scenario has, and in which calls; status 1 where something was
// wrong.

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/logging/debug_memory.h"
#include "base/simple_timer.h"
#include "base/singleton.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"
#include "ends/cancellation_points.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#ifdef __SANITIZE_THREAD__
extern "C" const char* __tsan_default_options() {  // NOLINT: its name.
    return "atexit_sleep_ms=0";  // Some hundred processes end here, one after the other.
}
#endif

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

constexpr unsigned kLongestSeconds = 30;
constexpr std::int32_t kLateMs = 3600 * 1000;
constexpr std::int32_t kModule = 7;
constexpr std::int32_t kAsk = 1;
constexpr std::int32_t kSilent = 2;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "cancelled in %s: not %s\n", ends::cancelledAt(), what);
    _exit(1);
}
#define CHECK(condition)                    \
    do {                                    \
        if (!(condition)) fail(#condition); \
    } while (false)

/// That of the other tests is made for the fault injection.
class Event {
public:
    void set() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isSet = true;
        m_condition.notify_all();
    }
    bool wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_condition.wait_for(lock, std::chrono::seconds(30), [this] { return m_isSet; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_isSet = false;
};

// ---- what has to work afterwards ----

void ignore(Timer*, void*) {}

void useTimer(Timer& timer) {
    Event fired;
    CHECK(timer.stop() == 0);
    CHECK(timer.setProperty(
              {0, 0, 500}, [&](Timer*, void*) { fired.set(); }, nullptr, ONCE) == 0);
    CHECK(timer.start() == 0);
    CHECK(fired.wait());
    CHECK(timer.stop() == 0);
}

template <typename Post>
void expectFired(Post post) {
    Event fired;
    auto task = std::make_shared<CallableTimerTask>([&] { fired.set(); });
    task->setNextFireTime(0.001);
    post(task);
    CHECK(fired.wait());
    while (task.use_count() > 1) std::this_thread::yield();
}

void useThread(TimerThread& thread) {
    expectFired([&](const auto& task) { thread.postTask(task); });
    thread.stop();
}

void replyTo(const std::shared_ptr<BrowserEvent>& event) {
    event->replyResult(42);
}

void useHub(EventHub& hub) {
    (void)event_dispatcher::evtdispch_register_hub(&hub);
    // Added, or there already; either way the thread runs then.
    CHECK(hub.registerHandler(kAsk, replyTo) <= 1);
    CHECK(hub.sendEventSync(hub.createEvent(kAsk), hub.moduleId(), -1) == 42);
    CHECK(event_dispatcher::evtdispch_unregister_hub(&hub) == 0);
}

void useWatchDog(WatchDog& dog) {
    dog.beginWatch(WatchDog::eWatchID_app_hide, 3600.0);
    (void)dog.checkTimers();
    dog.stopWatch(WatchDog::eWatchID_app_hide);
}

void useEverything() {
    Timer timer("after", {1, 0, 0}, ignore, nullptr, ONCE);
    useTimer(timer);
    TimerThread thread;
    useThread(thread);
    expectFired(TimerThreadPool::postMainThreadTask);
    expectFired(TimerThreadPool::postForegroundTask);
    expectFired(TimerThreadPool::postBackgroundTask);
    expectFired(TimerThreadPool::postWorkerTask);
    EventHub hub(99);
    useHub(hub);
    useWatchDog(*timer::GlobalWatchDog());
    CHECK(base::set_process_property("after", "1").empty());
    CHECK(base::get_process_property("after") == "1");
}

// ---- what is cancelled ----

class Scenario {
public:
    virtual ~Scenario() = default;

    /// On a thread that is cancelled in it.
    virtual void act() = 0;
    /// Afterwards, in whichever state that has left it.
    virtual void useAgain() {}
    /// Afterwards, or when nothing was cancelled: what act() left behind on purpose.
    virtual void release() {}
};

class OneTimer : public Scenario {
public:
    void act() override {
        Timer own("own", {3600, 0, 0}, ignore, nullptr, CONTINUE);
        (void)own.start();
        (void)m_timer.start();
        (void)m_earlier.start();
        (void)m_timer.changeTimeout({1, 0, 0});
        (void)m_timer.restart();
        (void)m_earlier.stopNoBlock();
        (void)m_timer.stop();
        (void)m_timer.changeType(CONTINUE);
        (void)m_timer.changeTimeout({0, 0, 0});
        (void)m_timer.changeHandler(ignore, nullptr);
        (void)m_timer.setProperty({0, 0, 0}, ignore, nullptr, CONTINUE);
        (void)m_timer.start();
        (void)m_timer.isStarted();
    }
    void useAgain() override {
        useTimer(m_timer);
        useTimer(m_earlier);
    }

private:
    Timer m_timer{"timer", {3600, 0, 0}, ignore, nullptr, ONCE};
    Timer m_earlier{"earlier", {1800, 0, 0}, ignore, nullptr, ONCE};
};

class FirstTimer : public Scenario {
public:
    void act() override {
        Timer first("first", {3600, 0, 0}, ignore, nullptr, ONCE);
        (void)first.start();
    }
};

/// Does something once the cancelled thread waits, or is through with its act.
class WhenItWaits {
public:
    template <typename Action>
    explicit WhenItWaits(Action action)
        : m_thread([this, action] {
              while (!ends::hasWaited() && !m_isOver) std::this_thread::yield();
              action();
          }) {}
    ~WhenItWaits() {
        m_isOver = true;
        m_thread.join();
    }

    WhenItWaits(const WhenItWaits&) = delete;
    WhenItWaits& operator=(const WhenItWaits&) = delete;

private:
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

/// A timer whose handler runs until it is told to end.
class TimerThatRuns : public Scenario {
public:
    TimerThatRuns()
        : m_timer(std::make_unique<Timer>(
              "runs", simple_timer::TimeoutTime{0, 0, 500},
              [this](Timer*, void*) {
                  m_runs.set();
                  (void)m_end.wait();
              },
              nullptr, ONCE)) {
        CHECK(m_timer->start() == 0);
        CHECK(m_runs.wait());
    }

protected:
    Event m_runs;
    Event m_end;
    std::unique_ptr<Timer> m_timer;
    std::unique_ptr<WhenItWaits> m_whenItWaits =
        std::make_unique<WhenItWaits>([this] { m_end.set(); });
};

/// A stop() that waits for a run.
class StopOfARun : public TimerThatRuns {
public:
    void act() override { (void)m_timer->stop(); }
    void useAgain() override {
        m_whenItWaits.reset();
        useTimer(*m_timer);
    }
};

/// A destructor that waits for a run is no cancellation point.
class DestructionDuringARun : public TimerThatRuns {
public:
    void act() override { m_timer.reset(); }
    void useAgain() override { CHECK(m_timer == nullptr); }
};

class OneTimerThread : public Scenario {
public:
    void act() override {
        TimerThread own;
        own.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
        m_thread.postTask(std::make_shared<CallableTimerTask>([] {}), 0);
        m_thread.postTask(std::make_shared<CallableTimerTask>([] {}));
        m_thread.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
        m_thread.postTask(nullptr);
        m_thread.cancelTaskByTaskId(0);
        m_thread.cancelTaskBySessionId(1);
        (void)m_thread.hasTask();
        (void)m_thread.isBusy();
        (void)m_thread.getNextFiringInterval();
        m_thread.stop();
        (void)m_thread.popFirstTask();
        m_thread.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
    }
    void useAgain() override { useThread(m_thread); }

private:
    TimerThread m_thread;
};

class Pool : public Scenario {
public:
    void act() override {
        TimerThreadPool::init(1);
        const auto post = [](auto postTo) {
            auto task = std::make_shared<CallableTimerTask>([] {});
            task->setNextFireTime(0.001);
            postTo(task);
        };
        post(TimerThreadPool::postMainThreadTask);
        post(TimerThreadPool::postForegroundTask);
        post(TimerThreadPool::postBackgroundTask);
        post(TimerThreadPool::postWorkerTask);
        post(TimerThreadPool::postWorkerTask);
        post(TimerThreadPool::postWorkerTask);
        (void)TimerThreadPool::isMainThread();
    }
};

class Hub : public Scenario {
public:
    void act() override {
        EventHub own(8);
        (void)own.registerHandler(kAsk, replyTo);
        (void)event_dispatcher::evtdispch_register_hub(&m_hub);
        (void)event_dispatcher::evtdispch_register_hub(&m_hub);
        (void)event_dispatcher::evtdispch_register_hub(nullptr);
        (void)m_hub.registerHandler(kAsk, replyTo);
        (void)m_hub.registerHandler(kAsk, replyTo);
        (void)m_hub.registerHandler(kAsk, nullptr);
        (void)m_hub.registerHandler(kSilent, [](const std::shared_ptr<BrowserEvent>&) {});
        (void)own.sendEvent(nullptr, kModule);
        (void)own.sendEvent(own.createEvent(kAsk), kModule);
        (void)own.sendEventSync(own.createEvent(99), kModule, -1);
        (void)own.sendEventSync(own.createEvent(kAsk), kModule, -1);
        (void)own.sendEventSync(own.createEvent(kSilent), kModule, 1);
        (void)event_dispatcher::evtdispch_unregister_hub(&m_hub);
        (void)event_dispatcher::evtdispch_unregister_hub(nullptr);
        m_hub.onHubUnregistered();
    }
    void useAgain() override { useHub(m_hub); }
    void release() override { (void)event_dispatcher::evtdispch_unregister_hub(&m_hub); }

private:
    EventHub m_hub{kModule};
};

/// Waits for a reply that does not come.
class Reply : public Scenario {
public:
    Reply() {
        (void)m_hub.registerHandler(
            kSilent, [this](std::shared_ptr<BrowserEvent> event) { m_event = std::move(event); });
        (void)event_dispatcher::evtdispch_register_hub(&m_hub);
    }
    void act() override { (void)m_hub.sendEventSync(m_hub.createEvent(kSilent), kModule, 20); }
    void useAgain() override {
        useHub(m_hub);
        if (m_event != nullptr) m_event->replyResult(1);  // Nobody waits any more.
    }
    void release() override { (void)event_dispatcher::evtdispch_unregister_hub(&m_hub); }

private:
    std::shared_ptr<BrowserEvent> m_event;  // Of the hub's thread, until that has replied.
    EventHub m_hub{kModule};
};

class Dog : public Scenario {
public:
    void act() override {
        WatchDog own;
        own.beginWatch(WatchDog::eWatchID_app_show, -1.0);
        (void)own.checkTimers();
        useWatchDog(*timer::GlobalWatchDog());
        m_dog.setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) {}, nullptr);
        m_dog.setTimeoutCallback(nullptr, nullptr);
        useWatchDog(m_dog);
        m_dog.beginWatch(WatchDog::eWatchIDCount, 0.0);
        m_dog.stopWatch(WatchDog::eWatchIDCount);
    }
    void useAgain() override { useWatchDog(m_dog); }

private:
    WatchDog m_dog;
};

class Job : public Scenario {
public:
    void act() override {
        const Rounds own;
        m_rounds.pause();
        m_rounds.resume();
        (void)m_rounds.run();
    }
    void useAgain() override {
        m_rounds.count = 0;
        m_rounds.resume();
        CHECK(m_rounds.run() == 0);
        CHECK(!m_rounds.running());
    }

private:
    class Rounds : public Threading::Runnable {
    public:
        Rounds() : Runnable(1) {}
        void execute() override {
            if (++count == 3) stop();
        }
        int count = 0;
    };
    Rounds m_rounds;
};

/// A job that is cancelled in its pause.
class PausedJob : public Scenario {
public:
    PausedJob() { m_rounds.pause(); }
    void act() override { (void)m_rounds.run(); }
    void useAgain() override {
        m_whenItWaits.reset();
        CHECK(m_rounds.run() == 0);
    }

private:
    class Rounds : public Threading::Runnable {
    public:
        Rounds() : Runnable(-1) {}
        void execute() override { stop(); }
    };
    Rounds m_rounds;
    std::unique_ptr<WhenItWaits> m_whenItWaits =
        std::make_unique<WhenItWaits>([this] { m_rounds.resume(); });
};

/// An instance that is just being created.
class Creation : public Scenario {
public:
    void act() override { (void)Service::get(); }
    void useAgain() override { CHECK(Service::get()->value == 42); }

private:
    struct Service {
        Service() : value(42) { BLOG(kLogAlways, "made\n"); }
        static Service* get() {
            return Singleton<Service, DefaultSingletonTraits<Service>, Service>::GetInstance();
        }
        int value;
    };
};

class Files : public Scenario {
public:
    Files() {
        (void)std::snprintf(m_folder, sizeof(m_folder), "/tmp/cancellation.%d", getpid());
        (void)std::snprintf(m_other, sizeof(m_other), "%s.other", m_folder);
        const std::string command = std::string("mkdir -p ") + m_folder + "/a/b && touch " +
                                    m_folder + "/x " + m_folder + "/a/y && cp -r " + m_folder +
                                    " " + m_other;
        CHECK(std::system(command.c_str()) == 0);
        (void)setenv("SHOW_MEMORY_DEBUG_INFO", "1", 1);
    }
    void act() override {
        (void)isPathExists("/nowhere");
        (void)debug::debug_init();
        debug::showFileContents("title", "/nowhere");
        debug::showFileContents("title", "/dev/null");
        debug::debug_dump_system_memory_status();
        (void)rmDir("/nowhere");
        (void)removeFolder(m_other);
        (void)rmDir(m_folder);
    }
    void useAgain() override {
        debug::debug_dump_system_memory_status();
        (void)rmDir(m_folder);
        CHECK(access(m_folder, F_OK) != 0);
        (void)removeFolder(m_other);
        CHECK(access(m_other, F_OK) != 0);
    }

private:
    char m_folder[64] = {};
    char m_other[72] = {};  // A folder of the same content.
};

class Recorder : public Scenario {
public:
    Recorder() {
        (void)std::snprintf(m_file, sizeof(m_file), "/tmp/cancellation.%d.rec", getpid());
    }
    ~Recorder() override { (void)::unlink(m_file); }
    void act() override {
        diagnostics::RecordingOptions options;
        options.file = m_file;
        (void)diagnostics::startRecording(options);
        diagnostics::mark("here");
        (void)diagnostics::nameModule(kModule, "module");
        (void)diagnostics::writeRecording(-1);
        (void)diagnostics::stopRecording();
        (void)diagnostics::writeState(STDERR_FILENO + 100);
    }
    void useAgain() override {
        (void)diagnostics::stopRecording();
        (void)::unlink(m_file);
        diagnostics::RecordingOptions options;
        options.file = m_file;
        const diagnostics::Status status = diagnostics::startRecording(options);
        CHECK(status == diagnostics::Status::Ok || status == diagnostics::Status::NotSupported);
        (void)diagnostics::stopRecording();
    }

private:
    char m_file[64] = {};
};

class Lines : public Scenario {
public:
    void act() override {
        const unsigned char bytes[40] = {};
        dump_memory("title", bytes, sizeof(bytes));
        print_browser_log(1, "tag", "file", 1, "function", "%d", 1);
        print_hbbtv_controller_log(1, "tag", "file", 1, "function", "%d", 1);
        const FunctionTracer tracer("function", "file", 1);
        BLOG_TRACE_SCOPE();
    }
};

template <typename T>
std::unique_ptr<Scenario> make() {
    return std::make_unique<T>();
}

struct Kind {
    std::unique_ptr<Scenario> (*make)();
    bool hasLines;  // Whose output may be a cancellation point.
    std::set<std::string> others;
};

// For a run to end, or a reply.
const std::set<std::string> kWaits = {"pthread_cond_clockwait", "pthread_cond_wait"};

// Where a thread may be cancelled, as documented.
const std::map<std::string, Kind> kScenarios = {
    {"first-timer", {make<FirstTimer>, true, kWaits}},
    {"timer", {make<OneTimer>, true, kWaits}},
    {"stop-of-a-run", {make<StopOfARun>, true, kWaits}},
    {"destruction-during-a-run", {make<DestructionDuringARun>, false, {}}},
    {"timer-thread", {make<OneTimerThread>, true, {}}},
    {"pool", {make<Pool>, true, {}}},
    {"hub", {make<Hub>, true, kWaits}},
    {"reply", {make<Reply>, true, kWaits}},
    {"watchdog", {make<Dog>, true, {}}},
    {"job", {make<Job>, true, {"nanosleep"}}},
    {"paused-job", {make<PausedJob>, true, {"nanosleep", "pthread_cond_wait"}}},
    {"creation", {make<Creation>, false, {}}},
    {"files", {make<Files>, true, {"fopen", "fread", "openat", "opendir", "printf", "readdir"}}},
    {"recorder", {make<Recorder>, false, {}}},
    {"lines", {make<Lines>, true, {}}},
};

// ---- the run of one ----

struct Act {
    Scenario* p_scenario;
    int number;
    bool isThrough;
};

void* actOnThread(void* p_argument) {
    Act& act = *static_cast<Act*>(p_argument);
    ends::cancelThisThreadAt(act.number);
    act.p_scenario->act();
    ends::cancelThisThreadNoMore();
    act.isThrough = true;
    return nullptr;
}

// What a child tells its parent.
struct Outcome {
    bool isThrough;
    char cancelledAt[ends::kCallBytes];
};

[[noreturn]] void runInChild(std::unique_ptr<Scenario> (*makeScenario)(), int number,
                             bool isUsedAgain, Outcome* p_outcome) {
    (void)alarm(kLongestSeconds);
    ends::keepCallIn(p_outcome->cancelledAt);
    std::unique_ptr<Scenario> scenario = makeScenario();
    Act act = {scenario.get(), number, false};
    pthread_t thread = {};
    void* p_result = nullptr;
    CHECK(pthread_create(&thread, nullptr, actOnThread, &act) == 0);
    CHECK(pthread_join(thread, &p_result) == 0);
    p_outcome->isThrough = act.isThrough;
    CHECK(act.isThrough == (*ends::cancelledAt() == '\0'));
    if (!act.isThrough) CHECK(p_result == PTHREAD_CANCELED);
    if (isUsedAgain) scenario->useAgain();
    scenario->release();
    scenario.reset();
    useEverything();
#ifdef __SANITIZE_ADDRESS__
    if (__lsan_do_recoverable_leak_check() != 0) _exit(1);
#endif
    _exit(0);
}

bool isDocumented(const Kind& kind, std::string call) {
    constexpr const char* kLargeFile = "64";  // Of the same call.
    if (call.rfind("zorDebugOutput", 0) == 0) return kind.hasLines;
    if (const std::size_t end = call.rfind(kLargeFile); end != std::string::npos) call.resize(end);
    return call.empty() || kind.others.count(call) != 0;
}

/// False where something was wrong; the outcome says whether anything was cancelled.
bool run(const std::string& name, const Kind& kind, int number, bool isUsedAgain,
         Outcome* p_outcome) {
    *p_outcome = {};
    const pid_t child = fork();
    if (child == 0) runInChild(kind.make, number, isUsedAgain, p_outcome);
    int status = -1;
    (void)waitpid(child, &status, 0);
    if (!isDocumented(kind, p_outcome->cancelledAt)) {
        std::fprintf(stderr, "cancellation %s %d: in %s, which is no cancellation point\n",
                     name.c_str(), number, p_outcome->cancelledAt);
        return false;
    }
    if (status == 0) return true;
    std::fprintf(stderr, "cancellation %s %d: status 0x%x, cancelled in %s\n", name.c_str(), number,
                 static_cast<unsigned>(status), p_outcome->cancelledAt);
    return false;
}

bool runAll(const std::string& name, const Kind& kind, Outcome* p_outcome) {
    bool isGood = true;
    std::set<std::string> calls;
    int number = 0;
    do {
        ++number;
        isGood = run(name, kind, number, true, p_outcome) && isGood;
        isGood = run(name, kind, number, false, p_outcome) && isGood;
        if (p_outcome->cancelledAt[0] != '\0') calls.insert(p_outcome->cancelledAt);
    } while (!p_outcome->isThrough && number < 1000);
    std::fprintf(stdout, "%-26s %4d points:", name.c_str(), number - 1);
    for (const std::string& call : calls) std::fprintf(stdout, " %s", call.c_str());
    std::fprintf(stdout, "%s\n", isGood ? "" : "   WRONG");
    (void)std::fflush(stdout);
    return isGood;
}

}  // namespace

int main(int argc, char** argv) {
    void* const p_shared =
        mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto* const p_outcome = static_cast<Outcome*>(p_shared);
    bool isGood = true;
    for (const auto& [name, kind] : kScenarios) {
        if (argc > 1 && name != argv[1]) continue;
        isGood = (argc > 2 ? run(name, kind, std::atoi(argv[2]), argc == 3, p_outcome)
                           : runAll(name, kind, p_outcome)) &&
                 isGood;
    }
    return isGood ? 0 : 1;
}

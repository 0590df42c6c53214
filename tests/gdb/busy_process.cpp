// A process in which every list of the state report has something in it. It writes what it is doing
// by itself, and is then there to be looked at from outside.
//
// usage: gdb_busy_process FOLDER [crash] [overdue] [file] [unrecorded] [beat] [waiting]
//
// FOLDER gets `few`, `whole`: the state report; and `recording`. `crash` ends the process by a
// signal then; `overdue` has a watch that is; `file` records into FOLDER/live instead of memory;
// `unrecorded` does not record; `beat` has a timer whose handler runs all the time; `waiting` has
// more threads that wait, for whatever can be waited for.

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/container.h"
#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading/current_thread.h"
#include "base/timer.h"
#include "base/utils.h"

namespace diagnostics = tevalon::base::diagnostics;
using namespace tevalon::base::event_dispatcher;
using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;
using tevalon::base::simple_timer::Timer;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::GlobalWatchDog;
using tevalon::base::timer::TimerThread;
using tevalon::base::timer::TimerThreadPool;
using tevalon::base::timer::WatchDog;
using tevalon::base::utils::MD5;

using SharedEvent = std::shared_ptr<BrowserEvent>;

// For the pretty-printers.
CommonValue g_undefined;
CommonValue g_null = CommonValue::null();
CommonValue g_int = -7;
CommonValue g_unsignedShort = static_cast<unsigned short>(65535);
CommonValue g_bool = true;
CommonValue g_double = 1.5;
CommonValue g_text = "tele\"text";
CommonValue g_point = Point{3, -4};
CommonValue g_array;
MD5 g_openDigest;
MD5 g_digest("abc");
SharedEvent g_plainEvent;
SharedEvent g_answeredEvent;
Timer* g_timer;
Timer* g_stoppedTimer;
Timer* g_runningTimer;
TimerThread* g_tasks;
TimerThread* g_cancelledTasks;
EventHub* g_hub;
EventHub* g_idleHub;
EventHub* g_unknownHub;  // Neither registered nor with a thread.

extern "C" {

__attribute__((noinline)) void stateIsReady() {
    __asm__ volatile("" ::: "memory");
}

int writeStateTo(const char* path, int isWhole) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    diagnostics::StateOptions options;
    options.isWhole = isWhole != 0;
    const bool isWritten = diagnostics::writeState(fd, options) == diagnostics::Status::Ok;
    (void)close(fd);
    return isWritten ? 0 : 1;
}
}

namespace {

enum : int {
    kTuner = 1,
    kCaller = 2,
    kCalled = 3,
    kDeaf = 4,
    kPrivate = 5,
    kKeeper = 6,
    kLeaving = 7,
    kUnknown = 8,
    kEnded = 9
};
enum : int { kHold = 4, kTune = 5, kCall = 6, kKeep = 7, kMany = 8, kOwn = 10 };

// What nobody lets go of: the process ends with all of it in hand.
[[noreturn]] void stayForEver() {
    while (true) pause();
}

// A thread that records nothing has no name in a core.
template <typename Work>
void onThread(Work work) {
    std::thread([work] {
        diagnostics::mark("begins");
        work();
    }).detach();
}

template <typename Object, typename... Arguments>
Object& forEver(Arguments&&... arguments) {
    return *new Object(std::forward<Arguments>(arguments)...);
}

std::string reportNow() {
    const int fd = memfd_create("report", MFD_CLOEXEC);
    diagnostics::StateOptions options;
    options.isWhole = true;
    (void)diagnostics::writeState(fd, options);
    std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
    (void)!pread(fd, text.data(), text.size(), 0);
    (void)close(fd);
    return text;
}

// Threads come there one by one.
void waitForReport(const char* text) {
    while (reportNow().find(text) == std::string::npos) std::this_thread::yield();
}

void nameAll() {
    (void)diagnostics::nameModule(kTuner, "tuner");
    (void)diagnostics::nameModule(kCaller, "caller");
    (void)diagnostics::nameModule(kCalled, "called");
    (void)diagnostics::nameEvent(kTune, "tune");
    (void)diagnostics::nameTask(9, "scan");
}

// More than are shown by default, and those that are busy come later.
void registerIdleHubs() {
    for (int module = 20; module < 27; ++module) {
        g_idleHub = &forEver<EventHub>(module);
        evtdispch_register_hub(g_idleHub);
    }
    g_unknownHub = &forEver<EventHub>(kUnknown);
}

// Behind the event in hand wait some that were taken from the queue with it, and some in the queue.
// Those that the client makes take more room there than the library's own, and not all fits where
// a chunk of the queue ends.
void occupyTuner() {
    static EventHub& s_hub = forEver<EventHub>(kTuner);
    static sem_t s_mayGo;
    (void)sem_init(&s_mayGo, 0, 0);
    g_hub = &s_hub;
    s_hub.registerHandler(kHold, [](const SharedEvent&) { (void)sem_wait(&s_mayGo); });
    evtdispch_register_hub(&s_hub);
    static EventHub& s_sender = forEver<EventHub>(kPrivate);
    s_sender.registerHandler(kTune, [](const SharedEvent&) {});
    const auto send = [](int type, int count) {
        for (int i = 0; i < count; ++i) s_sender.sendEvent(s_sender.createEvent(type), kTuner);
    };
    const auto sendOwn = [](EventParam* p_param, int count) {
        for (int i = 0; i < count; ++i) {
            s_sender.sendEvent(SharedEvent(new BrowserEvent(kPrivate, kOwn, p_param)), kTuner);
        }
    };
    send(kHold, 1);
    waitForReport("in event 4 of module 5 for ");
    s_hub.registerHandler(kTune, [](const SharedEvent&) { stayForEver(); });
    s_hub.registerHandler(kMany, [](const SharedEvent&) {});
    s_hub.registerHandler(kOwn, [](const SharedEvent&) {});
    send(kMany, 2);
    send(kTune, 1);
    send(kMany, 2);
    sendOwn(nullptr, 3);
    send(kMany, 16);
    (void)sem_post(&s_mayGo);
    waitForReport("in event 5 'tune' of module 5 for at most ");
    send(kMany, 2);
    sendOwn(new EventParam, 1);
    send(kMany, 1);
}

void makeCircle() {
    static EventHub& s_caller = forEver<EventHub>(kCaller);
    static EventHub& s_called = forEver<EventHub>(kCalled);
    s_caller.registerHandler(kCall, [](const SharedEvent&) {
        s_caller.sendEventSync(s_caller.createEvent(kCall), kCalled, 600000);
    });
    s_called.registerHandler(kCall, [](const SharedEvent&) {
        s_called.sendEventSync(s_called.createEvent(kCall), kCaller, -1);
    });
    evtdispch_register_hub(&s_caller);
    evtdispch_register_hub(&s_called);
    s_caller.sendEvent(s_caller.createEvent(kCall), kCaller);
    waitForReport("  circle: ");
}

// Someone waits for a reply that is kept, someone for a hub to end, and someone for a timer.
void makeWaits() {
    evtdispch_register_hub(&forEver<EventHub>(kDeaf));
    static EventHub& s_keeper = forEver<EventHub>(kKeeper);
    static SharedEvent s_kept;
    s_keeper.registerHandler(kKeep, [](const SharedEvent& event) { s_kept = event; });
    evtdispch_register_hub(&s_keeper);
    onThread([] { s_keeper.sendEventSync(s_keeper.createEvent(kKeep), kKeeper, -1); });
    waitForReport("; handled by module 6 and not answered");

    static EventHub& s_leaving = forEver<EventHub>(kLeaving);
    s_leaving.registerHandler(kTune, [](const SharedEvent&) { stayForEver(); });
    s_leaving.receiveEvent(s_leaving.createEvent(kTune));
    waitForReport("in event 5 'tune' of module 7 for ");
    onThread([] { s_leaving.onHubUnregistered(); });
    waitForReport(", in an unregister, for thread ");

    using tevalon::base::simple_timer::ONCE;
    static Timer& s_running = forEver<Timer>(
        "running", tevalon::base::simple_timer::TimeoutTime{0, 1, 0},
        [](Timer*, void*) { stayForEver(); }, nullptr, ONCE);
    g_runningTimer = &s_running;
    s_running.start();
    waitForReport("'running': thread ");
    onThread([] { s_running.stop(); });
    waitForReport(", in a stop, for thread ");
}

// For one of a circle, a module whose thread has ended, a task, a watchdog, and nobody in
// particular: more than are shown by default.
void makeMoreWaits() {
    static EventHub& s_asking = forEver<EventHub>(kPrivate);
    onThread([] { s_asking.sendEventSync(s_asking.createEvent(kCall), kCaller, -1); });
    waitForReport(" -> module 2 'caller', in a circle");

    static EventHub& s_ended = forEver<EventHub>(kEnded);
    static SharedEvent s_kept;
    s_ended.registerHandler(kKeep, [](const SharedEvent& event) {
        s_kept = event;
        pthread_exit(nullptr);
    });
    evtdispch_register_hub(&s_ended);
    onThread([] { s_asking.sendEventSync(s_asking.createEvent(kKeep), kEnded, -1); });
    waitForReport(" -> module 9, which has no thread");

    static TimerThread& s_stopped = forEver<TimerThread>();
    s_stopped.postTask(std::make_shared<CallableTimerTask>([] { stayForEver(); }, 14), 0);
    waitForReport("in task 14 of session ");
    onThread([] { s_stopped.stop(); });
    waitForReport(" -> task thread 'TimerThread', in task 14 of session ");

    static WatchDog& s_dog = forEver<WatchDog>();
    static sem_t s_isCalled;
    (void)sem_init(&s_isCalled, 0, 0);
    s_dog.setTimeoutCallback(
        [](void*, WatchDog::WATCH_ID, double) {
            (void)sem_post(&s_isCalled);
            stayForEver();
        },
        nullptr);
    s_dog.beginWatch(WatchDog::eWatchID_StartUp, -5);
    (void)sem_wait(&s_isCalled);
    s_dog.stopWatch(WatchDog::eWatchID_StartUp);
    onThread([] { s_dog.~WatchDog(); });
    waitForReport(" -> watchdog\n");

    for (int i = 0; i < 4; ++i) {
        onThread([] {
            const SharedEvent event = s_asking.createEvent(kMany);
            event->initWaitResultCv();
            event->waitForResult(-1);
        });
    }
    waitForReport("waits: 13\n");

    static TimerThread& s_idle = forEver<TimerThread>();
    static sem_t s_isDone;
    (void)sem_init(&s_isDone, 0, 0);
    s_idle.postTask(std::make_shared<CallableTimerTask>([] { (void)sem_post(&s_isDone); }, 15), 0);
    (void)sem_wait(&s_isDone);
    waitForReport(", 0 queued, idle\n");
}

void startBeat() {
    forEver<Timer>(
        "beat", tevalon::base::simple_timer::TimeoutTime{0, 5, 0}, [](Timer*, void*) {}, nullptr,
        tevalon::base::simple_timer::CONTINUE)
        .start();
}

// More than are shown by default.
void startTimers() {
    using tevalon::base::simple_timer::CONTINUE;
    using tevalon::base::simple_timer::ONCE;
    const auto handler = [](Timer*, void*) {};
    for (int hours = 12; hours > 0; --hours) {
        Timer& timer = forEver<Timer>("timer " + std::to_string(hours),
                                      tevalon::base::simple_timer::TimeoutTime{3600 * hours, 0, 0},
                                      handler, nullptr, hours == 2 ? CONTINUE : ONCE);
        if (hours == 12) {
            g_stoppedTimer = &timer;
        } else {
            timer.start();
        }
        if (hours == 2) g_timer = &timer;
    }
}

void postTasks() {
    static TimerThread& s_tasks = forEver<TimerThread>();
    g_tasks = &s_tasks;
    s_tasks.postTask(std::make_shared<CallableTimerTask>([] { stayForEver(); }, 9), 0);
    waitForReport("in task 9 'scan' of session ");
    const auto work = [] {};
    for (int i = 0; i < 100; ++i) {
        s_tasks.postTask(std::make_shared<CallableTimerTask>(work, 10 + i % 3), 1000000 - 1000 * i);
    }
    s_tasks.cancelTaskByTaskId(11);
    static TimerThread& s_cancelled = forEver<TimerThread>();
    g_cancelledTasks = &s_cancelled;
    s_cancelled.postTask(std::make_shared<CallableTimerTask>([] { stayForEver(); }), 0);
    waitForReport("in task 0 of session ");
    for (const int id : {20, 21, 22}) {
        s_cancelled.postTask(std::make_shared<CallableTimerTask>(work, id), 1000000);
        s_cancelled.cancelTaskByTaskId(id);
    }
}

void beginWatches(bool isOneOverdue) {
    GlobalWatchDog()->setTimeoutCallback([](void*, WatchDog::WATCH_ID, double) {}, nullptr);
    GlobalWatchDog()->beginWatch(WatchDog::eWatchID_oom_notify, 3600);
    if (isOneOverdue) {
        GlobalWatchDog()->beginWatch(WatchDog::eWatchID_StartUp, 0.001);
        waitForReport("'eWatchID_StartUp': overdue by ");
    }
    waitForReport("'eWatchID_oom_notify': ");  // Shown once the watchdog's thread is there.
}

void makeValues() {
    g_array = CommonValue::Array{CommonValue(1), CommonValue("two"),
                                 CommonValue(CommonValue::Array{CommonValue(3.5)})};
    g_openDigest.update("abc", 3);
    g_plainEvent = std::make_shared<BrowserEvent>(kTuner, int{kTune}, nullptr);
    g_answeredEvent = std::make_shared<BrowserEvent>(kDeaf, 99, new EventParam);
    g_answeredEvent->initWaitResultCv();
    g_answeredEvent->replyResult(42);
}

int run(const std::string& folder, const std::vector<std::string>& options) {
    const auto has = [&](const char* option) {
        return std::find(options.begin(), options.end(), option) != options.end();
    };
    const std::string file = folder + "/live";
    diagnostics::RecordingOptions recording;
    recording.bytes = std::size_t{64} * 1024;
    if (has("file")) recording.file = file.c_str();
    const bool isRecorded = !has("unrecorded");
    if (isRecorded && diagnostics::startRecording(recording) != diagnostics::Status::Ok) return 1;
    nameAll();
    if (has("beat")) startBeat();
    registerIdleHubs();
    occupyTuner();
    makeCircle();
    makeWaits();
    if (has("waiting")) makeMoreWaits();
    startTimers();
    postTasks();
    beginWatches(has("overdue"));
    makeValues();
    if (writeStateTo((folder + "/few").c_str(), 0) != 0) return 1;
    if (writeStateTo((folder + "/whole").c_str(), 1) != 0) return 1;
    diagnostics::mark("ready", 1);  // The last record: later than the reports.
    const int fd = open((folder + "/recording").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (isRecorded && diagnostics::writeRecording(fd) != diagnostics::Status::Ok) return 1;
    (void)close(fd);
    stateIsReady();
    if (has("crash")) abort();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const int status = run(argv[1], {argv + 2, argv + argc});
    std::fflush(nullptr);
    _exit(status);  // Threads stay where they are.
}

// The recorder and the state report.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "faults/scenario.h"

namespace faults {
namespace {

using namespace tevalon::base;
using diagnostics::Status;

long number(Status status) {
    return static_cast<long>(status);
}

class File {
public:
    explicit File(const char* path)
        : m_descriptor(open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {}
    ~File() { (void)close(m_descriptor); }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] int descriptor() const { return m_descriptor; }

private:
    const int m_descriptor;
};

void recordSomething() {
    diagnostics::mark("marked", 1);
    diagnostics::counter("counted", 2);
    const diagnostics::Scope scope("in a scope");
}

void recordAndWrite(Run& run, const char* file) {
    diagnostics::RecordingOptions options;
    options.bytes = diagnostics::kLeastRecordingBytes;
    options.file = file;
    const Status status = diagnostics::startRecording(options);
    run.say("start", number(status));
    if (file != nullptr) {
        const bool isThere = access(file, F_OK) == 0;
        run.say("consistent", (status == Status::Ok) == isThere ? 1 : 0);
    }
    (void)diagnostics::nameEvent(run.isAgain() ? 2 : 1, "a name");
    recordSomething();
    diagnostics::sampleHeap();
    {
        const File written("written");
        run.say("write", number(diagnostics::writeRecording(written.descriptor())));
    }
    run.say("written", static_cast<long>(contentsOf("written").size()));
    run.say("stop", number(diagnostics::stopRecording()));
    // Nothing is left of a file that could not be recorded to.
    run.calm();
    if (file != nullptr) (void)unlink(file);
    run.say("start then", number(diagnostics::startRecording(options)));
    recordSomething();
    {
        const File written("written");
        run.say("write then", number(diagnostics::writeRecording(written.descriptor())));
    }
    run.say("written then", static_cast<long>(contentsOf("written").size()));
    run.say("stop then", number(diagnostics::stopRecording()));
    if (file != nullptr) (void)unlink(file);
}

void recordingInMemory(Run& run) {
    recordAndWrite(run, nullptr);
}

// The second forgets the first.
void recordingTwice(Run& run) {
    diagnostics::RecordingOptions options;
    options.bytes = diagnostics::kLeastRecordingBytes;
    run.say("start", number(diagnostics::startRecording(options)));
    run.say("stop", number(diagnostics::stopRecording()));
    run.say("restart", number(diagnostics::startRecording(options)));
    run.calm();
    (void)diagnostics::stopRecording();
    run.say("start then", number(diagnostics::startRecording(options)));
    run.say("stop then", number(diagnostics::stopRecording()));
}

// The child starts anew; the parent goes on.
void recordingForked(Run& run) {
    diagnostics::RecordingOptions options;
    options.bytes = diagnostics::kLeastRecordingBytes;
    run.say("start", number(diagnostics::startRecording(options)));
    const pid_t child = fork();
    if (child == 0) {
        const bool isOff = !diagnostics::isRecording();
        calmDown();
        reportCounts();
        const bool isOn = diagnostics::startRecording(options) == Status::Ok;
        _exit(isOff && isOn ? 0 : 1);
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    run.say("child", status);
    const Status stopped = diagnostics::stopRecording();
    run.say("stop", number(stopped));
    run.calm();
    run.say("start then", number(diagnostics::startRecording(options)));
    run.say("stop then", number(diagnostics::stopRecording()));
}

void recordingInFile(Run& run) {
    recordAndWrite(run, "recording");
}

// A file that is refused leaves nothing behind, neither itself nor a recording.
void recordingFileLeftBehind(Run& run) {
    diagnostics::RecordingOptions options;
    options.bytes = diagnostics::kLeastRecordingBytes;
    options.file = "recording";
    const Status status = diagnostics::startRecording(options);
    const bool isThere = access("recording", F_OK) == 0;
    run.say("consistent", (status == Status::Ok) == isThere ? 1 : 0);
    run.say("is recording", diagnostics::isRecording() == (status == Status::Ok) ? 1 : 0);
    run.calm();
    (void)diagnostics::stopRecording();
    (void)unlink("recording");
    run.say("start then", number(diagnostics::startRecording(options)));
    run.say("stop then", number(diagnostics::stopRecording()));
    (void)unlink("recording");
}

void state(Run& run) {
    {
        const File written("written");
        run.say("state", number(diagnostics::writeState(written.descriptor())));
    }
    run.say("written", countLines(contentsOf("written")));
    run.calm();
    const File written("written");
    run.say("state then", number(diagnostics::writeState(written.descriptor())));
    run.say("written then", countLines(contentsOf("written")));
}

// ---- with everything at work ----

std::atomic<int> g_count{0};

void prepareFamilies() {
    (void)event_dispatcher::EventDispatcher::GetInstance();
    (void)timer::TimerThreadPool::GetInstance();
}

class RegisteredHub {
public:
    RegisteredHub() { (void)event_dispatcher::evtdispch_register_hub(&hub); }
    ~RegisteredHub() {
        try {
            (void)event_dispatcher::evtdispch_unregister_hub(&hub);
        } catch (const std::exception&) {
            calmDown();  // A lock that has failed once.
            (void)event_dispatcher::evtdispch_unregister_hub(&hub);
        }
    }

    RegisteredHub(const RegisteredHub&) = delete;
    RegisteredHub& operator=(const RegisteredHub&) = delete;

    event_dispatcher::EventHub hub{3};
};

/// What there is to report, and to record.
class Families {
public:
    Families()
        : m_timer(
              "late", {1000, 0, 0}, [](simple_timer::Timer*, void*) { ++g_count; }, nullptr,
              simple_timer::ONCE) {
        (void)m_timer.start();
        (void)m_registered.hub.registerHandler(
            1, [](const std::shared_ptr<event_dispatcher::BrowserEvent>&) { ++g_count; });
        (void)m_registered.hub.sendEvent(m_registered.hub.createEvent(1), 3);
        m_thread.postTask(std::make_shared<timer::CallableTimerTask>([] { ++g_count; }));
        m_dog.beginWatch(timer::WatchDog::eWatchID_StartUp, 1000.0);
    }

    Families(const Families&) = delete;
    Families& operator=(const Families&) = delete;

private:
    simple_timer::Timer m_timer;
    RegisteredHub m_registered;
    timer::TimerThread m_thread;
    timer::WatchDog m_dog;
};

/// Made before anything counts: only what reports is to fail.
std::unique_ptr<Families> g_families;

bool isAnotherThreadRunning() {
    const std::string self = std::to_string(gettid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file(task.path() / "stat");
        std::string line;
        std::getline(file, line);  // "ID (NAME) STATE": a name may have anything in it.
        const std::size_t end = line.rfind(')');
        if (end == std::string::npos || task.path().filename() == self) continue;
        if (line.compare(end, 3, ") S") != 0) return true;
    }
    return false;
}

// Until its threads sleep: a lock that one of them holds just then is all that would be reported of
// its family.
void makeFamilies() {
    prepareFamilies();
    g_families = std::make_unique<Families>();
    for (int quiet = 0; quiet < 3; quiet = isAnotherThreadRunning() ? 0 : quiet + 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::vector<std::unique_ptr<RegisteredHub>> g_hubs;

void makeManyHubs() {
    prepareFamilies();
    for (int i = 0; i < 400; ++i) g_hubs.push_back(std::make_unique<RegisteredHub>());
}

void familiesAtWork(Run& run) {
    diagnostics::RecordingOptions options;
    options.bytes = diagnostics::kLeastRecordingBytes;
    (void)diagnostics::stopRecording();
    run.say("recording", number(diagnostics::startRecording(options)));
    const int before = g_count;
    {
        const Families families;
        (void)run.waitFor("worked", g_count, before + 2);
        const File written("written");
        run.say("state", number(diagnostics::writeState(written.descriptor())));
    }
    run.calm();
    (void)diagnostics::stopRecording();
    run.say("recording then", number(diagnostics::startRecording(options)));
    const int then = g_count;
    {
        const Families families;
        (void)run.waitFor("worked then", g_count, then + 2);
    }
    run.say("stop then", number(diagnostics::stopRecording()));
}

}  // namespace

std::vector<Scenario> diagnosticsScenarios() {
    return {
        {"recording in memory", recordingInMemory},
        {"recording twice", recordingTwice},
        {"recording forked", recordingForked},
        {"recording in a file", recordingInFile},
        {"recording refused", recordingFileLeftBehind},
        {"state report", state},
        {"state report of all", state, makeFamilies},
        {"state report of many", state, makeManyHubs},
        {"families recorded", familiesAtWork, prepareFamilies},
    };
}

}  // namespace faults

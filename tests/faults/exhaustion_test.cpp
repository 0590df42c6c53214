// What each service answers where the system has nothing left: threads, descriptors, address space
// and disk, by the process's own limits, and that it works again once there is some.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "base/utils.h"
#include "support/event.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"
#include "support/scratch_folder.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;

/// The soft limit, as long as it lives.
class Limit {
public:
    Limit(int resource, rlim_t limit) : m_resource(resource) {
        if (getrlimit(resource, &m_before) != 0) throw std::runtime_error("no limit");
        rlimit lower = m_before;
        lower.rlim_cur = limit;
        if (setrlimit(resource, &lower) != 0) throw std::runtime_error("no limit");
    }
    ~Limit() { (void)setrlimit(m_resource, &m_before); }

    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

private:
    const int m_resource;
    rlimit m_before = {};
};

rlim_t addressSpaceInUse() {
    long pages = 0;
    std::FILE* const p_file = std::fopen("/proc/self/statm", "r");
    if (p_file == nullptr || std::fscanf(p_file, "%ld", &pages) != 1) {
        throw std::runtime_error("no statm");
    }
    (void)std::fclose(p_file);
    return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// Null where one can be set.
const char* whyNoLimitOfAddressSpace() {
#if defined(TEVALON_TEST_SANITIZED)
    return "the sanitizer needs more than any limit allows";
#elif defined(TEVALON_TEST_EMULATED)
    return "the emulator's own address space is meant";
#else
    return nullptr;
#endif
}

// The limit does not count for the superuser.
void becomeNobody() {
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0) return;
    ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
}

std::string errorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

std::shared_ptr<timer::TimerTaskBase> settingTask(test::Event* p_fired) {
    return std::make_shared<timer::CallableTimerTask>([p_fired] { p_fired->set(); });
}

/// Registers a handler and has it called.
void useHub(event_dispatcher::EventHub& hub, std::int32_t type) {
    test::Event handled;
    EXPECT_EQ(
        hub.registerHandler(
            type, [&](const std::shared_ptr<event_dispatcher::BrowserEvent>&) { handled.set(); }),
        0);
    EXPECT_EQ(hub.receiveEvent(hub.createEvent(type)), 0);
    EXPECT_TRUE(handled.wait());
    hub.onHubUnregistered();
}

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// The numbers of their lines left out.
std::vector<std::string> errorsOf(const LogCapture& log) {
    std::vector<std::string> errors;
    for (const test::LogEntry& entry : log.entriesWithoutLineNumbers()) {
        if (entry.level == kLogError) errors.push_back(entry.text);
    }
    return errors;
}

const std::string kNoHubThread =
    "[EventDispatcher] event_hub.cpp:#:registerHandler(): Fail to create EventHandlerThread.\n";
const std::string kNoSchedulerThread =
    "[B-LOG] timer.cpp:#:StartTimerThreadOnce(): Fail to create timer thread, "
    "error:'Resource temporarily unavailable'.\n";

void ignoreEvent(const std::shared_ptr<event_dispatcher::BrowserEvent>&) {}

/// While there are no threads to be had.
void expectRefusals(event_dispatcher::EventHub& hub, timer::TimerThread& thread,
                    test::Event* p_fired) {
    EXPECT_EQ(hub.registerHandler(1, ignoreEvent), 0);
    EXPECT_EQ(errorOf([&] { thread.postTask(settingTask(p_fired)); }),
              "Thread initialization failed");
    EXPECT_EQ(errorOf([] { const timer::WatchDog dog; }), "Thread initialization failed");
    simple_timer::Timer never(
        "never", {0, 1, 0}, [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE);
    EXPECT_EQ(never.start(), 0);
    EXPECT_EQ(never.stop(), 0);
}

TEST(ExhaustionTest, WithoutThreadsEachServiceSaysSoAndWorksOnceThereAreSome) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        becomeNobody();
        const LogCapture log(kLogError);
        event_dispatcher::EventHub hub(3);
        timer::TimerThread thread;
        test::Event fired;
        {
            const Limit noThreads(RLIMIT_NPROC, 0);
            expectRefusals(hub, thread, &fired);
        }
        EXPECT_EQ(errorsOf(log), (std::vector<std::string>{kNoHubThread, kNoSchedulerThread}));

        useHub(hub, 2);
        thread.postTask(settingTask(&fired));
        EXPECT_TRUE(fired.wait());
        const timer::WatchDog dog;
    });
}

TEST(ExhaustionTest, WithoutDescriptorsEachServiceSaysSoAndWorksOnceThereAreSome) {
#ifdef TEVALON_TEST_SANITIZED
    GTEST_SKIP() << "the sanitizer looks at objects through a pipe";
#endif
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::ScratchFolder folder;
        const std::string file = folder.file("file");
        const std::string tree = folder.folder("tree");
        const std::string recording = folder.path("recording");
        diagnostics::RecordingOptions options;
        options.file = recording.c_str();
        (void)debug::debug_init();
        const LogCapture log(kLogError);
        {
            const Limit noDescriptors(RLIMIT_NOFILE, 0);
            EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::FileNotOpened);
            EXPECT_EQ(rmDir(tree.c_str()), -2);
            debug::showFileContents("Title", file.c_str());
            EXPECT_EQ(zorDebugSetFile(file.c_str()), -1);
            simple_timer::Timer never(
                "never", {0, 1, 0}, [](simple_timer::Timer*, void*) {}, nullptr,
                simple_timer::ONCE);
        }
        EXPECT_EQ(errorsOf(log),
                  (std::vector<std::string>{
                      "[B-LOG] utils.cpp:#:rmDir(): Fail to opendir('" + tree + "').\n\n",
                      "[B-LOG] debug_memory.cpp:#:showFileContents(): Error opening " + file + "\n",
                      "[B-LOG] timer.cpp:#:StartTimerThreadOnce(): Fail to create pipe, "
                      "errno(24):'Too many open files'.\n"}));

        EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::Ok);
        EXPECT_EQ(rmDir(tree.c_str()), 0);
        EXPECT_EQ(diagnostics::stopRecording(), diagnostics::Status::Ok);
    });
}

TEST(ExhaustionTest, WithoutAddressSpaceEachServiceSaysSoAndWorksOnceThereIsSome) {
    if (const char* const p_reason = whyNoLimitOfAddressSpace()) GTEST_SKIP() << p_reason;
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const LogCapture log(kLogError);
        event_dispatcher::EventHub hub(3);
        timer::TimerThread thread;
        test::Event fired;
        diagnostics::RecordingOptions options;
        options.bytes = std::size_t{64} * 1024 * 1024;
        {
            constexpr rlim_t kLittle = rlim_t{2} * 1024 * 1024;  // Less than a thread's stack.
            const Limit noMemory(RLIMIT_AS, addressSpaceInUse() + kLittle);
            EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::NoMemory);
            expectRefusals(hub, thread, &fired);
        }
        EXPECT_EQ(errorsOf(log), (std::vector<std::string>{kNoHubThread, kNoSchedulerThread}));

        useHub(hub, 2);
        thread.postTask(settingTask(&fired));
        EXPECT_TRUE(fired.wait());
        EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::Ok);
    });
}

TEST(ExhaustionTest, AStateReportWithoutAddressSpaceForAllSaysSo) {
    if (const char* const p_reason = whyNoLimitOfAddressSpace()) GTEST_SKIP() << p_reason;
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::ScratchFolder folder;
        std::vector<std::unique_ptr<simple_timer::Timer>> timers;
        for (int i = 0; i < 1000; ++i) {
            timers.push_back(std::make_unique<simple_timer::Timer>(
                "one of many", simple_timer::TimeoutTime{3600, 0, 0},
                [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE));
            (void)timers.back()->start();
        }
        diagnostics::StateOptions options;
        options.isWhole = true;
        const std::string path = folder.path("state");
        const rlim_t page = static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
        int said = 0;
        auto status = diagnostics::Status::NoMemory;
        for (rlim_t spare = 0; status == diagnostics::Status::NoMemory; spare += page) {
            const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            {
                const Limit little(RLIMIT_AS, addressSpaceInUse() + spare);
                status = diagnostics::writeState(file, options);
            }
            (void)close(file);
            const bool isSaid = contentsOf(path).find("memory ran out") != std::string::npos;
            EXPECT_FALSE(isSaid && status == diagnostics::Status::Ok);
            said += isSaid;
        }
        EXPECT_EQ(status, diagnostics::Status::Ok);
        EXPECT_GT(said, 0);
    });
}

TEST(ExhaustionTest, WithoutDiskARecordingIsRefusedAndLostOutputIsTold) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::ScratchFolder folder;
        const std::string recording = folder.path("recording");
        diagnostics::RecordingOptions options;
        options.file = recording.c_str();
        {
            const Limit noDisk(RLIMIT_FSIZE, 4096);
            EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::NoRoom);
            EXPECT_FALSE(test::isThere(recording));
        }
        EXPECT_EQ(diagnostics::startRecording(options), diagnostics::Status::Ok);

        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        ASSERT_GE(full, 0);
        errno = 0;
        EXPECT_EQ(diagnostics::writeRecording(full), diagnostics::Status::WriteFailed);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(diagnostics::writeState(full), diagnostics::Status::WriteFailed);
        (void)close(full);

        EXPECT_EQ(zorDebugSetFile("/dev/full"), 0);
        print_browser_log(1, "tag", "file.cpp", 1, "function", "dropped");
        EXPECT_EQ(zorDebugSetFile(folder.path("log").c_str()), 0);
        print_browser_log(1, "tag", "file.cpp", 1, "function", "kept");
        EXPECT_EQ(zorDebugSetFile(nullptr), 0);
        EXPECT_EQ(contentsOf(folder.path("log")),
                  "zor-debug: lines that could not be written: 1, for: No space left on device\n"
                  "[tag]file.cpp:1:function:kept\n");
    });
}

}  // namespace

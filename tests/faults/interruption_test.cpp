// What goes on under a process without its doing: it is stopped and continued, the machine is
// suspended, the wall clock is set, nobody reads its output.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"

namespace {

using namespace tevalon::base;
using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;
using simple_timer::Timer;
using test::Call;
using test::When;

constexpr long kPeriodMs = 10;

/// Each goes on by itself, and counts how far it has come.
class Services {
public:
    Services() {
        m_hub.registerHandler(kType, [this](const std::shared_ptr<BrowserEvent>& event) {
            ++m_handled;
            event->replyResult(kReply);
        });
        m_dog.setTimeoutCallback([](void* p_services, timer::WatchDog::WATCH_ID,
                                    double) { ++static_cast<Services*>(p_services)->m_reported; },
                                 this);
        m_dog.beginWatch(timer::WatchDog::eWatchID_StartUp, 0);
        EXPECT_EQ(m_timer.start(), 0);
        postAgain();
    }
    ~Services() {
        m_isEnding = true;
        m_timer.stop();
        m_thread.stop();
        m_hub.onHubUnregistered();
    }

    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    int runs() const { return m_runs; }
    int tasks() const { return m_tasks; }

    /// Until each has done something more than once from now on.
    void expectProgress() {
        const int tasks = m_tasks;
        expectProgressWithoutLog();
        while (m_tasks < tasks + 2) std::this_thread::yield();
    }
    /// Likewise those that need no line of the log; each task that is fired writes one.
    void expectProgressWithoutLog() {
        const int runs = m_runs;
        const int reported = m_reported;
        const int handled = m_handled;
        while (m_runs < runs + 2 || m_reported < reported + 2) std::this_thread::yield();
        const auto event = m_hub.createEvent(kType);
        event->initWaitResultCv();
        EXPECT_EQ(m_hub.receiveEvent(event), 0);
        EXPECT_EQ(event->waitForResult(-1), kReply);
        EXPECT_EQ(m_handled, handled + 1);
    }

private:
    static constexpr std::int32_t kType = 7;
    static constexpr event_dispatcher::EventResult kReply = 42;

    void postAgain() {
        m_thread.postTask(std::make_shared<timer::CallableTimerTask>([this] {
                              ++m_tasks;
                              if (!m_isEnding) postAgain();
                          }),
                          kPeriodMs);
    }

    std::atomic<bool> m_isEnding{false};
    std::atomic<int> m_runs{0};
    std::atomic<int> m_tasks{0};
    std::atomic<int> m_reported{0};
    std::atomic<int> m_handled{0};
    EventHub m_hub{3};
    timer::WatchDog m_dog;
    Timer m_timer{"beat",
                  {0, 0, kPeriodMs * 1000},
                  [](Timer*, void* p_services) { ++static_cast<Services*>(p_services)->m_runs; },
                  this,
                  simple_timer::CONTINUE};
    timer::TimerThread m_thread;
};

char stateOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::size_t name = text.rfind(") ");
    return name == std::string::npos ? '?' : text[name + 2];
}

// In a process of its own, before there are threads: stops its parent for so long.
pid_t stopThisProcessFor(std::chrono::milliseconds pause, int goWhenItCloses) {
    const pid_t stopped = getpid();
    const pid_t stopper = fork();
    if (stopper != 0) return stopper;
    char byte = 0;
    (void)!read(goWhenItCloses, &byte, 1);
    (void)kill(stopped, SIGSTOP);
    while (stateOf(stopped) != 'T') std::this_thread::yield();
    std::this_thread::sleep_for(pause);  // It is the pause that is tried out.
    (void)kill(stopped, SIGCONT);
    _exit(0);
}

TEST(InterruptionTest, AStoppedProcessGoesOnAndMakesUpForNothing) {
#ifdef TEVALON_TEST_EMULATED
    GTEST_SKIP() << "the emulator would be stopped";
#endif
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        int ends[2] = {};
        ASSERT_EQ(pipe(ends), 0);
        const pid_t stopper = stopThisProcessFor(std::chrono::milliseconds(500), ends[0]);
        const auto begin = std::chrono::steady_clock::now();
        Services services;
        services.expectProgress();
        (void)!write(ends[1], "!", 1);
        int status = 0;
        ASSERT_EQ(waitpid(stopper, &status, 0), stopper);
        services.expectProgress();

        // No more than there were periods, the missed ones not counted twice.
        const int runs = services.runs();
        const int tasks = services.tasks();
        const auto passed = std::chrono::steady_clock::now() - begin;
        const auto periods = passed / std::chrono::milliseconds(kPeriodMs) + 1;
        EXPECT_LE(runs, periods);
        EXPECT_LE(tasks, periods);
    });
}

// While a machine is suspended its monotonic clock stands still; nothing else tells a process.
TEST(InterruptionTest, NothingIsDueWhileTheMonotonicClockStandsStill) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr long kReadsEnough = 10;
        test::Event ran;
        test::Event fired;
        std::atomic<bool> mayRun{false};
        std::atomic<bool> wasEarly{false};
        const auto note = [&](test::Event* p_event) {
            if (!mayRun) wasEarly = true;
            p_event->set();
        };
        timespec stoppedAt = {};
        (void)clock_gettime(CLOCK_MONOTONIC, &stoppedAt);
        test::ReplaceCall<int(clockid_t, timespec*)> clock(
            Call::ClockGettime,
            [&](clockid_t id, timespec* p_time) {
                const int result = clock_gettime(id, p_time);
                if (id != CLOCK_MONOTONIC && id != CLOCK_MONOTONIC_COARSE) return result;
                if (!mayRun) *p_time = stoppedAt;
                return result;
            },
            When().anyThread().everyTime());
        Timer timer(
            "once", {0, 5, 0}, [&](Timer*, void*) { note(&ran); }, nullptr, simple_timer::ONCE);
        timer::TimerThread thread;
        ASSERT_EQ(timer.start(), 0);
        thread.postTask(std::make_shared<timer::CallableTimerTask>([&] { note(&fired); }), 5);

        // Both have slept their time by the kernel's clock then, and have looked again.
        const long before = clock.seen();
        while (clock.seen() < before + 2 * kReadsEnough) std::this_thread::yield();
        EXPECT_FALSE(wasEarly);

        mayRun = true;
        EXPECT_TRUE(ran.wait());
        EXPECT_TRUE(fired.wait());
        EXPECT_FALSE(wasEarly);
    });
}

TEST(InterruptionTest, TheWallClockMattersToNone) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr long kTenYears = 10L * 365 * 24 * 3600;
        std::atomic<long> asked{0};
        test::ReplaceCall<int(clockid_t, timespec*)> clock(
            Call::ClockGettime,
            [&](clockid_t id, timespec* p_time) {
                const int result = clock_gettime(id, p_time);
                if (id == CLOCK_REALTIME) p_time->tv_sec += ++asked % 2 == 0 ? 1 : -kTenYears;
                return result;
            },
            When().anyThread().everyTime());
        Services services;
        services.expectProgress();
        services.expectProgress();
        EXPECT_EQ(asked, 0);
    });
}

bool isReady(int descriptor, short events) {
    pollfd wanted = {descriptor, events, 0};
    return poll(&wanted, 1, 0) == 1;
}

int countOf(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST(InterruptionTest, OnlyWhoLogsWaitsForAReaderThatIsStuckAndNoLineIsLost) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr int kLines = 2000;  // Several times what a pipe holds.
        const std::string text(200, 'x');
        int ends[2] = {};
        ASSERT_EQ(pipe(ends), 0);
        const int standardError = dup(STDERR_FILENO);
        ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
        (void)close(ends[1]);
        Services services;
        std::atomic<bool> isDone{false};
        std::thread writer([&] {
            for (int i = 0; i < kLines; ++i) BLOG(kLogError, "%s\n", text.c_str());
            isDone = true;
        });
        while (isReady(STDERR_FILENO, POLLOUT)) std::this_thread::yield();

        services.expectProgressWithoutLog();
        EXPECT_FALSE(isDone);

        std::string written;
        while (!isDone || isReady(ends[0], POLLIN)) {
            char bytes[4096];
            const ssize_t count = read(ends[0], bytes, sizeof(bytes));
            ASSERT_GT(count, 0);
            written.append(bytes, static_cast<std::size_t>(count));
        }
        writer.join();
        ASSERT_EQ(dup2(standardError, STDERR_FILENO), STDERR_FILENO);
        EXPECT_EQ(countOf(written, "(): " + text + "\n"), kLines);
        services.expectProgress();
    });
}

}  // namespace

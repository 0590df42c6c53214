// Logging, locks, singletons and Runnable.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/singleton.h"
#include "base/synchronization.h"
#include "base/threading.h"
#include "base/timer.h"
#include "faults/scenario.h"

namespace faults {
namespace {

using namespace tevalon::base;

// ---- logging ----

void logLines(Run& run) {
    // Once in a process; without a clock it stays at this.
    if (!run.isAgain()) run.say("boot id without a clock", bootID() == 0x1234 ? 1 : 0);
    print_browser_log(1, "tag", "folder/file.cpp", 7, "function", "x=%d", 5);
    print_hbbtv_controller_log(1, nullptr, nullptr, 7, nullptr, "x=%d", 5);
    const unsigned char data[20] = {1, 2, 3};
    dump_memory("title", data, sizeof(data));
    { const FunctionTracer tracer("function", "file.cpp", 1); }
    run.say("location", dbg_location("a_file_with_a_long_name.cpp", 42, "aFunctionWithALongName"));
    run.calm();
    run.say("location then", dbg_location("a_file_with_a_long_name.cpp", 42, "start"));
}

void memoryReport(Run& run) {
    (void)setenv("SHOW_MEMORY_DEBUG_INFO", "1", 1);
    makeFile("shown.txt", "one\ntwo\n");
    run.say("init", debug::debug_init() ? 1 : 0);
    debug::showFileContents("Title", "shown.txt");
    run.calm();
    run.say("init then", debug::debug_init() ? 1 : 0);
    debug::showFileContents("Title then", "shown.txt");
}

// ---- locks ----

void lockGuards(Run& run) {
    Mutex mutex;
    ConditionVariable condition;
    { const AutoLock lock(mutex); }
    { const LockGuard lock(mutex); }
    { UniqueLock lock(mutex); }
    condition.notify_one();
    run.say("locked", 1);
    run.calm();
    { const AutoLock lock(mutex); }
    condition.notify_one();
    run.say("locked then", 1);
}

// ---- singletons ----

// An instance whose creation has failed is never created, and who asks for it again waits for ever.
template <typename T>
void useSingleton(Run& run, const char* name) {
    static bool s_hasFailed = false;
    if (s_hasFailed) return run.say(name, "failed");
    try {
        run.say(name, T::GetInstance() != nullptr ? "there" : "null");
    } catch (const std::exception& error) {
        s_hasFailed = true;
        run.say(name, error.what());
    }
}

void singletons(Run& run) {
    useSingleton<timer::TimerThreadPool>(run, "pool");
    useSingleton<event_dispatcher::EventDispatcher>(run, "dispatcher");
    useSingleton<timer::GLWatchDog>(run, "watchdog");
}

// Who asks for an instance that another thread is creating.
void singletonBeingCreated(Run& run) {
    std::intptr_t word = 1;
    const long yields = callsOf("sched_yield");
    std::thread creator([&] {
        (void)run.waitForCalls("waits", "sched_yield", yields + 1);
        __atomic_store_n(&word, 2, __ATOMIC_SEQ_CST);
    });
    run.say("instance", tevalon::base::internal::WaitForInstance(&word));
    creator.join();
}

// ---- Runnable ----

class Job : public Threading::Runnable {
public:
    Job() : Runnable(1) {}
    void execute() override { ++executions; }

    std::atomic<int> executions{0};
};

/// Runs a job until it goes out of scope.
class JobThread {
public:
    JobThread(Run* p_run, Job* p_job) : m_run(p_run), m_job(p_job), m_thread([this] { body(); }) {}
    ~JobThread() {
        m_run->calm();
        m_job->resume();
        m_job->stop();
        m_thread.join();
    }

    JobThread(const JobThread&) = delete;
    JobThread& operator=(const JobThread&) = delete;

private:
    void body() {
        try {
            m_run->say("run", m_job->run());
        } catch (const std::exception& error) {
            m_run->say("run threw", error.what());
        }
    }

    Run* const m_run;
    Job* const m_job;
    std::thread m_thread;
};

void runnable(Run& run) {
    Job job;
    const JobThread thread(&run, &job);
    (void)run.waitFor("executed", job.executions, 2);
    job.pause();
    run.say("running", job.running() ? 1 : 0);
    const long waits = callsOf("pthread_cond_wait");
    (void)run.waitForCalls("paused", "pthread_cond_wait", waits + 1);
    const int before = job.executions;
    job.resume();
    (void)run.waitFor("resumed", job.executions, before + 1);
    job.pause();
    job.stop();
    run.calm();
    run.say("running then", job.running() ? 1 : 0);
}

}  // namespace

std::vector<Scenario> foundationScenarios() {
    return {
        {"logging", logLines, nullptr, Module::Library, 5000}, {"memory report", memoryReport},
        {"lock guards", lockGuards, nullptr, Module::Program}, {"singletons", singletons},
        {"singleton being created", singletonBeingCreated},    {"runnable", runnable},
    };
}

}  // namespace faults

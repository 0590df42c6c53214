// runnable_fixtures.h: a Runnable whose sleeps the test lets pass, one by one.

#ifndef TESTS_THREADING_RUNNABLE_FIXTURES_H
#define TESTS_THREADING_RUNNABLE_FIXTURES_H

#include <time.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/threading/runnable.h"
#include "support/event.h"
#include "support/fault_injection.h"

/// Holds every nanosleep() of the process until the test lets it pass.
class HeldSleeps {
public:
    HeldSleeps()
        : m_sleep(
              test::Call::Nanosleep,
              [this](const timespec* p_duration, timespec*) { return sleep(*p_duration); },
              test::When().anyThread().everyTime()) {}
    ~HeldSleeps() { letAllPass(); }

    /// Blocks until the @p n-th sleep has begun; false when test::kPatience ran out first.
    [[nodiscard]] bool waitFor(std::size_t n) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, test::kPatience, [&] { return m_requests.size() >= n; });
    }

    /// Lets the first @p n sleeps pass, in all.
    void letPass(std::size_t n) {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_allowed = n;
        m_changed.notify_all();
    }
    void letAllPass() { letPass(SIZE_MAX); }

    /// The sleeps that are let pass return -1 with @p error.
    void failWith(int error) { m_error = error; }

    std::vector<timespec> requests() {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_requests;
    }

private:
    int sleep(const timespec& duration) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_requests.push_back(duration);
        const std::size_t number = m_requests.size();
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return number <= m_allowed; });
        if (m_error == 0) return 0;
        errno = m_error;
        return -1;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<timespec> m_requests;  // Guarded by m_mutex.
    std::size_t m_allowed = 0;         // Guarded by m_mutex.
    std::atomic<int> m_error{0};
    test::ReplaceCall<int(const timespec*, timespec*)> m_sleep;  // Last: it uses the rest.
};

/// Counts its rounds, and does in each what it is told.
class CountingRunnable : public tevalon::base::Threading::Runnable {
public:
    explicit CountingRunnable(std::int32_t interval = 10) : Runnable(interval) {}

    void execute() override {
        ++rounds;
        if (onExecute) onExecute();
    }

    std::function<void()> onExecute;  // Set before run().
    std::atomic<int> rounds{0};
};

/// A thread in run().
class Runner {
public:
    explicit Runner(tevalon::base::Threading::Runnable& runnable)
        : m_thread([this, &runnable] {
              m_result = runnable.run();
              m_returned.set();
          }) {}
    ~Runner() { m_thread.join(); }

    [[nodiscard]] bool waitForReturn() { return m_returned.wait(); }
    bool hasReturned() const { return m_returned.isSet(); }
    /// What run() returned; after waitForReturn().
    int result() const { return m_result; }

private:
    test::Event m_returned;
    int m_result = -1;
    std::thread m_thread;
};

#endif  // TESTS_THREADING_RUNNABLE_FIXTURES_H

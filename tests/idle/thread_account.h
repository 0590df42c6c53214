// thread_account.h: what the threads of this process cost, as the kernel counts it.

#ifndef TESTS_IDLE_THREAD_ACCOUNT_H
#define TESTS_IDLE_THREAD_ACCOUNT_H

#include <sys/types.h>

#include <functional>
#include <set>

namespace test {

/// The kernel's ids of all threads of the process.
std::set<pid_t> threadIds();

/// The thread that @p start makes; 0 unless it is exactly one.
pid_t threadMadeBy(const std::function<void()>& start);

/// What a thread has used since it began.
struct ThreadAccount {
    double cpuSeconds = 0;  ///< In the program and in the kernel, in steps of a clock tick.
    long wakeUps = 0;       ///< Times it gave the processor away by itself, to wait.
};

/// Fails the test when there is no such thread.
ThreadAccount accountOf(pid_t thread);

}  // namespace test

#endif  // TESTS_IDLE_THREAD_ACCOUNT_H

// signal_storm.h: signals that interrupt every blocking call of the process, for no reason.

#ifndef TESTS_SUPPORT_SIGNAL_STORM_H
#define TESTS_SUPPORT_SIGNAL_STORM_H

#include <dirent.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

namespace test {

/// While it lives, SIGUSR1 does nothing but interrupt: its handler is empty, and calls are not
/// restarted.
class SignalStorm {
public:
    SignalStorm() {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        (void)sigaction(SIGUSR1, &action, &m_before);
    }
    ~SignalStorm() { (void)sigaction(SIGUSR1, &m_before, nullptr); }

    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    /// Sends one to the process, and one to each of its threads but the calling one; @p times.
    void blow(int times) {
        for (int i = 0; i < times; ++i) {
            (void)kill(getpid(), SIGUSR1);
            hitOtherThreads();
            std::this_thread::yield();
        }
    }

private:
    static void hitOtherThreads() {
        const long self = syscall(SYS_gettid);
        DIR* const p_threads = opendir("/proc/self/task");
        if (p_threads == nullptr) std::abort();
        while (const dirent* const p_entry = readdir(p_threads)) {
            const long thread = std::atol(p_entry->d_name);
            if (thread <= 0 || thread == self) continue;
            (void)syscall(SYS_tgkill, getpid(), thread, SIGUSR1);  // It may have ended.
        }
        (void)closedir(p_threads);
    }

    struct sigaction m_before {};
};

}  // namespace test

#endif  // TESTS_SUPPORT_SIGNAL_STORM_H

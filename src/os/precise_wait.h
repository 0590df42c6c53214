// precise_wait.h: timed waits that end when their time is over.

#ifndef SRC_OS_PRECISE_WAIT_H
#define SRC_OS_PRECISE_WAIT_H

#include <sys/prctl.h>

#include <cerrno>

namespace tevalon::base {

/// While it lives, the calling thread's timer slack is the least there is: by default the kernel
/// lets a timed wait end 50 us late, to wake a sleeping processor less often. Its destructor
/// restores the thread's own slack, for what clients run on the thread, and on threads that they
/// start from it, which inherit it. Keeps errno.
class PreciseWait {
public:
    PreciseWait() : m_slack(slackOfThisThread()) { setSlack(kLeast); }
    ~PreciseWait() { setSlack(m_slack); }

    PreciseWait(const PreciseWait&) = delete;
    PreciseWait& operator=(const PreciseWait&) = delete;

private:
    static constexpr unsigned long kLeast = 1;  // Nanosecond; 0 stands for the default.

    static unsigned long slackOfThisThread() {
        const int error = errno;
        const int slack = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
        errno = error;
        return slack > 0 ? static_cast<unsigned long>(slack) : 0;
    }

    // Where it cannot be set, waits are merely less exact.
    static void setSlack(unsigned long nanoseconds) {
        const int error = errno;
        (void)prctl(PR_SET_TIMERSLACK, nanoseconds, 0, 0, 0);
        errno = error;
    }

    const unsigned long m_slack;
};

}  // namespace tevalon::base

#endif  // SRC_OS_PRECISE_WAIT_H

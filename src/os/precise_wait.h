// precise_wait.h: timed waits that end when their time is over.

#ifndef SRC_OS_PRECISE_WAIT_H
#define SRC_OS_PRECISE_WAIT_H

#include <sys/prctl.h>

#include <cerrno>

namespace tevalon::base {

/// While it lives, the calling thread's timed waits are not put off: by default the kernel lets
/// each end 50 us late, to wake a sleeping processor less often. The thread's own slack comes back
/// with its end, for what clients run on the thread, and on threads which they start from it.
/// Keeps errno.
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

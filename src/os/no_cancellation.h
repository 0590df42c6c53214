// no_cancellation.h: a scope in which the calling thread is not cancelled.

#ifndef SRC_OS_NO_CANCELLATION_H
#define SRC_OS_NO_CANCELLATION_H

#include <pthread.h>

namespace tevalon::base {

/// While it lives, pthread_cancel() of the calling thread stays pending. For scopes that must run
/// to their end once begun: cancellation unwinds the stack from inside write(), a join or a log
/// line, which leaves a step half done, and ends the process where it meets a destructor.
class NoCancellation {
public:
    NoCancellation() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_stateBefore); }
    ~NoCancellation() { (void)pthread_setcancelstate(m_stateBefore, nullptr); }

    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int m_stateBefore = PTHREAD_CANCEL_ENABLE;
};

}  // namespace tevalon::base

#endif  // SRC_OS_NO_CANCELLATION_H

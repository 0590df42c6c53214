// gate.h: keeps a thread of the library in the middle of its work.

#ifndef BENCHMARKS_HOT_PATHS_GATE_H
#define BENCHMARKS_HOT_PATHS_GATE_H

#include "support/futex.h"

namespace bench {

/// Opens once. The thread that is kept sleeps: it executes nothing.
class Gate {
public:
    void open() {
        m_isOpen.store(1, std::memory_order_release);
        futexWake(m_isOpen);
    }
    void pass() {
        while (m_isOpen.load(std::memory_order_acquire) == 0) futexWait(m_isOpen, 0);
    }

private:
    FutexWord m_isOpen{0};
};

/// Two gates: the thread opens one as it gets there, and waits at the other.
class Hold {
public:
    /// On the thread that is to be kept.
    void keep() {
        m_isThere.open();
        m_release.pass();
    }
    void waitUntilThere() { m_isThere.pass(); }
    void release() { m_release.open(); }

private:
    Gate m_isThere;
    Gate m_release;
};

}  // namespace bench

#endif  // BENCHMARKS_HOT_PATHS_GATE_H

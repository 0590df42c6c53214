// arrivals.h: lets a benchmark wait until everything that it sent has been handled.

#ifndef BENCHMARKS_SUPPORT_ARRIVALS_H
#define BENCHMARKS_SUPPORT_ARRIVALS_H

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdint>

#include "support/futex.h"

namespace bench {

/// Counts what arrives on one thread, and wakes one other thread when all is there. Costs the
/// receiver an addition for each arrival, whichever peer delivered it.
class Arrivals {
public:
    /// Before anything is sent: @p count arrivals are to come.
    void expect(std::int64_t count) {
        m_missing = count;
        m_isComplete.store(0, std::memory_order_relaxed);
    }

    /// On the receiver's thread.
    ///
    /// @param number  Of what the arrival carries, so that it is read.
    void arrived(int number = 0) {
        benchmark::DoNotOptimize(number);
        if (--m_missing == 0) {
            m_isComplete.store(1, std::memory_order_release);
            futexWake(m_isComplete);
        }
    }

    void waitForAll() {
        while (m_isComplete.load(std::memory_order_acquire) == 0) futexWait(m_isComplete, 0);
    }

private:
    std::int64_t m_missing = 0;  // The receiver's alone, once something is sent.
    FutexWord m_isComplete{0};
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_ARRIVALS_H

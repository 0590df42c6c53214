// backoff.h: waits for another thread without a lock or a condition variable.

#ifndef ZOR_DEBUG_SRC_BACKOFF_H
#define ZOR_DEBUG_SRC_BACKOFF_H

#include <sched.h>
#include <time.h>

namespace zor_debug {

/// Paces a loop that polls a condition: yields the processor at first, then sleeps. Yielding
/// alone never helps where the thread that is waited for has a lower priority.
class Backoff {
public:
    void pause() {
        constexpr int kYields = 100;
        constexpr timespec kSleep = {0, 50000};
        if (m_yields < kYields) {
            ++m_yields;
            (void)sched_yield();
        } else {
            (void)nanosleep(&kSleep, nullptr);
        }
    }

private:
    int m_yields = 0;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_BACKOFF_H

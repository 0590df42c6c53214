// delay.h: a wait that can be cut short.

#ifndef TV_BROWSER_DELAY_H
#define TV_BROWSER_DELAY_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tv_browser {

/// Lets one thread wait, and another one end this and every later wait.
///
/// Thread-safety: any thread may call any method.
class Delay {
public:
    /// Blocks for @p duration, or until cancel().
    void wait(std::chrono::milliseconds duration);

    void cancel();

private:
    // The standard library's pair: the base library's condition variable waits without limit.
    std::mutex m_mutex;
    std::condition_variable m_changed;  // Signalled when m_cancelled is set.
    bool m_cancelled = false;           // Guarded by m_mutex.
};

}  // namespace tv_browser

#endif  // TV_BROWSER_DELAY_H

// gate.h: an event that threads wait for.

#ifndef FUZZ_SUPPORT_GATE_H
#define FUZZ_SUPPORT_GATE_H

#include <condition_variable>
#include <mutex>

namespace fuzz {

/// Closed until it is opened; then open for good.
class Gate {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOpen = true;
        m_change.notify_all();
    }

    /// Waits without limit: the fuzzer itself notices what hangs.
    void pass() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_change.wait(lock, [this] { return m_isOpen; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_change;
    bool m_isOpen = false;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_GATE_H

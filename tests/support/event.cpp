#include "support/event.h"

#include "support/fault_injection.h"

namespace test {

void Countdown::arrive() {
    const PassCalls pass;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_left > 0) --m_left;
    // Under the lock: the waiter may destroy this object as soon as it is released.
    if (m_left == 0) m_allArrived.notify_all();
}

bool Countdown::wait() {
    const PassCalls pass;
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_allArrived.wait_for(lock, kPatience, [this] { return m_left == 0; });
}

bool Countdown::isDone() const {
    const PassCalls pass;
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_left == 0;
}

void Countdown::reset(int arrivals) {
    const PassCalls pass;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_left = arrivals;
}

}  // namespace test

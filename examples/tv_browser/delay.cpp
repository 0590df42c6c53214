#include "delay.h"

namespace tv_browser {

void Delay::wait(std::chrono::milliseconds duration) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, duration, [this] { return m_cancelled; });
}

void Delay::cancel() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_cancelled = true;
    m_changed.notify_all();
}

}  // namespace tv_browser

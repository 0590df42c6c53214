#include "testkit/watchdog_reports.h"

namespace tevalon::testkit {

void WatchdogReports::attachTo(base::timer::WatchDog& dog) {
    dog.setTimeoutCallback(onTimeout, this);
}

WatchdogReports& WatchdogReports::ofProcess() {
    static auto* const s_reports = [] {
        auto* const p_reports = new WatchdogReports;
        p_reports->attachTo(*base::timer::GlobalWatchDog());
        return p_reports;
    }();
    return *s_reports;
}

base::timer::NamedWatch::Callback WatchdogReports::callback() {
    return [this](const std::string& name, double seconds) { add(name, seconds); };
}

std::vector<WatchdogReports::Report> WatchdogReports::all() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_reports;
}

void WatchdogReports::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reports.clear();
}

bool WatchdogReports::waitFor(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_grown.wait_for(lock, limit, [&] { return m_reports.size() >= count; });
}

void WatchdogReports::onTimeout(void* p_self, base::timer::WatchDog::WATCH_ID id, double seconds) {
    static_cast<WatchdogReports*>(p_self)->add(base::timer::WatchDog::getWatchIdName(id), seconds);
}

void WatchdogReports::add(const std::string& name, double seconds) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_reports.push_back({name, seconds});
    m_grown.notify_all();
}

}  // namespace tevalon::testkit

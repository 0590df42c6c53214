// signal_monitor.cpp: asks, counts, tells.
#include "signal_monitor.h"

#include <chrono>
#include <stdexcept>

#include "base/logging.h"

namespace tv {
namespace {

using namespace std::chrono_literals;

constexpr int kPatienceMs = 200;
constexpr auto kPause = 500ms;
constexpr int kLeastStrength = 10;
constexpr int kMostFailures = 3;

}  // namespace

SignalMonitor::SignalMonitor() : m_hub(kMonitor) {}

bool SignalMonitor::start() {
    try {
        m_thread.post([this] { check(); }, 0ms);
        return true;
    } catch (const std::runtime_error& error) {
        print_browser_log(1, "monitor", __FILE__, __LINE__, __func__, "cannot start: %s",
                          error.what());
        return false;
    }
}

void SignalMonitor::check() {
    const int strength = m_hub.sendEventSync(m_hub.createEvent(kSignalAsked), kTuner, kPatienceMs);
    m_failures = strength < kLeastStrength ? m_failures + 1 : 0;
    if (m_failures == kMostFailures) {
        print_browser_log(1, "monitor", __FILE__, __LINE__, __func__, "no signal");
        m_hub.sendEvent(m_hub.createEvent(kSignalLost), kViewer);
    }
    m_thread.post([this] { check(); }, kPause);
}

}  // namespace tv

#include "mistakes.h"

#include <atomic>
#include <cstdint>
#include <utility>

#include "base/simple_timer.h"

namespace tv_browser {
namespace {

using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;

std::atomic<bool> g_wasStarted{false};  // Until then there is no timer, and none to be stopped.

Timer& reminder() {
    static auto* const p_reminder = new Timer(
        "reminder", {1, 0, 0}, [](Timer*, void*) {}, nullptr, ONCE);  // For as long as the process.
    return *p_reminder;
}

}  // namespace

void Mistakes::startReminder(std::chrono::milliseconds delay, std::function<void()> onDue) {
    Timer& timer = reminder();
    g_wasStarted = true;
    (void)timer.stop();
    const TimeoutTime timeout = {0, static_cast<std::int32_t>(delay.count()), 0};
    (void)timer.setProperty(
        timeout, [onDue = std::move(onDue)](Timer*, void*) { onDue(); }, nullptr, ONCE);
    (void)timer.start();  // A session shows the mistake on the timeline, or its absence.
}

void Mistakes::stopReminder() {
    if (g_wasStarted) (void)reminder().stop();
}

}  // namespace tv_browser

#include "operation_watch.h"

#include <cstdio>
#include <utility>

namespace tv_browser {
namespace {

constexpr double kAllowedSeconds = 0.1;

}  // namespace

OperationWatch::OperationWatch(Report report) : m_report(std::move(report)) {
    m_watchDog.setTimeoutCallback(onTimeout, this);
}

OperationWatch::Operation::Operation(OperationWatch& watch, WatchDog::WATCH_ID id)
    : m_watchDog(watch.m_watchDog), m_id(id) {
    m_watchDog.beginWatch(id, kAllowedSeconds);
}

void OperationWatch::onTimeout(void* p_self, WatchDog::WATCH_ID id, double seconds) {
    char text[96];
    std::snprintf(text, sizeof(text), "is reported by the watchdog: %s goes on for %.1f s",
                  WatchDog::getWatchIdName(id), seconds);
    static_cast<OperationWatch*>(p_self)->m_report(text);
}

}  // namespace tv_browser

// own_watch.h: what a watchdog knows of a client's own watch; for the headers beside this folder.

#ifndef BASE_TIMER_INTERNAL_OWN_WATCH_H
#define BASE_TIMER_INTERNAL_OWN_WATCH_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base::timer {
class WatchDog;
}  // namespace tevalon::base::timer

namespace tevalon::base::timer::internal {

/// In a list that the process's watchdogs share: a WatchDog has no room for one.
class TEVALON_BASE_EXPORT OwnWatch {
public:
    OwnWatch(const OwnWatch&) = delete;
    OwnWatch& operator=(const OwnWatch&) = delete;

protected:
    using Report = void (*)(OwnWatch* p_watch, double seconds);

    OwnWatch(WatchDog& dog, double seconds, Report report)
        : m_dog(dog), m_timeout(seconds), m_report(report) {}
    ~OwnWatch() = default;

    /// Or begins anew.
    void begin();
    /// Waits for a report in hand, but for one that it is called in.
    void end();

private:
    friend class timer::WatchDog;
    class Reporting;

    /// Reports those of @p p_dog that are overdue. Does not touch it: a callback may destroy it.
    TEVALON_BASE_LOCAL static void checkAll(const WatchDog* p_dog);
    TEVALON_BASE_LOCAL static bool takeOverdue(const WatchDog* p_dog, std::uint32_t pass,
                                               Reporting* p_reporting);
    TEVALON_BASE_LOCAL static void forgetAllInForkedChild();

    WatchDog& m_dog;
    const double m_timeout;  // Allowed per period.
    const Report m_report;
    double m_beginTime = 0;  // Of the period. This and the rest under the list's lock.
    double m_elapsed = 0;    // In periods reported.
    OwnWatch* m_next = nullptr;
    Reporting* m_reporting = nullptr;  // While it is reported.
    std::uint32_t m_pass = 0;          // The check that has seen it last.
};

}  // namespace tevalon::base::timer::internal

#endif  // BASE_TIMER_INTERNAL_OWN_WATCH_H

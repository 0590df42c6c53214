// operation_watch.h: has the watchdog report operations that take long.

#ifndef TV_BROWSER_OPERATION_WATCH_H
#define TV_BROWSER_OPERATION_WATCH_H

#include <functional>
#include <string>

#include "base/timer.h"

namespace tv_browser {

/// A watchdog, and what is said when it barks.
///
/// Not the process's own one, which would go on barking when nobody is left to listen.
class OperationWatch {
public:
    using WatchDog = tevalon::base::timer::WatchDog;
    using Report = std::function<void(const std::string&)>;

    /// @param report  Called on the watchdog's thread, with a text for the timeline.
    explicit OperationWatch(Report report);

    OperationWatch(const OperationWatch&) = delete;
    OperationWatch& operator=(const OperationWatch&) = delete;

    /// An operation from its construction to its end. Belongs to one thread.
    class Operation {
    public:
        Operation(OperationWatch& watch, WatchDog::WATCH_ID id);
        ~Operation() { m_watchDog.stopWatch(m_id); }

        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

    private:
        WatchDog& m_watchDog;
        const WatchDog::WATCH_ID m_id;
    };

private:
    static void onTimeout(void* p_self, WatchDog::WATCH_ID id, double seconds);

    const Report m_report;
    WatchDog m_watchDog;  // Last: its thread must end before what it reports to.
};

}  // namespace tv_browser

#endif  // TV_BROWSER_OPERATION_WATCH_H

// watchdog_reports.h: what a watchdog reports, for tests.

#ifndef TESTKIT_WATCHDOG_REPORTS_H
#define TESTKIT_WATCHDOG_REPORTS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "base/timer/named_watch.h"
#include "base/timer/watchdog.h"

namespace tevalon::testkit {

/// Takes the place of the callback that a watchdog reports overruns to, and remembers them.
///
///     WatchdogReports& reports = WatchdogReports::ofProcess();
///     reports.clear();
///     module.startApp();                     // Watches its start, and takes too long.
///     EXPECT_TRUE(reports.waitFor(1));
///     EXPECT_EQ(reports.all().front().name, "eWatchID_onAppStarted");
///
/// Thread-safety: any thread may call any method but the destructor.
class WatchdogReports {
public:
    /// An overrun.
    struct Report {
        std::string
            name;        ///< Of the operation, as WatchDog::getWatchIdName() has it, or the watch.
        double seconds;  ///< Since the watch began.
    };

    WatchdogReports() = default;

    WatchdogReports(const WatchdogReports&) = delete;
    WatchdogReports& operator=(const WatchdogReports&) = delete;

    /// Those of GlobalWatchDog(), whose callback they become at the first call. Never destroyed:
    /// a test begins with clear().
    static WatchdogReports& ofProcess();

    /// Becomes the callback of @p dog, unless that has one. To be destroyed after it: a watchdog
    /// keeps its callback.
    void attachTo(base::timer::WatchDog& dog);

    /// To be given to named watches, which this must outlive.
    base::timer::NamedWatch::Callback callback();

    /// All, in their order.
    std::vector<Report> all() const;
    /// Forgets all.
    void clear();

    /// Blocks until there are @p count reports, for @p limit at most; whether there are.
    [[nodiscard]] bool waitFor(std::size_t count,
                               std::chrono::milliseconds limit = std::chrono::seconds(30)) const;

private:
    static void onTimeout(void* p_self, base::timer::WatchDog::WATCH_ID id, double seconds);
    void add(const std::string& name, double seconds);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_grown;
    std::vector<Report> m_reports;  // Guarded by m_mutex.
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_WATCHDOG_REPORTS_H

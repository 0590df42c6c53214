// Watches that begin and end while the watchdog and its callers look at them. Each thread has two
// identifiers of its own: the watches of one are all overdue, those of the other never.

#include "base/timer/watchdog.h"

#include <array>
#include <atomic>

#include "stress/station.h"

namespace stress {
namespace {

using tevalon::base::timer::GlobalWatchDog;
using tevalon::base::timer::WatchDog;

constexpr int kMostThreads = 25;
constexpr int kFirstOverdue = 2;
constexpr int kFirstInTime = kFirstOverdue + kMostThreads;

class WatchDogStation : public Station {
public:
    WatchDogStation() {
        m_dog.setTimeoutCallback(&WatchDogStation::report, this);
        GlobalWatchDog()->beginWatch(WatchDog::eWatchID_StartUp, 3600.0);
    }

    void step(std::mt19937& random) override {
        thread_local const int s_own = m_threads++ % kMostThreads;
        if (std::uniform_int_distribution<int>(0, 1)(random) == 0) {
            watchOverdue(static_cast<WatchDog::WATCH_ID>(kFirstOverdue + s_own));
        } else {
            watchInTime(static_cast<WatchDog::WATCH_ID>(kFirstInTime + s_own));
        }
    }

    std::vector<Balance> settle() override {
        m_dog.stop();
        GlobalWatchDog()->stopWatch(WatchDog::eWatchID_StartUp);
        long sum = 0;
        for (int id = 0; id < kFirstInTime; ++id) sum += m_reports[static_cast<std::size_t>(id)];
        return {{{m_begun, "watches begun"},
                 {{m_overdue, "overdue and reported"}, {m_inTime, "ended in time"}}},
                {{m_allReports, "reports"}, {{sum, "of overdue watches"}}},
                {{m_withoutTime, "reports of no time"}, {}}};
    }

private:
    static void report(void* p_context, WatchDog::WATCH_ID id, double seconds) {
        auto* const self = static_cast<WatchDogStation*>(p_context);
        if (seconds <= 0.0) ++self->m_withoutTime;
        ++self->m_allReports;
        ++self->m_reports[static_cast<std::size_t>(id)];
    }

    void watchOverdue(WatchDog::WATCH_ID id) {
        const std::atomic<long>& reports = m_reports[static_cast<std::size_t>(id)];
        ++m_begun;
        m_dog.beginWatch(id, -1.0);
        // A report of the last watch may be on its way still, and come as this one's.
        const long before = reports;
        while (reports == before) (void)m_dog.checkTimers();
        m_dog.stopWatch(id);
        ++m_overdue;
    }

    void watchInTime(WatchDog::WATCH_ID id) {
        ++m_begun;
        m_dog.beginWatch(id, 3600.0);
        GlobalWatchDog()->beginWatch(id, 3600.0);
        (void)m_dog.checkTimers();
        GlobalWatchDog()->stopWatch(id);
        m_dog.stopWatch(id);
        ++m_inTime;
    }

    std::atomic<int> m_threads{0};
    std::atomic<long> m_begun{0};
    std::atomic<long> m_overdue{0};
    std::atomic<long> m_inTime{0};
    std::atomic<long> m_withoutTime{0};
    std::atomic<long> m_allReports{0};
    std::array<std::atomic<long>, WatchDog::eWatchIDCount> m_reports{};
    WatchDog m_dog;  // Last: its thread uses the rest.
};

}  // namespace

std::unique_ptr<Station> makeWatchDogStation() {
    return std::make_unique<WatchDogStation>();
}

}  // namespace stress

// timer_list.h: the started timers, in the order in which they are due.

#ifndef SRC_TIMER_TIMER_LIST_H
#define SRC_TIMER_TIMER_LIST_H

#include <map>
#include <memory>

#include "timer/expired_time.h"

namespace tevalon::base::simple_timer {

class TimerImpl;

/// Timers by expiry, those of equal expiry in the order of their insertion. To insert takes
/// logarithmic time, to remove constant time. Keeps its timers alive.
///
/// Thread-safety: none; the scheduler's mutex guards it.
class TimerList {
public:
    using Entries = std::multimap<ExpiredTime, std::shared_ptr<TimerImpl>>;

    /// Where a timer stands; each timer keeps its own.
    class Place {
        friend class TimerList;
        bool m_isListed = false;
        Entries::iterator m_entry;
    };

    bool empty() const { return m_entries.empty(); }

    /// The timer that is due first, and when. There must be one.
    const std::shared_ptr<TimerImpl>& head() const { return m_entries.begin()->second; }
    ExpiredTime headExpiredTime() const { return m_entries.begin()->first; }

    /// Behind all that are due at the same time. A timer that is listed stays where it is.
    void insert(const std::shared_ptr<TimerImpl>& timer);

    /// A timer that is not listed is ignored.
    void remove(TimerImpl& timer);

private:
    Entries m_entries;
};

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_TIMER_LIST_H

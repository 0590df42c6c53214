#include "timer/timer_list.h"

#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {

void TimerList::insert(const std::shared_ptr<TimerImpl>& timer) {
    Place& place = timer->place();
    if (place.m_isListed) return;
    place.m_entry = m_entries.emplace(timer->expiredTime(), timer);
    place.m_isListed = true;
}

void TimerList::remove(TimerImpl& timer) {
    Place& place = timer.place();
    if (!place.m_isListed) return;
    place.m_isListed = false;
    m_entries.erase(place.m_entry);
}

}  // namespace tevalon::base::simple_timer

#include "timer/timer_look.h"

#include <cstring>
#include <string>

#include "locks/patient_lock.h"
#include "timer/run_activity.h"
#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {
namespace {

template <std::size_t kSize>
void copyName(const std::string& name, std::array<char, kSize>* p_to) {
    p_to->fill(0);
    (void)name.copy(p_to->data(), kSize - 1);
}

}  // namespace

void TimerImpl::look(std::uint64_t untilNs, TimerLook* p_look) {
    p_look->p_timer = this;
    copyName(m_name, &p_look->name);
    p_look->timeoutNs = timeoutNanoseconds();
    p_look->isPeriodic = type() == CONTINUE;
    p_look->holder = m_mutex.holder();
    const PatientLock lock(m_mutex.native().native_handle(), untilNs);
    p_look->areRunsSeen = lock.isLocked();
    p_look->runs = lock.isLocked() ? m_runs : 0;
}

bool lookAtRun(const activity::Activity& activity, RunLook* p_look) {
    const auto* const p_timer = static_cast<const TimerImpl*>(activity.object());
    if (p_timer == nullptr) return false;
    const auto& run = static_cast<const RunActivity&>(activity);
    p_look->p_timer = p_timer;
    copyName(p_timer->name(), &p_look->name);
    p_look->threadId = run.threadId();
    p_look->sinceMs = run.sinceMs();
    return true;
}

}  // namespace tevalon::base::simple_timer

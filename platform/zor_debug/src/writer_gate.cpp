#include "writer_gate.h"

#include <sched.h>
#include <time.h>

namespace zor_debug {
namespace {

// Sleeps where yielding has not helped: it never does when who is inside has a lower priority.
void waitUntilOutside(const GateMember& member) {
    constexpr int kYields = 100;
    constexpr timespec kPause = {0, 50000};
    for (int i = 0; member.isInside.load(); ++i) {
        if (i < kYields) {
            (void)sched_yield();
        } else {
            (void)nanosleep(&kPause, nullptr);
        }
    }
}

}  // namespace

bool WriterGate::enterAlone() {
    const bool isEntered = pthread_mutex_lock(&m_aloneLock.mutex) == 0;
    // Once closed, it has been waited for by who closed it.
    if (!m_isOpen.load(std::memory_order_relaxed)) return isEntered;
    m_isOpen.store(false);
    for (const GateMember* p_member = m_members; p_member != nullptr; p_member = p_member->p_next) {
        waitUntilOutside(*p_member);
    }
    return isEntered;
}

void WriterGate::leaveAlone(bool wasEntered, bool isOpenNow) {
    if (!wasEntered) return;
    if (isOpenNow) m_isOpen.store(true, std::memory_order_release);
    (void)pthread_mutex_unlock(&m_aloneLock.mutex);
}

void WriterGate::add(GateMember* p_member) {
    p_member->p_next = m_members;
    if (m_members != nullptr) m_members->p_previous = p_member;
    m_members = p_member;
}

void WriterGate::remove(GateMember* p_member) {
    if (p_member->p_previous != nullptr) p_member->p_previous->p_next = p_member->p_next;
    if (p_member->p_next != nullptr) p_member->p_next->p_previous = p_member->p_previous;
    if (m_members == p_member) m_members = p_member->p_next;
}

}  // namespace zor_debug

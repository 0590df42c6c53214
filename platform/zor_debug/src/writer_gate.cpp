#include "writer_gate.h"

#include "backoff.h"

namespace zor_debug {

bool WriterGate::enterExclusive() {
    const bool isEntered = pthread_mutex_lock(&m_exclusiveLock.mutex) == 0;
    // Already closed: whoever closed it waited until nobody was inside, and nobody has entered
    // since.
    if (!m_isOpen.load(std::memory_order_relaxed)) return isEntered;
    m_isOpen.store(false);
    for (const GateMember* p_member = m_members; p_member != nullptr; p_member = p_member->p_next) {
        Backoff backoff;
        while (p_member->isInside.load()) backoff.pause();
    }
    return isEntered;
}

bool WriterGate::enterExclusiveUntil(const Deadline& deadline) {
    // Polled, as the flags below are: both waits share one deadline, and this runs once, at exit.
    Backoff backoff;
    while (pthread_mutex_trylock(&m_exclusiveLock.mutex) != 0) {
        if (deadline.hasPassed()) return false;
        backoff.pause();
    }
    const bool wasOpen = m_isOpen.load(std::memory_order_relaxed);
    if (!wasOpen) return true;
    m_isOpen.store(false);
    for (const GateMember* p_member = m_members; p_member != nullptr; p_member = p_member->p_next) {
        while (p_member->isInside.load()) {
            if (deadline.hasPassed()) {
                leaveExclusive(true, wasOpen);
                return false;
            }
            backoff.pause();
        }
    }
    return true;
}

void WriterGate::leaveExclusive(bool wasEntered, bool isOpenNow) {
    if (!wasEntered) return;
    if (isOpenNow) m_isOpen.store(true, std::memory_order_release);
    (void)pthread_mutex_unlock(&m_exclusiveLock.mutex);
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

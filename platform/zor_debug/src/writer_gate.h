// writer_gate.h: lets threads write side by side, or one of them alone.

#ifndef ZOR_DEBUG_SRC_WRITER_GATE_H
#define ZOR_DEBUG_SRC_WRITER_GATE_H

#include <atomic>

#include "deadline.h"
#include "lock.h"

namespace zor_debug {

/// What a thread enters by, of its own, so that threads that share the gate touch no memory that
/// another one writes to.
struct GateMember {
    GateMember* p_next = nullptr;
    GateMember* p_previous = nullptr;
    std::atomic<bool> isInside{false};
};

/// A lock that its members may share. It is closed at first and whenever it was left so: then all
/// enter alone, one after the other. Works before main and is never destroyed.
class WriterGate {
public:
    /// Enters beside others. False, at once, when the gate is closed.
    bool tryEnter(GateMember* p_member) {
        // A glance first: the way of a gate that stays closed is short.
        if (!m_isOpen.load(std::memory_order_relaxed)) return false;
        p_member->isInside.store(true);
        if (m_isOpen.load()) return true;
        leave(p_member);
        return false;
    }
    void leave(GateMember* p_member) { p_member->isInside.store(false, std::memory_order_release); }

    /// Closes the gate and returns when no thread is inside. False when that cannot be had: then
    /// the caller goes on all the same, for its line matters more than its neighbours' order.
    bool enterAlone();
    /// The same, but gives up at the deadline: false, and not entered.
    bool enterAloneUntil(const Deadline& deadline);
    /// @p wasEntered is enterAlone()'s result.
    void leaveAlone(bool wasEntered, bool isOpenNow);

    /// Alone: all members, and changes of them.
    GateMember* members() const { return m_members; }
    void add(GateMember* p_member);
    void remove(GateMember* p_member);

private:
    Lock m_aloneLock;
    GateMember* m_members = nullptr;
    // One who enters says so, then looks whether the gate is open; one who wants to be alone closes
    // it, then looks who is inside. Sequentially consistent, so that one of the two sees the other.
    std::atomic<bool> m_isOpen{false};
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_WRITER_GATE_H

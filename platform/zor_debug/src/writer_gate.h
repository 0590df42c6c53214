// writer_gate.h: a lock that many writers share and one can hold exclusively.

#ifndef ZOR_DEBUG_SRC_WRITER_GATE_H
#define ZOR_DEBUG_SRC_WRITER_GATE_H

#include <atomic>

#include "deadline.h"
#include "lock.h"

namespace zor_debug {

/// A thread's own flag, in its own line buffer: threads that share the gate write to no memory
/// in common.
struct GateMember {
    GateMember* p_next = nullptr;
    GateMember* p_previous = nullptr;
    std::atomic<bool> isInside{false};
};

/// A reader-writer lock whose shared side costs one store and one load of a line of the thread's
/// own. Closed at first and whenever it was left so: then all enter exclusively, one after the
/// other. Works before main and is never destroyed.
class WriterGate {
public:
    /// Enters shared. False, at once, when the gate is closed.
    bool tryEnter(GateMember* p_member) {
        // A relaxed look first: a gate that stays closed costs no fence.
        if (!m_isOpen.load(std::memory_order_relaxed)) return false;
        p_member->isInside.store(true);
        if (m_isOpen.load()) return true;
        leave(p_member);
        return false;
    }
    void leave(GateMember* p_member) { p_member->isInside.store(false, std::memory_order_release); }

    /// Enters exclusively: closes the gate, waits until no thread is inside. False when that cannot
    /// be had: then the caller goes on all the same, for its line matters more than its neighbours'
    /// order.
    bool enterExclusive();
    /// The same, but gives up at the deadline: false, and not entered.
    bool enterExclusiveUntil(const Deadline& deadline);
    /// @p wasEntered is enterExclusive()'s result.
    void leaveExclusive(bool wasEntered, bool isOpenNow);

    /// Gate held exclusively: all members, and changes of them.
    GateMember* members() const { return m_members; }
    void add(GateMember* p_member);
    void remove(GateMember* p_member);

private:
    Lock m_exclusiveLock;
    GateMember* m_members = nullptr;
    // Store, then load, on both sides: a thread that enters shared sets its flag, then checks the
    // gate; one that enters exclusively closes the gate, then checks the flags. Sequentially
    // consistent, so that at least one of the two sees the other (Dekker).
    std::atomic<bool> m_isOpen{false};
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_WRITER_GATE_H

// own_thread.h: tells the thread that serves an object from all others.

#ifndef SRC_OS_OWN_THREAD_H
#define SRC_OS_OWN_THREAD_H

namespace tevalon::base {

/// Lives on the stack of a thread while that thread runs client code for @p Owner: a handler, a
/// task, a callback. Client code may stop or destroy the owner, or call exit(), which destroys
/// static ones. Whoever would then wait for the thread asks isThisThreadOf() first, since a
/// thread that waits for itself waits for ever; an owner that is destroyed on its own thread calls
/// ownerIsGone(), and the thread, back from the client's code, asks isOwnerGone() before it
/// touches the owner again.
///
/// Thread-safety: each thread sees only itself.
template <typename Owner>
class OwnThread {
public:
    explicit OwnThread(const Owner* p_owner) : m_owner(p_owner), m_outer(t_served) {
        t_served = p_owner;
    }
    ~OwnThread() { t_served = m_outer; }

    OwnThread(const OwnThread&) = delete;
    OwnThread& operator=(const OwnThread&) = delete;

    static bool isThisThreadOf(const Owner* p_owner) { return t_served == p_owner; }
    static void ownerIsGone() { t_served = nullptr; }

    [[nodiscard]] bool isOwnerGone() const { return t_served != m_owner; }

private:
    static inline thread_local const Owner* t_served = nullptr;

    const Owner* const m_owner;
    const Owner* const m_outer;
};

}  // namespace tevalon::base

#endif  // SRC_OS_OWN_THREAD_H

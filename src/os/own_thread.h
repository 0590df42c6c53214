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
    explicit OwnThread(const Owner* p_owner) : m_owner(p_owner), m_outer(t_innermost) {
        t_innermost = this;
    }
    ~OwnThread() { t_innermost = m_outer; }

    OwnThread(const OwnThread&) = delete;
    OwnThread& operator=(const OwnThread&) = delete;

    static bool isThisThreadOf(const Owner* p_owner) {
        return t_innermost != nullptr && t_innermost->m_owner == p_owner;
    }
    /// On the owner's own thread.
    static void ownerIsGone() { t_innermost->m_owner = nullptr; }
    /// In a forked child, whose only thread came out of client code that forked: it serves nobody
    /// there, and ends when that code returns.
    static void allOwnersAreGone() {
        for (OwnThread* p_thread = t_innermost; p_thread != nullptr; p_thread = p_thread->m_outer) {
            p_thread->m_owner = nullptr;
        }
    }

    [[nodiscard]] bool isOwnerGone() const { return m_owner == nullptr; }

private:
    // In the block that every thread has from its start: a library that is loaded at run time would
    // otherwise have it allocated on each thread's first look, and without memory the C library
    // then ends the process. A few bytes of the room that it keeps for such.
    __attribute__((tls_model("initial-exec"))) static inline thread_local OwnThread* t_innermost =
        nullptr;

    const Owner* m_owner;  // Null once it is gone.
    OwnThread* const m_outer;
};

}  // namespace tevalon::base

#endif  // SRC_OS_OWN_THREAD_H

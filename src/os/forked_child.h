// forked_child.h: tells a forked child what it has from its parent.
//
// fork() copies the memory of all threads and only one of the threads: in the child, locks that
// others held stay locked, and threads that objects rely on do not exist. What is global is reset
// by a function that inEachForkedChild() is given; an object finds out by its mark, at its first
// use in the child.

#ifndef SRC_OS_FORKED_CHILD_H
#define SRC_OS_FORKED_CHILD_H

#include <sched.h>

#include <atomic>
#include <cstdint>
#include <new>

namespace tevalon::base {

/// Tells this process from those that it was forked from; even. Hidden, for it is read without a
/// look at the linker's table of addresses.
extern __attribute__((visibility("hidden"))) std::atomic<std::uint16_t> g_process;

/// An object's: the process that its locks and threads belong to; odd while they are renewed.
using ProcessMark = std::atomic<std::uint16_t>;

/// A new object's mark. From the first call on forks are noticed.
std::uint16_t markOfThisProcess();

/// Has @p reset called in each child that fork() makes from now on, on its only thread, before
/// fork() returns there. It may take no lock and allocate nothing. To be called at cold places, any
/// number of times.
void inEachForkedChild(void (*reset)());

/// Acquire: another thread of the child may have renewed the object.
inline bool isFromParent(const ProcessMark& mark) {
    return __builtin_expect(
        mark.load(std::memory_order_acquire) != g_process.load(std::memory_order_relaxed), 0);
}

/// Calls @p renew where the object is a parent's; the first of several threads does, the others
/// wait for it. Where it throws, the next one tries again.
template <typename Renew>
__attribute__((noinline, cold)) void renewOnce(ProcessMark* p_mark, Renew renew) {
    const std::uint16_t own = g_process.load(std::memory_order_relaxed);
    const auto beingRenewed = static_cast<std::uint16_t>(own + 1);
    std::uint16_t seen = p_mark->load(std::memory_order_acquire);
    while (seen != own) {
        if (seen == beingRenewed) {
            (void)sched_yield();
            seen = p_mark->load(std::memory_order_acquire);
        } else if (p_mark->compare_exchange_weak(seen, beingRenewed, std::memory_order_acquire)) {
            try {
                renew();
            } catch (...) {
                p_mark->store(seen, std::memory_order_release);
                throw;
            }
            p_mark->store(own, std::memory_order_release);
            return;
        }
    }
}

/// Puts a new object in the place of each, as if the old one had never been: what it owned stays
/// allocated, for it may be half changed, and is the parent's.
template <typename... Objects>
void replaceUndestroyed(Objects*... p_objects) {
    (static_cast<void>(::new (static_cast<void*>(p_objects)) Objects()), ...);
}

}  // namespace tevalon::base

#endif  // SRC_OS_FORKED_CHILD_H

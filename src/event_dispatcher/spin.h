// spin.h: spin, then park; after fruitless spins, skip exponentially more of them.

#ifndef SRC_EVENT_DISPATCHER_SPIN_H
#define SRC_EVENT_DISPATCHER_SPIN_H

#include <algorithm>
#include <thread>

namespace tevalon::base::event_dispatcher {

/// Spins for a bounded time before its caller parks: where the other side is at work on another
/// processor, its answer comes sooner than a sleep and a wake-up take. After a fruitless spin the
/// next one is skipped, after two in a row the next four, and so on up to kMaxSkips, so that a wait
/// for which spinning never pays costs next to nothing. Never spins on a single processor, where
/// the other side cannot run meanwhile.
///
/// Thread-safety: none; one per waiting thread.
class AdaptiveSpin {
public:
    static constexpr unsigned kMaxSkips = 1024;

// Some 15 us where a pause takes 15 ns, and 50 us where it takes longest. Counted, not timed: a
// wait reads no clock that it does not need.
#if defined(__arm__) || defined(__aarch64__)
    static constexpr int kMaxSpins = 4000;  // A yield is over at once.
#else
    static constexpr int kMaxSpins = 1000;
#endif

    constexpr AdaptiveSpin() = default;

    /// Returns when @p isDone() does, or when it has spun long enough.
    template <typename IsDone>
    void until(IsDone isDone) {
        if (isDone()) return;  // Which says nothing about how soon others come.
        if (m_skipsLeft > 0) {
            --m_skipsLeft;
        } else if (hasOtherProcessors() && spinUntil(isDone)) {
            m_nextSkips = 1;
        } else {
            m_skipsLeft = m_nextSkips;
            m_nextSkips = std::min(4 * m_nextSkips, kMaxSkips);
        }
    }

private:
    static bool hasOtherProcessors() {
        static const bool s_hasOthers = std::thread::hardware_concurrency() > 1;
        return s_hasOthers;
    }

    template <typename IsDone>
    static bool spinUntil(IsDone isDone) {
        for (int spins = 0; spins < kMaxSpins; ++spins) {
            relaxProcessor();
            if (isDone()) return true;
        }
        return false;
    }

    // Gives the core's other hardware thread the execution units, and saves power.
    static void relaxProcessor() {
#if defined(__i386__) || defined(__x86_64__)
        __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
        __asm__ __volatile__("yield");
#endif
    }

    unsigned m_skipsLeft = 0;
    unsigned m_nextSkips = 1;
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_SPIN_H

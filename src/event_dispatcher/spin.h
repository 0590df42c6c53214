// spin.h: a thread's last look before it sleeps.

#ifndef SRC_EVENT_DISPATCHER_SPIN_H
#define SRC_EVENT_DISPATCHER_SPIN_H

#include <algorithm>
#include <thread>

namespace tevalon::base::event_dispatcher {

/// Looks for a little while whether what a thread is about to wait for comes by itself. Where the
/// other side is at work on another processor that is sooner than a sleep and a wake-up, which
/// take longer than most handlers. Where it was in vain the look is left out the next time; if it
/// is in vain again, the next four times, and so on up to kMostLeftOut times: what never pays
/// costs next to nothing. There is none on a single processor, where the other side cannot go on.
///
/// Thread-safety: none.
class AdaptiveSpin {
public:
    static constexpr unsigned kMostLeftOut = 1024;

// Some 15 us where a pause takes 15 ns, and 50 at the worst. Counted, not timed: a wait reads no
// clock that it does not need.
#if defined(__arm__) || defined(__aarch64__)
    static constexpr int kLooks = 4000;  // A yield is over at once.
#else
    static constexpr int kLooks = 1000;
#endif

    constexpr AdaptiveSpin() = default;

    /// Returns when @p isDone() does, or after so many looks.
    template <typename IsDone>
    void until(IsDone isDone) {
        if (isDone()) return;  // Which says nothing about how soon others come.
        if (m_toLeaveOut > 0) {
            --m_toLeaveOut;
        } else if (hasOtherProcessors() && comes(isDone)) {
            m_nextLeftOut = 1;
        } else {
            m_toLeaveOut = m_nextLeftOut;
            m_nextLeftOut = std::min(4 * m_nextLeftOut, kMostLeftOut);
        }
    }

private:
    static bool hasOtherProcessors() {
        static const bool s_hasOthers = std::thread::hardware_concurrency() > 1;
        return s_hasOthers;
    }

    template <typename IsDone>
    static bool comes(IsDone isDone) {
        for (int looks = 0; looks < kLooks; ++looks) {
            relaxProcessor();
            if (isDone()) return true;
        }
        return false;
    }

    // Lets the other thread of a core have its units, and saves power.
    static void relaxProcessor() {
#if defined(__i386__) || defined(__x86_64__)
        __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__ARM_ARCH) && __ARM_ARCH >= 7)
        __asm__ __volatile__("yield");
#endif
    }

    unsigned m_toLeaveOut = 0;
    unsigned m_nextLeftOut = 1;
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_SPIN_H

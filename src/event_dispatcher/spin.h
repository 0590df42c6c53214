// spin.h: spin before parking, where the waits before show that it pays.

#ifndef SRC_EVENT_DISPATCHER_SPIN_H
#define SRC_EVENT_DISPATCHER_SPIN_H

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>

#include "os/monotonic_time.h"

namespace tevalon::base::event_dispatcher {

/// When something happened, and on which processor.
struct Moment {
    static constexpr int kNoProcessor = -1;  // Neither known nor asked.

    static Moment now() { return {nanosecondsNow(), sched_getcpu()}; }

    bool isOnProcessorOf(const Moment& other) const {
        return processor == other.processor && processor != kNoProcessor;
    }

    /// On the monotonic clock; 0 where it cannot be read.
    static std::int64_t nanosecondsNow() {
        return static_cast<std::int64_t>(monotonicNanoseconds());
    }

    std::int64_t nanoseconds = 0;
    int processor = kNoProcessor;
};

/// How long it takes from waking a thread on another processor until it runs: some 4 us where
/// processors sleep lightly, more than 35 where they sleep deeply. Follows the median of what is
/// measured: a woken thread that had to wait for a busy processor counts no more than any other.
///
/// Thread-safety: any thread may call anything. Of two samples at once one may be lost.
class WakeUpTime {
public:
    static constexpr std::int32_t kLeast = 2'000;
    static constexpr std::int32_t kMost = 100'000;

    constexpr explicit WakeUpTime(std::int32_t nanoseconds) : m_estimate(nanoseconds) {}

    /// Nanoseconds.
    std::int32_t estimate() const { return m_estimate.load(std::memory_order_relaxed); }

    void add(std::int64_t nanoseconds) {
        const std::int32_t old = estimate();
        const std::int32_t step = nanoseconds > old ? old / 8 : -old / 8;
        m_estimate.store(std::clamp(old + step, kLeast, kMost), std::memory_order_relaxed);
    }

private:
    std::atomic<std::int32_t> m_estimate;
};

/// One for the process.
inline WakeUpTime g_wakeUpTime{15'000};

/// Spins for a bounded time before its caller parks, where waits lately were so short that spinning
/// would have spared the sleep and the wake-up, which both take longer. What decides is how long
/// they lasted, spun or slept, so a wait for which it never pays costs nothing, and one for which
/// it begins to pay is found out while sleeping. To spin as long as a wake-up takes is at worst
/// twice as expensive as the better choice (the ski rental problem).
///
/// Never spins where the thread that ended the last wait ran on this thread's own processor:
/// it would spin in that thread's way.
///
/// Thread-safety: none; one per waiting thread.
class AdaptiveSpin {
public:
    /// So many short waits in a row are taken for more than chance.
    static constexpr int kShortWaits = 2;

    /// @param percent  Of a wake-up: how long to spin.
    constexpr explicit AdaptiveSpin(std::int32_t percent) : m_percent(percent) {}

    /// Returns whether @p isDone() has come true. Where not, the caller parks, and says when it
    /// was woken.
    template <typename IsDone>
    bool until(IsDone isDone) {
        m_begin = 0;
        if (isDone()) return true;  // Says nothing about how soon others come.
        if (m_isNextSkipped) {
            m_isNextSkipped = false;  // Nor does this wait, which is known to be long.
            return false;
        }
        if (m_shortWaits < kShortWaits) {
            m_begin = Moment::nanosecondsNow();
            return false;
        }
        if (spinUntil(isDone)) return true;
        m_shortWaits = 0;
        return false;
    }

    /// After until() was in vain: @p woken ended the wait, and the thread runs since @p resumed.
    /// Returns for how long it waited, in nanoseconds; none where that is not known.
    std::optional<std::int64_t> parked(const Moment& woken, const Moment& resumed) {
        const bool isSameProcessor = woken.isOnProcessorOf(resumed);
        if (!isSameProcessor) g_wakeUpTime.add(resumed.nanoseconds - woken.nanoseconds);
        if (m_begin == 0) return std::nullopt;
        const std::int64_t waited = woken.nanoseconds - m_begin;
        const bool hadPaid = !isSameProcessor && waited <= limit();
        m_shortWaits = hadPaid ? std::min(m_shortWaits + 1, kShortWaits) : 0;
        return waited;
    }

    /// The next wait is for a thread that has to be woken first: it is not spun for.
    void skipNext(bool isSkipped) { m_isNextSkipped = isSkipped; }

private:
    std::int64_t limit() const { return std::int64_t{g_wakeUpTime.estimate()} * m_percent / 100; }

    template <typename IsDone>
    bool spinUntil(IsDone isDone) {
// Some microseconds at most: reading the clock takes as long as several pauses.
#if defined(__arm__) || defined(__aarch64__)
        constexpr int kSpinsBetweenClocks = 256;  // A yield is over at once.
#else
        constexpr int kSpinsBetweenClocks = 32;
#endif
        // A clock that stands still must not make it spin for ever; no wake-up takes so many
        // rounds.
        constexpr int kMostRounds = 2'000;
        for (int round = 0; round < kMostRounds; ++round) {
            for (int spins = 0; spins < kSpinsBetweenClocks; ++spins) {
                relaxProcessor();
                if (isDone()) return true;
            }
            const std::int64_t now = Moment::nanosecondsNow();
            if (m_begin == 0) m_begin = now;
            if (now == 0 || now - m_begin >= limit()) return false;
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

    const std::int32_t m_percent;
    int m_shortWaits = 0;
    bool m_isNextSkipped = false;
    std::int64_t m_begin = 0;  // Of the wait in hand; 0 where its length tells nothing.
};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_SPIN_H

// futex.h: the kernel's own way to sleep on a word and to wake who sleeps there.

#ifndef BENCHMARKS_SUPPORT_FUTEX_H
#define BENCHMARKS_SUPPORT_FUTEX_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

namespace bench {

using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == sizeof(std::uint32_t), "the kernel sees the word itself");

/// Sleeps while the word is @p value; may wake up early.
inline void futexWait(FutexWord& word, std::uint32_t value) {
    (void)syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

/// Wakes one thread that sleeps on the word, if there is one.
inline void futexWake(FutexWord& word) {
    (void)syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_FUTEX_H

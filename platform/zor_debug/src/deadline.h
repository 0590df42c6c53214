// deadline.h: the end of a bounded wait.

#ifndef ZOR_DEBUG_SRC_DEADLINE_H
#define ZOR_DEBUG_SRC_DEADLINE_H

#include <time.h>

#include <cstdint>

namespace zor_debug {

/// A moment on the monotonic clock. Where the clock cannot be read it has passed.
class Deadline {
public:
    static Deadline inMilliseconds(std::int64_t delayMs) { return Deadline(nowMs() + delayMs); }

    /// Not negative; 0 once it has passed.
    int remainingMs() const {
        const std::int64_t now = nowMs();
        return now >= 0 && now < m_atMs ? static_cast<int>(m_atMs - now) : 0;
    }
    bool hasPassed() const { return remainingMs() == 0; }

private:
    explicit Deadline(std::int64_t atMs) : m_atMs(atMs) {}

    static std::int64_t nowMs() {
        timespec now = {};
        if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return -1;
        return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    }

    std::int64_t m_atMs;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_DEADLINE_H

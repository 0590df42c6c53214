// wait_scope.h: records a wait that took long.

#ifndef SRC_RECORD_WAIT_SCOPE_H
#define SRC_RECORD_WAIT_SCOPE_H

#include <cstdint>

#include "os/monotonic_time.h"
#include "record/record.h"

namespace tevalon::base::record {

inline constexpr std::uint64_t kLongWaitNs = 1000000;

/// Stands around a wait, and records it where it took more than a millisecond.
class WaitScope {
public:
    /// @param p_object  What the thread waits inside of, or the lock that it waits for.
    /// @param threadId  Kernel id of the thread that is waited for; 0 where that is not known.
    WaitScope(Wait where, const void* p_object, std::int32_t threadId = 0)
        : m_where(where), m_threadId(threadId), m_object(p_object) {
        if (isOn()) m_beganNs = monotonicNanoseconds();
    }
    ~WaitScope() {
        if (m_beganNs == 0 || !isOn()) return;
        const std::uint64_t ns = monotonicNanoseconds() - m_beganNs;
        if (ns > kLongWaitNs) waited(m_where, m_object, m_threadId, ns);
    }

    WaitScope(const WaitScope&) = delete;
    WaitScope& operator=(const WaitScope&) = delete;

private:
    const Wait m_where;
    const std::int32_t m_threadId;
    const void* const m_object;
    std::uint64_t m_beganNs = 0;  // 0 where nothing was recorded then.
};

/// Out of line: what is passed while nothing is recorded stays short.
template <typename Mutex>
__attribute__((noinline, cold)) void lockWhileRecording(Mutex& mutex, const void* p_object) {
    if (mutex.try_lock()) return;
    const WaitScope wait(Wait::Lock, p_object);
    mutex.lock();
}

/// Locks @p mutex, as its lock() does. Reads the clock only where it is taken and something is
/// recorded.
template <typename Mutex>
void lockRecorded(Mutex& mutex, const void* p_object) {
    if (isOn()) return lockWhileRecording(mutex, p_object);
    mutex.lock();
}

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_WAIT_SCOPE_H

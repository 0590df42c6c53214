// timer_impl.h: what is behind a Timer, shared with the scheduler and the handler's threads.

#ifndef SRC_TIMER_TIMER_IMPL_H
#define SRC_TIMER_TIMER_IMPL_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "base/simple_timer.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"
#include "os/own_thread.h"
#include "timer/expired_time.h"
#include "timer/timer_heap.h"

namespace tevalon::base::simple_timer {

struct TimerLook;

/// What the operations of Timer and TimerImpl return.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = -1;

/// The line for a monotonic clock that could not be read; errno tells why.
void reportClockFailure(const char* function);

/// A handler that is shared by its timer and by those runs of it that go on: a shared_ptr for less
/// memory. What a handler changes in itself stays changed.
class SharedHandler {
public:
    SharedHandler() = default;
    explicit SharedHandler(TimerHandler&& handler) : m_counted(new Counted{std::move(handler)}) {}
    ~SharedHandler() { reset(); }

    SharedHandler(const SharedHandler&) = delete;
    SharedHandler& operator=(const SharedHandler&) = delete;

    /// Instead of none. One more user of @p other.
    void share(const SharedHandler& other) {
        m_counted = other.m_counted;
        // Relaxed: whoever adds a user is kept from losing the last one by a lock.
        if (m_counted != nullptr) m_counted->users.fetch_add(1, std::memory_order_relaxed);
    }
    void swap(SharedHandler& other) { std::swap(m_counted, other.m_counted); }
    void reset() {
        Counted* const p_counted = std::exchange(m_counted, nullptr);
        if (p_counted == nullptr) return;
        if (p_counted->users.fetch_sub(1, std::memory_order_acq_rel) == 1) delete p_counted;
    }

    explicit operator bool() const { return m_counted != nullptr; }
    const TimerHandler& operator*() const { return m_counted->handler; }

private:
    struct Counted {
        const TimerHandler handler;
        std::atomic<int> users{1};
    };

    Counted* m_counted = nullptr;
};

/// Thread-safety: each method says what it needs; those that say nothing may be called from
/// any thread.
///
/// Locks: the scheduler's mutex may be held when m_mutex is taken, never the other way round.
/// No lock is held while the handler runs, and m_mutex not while a line is logged.
class TimerImpl {
public:
    TimerImpl(Timer* p_timer, std::string name, const TimeoutTime& timeout, TimerHandler handler,
              void* userData, TimerType_e type);

    TimerImpl(const TimerImpl&) = delete;
    TimerImpl& operator=(const TimerImpl&) = delete;

    int setProperty(const TimeoutTime& timeout, TimerHandler handler, void* userData,
                    TimerType_e type);
    int changeTimeout(const TimeoutTime& timeout);
    int changeType(TimerType_e type);
    int changeHandler(TimerHandler handler, void* userData);

    int start();
    /// Waits until no run of the handler is marked as going on. In a run it waits for none: two
    /// that stop their timer would wait for each other.
    int stop();
    int stopNoBlock();

    /// Lets no further run of the handler begin, and waits for all that go on, but for the one
    /// that it is called in.
    void retire();

    /// One run of the handler, on the calling thread. None once the timer has been retired.
    void runHandler();

    /// Whether it is a parent's, and this process a forked child.
    bool isFromParent() const { return base::isFromParent(m_process); }
    /// In a forked child: stopped, with none of the runs that go on in the parent. Before anything
    /// else there.
    void renewInForkedChild();
    /// A run that has forked touches the timer no more in the child.
    static void leaveRunInForkedChild() { RunningThread::allOwnersAreGone(); }

    /// For the next run of a CONTINUE timer that is due at @p now: one timeout from now, as
    /// caculateExpiredTime(), and a millisecond at least where the timeout is not positive or
    /// the clock cannot be read.
    void reschedule(const ExpiredTime& now);

    /// Sets the expiry to one timeout from now. Returns 0, or -1 when the clock cannot be read.
    int caculateExpiredTime();

    const std::string& name() const { return m_name; }
    std::int64_t timeoutNanoseconds() const {
        const Timeout timeout = m_timeout;
        return std::int64_t{timeout.sec} * 1'000'000'000 + std::int64_t{timeout.usec} * 1000;
    }
    TimerType_e type() const { return m_type; }
    ExpiredTime expiredTime() const { return m_expiredTime; }
    bool isValid() const { return m_isValid; }
    bool isStarted() const { return m_isStarted; }
    bool needStop() const { return m_needStop; }

    /// With the scheduler's mutex held, while the timer is marked started: ~Timer() then waits for
    /// that mutex before it lets go of its own reference.
    std::shared_ptr<TimerImpl> self() const { return m_timer->m_impl; }

    /// With the scheduler's mutex held. Waits until @p untilNs on the monotonic clock at most.
    void look(std::uint64_t untilNs, TimerLook* p_look) TEVALON_NO_THREAD_SAFETY_ANALYSIS;

    // With the scheduler's mutex held: both change together, so that what is started is listed.
    void setStarted(bool isStarted) { m_isStarted.store(isStarted, std::memory_order_release); }
    TimerHeap::Place& place() { return m_place; }

private:
    class HandlerRun;
    using RunningThread = OwnThread<TimerImpl>;

    void caculateTimeout(const TimeoutTime& timeout);
    void waitForRun();

    // Guards the handler and its data, which a client may change while a last run begins, and the
    // runs.
    AnnotatedMutex m_mutex;
    std::condition_variable m_cond;  // Signalled when a run ends.
    Timer* const m_timer;            // Handed to the handler; alive while a run goes on.
    const std::string m_name;
    std::atomic<Timeout> m_timeout;
    SharedHandler m_handler TEVALON_GUARDED_BY(m_mutex);
    void* m_userData TEVALON_GUARDED_BY(m_mutex);
    std::atomic<TimerType_e> m_type;
    // All that go on. Beside m_type for the alignment, as m_place beside the flags.
    unsigned m_runs : 31 TEVALON_GUARDED_BY(m_mutex);
    bool m_isRetired : 1 TEVALON_GUARDED_BY(m_mutex);
    std::atomic<ExpiredTime> m_expiredTime{ExpiredTime{0, 0}};
    std::atomic<bool> m_isValid{true};
    std::atomic<bool> m_isStarted{false};
    // Set, and cleared by whichever run ends first, with m_mutex held; a start clears it without.
    std::atomic<bool> m_isRunning{false};
    std::atomic<bool> m_needStop{false};

    TimerHeap::Place m_place;  // Guarded by the scheduler's mutex.
    ProcessMark m_process{markOfThisProcess()};
};

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_TIMER_IMPL_H

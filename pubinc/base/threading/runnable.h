// runnable.h: a job that is repeated at an interval on the client's own thread.

#ifndef BASE_THREADING_RUNNABLE_H
#define BASE_THREADING_RUNNABLE_H

#include <atomic>
#include <cstdint>

#include "base/export.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/thread_annotations.h"

namespace tevalon::base::Threading {

/// Derive from it, implement execute(), and give run() a thread:
///
///     class Poll : public Runnable {
///     public:
///         Poll() : Runnable(100) {}
///         void execute() override { ... }
///     };
///     Poll poll;
///     std::thread thread([&poll] { poll.run(); });
///     ...
///     poll.stop();
///     thread.join();
///
/// Lifecycle: run() until stop(), which is final; pause() and resume() in between.
///
/// In a forked child no thread is in run(); paused and stopped stay as they are.
///
/// Thread-safety: one thread is in run(); any thread may call the rest, execute() included.
/// run() must have returned before the object is destroyed.
class TEVALON_BASE_EXPORT Runnable {
public:
    /// @param interval  Milliseconds of sleep before each execute(). Negative: no sleep.
    ///
    /// Throws std::runtime_error, "Mutex init error: " or "ConditionVariable init error: "
    /// and the description of errno.
    explicit Runnable(std::int32_t interval);
    virtual ~Runnable();

    Runnable(const Runnable&) = delete;
    Runnable& operator=(const Runnable&) = delete;

    /// Sleeps, waits while paused, and calls execute(), over and over. Returns 0 once
    /// stopped. Throws std::runtime_error, "ConditionVariable cond_wait error: " and the
    /// description of errno, when waiting fails.
    virtual std::int32_t run();

    /// Makes run() return at its next check: after the sleep or the execute() in hand, which
    /// are not cut short. Ends a pause. Throws std::runtime_error, "ConditionVariable
    /// notify_one error: " and the description of errno, when the pause cannot be ended;
    /// nothing is stopped then.
    virtual void stop();

    /// Makes run() wait before its next execute(). Also after stop(): a run() that has not
    /// noticed that one yet then waits for resume().
    virtual void pause();

    /// Ends a pause. Throws as stop() does.
    virtual void resume();

    /// Neither paused nor stopped; says nothing of whether a thread is in run().
    bool running();

    /// One round of the work. Called without a lock held; must not throw.
    virtual void execute() = 0;

private:
    TEVALON_BASE_LOCAL void renewInForkedChild();
    /// Returns false when run() is to return.
    TEVALON_BASE_LOCAL bool waitWhilePaused();
    TEVALON_BASE_LOCAL void sleepForInterval() const;
    TEVALON_BASE_LOCAL void endPause() TEVALON_REQUIRES(m_mutex);

    std::int32_t m_interval = 10;
    Mutex m_mutex;
    bool m_stopped TEVALON_GUARDED_BY(m_mutex) = false;
    bool m_paused TEVALON_GUARDED_BY(m_mutex) = false;
    std::atomic<std::uint16_t> m_process;  // That it belongs to; another one in a forked child.
    ConditionVariable m_condition;         // Signalled when a pause ends.
};

}  // namespace tevalon::base::Threading

#endif  // BASE_THREADING_RUNNABLE_H

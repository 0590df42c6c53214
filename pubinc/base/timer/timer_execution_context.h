// timer_execution_context.h: tells a task whether the object it is going to call is still there.

#ifndef BASE_TIMER_TIMER_EXECUTION_CONTEXT_H
#define BASE_TIMER_TIMER_EXECUTION_CONTEXT_H

#include <atomic>
#include <cstdint>

#include "base/export.h"

namespace tevalon::base::timer {

/// An object whose work a task carries out. The library calls nothing on it.
class TEVALON_BASE_EXPORT TimerExecutable {
public:
    virtual ~TimerExecutable() = 0;
};

/// A token that a task keeps: the owner of the executable marks it dead before the executable
/// goes away, and the task looks at it first.
///
/// Thread-safety: any thread may mark and look. Looking does not keep the executable alive:
/// where it may go away during the call, the owner has to see to that.
class TEVALON_BASE_EXPORT TimerExecutionContext {
public:
    /// What aliveMagic holds while the executable is there.
    static constexpr std::uint32_t kAliveMagic = 0xADDECEFA;

    /// @param p_executable  Not owned; may be null.
    explicit TimerExecutionContext(TimerExecutable* p_executable);
    /// Leaves the mark as it is.
    ~TimerExecutionContext() = default;

    TimerExecutionContext(const TimerExecutionContext&) = delete;
    TimerExecutionContext& operator=(const TimerExecutionContext&) = delete;

    /// To be called before the executable goes away. Cannot be undone.
    void markAsDead();

    std::atomic<std::uint32_t> aliveMagic;  ///< kAliveMagic, or 0 once marked dead.
    /// As given at construction, dead or alive. Not owned; may be null.
    TimerExecutable* const executable;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_TIMER_EXECUTION_CONTEXT_H

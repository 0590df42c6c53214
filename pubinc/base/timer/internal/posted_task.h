// posted_task.h: the task behind a callable that was posted; for the headers beside this folder.

#ifndef BASE_TIMER_INTERNAL_POSTED_TASK_H
#define BASE_TIMER_INTERNAL_POSTED_TASK_H

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/export.h"
#include "base/timer/timer_task.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::timer::internal {

/// Sets the fire time. A null task is left for postTask() to report.
template <typename Rep, typename Period>
void setDelay(TimerTaskBase* p_task, std::chrono::duration<Rep, Period> delay) {
    if (p_task != nullptr) p_task->setNextFireTime(monotonicSeconds() + toSeconds(delay));
}

/// Marks a queued task as cancelled. Takes no lock: the queue drops it once it is in front.
TEVALON_BASE_EXPORT void markCancelled(TimerTaskBase& task);

// Hidden: a symbol that two of a client's modules share would keep the one that has it loaded.

/// Work that is either done or cancelled: whichever comes first destroys it, on its own thread.
class TEVALON_BASE_LOCAL CancellableTask : public TimerTaskBase {
public:
    void fire() final {
        if (claim()) runWork();
    }

    /// True for the one call that has kept the work from being done.
    bool cancel() {
        if (!claim()) return false;
        markCancelled(*this);
        dropWork();
        return true;
    }

protected:
    virtual void runWork() = 0;   ///< And destroys it.
    virtual void dropWork() = 0;  ///< Destroys it.

private:
    // Relaxed: nobody but the winner touches the work from then on, and what it needs has reached
    // both sides with the task itself.
    bool claim() { return !m_isClaimed.exchange(true, std::memory_order_relaxed); }

    std::atomic<bool> m_isClaimed{false};
};

template <typename Work>
class TEVALON_BASE_LOCAL PostedTask final : public CancellableTask {
public:
    template <typename Source>
    explicit PostedTask(std::in_place_t, Source&& work)
        : m_work(std::in_place, std::forward<Source>(work)) {}

private:
    void runWork() override {
        (void)(*m_work)();
        m_work.reset();
    }
    void dropWork() override { m_work.reset(); }

    std::optional<Work> m_work;
};

// Not std::make_shared, whose tag is an STB_GNU_UNIQUE symbol, which keeps a client's module
// loaded.
template <typename Source>
std::shared_ptr<CancellableTask> makePostedTask(Source&& work) {
    using Work = std::decay_t<Source>;
    static_assert(std::is_invocable_v<Work&>, "what is posted is called without arguments");
    return std::shared_ptr<CancellableTask>(
        new PostedTask<Work>(std::in_place, std::forward<Source>(work)));
}

}  // namespace tevalon::base::timer::internal

#endif  // BASE_TIMER_INTERNAL_POSTED_TASK_H

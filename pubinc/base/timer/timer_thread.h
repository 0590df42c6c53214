// timer_thread.h: one thread that runs tasks in order of their fire times.

#ifndef BASE_TIMER_TIMER_THREAD_H
#define BASE_TIMER_TIMER_THREAD_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "base/export.h"
#include "base/timer/internal/posted_task.h"
#include "base/timer/task_handle.h"
#include "base/timer/timer_task.h"

namespace tevalon::base::timer {

/// A queue of tasks in order of fire time, those of equal times in order of posting, and the
/// thread that runs them, never before their time. Times are seconds on the monotonic clock.
///
///     TimerThread thread;
///     thread.postTask(task, 250);   // Starts the thread, and fires the task in 250 ms.
///     thread.post([] { ... }, 1s);  // The same with a callable.
///
/// Lifecycle: the first post starts the thread, stop() ends it; tasks that are queued then
/// stay, and the next post starts a thread that runs them. Tasks still queued
/// when the object is destroyed are destroyed unfired.
///
/// Thread-safety: any thread may call any method but the destructor; a task may post and
/// cancel, on its own thread too.
///
/// A task may stop or destroy its own thread, or call exit(): whatever would wait for that task
/// does not. The thread ends when the task returns, unless a post has come meanwhile, which
/// keeps it running; never do two threads run tasks of one object at once. A task that ends its
/// thread (pthread_exit(), cancellation) ends the worker: the queue stays, and the next post starts
/// a new one.
///
/// A task posted while it is queued is queued twice, and fires twice. Tasks may post from their
/// destructors, also when they are destroyed with this object, unfired; what they post then goes
/// the same way.
///
/// In a forked child it has neither thread nor tasks: the parent's are not run, nor destroyed. The
/// first post there starts a thread of the child's own.
///
/// Where two posts at once find no thread, either may start it; one that cannot throws, and the
/// other starts it itself, or throws as well.
class TEVALON_BASE_EXPORT TimerThread {
public:
    TimerThread();
    /// Waits for the task in hand, and destroys those that are queued.
    ~TimerThread();

    TimerThread(const TimerThread&) = delete;
    TimerThread& operator=(const TimerThread&) = delete;

    /// Starts the thread; for the first post, not for clients: there must be none yet. Throws
    /// std::runtime_error, "Thread initialization failed", when the system refuses.
    void start();

    /// Ends the thread and waits for the task in hand. Tasks that are posted meanwhile are
    /// queued. Does nothing when there is no thread.
    void stop();

    /// Queues @p task for its fire time; 0.0 is reported, and replaced by now. An empty task is
    /// reported and not queued. Throws as start() does; the task is not queued then, and the
    /// next post tries again.
    void postTask(std::shared_ptr<TimerTaskBase> task);

    /// The same for @p delayMs milliseconds from now; negative is in the past.
    void postTask(std::shared_ptr<TimerTaskBase> task, std::int32_t delayMs);
    /// The same for a std::chrono duration, however short or long.
    template <typename Rep, typename Period>
    void postTask(std::shared_ptr<TimerTaskBase> task, std::chrono::duration<Rep, Period> delay) {
        internal::setDelay(task.get(), delay);
        postTask(std::move(task));
    }

    /// Has a copy of @p work, which may be moved into it, called once, @p delayMs milliseconds from
    /// now; negative is in the past. It must not throw, and is destroyed on the thread right after
    /// its call, or when the handle cancels it. Throws as start() does; @p work is not called then.
    template <typename Work>
    TaskHandle post(Work&& work, std::int32_t delayMs) {
        return post(std::forward<Work>(work), std::chrono::milliseconds(delayMs));
    }
    /// The same for a std::chrono duration.
    template <typename Work, typename Rep, typename Period>
    TaskHandle post(Work&& work, std::chrono::duration<Rep, Period> delay) {
        auto task = internal::makePostedTask(std::forward<Work>(work));
        TaskHandle handle(task);
        postTask(std::move(task), delay);
        return handle;
    }

    /// Cancels the queued task with this session id. It keeps its place, and counts as queued,
    /// until it gets to the front, where it is dropped. The task in hand is not affected.
    void cancelTaskBySessionId(std::int32_t sessionId);
    /// The same for every queued task with this task id.
    void cancelTaskByTaskId(std::int32_t taskId);

    bool hasTask();            ///< Whether any task is queued.
    std::int32_t taskCount();  ///< How many are.
    bool isBusy();             ///< Whether a task is being fired.

    /// The kernel thread id of the latest thread; -1 before the first.
    std::int32_t threadId() const;

    /// The thread's body, and its steps. Not for clients.
    std::int32_t run();
    /// Seconds until the first task is due, not above 0 when it is; 0.0 when there is none.
    double getNextFiringInterval();
    /// Sleeps until the first task is due, a task is posted that is due sooner, or the time is
    /// over.
    void waitNextTaskWithTimeOut(double timeoutSeconds);
    /// Takes the first task off the queue; null when there is none.
    std::shared_ptr<TimerTaskBase> popFirstTask();

    /// Does nothing: the place where the queue is looked at when its order is in doubt.
    void debugIterateTaskQueue(const char* title);

private:
    friend class TaskThreadLooker;
    friend class TimerThreadPool;
    class State;

    /// @param name  The thread's, at most 15 characters. Copied.
    TEVALON_BASE_LOCAL explicit TimerThread(const char* name);

    TEVALON_BASE_LOCAL State& state() const;
    /// As postTask(). Where it throws, the task stays with the caller.
    TEVALON_BASE_LOCAL void post(std::shared_ptr<TimerTaskBase>&& task);
    TEVALON_BASE_LOCAL void startIfIdle();
    TEVALON_BASE_LOCAL void startSlowly();
    TEVALON_BASE_LOCAL std::shared_ptr<TimerTaskBase> popInForkedChild();
    TEVALON_BASE_LOCAL void handleTask(const std::shared_ptr<TimerTaskBase>& task,
                                       double knownTime);
    TEVALON_BASE_LOCAL void fireTask(const std::shared_ptr<TimerTaskBase>& task, double now);

    const std::unique_ptr<State> m_state;
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_TIMER_THREAD_H

// state.h: what a timer thread's worker and its clients share.

#ifndef SRC_TIMER_THREAD_STATE_H
#define SRC_TIMER_THREAD_STATE_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "base/threading/basic_thread.h"
#include "base/timer/timer_thread.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"
#include "os/own_thread.h"
#include "record/record.h"
#include "timer_thread/cancelled_tasks.h"
#include "timer_thread/queue_lock.h"
#include "timer_thread/task_activity.h"
#include "timer_thread/task_queue.h"

namespace tevalon::base::timer {

/// The queue, and the worker's life:
///
///     no worker --claimStart(), startWorker()--> running --claimStop(), join, endStop()--> none
///
/// A worker that its own task stops cannot be joined by that task: it goes on until the task
/// returns, and its handle stays. A post until then has it stay (claimStart()); afterwards it has
/// left, and whoever claims the next start joins it. So at most one worker fires tasks at any time.
///
/// Between claimStart() and startWorker() a line is logged without the lock, which may block. A
/// post in between does not wait for it, nor queue its task for a worker that then may not be had:
/// it starts the worker itself.
///
/// Thread-safety: all but construction and destruction. No lock is held over a task, a task's
/// destructor, a log line or a join.
class TEVALON_BASE_LOCAL TimerThread::State {
public:
    using Task = std::shared_ptr<TimerTaskBase>;
    using Worker = Threading::BasicThread<TimerThread>;
    using WorkerThread = OwnThread<TimerThread>;
    class WorkerScope;

    /// @param name  The worker's. Cut off at 15 characters.
    void setName(const char* name);
    const char* name() const { return m_name; }

    bool isFromParent() const { return base::isFromParent(m_process); }
    /// In a forked child: without a worker, and without the parent's tasks. Before anything else
    /// there.
    void renewInForkedChild();

    /// True for the one caller who has to call TimerThread::start().
    ///
    /// @param p_exited  Gets the handle of a worker that has exited. Resetting it joins: without a
    /// lock.
    bool claimStart(std::shared_ptr<Worker>* p_exited);

    /// Ends the claim, and starts a worker unless there is one, or one is being joined. Throws as
    /// BasicThread does.
    void startWorker(TimerThread* p_owner);

    /// Queues @p *p_task and wakes the worker where that has to look at the queue now. False, and
    /// nothing done, when there is no worker and nobody has claimed to start one. Throws as
    /// startWorker(), with the task not queued.
    ///
    /// Touches nothing of this object once it has released the lock: the task may fire at once,
    /// and its owner destroy the thread.
    ///
    /// @param isWatched    Wake the worker for every task: the debug level shows it look.
    /// @param afterInsert  Called under the lock.
    template <typename AfterInsert>
    bool insert(TimerThread* p_owner, Task* p_task, bool isWatched, AfterInsert afterInsert) {
        const QueueLock lock(m_queueMutex);
        if (m_isStarting) createWorker(p_owner);
        if (!m_running && isIdle()) return false;
        if (record::isOn()) recordPosted(**p_task);  // It may fire, and be gone, at once.
        m_taskQueue.insert(std::move(*p_task));
        afterInsert();
        if (m_isWaiting && mustWake(isWatched)) {
            m_isWaiting = false;
            m_wakeup.notify_one();
        }
        return true;
    }

    CancelledTasks cancelSession(std::int32_t sessionId) {
        CancelledTasks cancelled;
        const QueueLock lock(m_queueMutex);
        m_taskQueue.cancelSession(sessionId, cancelled);
        return cancelled;
    }

    CancelledTasks cancelTask(std::int32_t taskId) {
        CancelledTasks cancelled;
        const QueueLock lock(m_queueMutex);
        m_taskQueue.cancelWhere(&TimerTaskBase::taskId, taskId, cancelled);
        return cancelled;
    }

    /// What the worker finds when it looks at the queue.
    struct Look {
        bool isEmpty;
        double interval;  // Seconds until the first task is due. 0.0 where that is cancelled.
        double now;       // The time then; minus infinity where the clock was not read.
        Task task;        // The first, off the queue; only where it is due and not cancelled.
    };

    /// One look under one lock, in which nobody comes between the question and the taking.
    Look look(TimerThread* p_owner);

    std::size_t taskCount();
    /// 0.0 where there is no task, or where it is cancelled.
    double frontFireTime();
    Task popFront();

    /// The worker leaves when its task in hand returns, unless a post has it stay.
    void requestStop() { m_running = false; }
    /// The worker, for the one caller who has to join it. Others wait until that is done.
    std::shared_ptr<Worker> claimStop();
    void wakeForStop();
    void endStop();

    /// From now on nothing starts a worker.
    void beginDestruction();
    /// Destroys the tasks that are queued, one by one, while everything else still stands: a
    /// task's destructor may post.
    void dropTasks();
    /// The worker's handle; for the worker itself, which destroys its own thread object.
    std::shared_ptr<Worker> takeWorker();

    bool isRunning() const { return m_running; }
    /// For the worker: sleeps for @p timeoutSeconds at most, until the first task is due, or
    /// insert() or a stop wakes it. False when the worker is to exit.
    bool waitForTask(double timeoutSeconds);

    bool isBusy();
    // Relaxed: it stands for itself.
    void setBusy(bool isBusy) { m_busy.store(isBusy, std::memory_order_relaxed); }
    /// For the worker alone.
    TaskActivity* activity() const { return m_activity; }
    std::int32_t threadId() const { return m_threadId; }
    void setThreadId(std::int32_t threadId) { m_threadId = threadId; }

private:
    friend class TaskThreadLooker;

    static void recordPosted(const TimerTaskBase& task);
    void createWorker(TimerThread* p_owner) TEVALON_REQUIRES(m_queueMutex);
    bool isIdle() const TEVALON_REQUIRES(m_queueMutex);
    bool mustWake(bool isWatched) const TEVALON_REQUIRES(m_queueMutex);
    void sleepFor(MutexLock* p_lock, double seconds) TEVALON_REQUIRES(m_queueMutex);
    bool leave() TEVALON_EXCLUDES(m_queueMutex);
    void leaveAbnormally() TEVALON_EXCLUDES(m_queueMutex);

    AnnotatedMutex m_queueMutex;  // A leaf.
    TaskQueue m_taskQueue TEVALON_GUARDED_BY(m_queueMutex);
    std::condition_variable
        m_wakeup;  // The worker sleeps and mustWake(), or a stop wants it to exit.
    std::shared_ptr<Worker> m_worker TEVALON_GUARDED_BY(m_queueMutex);

    // The worker waits, and nobody has woken it yet; until when, in seconds on the monotonic clock.
    bool m_isWaiting TEVALON_GUARDED_BY(m_queueMutex) = false;
    double m_sleepsUntil TEVALON_GUARDED_BY(m_queueMutex) = 0;

    // Set by claimStart(), cleared by startWorker(); a stop() in between finds no worker.
    bool m_isStarting TEVALON_GUARDED_BY(m_queueMutex) = false;
    // The worker has looked at m_running for the last time.
    bool m_hasExited TEVALON_GUARDED_BY(m_queueMutex) = false;
    // A worker is being joined: no other is started meanwhile.
    bool m_isStopping TEVALON_GUARDED_BY(m_queueMutex) = false;
    // Destruction has begun.
    bool m_isDestroyed TEVALON_GUARDED_BY(m_queueMutex) = false;
    std::thread::id m_starter TEVALON_GUARDED_BY(m_queueMutex);
    std::thread::id m_stopper TEVALON_GUARDED_BY(m_queueMutex);
    std::condition_variable m_stopped;  // Signalled when m_isStopping is cleared.

    // Written under the lock where that decides something; the worker's loop reads them without.
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_busy{false};
    std::atomic<std::int32_t> m_threadId{-1};

    TaskActivity* m_activity = nullptr;  // On the worker's stack.

    char m_name[16] = "TimerThread";
    ProcessMark m_process{markOfThisProcess()};
};

/// On the stack of the worker: marks its thread, and tells the state if the thread ends in the
/// middle of a task, by pthread_exit() or cancellation.
class TEVALON_BASE_LOCAL TimerThread::State::WorkerScope {
public:
    WorkerScope(TimerThread* p_owner, State* p_state)
        : m_thread(p_owner), m_state(*p_state), m_activity(p_owner, p_state) {
        m_state.m_activity = &m_activity;
    }
    // A worker that has left touches the state no more: the next one may be at work.
    ~WorkerScope() {
        if (!m_hasExited && !isOwnerGone()) m_state.leaveAbnormally();
    }

    WorkerScope(const WorkerScope&) = delete;
    WorkerScope& operator=(const WorkerScope&) = delete;

    /// Whether the worker goes on. Once false, it has left, or a task has destroyed the thread
    /// object: that is not to be touched any more.
    [[nodiscard]] bool staysRunning() {
        if (isOwnerGone()) return false;
        if (!m_state.m_running) m_hasExited = m_state.leave();
        return !m_hasExited;
    }

private:
    [[nodiscard]] bool isOwnerGone() const { return m_thread.isOwnerGone(); }

    const WorkerThread m_thread;
    State& m_state;
    bool m_hasExited = false;
    TaskActivity m_activity;
};

}  // namespace tevalon::base::timer

#endif  // SRC_TIMER_THREAD_STATE_H

// timer_thread_pool.h: the process's timer threads.

#ifndef BASE_TIMER_TIMER_THREAD_POOL_H
#define BASE_TIMER_TIMER_THREAD_POOL_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "base/export.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/thread_annotations.h"
#include "base/timer/internal/posted_task.h"
#include "base/timer/task_handle.h"
#include "base/timer/timer_task.h"
#include "base/timer/timer_thread.h"

namespace tevalon::base::timer {

/// A main, a foreground and a background thread, and workers among which independent tasks are
/// spread by load. One per process, made on first use, never destroyed; each of its threads is
/// started by the first task posted to it.
///
/// In a forked child it starts anew, with the limit of workers that was set.
///
/// Thread-safety: any thread may call any method. Posting throws as TimerThread::postTask().
class TEVALON_BASE_EXPORT TimerThreadPool {
public:
    TimerThreadPool();
    ~TimerThreadPool();

    TimerThreadPool(const TimerThreadPool&) = delete;
    TimerThreadPool& operator=(const TimerThreadPool&) = delete;

    /// @{
    /// The process's pool, made on first use. Any thread.
    static TimerThreadPool* GetInstance();
    static TimerThreadPool* getInstance();
    /// @}

    /// @param maxWorkers  How many workers there may be; 2 unless set. Workers that exist
    ///                    already stay. Without any, tasks for workers are reported and dropped.
    static void init(std::int32_t maxWorkers);

    /// @{
    /// Whether the caller is a task on that thread. False before the thread has first run.
    static bool isMainThread();
    static bool isForegroundThread();
    static bool isBackgroundThread();
    /// @}

    /// @{
    /// Posts to that thread, for the task's fire time; see TimerThread::postTask(). The task of
    /// postMainThreadTask() must not be null.
    static void postMainThreadTask(std::shared_ptr<TimerTaskBase> task);
    static void postForegroundTask(std::shared_ptr<TimerTaskBase> task);
    static void postBackgroundTask(std::shared_ptr<TimerTaskBase> task);
    /// @}

    /// Posts to the first worker whose queue is empty, though it may be busy with a task for
    /// however long; else to a new one while there may be more; else to the one with the fewest
    /// tasks, the one in hand included.
    static void postWorkerTask(std::shared_ptr<TimerTaskBase> task);

    /// The threads that take posts.
    enum class Thread : std::int32_t {
        Main,
        Foreground,
        Background,
        Worker,  ///< The one that postWorkerTask() would choose, when the task is posted.
    };

    /// Posts as the function above for that thread, for @p delayMs milliseconds from now; negative
    /// is in the past.
    static void postTask(Thread thread, std::shared_ptr<TimerTaskBase> task, std::int32_t delayMs) {
        postTask(thread, std::move(task), std::chrono::milliseconds(delayMs));
    }
    /// The same for a std::chrono duration.
    template <typename Rep, typename Period>
    static void postTask(Thread thread, std::shared_ptr<TimerTaskBase> task,
                         std::chrono::duration<Rep, Period> delay) {
        internal::setDelay(task.get(), delay);
        postTo(thread, std::move(task));
    }

    /// As TimerThread::post(), on that thread. Work that is dropped, for want of workers, is
    /// destroyed.
    template <typename Work>
    static TaskHandle post(Thread thread, Work&& work, std::int32_t delayMs) {
        return post(thread, std::forward<Work>(work), std::chrono::milliseconds(delayMs));
    }
    /// The same for a std::chrono duration.
    template <typename Work, typename Rep, typename Period>
    static TaskHandle post(Thread thread, Work&& work, std::chrono::duration<Rep, Period> delay) {
        auto task = internal::makePostedTask(std::forward<Work>(work));
        TaskHandle handle(task);
        postTask(thread, std::move(task), delay);
        return handle;
    }

private:
    static void postTo(Thread thread, std::shared_ptr<TimerTaskBase> task) {
        switch (thread) {
            case Thread::Main:
                return postMainThreadTask(std::move(task));
            case Thread::Foreground:
                return postForegroundTask(std::move(task));
            case Thread::Background:
                return postBackgroundTask(std::move(task));
            case Thread::Worker:
                return postWorkerTask(std::move(task));
        }
    }

    TEVALON_BASE_LOCAL static void resetInForkedChild();
    TEVALON_BASE_LOCAL void postToWorker(std::shared_ptr<TimerTaskBase> task)
        TEVALON_EXCLUDES(m_workersMutex);
    TEVALON_BASE_LOCAL TimerThread* chooseWorker() TEVALON_REQUIRES(m_workersMutex);
    TEVALON_BASE_LOCAL TimerThread* findIdleWorker() TEVALON_REQUIRES(m_workersMutex);
    TEVALON_BASE_LOCAL TimerThread* addWorker() TEVALON_REQUIRES(m_workersMutex);
    TEVALON_BASE_LOCAL TimerThread* findLeastLoadedWorker() TEVALON_REQUIRES(m_workersMutex);

    TimerThread m_mainThread;
    TimerThread m_foregroundThread;
    TimerThread m_backgroundThread;
    std::vector<std::shared_ptr<TimerThread>> m_workers TEVALON_GUARDED_BY(m_workersMutex);
    Mutex m_workersMutex;  // Held over a whole choice and post; taken before any queue's lock.
    std::atomic<std::int32_t> m_maxWorkerCount{2};
};

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_TIMER_THREAD_POOL_H

#include "base/timer/timer_thread.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "base/synchronization/auto_lock.h"
#include "base/threading/basic_thread.h"
#include "base/threading/current_thread.h"
#include "monotonic_seconds.h"
#include "thread_name.h"
#include "timer/precise_wait.h"
#include "timer/task_queue.h"

namespace tevalon::base::timer {
namespace {

using Task = std::shared_ptr<TimerTaskBase>;
using Worker = Threading::BasicThread<TimerThread>;

constexpr double kNoFireTime = 0.0;          // Not set yet; once queued, cancelled.
constexpr double kIdleWaitSeconds = 1.0;     // With nothing queued.
constexpr double kLongestWaitSeconds = 1e9;  // What the clock's arithmetic holds.

std::chrono::nanoseconds roundedUp(double seconds) {
    const double bounded = std::min(seconds, kLongestWaitSeconds);
    return std::chrono::nanoseconds(static_cast<std::int64_t>(std::ceil(bounded * 1e9)));
}

struct CancelledTask {
    std::int32_t sessionId;
    std::int32_t taskId;
    double fireTime;
    double secondsLeft;
};

/// Cancels tasks and keeps what there is to say of each, for when the lock is released.
class CancelledTasks {
public:
    void cancel(TimerTaskBase* p_task) {
        const double fireTime = p_task->getNextFireTime();
        p_task->setNextFireTime(kNoFireTime);
        ++m_count;
        if (!m_isLogged) return;
        m_toLog.push_back(
            {p_task->sessionId(), p_task->taskId(), fireTime, fireTime - monotonicSeconds()});
    }

    int count() const { return m_count; }
    /// Of each; none where nobody would read it.
    const std::vector<CancelledTask>& toLog() const { return m_toLog; }

private:
    const bool m_isLogged = isLogOn(kLogDebug);
    int m_count = 0;
    std::vector<CancelledTask> m_toLog;
};

}  // namespace

// What the thread and its clients share.
class TimerThread::State {
public:
    /// True for the one caller who has to start the thread.
    bool claimStart() {
        const AutoLock lock(m_queueMutex);
        if (m_running || m_thread != nullptr || m_isStarting || m_isStopping) return false;
        m_running = true;
        m_isStarting = true;
        return true;
    }

    /// The thread, for the one caller who has to join it. Others wait until that is done.
    std::shared_ptr<Worker> claimStop() {
        std::unique_lock<std::mutex> lock(m_queueMutex);
        // The joining thread comes by here again, from the handle's destructor.
        if (m_stopper == std::this_thread::get_id()) return nullptr;
        m_stopped.wait(lock, [this] { return !m_isStopping; });
        if (m_thread == nullptr) return nullptr;
        m_isStopping = true;
        m_stopper = std::this_thread::get_id();
        return std::move(m_thread);
    }

    void endStop() {
        const AutoLock lock(m_queueMutex);
        m_isStopping = false;
        m_stopper = std::thread::id();
        m_stopped.notify_all();
    }

    CancelledTasks cancelSession(std::int32_t sessionId) {
        CancelledTasks cancelled;
        const AutoLock lock(m_queueMutex);
        m_taskQueue.forEachOfSession(sessionId,
                                     [&](TimerTaskBase& task) { cancelled.cancel(&task); });
        return cancelled;
    }

    CancelledTasks cancelTask(std::int32_t taskId) {
        CancelledTasks cancelled;
        const AutoLock lock(m_queueMutex);
        m_taskQueue.forEach([&](TimerTaskBase& task) {
            if (task.taskId() == taskId) cancelled.cancel(&task);
        });
        return cancelled;
    }

    /// With m_queueMutex held, after @p task was queued: whether the thread has to be woken for
    /// it. It does not where it would only look, and sleep as long as before.
    bool claimWakeUp(double fireTime, bool isWatched) {
        if (!m_isWaiting) return false;
        const bool isSooner = !(fireTime >= m_sleepsUntil);
        const bool isFrontCancelled = m_taskQueue.frontFireTime() == kNoFireTime;
        if (!isSooner && !isFrontCancelled && !isWatched) return false;
        m_isWaiting = false;
        return true;
    }

    /// With @p lock on m_queueMutex held. Returns when woken, when the time is over, or for no
    /// reason.
    void waitFor(std::unique_lock<std::mutex>* p_lock, double seconds) {
        const double now = monotonicSeconds();
        // Without a clock nothing is known to be later.
        m_sleepsUntil = now < 0 ? std::numeric_limits<double>::infinity() : now + seconds;
        m_isWaiting = true;
        if (m_taskQueue.empty()) {
            (void)m_wakeup.wait_for(*p_lock, roundedUp(seconds));
        } else {
            const PreciseWait precise;
            (void)m_wakeup.wait_for(*p_lock, roundedUp(seconds));
        }
        m_isWaiting = false;
    }

    TaskQueue m_taskQueue;  // Guarded by m_queueMutex.
    std::atomic<bool> m_running{false};
    std::atomic<std::int32_t> m_threadId{-1};
    std::mutex m_queueMutex;           // A leaf: not held over a task, nor over a join.
    std::condition_variable m_wakeup;  // Wakes the thread where it waits, and is to do something.
    std::shared_ptr<Worker> m_thread;  // Guarded by m_queueMutex.
    std::atomic<bool> m_busy{false};

    // Whether the thread waits and nobody has woken it yet, and until when, in seconds on the
    // monotonic clock. Guarded by m_queueMutex.
    bool m_isWaiting = false;
    double m_sleepsUntil = 0;

    // From the claim to the start, which a stop may come between: no second one then claims it
    // too. Guarded by m_queueMutex.
    bool m_isStarting = false;

    // While a thread is being joined no other is started, for it would take the flag that
    // starts it as its own and never end. Guarded by m_queueMutex.
    bool m_isStopping = false;
    std::thread::id m_stopper;          // Who is joining. Guarded by m_queueMutex.
    std::condition_variable m_stopped;  // Signalled when m_isStopping is cleared.
    char m_name[16] = "TimerThread";
};

TimerThread::TimerThread() : m_state(std::make_unique<State>()) {
    BLOG_TRACE_POINT();
}

TimerThread::TimerThread(const char* name) : TimerThread() {
    std::snprintf(m_state->m_name, sizeof(m_state->m_name), "%s", name);
}

TimerThread::~TimerThread() {
    BLOG_TRACE_POINT();
    m_state->m_running = false;
    stop();
    BLOG(kLogAlways, "Destroy TimerThread:%d.\n", threadId());
}

void TimerThread::start() {
    BLOG_TRACE_POINT();
    std::shared_ptr<Worker> previous;
    {
        // Made under the lock: whoever stops finds either no thread or its handle.
        const AutoLock lock(m_state->m_queueMutex);
        previous = std::move(m_state->m_thread);
        m_state->m_running = true;
        m_state->m_isStarting = false;
        try {
            m_state->m_thread = std::make_shared<Worker>(this);
        } catch (...) {
            m_state->m_running = false;
            throw;
        }
    }
    BLOG_TRACE_POINT();
}

void TimerThread::stop() {
    BLOG_TRACE_POINT();
    m_state->m_running = false;
    std::shared_ptr<Worker> worker = m_state->claimStop();
    if (worker != nullptr) {
        BLOG(kLogDebug, "Wakeup worker\n");
        const AutoLock lock(m_state->m_queueMutex);
        m_state->m_running = false;  // Whoever claimed the start meanwhile has lost to us.
        m_state->m_wakeup.notify_one();
    }
    BLOG_TRACE_POINT();
    if (worker == nullptr) return;
    worker.reset();
    m_state->endStop();
}

void TimerThread::postTask(Task task) {
    if (task == nullptr) {
        BLOG(kLogError, "Invalid Empty task\n");
        return;
    }
    if (task->getNextFireTime() == kNoFireTime) {
        BLOG(kLogWarn, "[%p]:Forgot to set Firing Time?default to now(). task:(%p - id:%d).\n",
             static_cast<void*>(this), static_cast<void*>(task.get()), task->taskId());
        task->setNextFireTime(monotonicSeconds());
    }
    if (!m_state->m_running && m_state->claimStart()) {
        BLOG(kLogAlways, "[%p]:Need start TimerThread.\n", static_cast<void*>(this));
        start();
    }
    BLOG(kLogInfo, "[%p]:Insert new task:(%p - id:%d).\n", static_cast<void*>(this),
         static_cast<void*>(task.get()), task->taskId());
    // Who watches the debug level sees the thread look at its queue after each post.
    const bool isWatched = isLogOn(kLogDebug);
    bool isToWake = false;
    {
        const AutoLock lock(m_state->m_queueMutex);
        const double fireTime = m_state->m_taskQueue.insert(std::move(task));
        debugIterateTaskQueue("After insert new task:");
        isToWake = m_state->claimWakeUp(fireTime, isWatched);
    }
    if (isToWake) m_state->m_wakeup.notify_one();
}

void TimerThread::postTask(Task task, std::int32_t delayMs) {
    if (task != nullptr) task->setNextFireTime(monotonicSeconds() + delayMs / 1000.0);
    postTask(std::move(task));
}

void TimerThread::cancelTaskBySessionId(std::int32_t sessionId) {
    const CancelledTasks cancelled = m_state->cancelSession(sessionId);
    for (const CancelledTask& task : cancelled.toLog()) {
        BLOG(kLogDebug, "CancelTask %d: taskid: %d,firetime:%f(%f)\n", task.sessionId, task.taskId,
             task.fireTime, task.secondsLeft);
    }
    BLOG(kLogDebug, "Canceled Task Count: %d\n", cancelled.count());
}

void TimerThread::cancelTaskByTaskId(std::int32_t taskId) {
    const CancelledTasks cancelled = m_state->cancelTask(taskId);
    for (const CancelledTask& task : cancelled.toLog()) {
        BLOG(kLogDebug, "CancelTask %d,Session:%d firetime:%f(%f)\n", task.taskId, task.sessionId,
             task.fireTime, task.secondsLeft);
    }
    BLOG(kLogDebug, "Canceled Task Count: %d\n", cancelled.count());
}

bool TimerThread::hasTask() {
    const AutoLock lock(m_state->m_queueMutex);
    return !m_state->m_taskQueue.empty();
}

std::int32_t TimerThread::taskCount() {
    const AutoLock lock(m_state->m_queueMutex);
    return static_cast<std::int32_t>(m_state->m_taskQueue.size());
}

bool TimerThread::isBusy() {
    const AutoLock lock(m_state->m_queueMutex);
    return m_state->m_busy;
}

std::int32_t TimerThread::threadId() const {
    return m_state->m_threadId;
}

std::int32_t TimerThread::run() {
    nameThisThread("%s", m_state->m_name);
    BLOG(kLogDebug, "[%p]:TimerThread begin run.\n", static_cast<void*>(this));
    m_state->m_threadId = currentThread();
    BLOG(kLogAlways, "Starting TimerThread:%d.\n", threadId());
    while (m_state->m_running) {
        if (!hasTask()) {
            waitNextTaskWithTimeOut(kIdleWaitSeconds);
            continue;
        }
        const double interval = getNextFiringInterval();
        if (interval > 0) {
            BLOG(kLogDebug, "[%p]: Not timeout, continue.\n", static_cast<void*>(this));
            waitNextTaskWithTimeOut(interval);
            continue;
        }
        debugIterateTaskQueue("Before pop task:");
        const Task task = popFirstTask();
        debugIterateTaskQueue("After pop task:");
        if (task == nullptr) {
            BLOG(kLogError, "Task Just Removed? continue.\n");
            waitNextTaskWithTimeOut(kIdleWaitSeconds);
            continue;
        }
        handleTask(task);
    }
    BLOG(kLogAlways, "[%p]:Exiting Timer Thread...\n", static_cast<void*>(this));
    return 0;
}

// Steps of run(), under whose name they log.
#define RUN_LOG(level, ...) BLOG_AT(BLOG_TAG, level, __FILE__, __LINE__, "run", __VA_ARGS__)

void TimerThread::handleTask(const Task& task) {
    void* const self = this;
    void* const address = task.get();
    RUN_LOG(kLogDebug, "[%p]:Find a task:[%p - id:%d] to fire.\n", self, address, task->taskId());
    const double fireTime = task->getNextFireTime();
    if (fireTime == kNoFireTime) {
        RUN_LOG(kLogDebug, "[%p]:task:[%p - id:%d] fireTime is 0, is a canceled task.\n", self,
                address, task->taskId());
        return;
    }
    const double now = monotonicSeconds();
    RUN_LOG(kLogDebug, "[%p]:fireTime:%f, nowTime:%f\n", self, fireTime, now);
    if (fireTime > now) {
        RUN_LOG(kLogWarn,
                "[%p]:Put the task[%p - id:%d] back to queue because (fireTime:%f > "
                "nowTime:%f).\n",
                self, address, task->taskId(), fireTime, now);
        postTask(task);
        return;
    }
    fireTask(task);
}

void TimerThread::fireTask(const Task& task) {
    void* const self = this;
    void* const address = task.get();
    RUN_LOG(kLogAlways, "[%p]:Begin fire task:(%p - id:%d).\n", self, address, task->taskId());
    m_state->m_busy = true;
    task->fire();
    m_state->m_busy = false;
    RUN_LOG(kLogAlways, "[%p]:Finish fire task:(%p - id:%d).\n", self, address, task->taskId());
}

double TimerThread::getNextFiringInterval() {
    double fireTime = kNoFireTime;
    {
        const AutoLock lock(m_state->m_queueMutex);
        const Task first = m_state->m_taskQueue.front();
        if (first != nullptr) fireTime = first->getNextFireTime();
    }
    if (fireTime == kNoFireTime) {
        BLOG(kLogDebug, "No Task\n");
        return kNoFireTime;
    }
    return fireTime - monotonicSeconds();
}

void TimerThread::waitNextTaskWithTimeOut(double timeoutSeconds) {
    std::unique_lock<std::mutex> lock(m_state->m_queueMutex);
    if (!m_state->m_running) {
        lock.unlock();
        BLOG(kLogWarn, "Request Exit before wait.\n");
        return;
    }
    if (const Task first = m_state->m_taskQueue.front(); first != nullptr) {
        const double fireTime = first->getNextFireTime();
        const double interval = fireTime - monotonicSeconds();
        if (fireTime == kNoFireTime || interval <= 0) return;
        timeoutSeconds = std::min(timeoutSeconds, interval);
    }
    // Once: whatever ends the wait, the loop looks at everything anew.
    m_state->waitFor(&lock, timeoutSeconds);
}

Task TimerThread::popFirstTask() {
    const AutoLock lock(m_state->m_queueMutex);
    return m_state->m_taskQueue.popFront();
}

void TimerThread::debugIterateTaskQueue(const char*) {}

}  // namespace tevalon::base::timer

#include "base/timer/timer_thread.h"

#include <utility>

#include "activity/waiting.h"
#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "base/threading/current_thread.h"
#include "os/monotonic_time.h"
#include "os/no_cancellation.h"
#include "os/thread_name.h"
#include "record/record.h"
#include "timer_thread/state.h"

namespace tevalon::base::timer {
namespace {

using Task = std::shared_ptr<TimerTaskBase>;

constexpr double kIdleWaitSeconds = 1.0;  // With nothing queued.

void logCount(const char* function, const CancelledTasks& cancelled) {
    BLOG_AS(function, kLogDebug, "Canceled Task Count: %d\n", cancelled.count());
}

/// However the task ends.
class RecordedTask {
public:
    explicit RecordedTask(const TimerTaskBase& task)
        : m_task(&task), m_taskId(task.taskId()), m_sessionId(task.sessionId()) {
        record::taskBegun(m_task, m_taskId, m_sessionId);
    }
    ~RecordedTask() { record::taskEnded(m_task, m_taskId, m_sessionId); }

    RecordedTask(const RecordedTask&) = delete;
    RecordedTask& operator=(const RecordedTask&) = delete;

private:
    const void* const m_task;
    const std::int32_t m_taskId;
    const std::int32_t m_sessionId;
};

__attribute__((noinline, cold)) void fireRecorded(TimerTaskBase& task) {
    const RecordedTask recorded(task);
    task.fire();
}

void logNoTask() {
    BLOG_AS("getNextFiringInterval", kLogDebug, "No Task\n");
}

}  // namespace

// Every way in from a client, for the parent's locks and worker are of no use to a forked child.
inline TimerThread::State& TimerThread::state() const {
    if (m_state->isFromParent()) m_state->renewInForkedChild();
    return *m_state;
}

TimerThread::TimerThread() : m_state(std::make_unique<State>()) {
    BLOG_TRACE_POINT();
}

TimerThread::TimerThread(const char* name) : TimerThread() {
    m_state->setName(name);
}

// In this order: nothing starts any more; the worker is gone, or is this very thread; what is left
// of the queue is destroyed while the state still stands, for a task's destructor may post.
TimerThread::~TimerThread() {
    const NoCancellation noCancellation;
    BLOG_TRACE_POINT();
    state().beginDestruction();
    stop();
    BLOG(kLogAlways, "Destroy TimerThread:%d.\n", threadId());
    if (State::WorkerThread::isThisThreadOf(this)) {
        (void)m_state->takeWorker();  // ~BasicThread() detaches on its own thread.
        State::WorkerThread::ownerIsGone();
        activity::forgetObject(this);
    }
    m_state->dropTasks();
}

void TimerThread::start() {
    BLOG_TRACE_POINT();
    state().startWorker(this);
    BLOG_TRACE_POINT();
}

// The handle's destructor calls stop() once more, and joins; claimStop() lets that call pass. Not
// cancelled: a destructor joins.
void TimerThread::stop() {
    const NoCancellation noCancellation;
    BLOG_TRACE_POINT();
    std::shared_ptr<State::Worker> worker;
    if (State::WorkerThread::isThisThreadOf(this)) {
        m_state->requestStop();
    } else {
        worker = state().claimStop();
    }
    if (worker != nullptr) {
        BLOG(kLogDebug, "Wakeup worker\n");
        m_state->wakeForStop();
    }
    BLOG_TRACE_POINT();
    if (worker == nullptr) return;
    const activity::Waiting wait(record::Wait::Stop, this);
    worker.reset();
    m_state->endStop();
}

void TimerThread::postTask(Task task) {
    post(std::move(task));
}

// The fire time is settled before the lock is taken, and read again under it: the task's owner may
// change it at any time.
void TimerThread::post(Task&& task) {
    if (task == nullptr) {
        BLOG_AS("postTask", kLogError, "Invalid Empty task\n");
        return;
    }
    if (task->getNextFireTime() == kNoFireTime) {
        BLOG_AS("postTask", kLogWarn,
                "[%p]:Forgot to set Firing Time?default to now(). task:(%p - id:%d).\n",
                static_cast<void*>(this), static_cast<void*>(task.get()), task->taskId());
        task->setNextFireTime(monotonicSeconds());
    }
    startIfIdle();
    BLOG_AS("postTask", kLogInfo, "[%p]:Insert new task:(%p - id:%d).\n", static_cast<void*>(this),
            static_cast<void*>(task.get()), task->taskId());
    // With the debug level on every post wakes the worker, so that the log shows it look at the
    // queue.
    const bool isWatched = isLogOn(kLogDebug);
    const auto afterInsert = [this] { debugIterateTaskQueue("After insert new task:"); };
    // Again where a start that another post had claimed has failed.
    while (!m_state->insert(this, &task, isWatched, afterInsert)) startIfIdle();
}

void TimerThread::startIfIdle() {
    if (!m_state->isFromParent() && m_state->isRunning()) return;
    startSlowly();
}

// Apart, with a fork noticed: what every post passes stays short.
__attribute__((noinline)) void TimerThread::startSlowly() {
    if (state().isRunning()) return;
    // Cancelled here, the claim would stay set for good; cancelled in ~BasicThread(), which joins,
    // the process would end.
    const NoCancellation noCancellation;
    std::shared_ptr<State::Worker> exited;
    if (!m_state->claimStart(&exited)) return;
    BLOG_AS("postTask", kLogAlways, "[%p]:Need start TimerThread.\n", static_cast<void*>(this));
    exited.reset();  // Joined here.
    start();
}

void TimerThread::postTask(Task task, std::int32_t delayMs) {
    if (task != nullptr) task->setNextFireTime(monotonicSeconds() + delayMs / 1000.0);
    postTask(std::move(task));
}

void TimerThread::cancelTaskBySessionId(std::int32_t sessionId) {
    const CancelledTasks cancelled = state().cancelSession(sessionId);
    for (const CancelledTask& task : cancelled.toLog()) {
        BLOG(kLogDebug, "CancelTask %d: taskid: %d,firetime:%f(%f)\n", task.sessionId, task.taskId,
             task.fireTime, task.secondsLeft);
    }
    logCount(__func__, cancelled);
}

void TimerThread::cancelTaskByTaskId(std::int32_t taskId) {
    const CancelledTasks cancelled = state().cancelTask(taskId);
    for (const CancelledTask& task : cancelled.toLog()) {
        BLOG(kLogDebug, "CancelTask %d,Session:%d firetime:%f(%f)\n", task.taskId, task.sessionId,
             task.fireTime, task.secondsLeft);
    }
    logCount(__func__, cancelled);
}

bool TimerThread::hasTask() {
    return state().taskCount() > 0;
}

std::int32_t TimerThread::taskCount() {
    return static_cast<std::int32_t>(state().taskCount());
}

bool TimerThread::isBusy() {
    return state().isBusy();
}

std::int32_t TimerThread::threadId() const {
    return state().threadId();
}

std::int32_t TimerThread::run() {
    void* const self = this;
    State::WorkerScope scope(this, m_state.get());
    nameThisThread("%s", m_state->name());
    BLOG(kLogDebug, "[%p]:TimerThread begin run.\n", self);
    m_state->setThreadId(currentThread());
    BLOG(kLogAlways, "Starting TimerThread:%d.\n", threadId());
    // A task may destroy this object: nothing of it is touched then.
    while (scope.staysRunning()) {
        State::Look look = m_state->look(this);
        if (look.isEmpty) {
            waitNextTaskWithTimeOut(kIdleWaitSeconds);
            continue;
        }
        if (look.interval > 0) {
            BLOG(kLogDebug, "[%p]: Not timeout, continue.\n", self);
            waitNextTaskWithTimeOut(look.interval);
            continue;
        }
        if (look.task == nullptr) {
            logNoTask();
            debugIterateTaskQueue("Before pop task:");
            look.task = popFirstTask();
        }
        debugIterateTaskQueue("After pop task:");
        if (look.task == nullptr) {
            BLOG(kLogError, "Task Just Removed? continue.\n");
            waitNextTaskWithTimeOut(kIdleWaitSeconds);
            continue;
        }
        handleTask(look.task, look.now);
    }
    BLOG(kLogAlways, "[%p]:Exiting Timer Thread...\n", self);
    return 0;
}

// Due at @p knownTime, it is due now, and the clock need not be read again: it never goes back. A
// time that its owner has changed since may lie ahead.
void TimerThread::handleTask(const Task& task, double knownTime) {
    void* const self = this;
    void* const address = task.get();
    BLOG_AS("run", kLogDebug, "[%p]:Find a task:[%p - id:%d] to fire.\n", self, address,
            task->taskId());
    const double fireTime = task->getNextFireTime();
    if (fireTime == kNoFireTime) {
        BLOG_AS("run", kLogDebug, "[%p]:task:[%p - id:%d] fireTime is 0, is a canceled task.\n",
                self, address, task->taskId());
        return;
    }
    const bool isLogged = isLogOn(kLogDebug);
    const bool isKnownToBeDue = fireTime <= knownTime && !isLogged;
    const double now = isKnownToBeDue ? knownTime : monotonicSeconds();
    if (isLogged) {
        BLOG_AS("run", kLogDebug, "[%p]:fireTime:%f, nowTime:%f\n", self, fireTime, now);
    }
    if (fireTime > now) {
        BLOG_AS("run", kLogWarn,
                "[%p]:Put the task[%p - id:%d] back to queue because (fireTime:%f > "
                "nowTime:%f).\n",
                self, address, task->taskId(), fireTime, now);
        postTask(task);
        return;
    }
    fireTask(task, now);
}

void TimerThread::fireTask(const Task& task, double now) {
    void* const self = this;
    void* const address = task.get();
    BLOG_AS("run", kLogAlways, "[%p]:Begin fire task:(%p - id:%d).\n", self, address,
            task->taskId());
    m_state->setBusy(true);
    TaskActivity* const p_activity = m_state->activity();
    p_activity->beginTask(*task, now);
    if (record::isOn()) {
        fireRecorded(*task);
    } else {
        task->fire();
    }
    p_activity->endTask();
    if (State::WorkerThread::isThisThreadOf(this)) m_state->setBusy(false);  // Else it is gone.
    BLOG_AS("run", kLogAlways, "[%p]:Finish fire task:(%p - id:%d).\n", self, address,
            task->taskId());
}

// The loop's steps, for those who take them one by one. Each takes the lock anew: what was true in
// one may have changed in the next.
double TimerThread::getNextFiringInterval() {
    const double fireTime = state().frontFireTime();
    if (fireTime == kNoFireTime) {
        logNoTask();
        return 0.0;  // Also for a cancelled front: run() pops it now, and drops it.
    }
    return fireTime - monotonicSeconds();
}

void TimerThread::waitNextTaskWithTimeOut(double timeoutSeconds) {
    // Once: whatever ends the wait, the loop looks at everything anew.
    if (!state().waitForTask(timeoutSeconds)) BLOG(kLogWarn, "Request Exit before wait.\n");
}

Task TimerThread::popFirstTask() {
    if (m_state->isFromParent()) return popInForkedChild();
    return m_state->popFront();
}

__attribute__((noinline, cold)) Task TimerThread::popInForkedChild() {
    return state().popFront();
}

void TimerThread::debugIterateTaskQueue(const char*) {}

namespace internal {

void markCancelled(TimerTaskBase& task) {
    task.setNextFireTime(kNoFireTime);
    if (record::isOn()) record::taskCancelled(&task, task.taskId(), task.sessionId());
}

}  // namespace internal

}  // namespace tevalon::base::timer

#include "timer_thread/state.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "os/precise_wait.h"

namespace tevalon::base::timer {
namespace {

constexpr double kLongestWaitSeconds = 1e9;  // What the clock's arithmetic holds.

std::int64_t roundedUpNanoseconds(double seconds) {
    const double bounded = std::min(seconds, kLongestWaitSeconds);
    return static_cast<std::int64_t>(std::ceil(bounded * 1e9));
}

}  // namespace

void TimerThread::State::setName(const char* name) {
    std::snprintf(m_name, sizeof(m_name), "%s", name);
}

void TimerThread::State::renewInForkedChild() {
    renewOnce(&m_process, [this]() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        replaceUndestroyed(&m_queueMutex, &m_taskQueue, &m_wakeup, &m_worker, &m_stopped);
        replaceUndestroyed(&m_starter, &m_stopper);
        m_isWaiting = false;
        m_isStarting = false;
        m_hasExited = false;
        m_isStopping = false;
        m_isDestroyed = false;
        m_running = false;
        m_busy = false;
        m_threadId = -1;
    });
}

bool TimerThread::State::claimStart(std::shared_ptr<Worker>* p_exited) {
    const QueueLock lock(m_queueMutex);
    if (m_running || m_isStarting || m_isStopping || m_isDestroyed) return false;
    m_running = true;
    // Told to stop but not exited yet: it finds m_running set again in leave(), and stays.
    if (m_worker != nullptr && !m_hasExited) return false;
    *p_exited = std::move(m_worker);
    m_isStarting = true;
    m_starter = std::this_thread::get_id();
    return true;
}

void TimerThread::State::startWorker(TimerThread* p_owner) {
    const QueueLock lock(m_queueMutex);
    m_isStarting = false;
    createWorker(p_owner);
}

__attribute__((cold)) void TimerThread::State::recordPosted(const TimerTaskBase& task) {
    const double seconds = task.getNextFireTime() - monotonicSeconds();
    constexpr double kLongest = 9e9;  // Some 285 years, which 64 bits of nanoseconds hold.
    const double bounded = seconds > -kLongest ? std::min(seconds, kLongest) : -kLongest;
    record::taskPosted(&task, task.taskId(), task.sessionId(),
                       static_cast<std::int64_t>(bounded * 1e9));
}

// Under the lock, so that claimStop() finds either no worker or its complete handle. None during a
// join: a worker started then would set m_running, and the old one would not stop.
void TimerThread::State::createWorker(TimerThread* p_owner) {
    if (m_worker != nullptr || m_isStopping || m_isDestroyed) return;
    inEachForkedChild(WorkerThread::allOwnersAreGone);
    m_running = true;
    m_hasExited = false;
    try {
        m_worker = std::make_shared<Worker>(p_owner);
    } catch (...) {
        m_running = false;
        throw;
    }
}

// A task queued now would wait for the next post.
bool TimerThread::State::isIdle() const {
    if (m_running || m_isStarting || m_isStopping || m_isDestroyed) return false;
    return m_worker == nullptr || m_hasExited;
}

// No wake-up if the worker would only look at the queue and sleep just as long. Compares with the
// front's present time, which its owner may have changed. Negated, so that NaN wakes; a cancelled
// front, whose time is 0.0, wakes too.
bool TimerThread::State::mustWake(bool isWatched) const {
    return isWatched || !(m_taskQueue.frontFireTime() >= m_sleepsUntil);
}

TimerThread::State::Look TimerThread::State::look(TimerThread* p_owner) {
    constexpr double kUnknown = -std::numeric_limits<double>::infinity();
    const QueueLock lock(m_queueMutex);
    Look look = {m_taskQueue.empty(), 0.0, kUnknown, nullptr};
    const double fireTime = m_taskQueue.frontFireTime();
    if (fireTime == kNoFireTime) return look;
    look.now = monotonicSeconds();
    look.interval = fireTime - look.now;
    if (look.interval > 0) return look;
    p_owner->debugIterateTaskQueue("Before pop task:");
    look.task = m_taskQueue.popFront();
    return look;
}

std::size_t TimerThread::State::taskCount() {
    const QueueLock lock(m_queueMutex);
    return m_taskQueue.size();
}

double TimerThread::State::frontFireTime() {
    const QueueLock lock(m_queueMutex);
    return m_taskQueue.frontFireTime();
}

TimerThread::State::Task TimerThread::State::popFront() {
    const QueueLock lock(m_queueMutex);
    return m_taskQueue.popFront();
}

std::shared_ptr<TimerThread::State::Worker> TimerThread::State::claimStop() {
    MutexLock lock(m_queueMutex);
    // ~BasicThread() calls stop() again before it joins. That nested call, on the thread that
    // claimed the stop or the start, returns at once: it must not stop a worker that another thread
    // has started meanwhile.
    const std::thread::id self = std::this_thread::get_id();
    if (m_stopper == self || (m_isStarting && m_starter == self)) return nullptr;
    m_running = false;
    while (m_isStopping) lock.wait(m_stopped);
    if (m_worker == nullptr) return nullptr;
    m_running = false;  // A post may have had the worker stay during the wait.
    m_isStopping = true;
    m_stopper = self;
    return std::move(m_worker);
}

void TimerThread::State::wakeForStop() {
    const QueueLock lock(m_queueMutex);
    m_wakeup.notify_one();
}

void TimerThread::State::endStop() {
    const QueueLock lock(m_queueMutex);
    m_isStopping = false;
    m_stopper = std::thread::id();
    m_stopped.notify_all();
}

void TimerThread::State::beginDestruction() {
    const QueueLock lock(m_queueMutex);
    m_isDestroyed = true;
    m_running = false;
}

void TimerThread::State::dropTasks() {
    while (popFront() != nullptr) {
    }
}

std::shared_ptr<TimerThread::State::Worker> TimerThread::State::takeWorker() {
    const QueueLock lock(m_queueMutex);
    return std::move(m_worker);
}

bool TimerThread::State::leave() {
    const QueueLock lock(m_queueMutex);
    if (m_running) return false;
    m_hasExited = true;
    return true;
}

void TimerThread::State::leaveAbnormally() {
    const QueueLock lock(m_queueMutex);
    m_hasExited = true;
    m_running = false;
    m_busy = false;
}

bool TimerThread::State::waitForTask(double timeoutSeconds) {
    MutexLock lock(m_queueMutex);
    if (!m_running) return false;
    const double now = monotonicSeconds();
    // Without a clock nothing is known to be later: any post wakes the worker.
    m_sleepsUntil = now < 0 ? std::numeric_limits<double>::infinity() : now + timeoutSeconds;
    if (m_taskQueue.empty()) {
        sleepFor(&lock, timeoutSeconds);
        return true;
    }
    const double fireTime = m_taskQueue.frontFireTime();
    const double interval = fireTime - now;
    if (fireTime == kNoFireTime || interval <= 0) return true;
    if (interval < timeoutSeconds) {
        timeoutSeconds = interval;
        m_sleepsUntil = fireTime;
    }
    const PreciseWait precise;
    sleepFor(&lock, timeoutSeconds);
    return true;
}

void TimerThread::State::sleepFor(MutexLock* p_lock, double seconds) {
    m_isWaiting = true;
    p_lock->waitFor(m_wakeup, roundedUpNanoseconds(seconds));
    m_isWaiting = false;
}

bool TimerThread::State::isBusy() {
    const QueueLock lock(m_queueMutex);
    return m_busy;
}

}  // namespace tevalon::base::timer

#include "timer_thread/state.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "os/precise_wait.h"

namespace tevalon::base::timer {
namespace {

constexpr double kLongestWaitSeconds = 1e9;  // What the clock's arithmetic holds.

std::chrono::nanoseconds roundedUp(double seconds) {
    const double bounded = std::min(seconds, kLongestWaitSeconds);
    return std::chrono::nanoseconds(static_cast<std::int64_t>(std::ceil(bounded * 1e9)));
}

}  // namespace

void TimerThread::State::setName(const char* name) {
    std::snprintf(m_name, sizeof(m_name), "%s", name);
}

bool TimerThread::State::claimStart(std::shared_ptr<Worker>* p_left) {
    const QueueLock lock(m_queueMutex);
    if (m_running || m_isStarting || m_isStopping || m_isDestroyed) return false;
    m_running = true;
    // Told to leave, it has not left yet: it sees the flag again when its task returns.
    if (m_worker != nullptr && !m_hasLeft) return false;
    *p_left = std::move(m_worker);
    m_isStarting = true;
    m_starter = std::this_thread::get_id();
    return true;
}

void TimerThread::State::startWorker(TimerThread* p_owner) {
    const QueueLock lock(m_queueMutex);
    m_isStarting = false;
    createWorker(p_owner);
}

// Whoever stops finds either no worker or its handle. While one is being joined there is no other:
// it would set the flag that the old one leaves by.
void TimerThread::State::createWorker(TimerThread* p_owner) {
    if (m_worker != nullptr || m_isStopping || m_isDestroyed) return;
    m_running = true;
    m_hasLeft = false;
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
    return m_worker == nullptr || m_hasLeft;
}

// The worker is not woken where it would only look, and sleep as long as
// before; the front's time is looked at as it is now, for its owner may have changed it meanwhile.
bool TimerThread::State::isToLook(bool isWatched) const {
    return isWatched || !(m_taskQueue.frontFireTime() >= m_sleepsUntil);  // Cancelled: 0.0.
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
    // A handle's destructor stops its owner before it joins: whoever joins comes by here again, and
    // must not stop what another thread has started meanwhile.
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
    m_hasLeft = true;
    return true;
}

void TimerThread::State::leaveAbnormally() {
    const QueueLock lock(m_queueMutex);
    m_hasLeft = true;
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
        m_isWaiting = true;
        lock.waitFor(m_wakeup, roundedUp(timeoutSeconds));
    } else {
        const double fireTime = m_taskQueue.frontFireTime();
        const double interval = fireTime - now;
        if (fireTime == kNoFireTime || interval <= 0) return true;
        if (interval < timeoutSeconds) {
            timeoutSeconds = interval;
            m_sleepsUntil = fireTime;
        }
        m_isWaiting = true;
        const PreciseWait precise;
        lock.waitFor(m_wakeup, roundedUp(timeoutSeconds));
    }
    m_isWaiting = false;
    return true;
}

bool TimerThread::State::isBusy() {
    const QueueLock lock(m_queueMutex);
    return m_busy;
}

}  // namespace tevalon::base::timer

#include "pool_work.h"

#include <chrono>
#include <utility>

#include "base/synchronization/unique_lock.h"

namespace tv_browser {
namespace {

using tevalon::base::UniqueLock;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerTaskBase;
using tevalon::base::timer::TimerThreadPool;

// The scale of fire times.
double now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(time).count();
}

}  // namespace

PoolWork::~PoolWork() {
    UniqueLock lock(m_mutex);
    while (m_pending > 0) m_allDone.wait(lock);
}

void PoolWork::onMainThread(Work work) {
    TimerThreadPool::postMainThreadTask(makeTask(std::move(work)));
}

void PoolWork::onForegroundThread(Work work) {
    TimerThreadPool::postForegroundTask(makeTask(std::move(work)));
}

void PoolWork::onBackgroundThread(Work work) {
    TimerThreadPool::postBackgroundTask(makeTask(std::move(work)));
}

void PoolWork::onWorkerThread(Work work) {
    TimerThreadPool::postWorkerTask(makeTask(std::move(work)));
}

std::shared_ptr<TimerTaskBase> PoolWork::makeTask(Work work) {
    auto task = std::make_shared<CallableTimerTask>([this, work = std::move(work)] {
        work();
        finishOne();
    });
    task->setNextFireTime(now());
    UniqueLock lock(m_mutex);
    ++m_pending;
    return task;
}

void PoolWork::finishOne() {
    UniqueLock lock(m_mutex);
    --m_pending;
    if (m_pending == 0) m_allDone.notify_one();
}

const char* poolThreadName() {
    if (TimerThreadPool::isMainThread()) return "the main thread";
    if (TimerThreadPool::isForegroundThread()) return "the foreground thread";
    if (TimerThreadPool::isBackgroundThread()) return "the background thread";
    return "a worker thread";
}

}  // namespace tv_browser

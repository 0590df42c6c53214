#include "base/timer/timer_thread_pool.h"

#include <cstdio>
#include <utility>

#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "base/singleton.h"
#include "base/synchronization/auto_lock.h"
#include "base/threading/current_thread.h"
#include "os/forked_child.h"

namespace tevalon::base::timer {

namespace {

// The process's, which is never destroyed; the only one, but in tests.
std::atomic<TimerThreadPool*> g_firstPool{nullptr};

}  // namespace

TimerThreadPool::TimerThreadPool()
    : m_mainThread("Timer:main"),
      m_foregroundThread("Timer:foregrnd"),
      m_backgroundThread("Timer:backgrnd") {
    inEachForkedChild(resetInForkedChild);
    TimerThreadPool* p_none = nullptr;
    (void)g_firstPool.compare_exchange_strong(p_none, this);
}

TimerThreadPool::~TimerThreadPool() {
    TimerThreadPool* p_self = this;
    (void)g_firstPool.compare_exchange_strong(p_self, nullptr);
}

// The three threads see to themselves. Unchecked: there is one thread, and nobody holds the mutex,
// whatever it says.
void TimerThreadPool::resetInForkedChild() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    TimerThreadPool* const p_pool = g_firstPool.load();
    if (p_pool != nullptr) replaceUndestroyed(&p_pool->m_workersMutex, &p_pool->m_workers);
}

TimerThreadPool* TimerThreadPool::GetInstance() {
    return Singleton<TimerThreadPool, DefaultSingletonTraits<TimerThreadPool>,
                     TimerThreadPool>::GetInstance();
}

TimerThreadPool* TimerThreadPool::getInstance() {
    return GetInstance();
}

void TimerThreadPool::init(std::int32_t maxWorkers) {
    getInstance()->m_maxWorkerCount = maxWorkers;
}

bool TimerThreadPool::isMainThread() {
    return currentThread() == getInstance()->m_mainThread.threadId();
}

bool TimerThreadPool::isForegroundThread() {
    return currentThread() == getInstance()->m_foregroundThread.threadId();
}

bool TimerThreadPool::isBackgroundThread() {
    return currentThread() == getInstance()->m_backgroundThread.threadId();
}

void TimerThreadPool::postMainThreadTask(std::shared_ptr<TimerTaskBase> task) {
    TimerThread& mainThread = getInstance()->m_mainThread;
    BLOG(kLogDebug, "Post task:(%p - id:%d) to mainThread:%p.\n", static_cast<void*>(task.get()),
         task != nullptr ? task->taskId() : 0, static_cast<void*>(&mainThread));
    mainThread.postTask(std::move(task));
}

void TimerThreadPool::postForegroundTask(std::shared_ptr<TimerTaskBase> task) {
    getInstance()->m_foregroundThread.postTask(std::move(task));
}

void TimerThreadPool::postBackgroundTask(std::shared_ptr<TimerTaskBase> task) {
    getInstance()->m_backgroundThread.postTask(std::move(task));
}

void TimerThreadPool::postWorkerTask(std::shared_ptr<TimerTaskBase> task) {
    BLOG_TRACE_SCOPE();
    getInstance()->postToWorker(std::move(task));
}

void TimerThreadPool::postToWorker(std::shared_ptr<TimerTaskBase> task) {
    const AutoLock lock(m_workersMutex);
    TimerThread* p_worker = chooseWorker();
    // Where it throws, the task is destroyed by our caller, without the lock: it may post.
    if (p_worker != nullptr) p_worker->post(std::move(task));
}

TimerThread* TimerThreadPool::chooseWorker() {
    if (TimerThread* p_idle = findIdleWorker()) return p_idle;
    const std::size_t count = m_workers.size();
    if (static_cast<std::int32_t>(count) < m_maxWorkerCount) return addWorker();

    BLOG_AS("postWorkerTask", kLogInfo, "Worker Count: %lu\n", static_cast<unsigned long>(count));
    if (count == 0) {
        BLOG_AS("postWorkerTask", kLogError, "No worker threads available. ignore task.\n");
        return nullptr;
    }
    return findLeastLoadedWorker();
}

TimerThread* TimerThreadPool::findIdleWorker() {
    for (const std::shared_ptr<TimerThread>& worker : m_workers) {
        if (worker != nullptr && !worker->hasTask()) return worker.get();
    }
    return nullptr;
}

TimerThread* TimerThreadPool::addWorker() {
    const int number = static_cast<int>(m_workers.size());
    BLOG_AS("postWorkerTask", kLogAlways, "Crate Worker Thread: %d\n", number);
    char name[32];
    std::snprintf(name, sizeof(name), "Timer:work%d", number);
    // Not made by std::make_shared, which has no access to the constructor that takes a name.
    m_workers.push_back(std::shared_ptr<TimerThread>(new TimerThread(name)));
    return m_workers.back().get();
}

TimerThread* TimerThreadPool::findLeastLoadedWorker() {
    constexpr int kMoreThanAny = 99999;
    std::size_t best = 0;
    int least = kMoreThanAny;
    for (std::size_t i = 0; i < m_workers.size(); ++i) {
        const int load = m_workers[i]->taskCount() + (m_workers[i]->isBusy() ? 1 : 0);
        if (load >= least) continue;
        best = i;
        least = load;
    }
    BLOG_AS("postWorkerTask", kLogInfo, "Post To Worker %d : taskcount: %d\n",
            static_cast<int>(best), least);
    return m_workers[best].get();
}

}  // namespace tevalon::base::timer

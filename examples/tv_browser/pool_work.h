// pool_work.h: work that is done on the process's timer threads.

#ifndef TV_BROWSER_POOL_WORK_H
#define TV_BROWSER_POOL_WORK_H

#include <functional>
#include <memory>

#include "base/synchronization/condition_variable.h"
#include "base/synchronization/mutex.h"
#include "base/timer.h"

namespace tv_browser {

/// Posts pieces of work to the threads of the pool, and waits for them when it ends: what a
/// piece uses need only outlive this object, though the pool's threads outlive everything.
///
/// Thread-safety: any thread may post. Work must not throw.
class PoolWork {
public:
    using Work = std::function<void()>;

    PoolWork() = default;
    /// Returns when all that was posted is done.
    ~PoolWork();

    PoolWork(const PoolWork&) = delete;
    PoolWork& operator=(const PoolWork&) = delete;

    void onMainThread(Work work);
    void onForegroundThread(Work work);
    void onBackgroundThread(Work work);
    void onWorkerThread(Work work);

private:
    std::shared_ptr<tevalon::base::timer::TimerTaskBase> makeTask(Work work)
        TEVALON_EXCLUDES(m_mutex);
    void finishOne() TEVALON_EXCLUDES(m_mutex);

    tevalon::base::Mutex m_mutex;
    tevalon::base::ConditionVariable m_allDone;  // Signalled when m_pending becomes 0.
    int m_pending TEVALON_GUARDED_BY(m_mutex) = 0;
};

/// Which of the pool's threads the caller is, for the timeline: "the main thread".
const char* poolThreadName();

}  // namespace tv_browser

#endif  // TV_BROWSER_POOL_WORK_H

// our_scheduler.h: a TimerThread.

#ifndef BENCHMARKS_SCHEDULERS_OUR_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_OUR_SCHEDULER_H

#include <cstdint>
#include <memory>
#include <utility>

#include "base/timer.h"
#include "schedulers/work.h"
#include "support/rows.h"

namespace bench {

class OurScheduler {
public:
    static constexpr const char* kName = kOurs;
    using Handle = std::int32_t;

    Handle post(int delayMs, Work work) {
        auto task = std::make_shared<tevalon::base::timer::CallableTimerTask>(std::move(work));
        const Handle handle = task->sessionId();
        m_thread.postTask(std::move(task), delayMs);
        return handle;
    }

    void cancel(Handle handle) { m_thread.cancelTaskBySessionId(handle); }

private:
    tevalon::base::timer::TimerThread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_OUR_SCHEDULER_H

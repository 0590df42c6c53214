// Tasks for the pool's threads. Nothing can be cancelled there, so every one fires.

#include "base/timer/timer_thread_pool.h"

#include <thread>

#include "stress/station.h"
#include "stress/task_account.h"

namespace stress {
namespace {

using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThreadPool;

constexpr long kMostPending = 5000;

class TimerThreadPoolStation : public Station {
public:
    TimerThreadPoolStation() { TimerThreadPool::init(3); }

    void step(std::mt19937& random) override {
        if (m_account.posted - m_account.fired > kMostPending) {
            std::this_thread::yield();
            return;
        }
        const int dice = std::uniform_int_distribution<int>(0, 9)(random);
        if (TimerThreadPool::isMainThread()) ++m_misplaced;
        auto task = std::make_shared<CountedTask>(&m_account, 0);
        task->setNextFireTime(CountedTask::now() + (dice % 3) * 0.0005);
        ++m_account.posted;
        switch (dice) {
            case 0:
                TimerThreadPool::postMainThreadTask(std::move(task));
                break;
            case 1:
                TimerThreadPool::postForegroundTask(std::move(task));
                break;
            case 2:
                TimerThreadPool::postBackgroundTask(std::move(task));
                break;
            case 3:
                ++m_placed;
                TimerThreadPool::postMainThreadTask(std::move(task));
                TimerThreadPool::postMainThreadTask(std::make_shared<CallableTimerTask>(
                    [this] { ++(TimerThreadPool::isMainThread() ? m_onMain : m_misplaced); }));
                break;
            default:
                TimerThreadPool::postWorkerTask(std::move(task));
        }
    }

    std::vector<Balance> settle() override {
        while (m_account.fired < m_account.posted || m_onMain + m_misplaced < m_placed) {
            std::this_thread::yield();
        }
        return {{{m_account.posted, "tasks posted to the pool"}, {{m_account.fired, "fired"}}},
                {{m_placed, "tasks for the main thread"}, {{m_onMain, "fired there"}}},
                {{m_account.firedTwice, "pool tasks fired twice"}, {}},
                {{m_account.firedEarly, "pool tasks fired early"}, {}}};
    }

private:
    TaskAccount m_account;
    std::atomic<long> m_placed{0};
    std::atomic<long> m_onMain{0};
    std::atomic<long> m_misplaced{0};
};

}  // namespace

std::unique_ptr<Station> makeTimerThreadPoolStation() {
    return std::make_unique<TimerThreadPoolStation>();
}

}  // namespace stress

// Threads that are posted to, cancelled on, and stopped, all at once.

#include <time.h>

#include <array>
#include <memory>
#include <mutex>

#include "base/timer/timer_thread.h"
#include "stress/station.h"
#include "stress/task_account.h"

namespace stress {

double CountedTask::now() {
    timespec time{};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

namespace {

using tevalon::base::timer::TimerThread;

constexpr int kThreads = 3;
constexpr int kTaskIds = 50;
constexpr int kLongestQueue = 2000;

class TimerThreadStation : public Station {
public:
    void step(std::mt19937& random) override {
        const auto dice = [&random](int sides) {
            return std::uniform_int_distribution<int>(0, sides - 1)(random);
        };
        TimerThread& thread = m_threads[static_cast<std::size_t>(dice(kThreads))];
        switch (dice(20)) {
            case 0:
                thread.stop();
                break;
            case 1:
                thread.cancelTaskByTaskId(1 + dice(kTaskIds));
                break;
            case 2:
                thread.cancelTaskBySessionId(m_lastSession - dice(20));
                break;
            case 3:
                (void)thread.taskCount();
                break;
            case 4:
                (void)(thread.isBusy() && thread.hasTask());
                break;
            default:
                post(thread, dice);
        }
    }

    std::vector<Balance> settle() override {
        for (TimerThread& thread : m_threads) thread.stop();
        // All that is not in a queue now has gone already. What went unfired and not cancelled
        // was lost, and is missing from the sum.
        const long dropped = m_account.cancelled;
        long left = 0;
        long popped = 0;
        for (TimerThread& thread : m_threads) {
            left += thread.taskCount();
            while (thread.popFirstTask() != nullptr) ++popped;
        }
        return {{{m_account.posted, "tasks posted to threads"},
                 {{m_account.fired, "fired"}, {dropped, "cancelled"}, {left, "left in queue"}}},
                {{left, "tasks counted in queues"}, {{popped, "popped"}}},
                {{m_account.firedTwice, "tasks fired twice"}, {}},
                {{m_account.firedEarly, "tasks fired early"}, {}}};
    }

private:
    template <typename Dice>
    void post(TimerThread& thread, Dice dice) {
        if (thread.taskCount() > kLongestQueue) thread.cancelTaskByTaskId(1 + dice(kTaskIds));
        auto task = std::make_shared<CountedTask>(&m_account, 1 + dice(kTaskIds));
        m_lastSession = task->sessionId();
        ++m_account.posted;
        if (dice(8) == 0) {
            task->setNextFireTime(CountedTask::now() + dice(3) * 0.001);
            thread.postTask(std::move(task));
        } else {
            thread.postTask(std::move(task), dice(6) == 0 ? 500 : dice(4) - 1);
        }
    }

    TaskAccount m_account;
    std::atomic<int> m_lastSession{0};
    std::array<TimerThread, kThreads> m_threads;  // Last: their tasks use the account.
};

}  // namespace

std::unique_ptr<Station> makeTimerThreadStation() {
    return std::make_unique<TimerThreadStation>();
}

}  // namespace stress

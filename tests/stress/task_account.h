// task_account.h: what became of the tasks of a station. Each is counted once, when it goes.

#ifndef TESTS_STRESS_TASK_ACCOUNT_H
#define TESTS_STRESS_TASK_ACCOUNT_H

#include <atomic>

#include "base/timer/timer_task.h"

namespace stress {

struct TaskAccount {
    std::atomic<long> posted{0};
    std::atomic<long> fired{0};
    std::atomic<long> cancelled{0};  ///< Gone unfired, with the fire time of a cancelled one.
    std::atomic<long> unfired{0};    ///< Gone unfired otherwise.
    std::atomic<long> firedTwice{0};
    std::atomic<long> firedEarly{0};
};

class CountedTask : public tevalon::base::timer::TimerTaskBase {
public:
    CountedTask(TaskAccount* p_account, int id) : m_account(p_account) { setTaskId(id); }

    ~CountedTask() override {
        if (m_fires == 0) ++(getNextFireTime() == 0.0 ? m_account->cancelled : m_account->unfired);
    }

    void fire() override {
        ++(m_fires++ == 0 ? m_account->fired : m_account->firedTwice);
        if (getNextFireTime() > now()) ++m_account->firedEarly;
    }

    static double now();

private:
    TaskAccount* m_account;
    int m_fires = 0;  // Of the thread that fires it, then of the last holder.
};

}  // namespace stress

#endif  // TESTS_STRESS_TASK_ACCOUNT_H

// limit_scheduler.h: a heap behind a mutex, and a thread that is woken only where a task has
// become the first. Nothing can be cancelled.

#ifndef BENCHMARKS_SCHEDULERS_LIMIT_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_LIMIT_SCHEDULER_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <queue>
#include <thread>
#include <utility>
#include <vector>

#include "schedulers/work.h"
#include "support/rows.h"

namespace bench {

class LimitScheduler {
public:
    static constexpr const char* kName = kLimit;
    using Clock = std::chrono::steady_clock;
    struct Handle {};

    LimitScheduler() = default;
    ~LimitScheduler() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isEnding = true;
        }
        m_changed.notify_one();
        m_thread.join();
    }

    Handle post(int delayMs, Work work) {
        auto task = std::make_shared<Task>(
            Task{Clock::now() + std::chrono::milliseconds(delayMs), std::move(work)});
        const Task* const p_task = task.get();
        bool isFirst;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_tasks.push(std::move(task));
            isFirst = m_tasks.top().get() == p_task;
        }
        if (isFirst) m_changed.notify_one();
        return {};
    }

private:
    struct Task {
        Clock::time_point due;
        Work work;
    };
    using TaskPointer = std::shared_ptr<Task>;

    struct IsLater {
        bool operator()(const TaskPointer& left, const TaskPointer& right) const {
            return left->due > right->due;
        }
    };

    void run() {
        while (const TaskPointer task = take()) task->work();
    }

    TaskPointer take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_isEnding) {
            if (m_tasks.empty()) {
                m_changed.wait(lock);
            } else if (m_tasks.top()->due > Clock::now()) {
                m_changed.wait_until(lock, m_tasks.top()->due);
            } else {
                TaskPointer task = m_tasks.top();
                m_tasks.pop();
                return task;
            }
        }
        return nullptr;
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::priority_queue<TaskPointer, std::vector<TaskPointer>, IsLater> m_tasks;
    bool m_isEnding = false;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_LIMIT_SCHEDULER_H

// poco_scheduler.h: POCO, a thread at a TimedNotificationQueue. Nothing can be cancelled.

#ifndef BENCHMARKS_SCHEDULERS_POCO_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_POCO_SCHEDULER_H

#include <Poco/AutoPtr.h>
#include <Poco/Clock.h>
#include <Poco/Notification.h>
#include <Poco/TimedNotificationQueue.h>

#include <thread>
#include <utility>

#include "schedulers/work.h"

namespace bench {

class PocoScheduler {
public:
    static constexpr const char* kName = "POCO";
    struct Handle {};

    PocoScheduler() = default;
    ~PocoScheduler() {
        m_queue.enqueueNotification(new End, Poco::Clock(0));
        m_thread.join();
    }

    Handle post(int delayMs, Work work) {
        Poco::Clock due;
        due += Poco::Clock::ClockDiff(delayMs) * 1000;
        m_queue.enqueueNotification(new Task(std::move(work)), due);
        return {};
    }

private:
    class End : public Poco::Notification {};
    class Task : public Poco::Notification {
    public:
        explicit Task(Work work) : m_work(std::move(work)) {}
        void run() const { m_work(); }

    private:
        const Work m_work;
    };

    void run() {
        while (true) {
            Poco::AutoPtr<Poco::Notification> next = m_queue.waitDequeueNotification();
            const auto* const p_task = dynamic_cast<Task*>(next.get());
            if (p_task == nullptr) return;
            p_task->run();
        }
    }

    Poco::TimedNotificationQueue m_queue;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_POCO_SCHEDULER_H

// libevent_scheduler.h: libevent, an event for each task and a thread in event_base_loop().

#ifndef BENCHMARKS_SCHEDULERS_LIBEVENT_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_LIBEVENT_SCHEDULER_H

#include <event2/event.h>

#include <utility>
#include <vector>

#include "schedulers/work.h"
#include "support/libevent_loop.h"

namespace bench {

class LibeventScheduler {
public:
    static constexpr const char* kName = "libevent";
    struct Task {
        event* p_event;
        Work work;
    };
    using Handle = Task*;

    LibeventScheduler() = default;
    ~LibeventScheduler() {
        m_loop.stop();
        std::vector<Task*> left;
        event_base_foreach_event(m_loop.base(), collect, &left);
        for (Task* p_task : left) end(p_task);
    }

    Handle post(int delayMs, Work work) {
        auto* const p_task = new Task{nullptr, std::move(work)};
        p_task->p_event = event_new(m_loop.base(), -1, 0, call, p_task);
        const timeval delay = {delayMs / 1000, delayMs % 1000 * 1000};
        event_add(p_task->p_event, &delay);
        return p_task;
    }

    void cancel(Handle p_task) { end(p_task); }

private:
    static void call(evutil_socket_t, short, void* p_data) {
        auto* const p_task = static_cast<Task*>(p_data);
        p_task->work();
        end(p_task);
    }
    // The base has events of its own, too.
    static int collect(const event_base*, const event* p_event, void* p_left) {
        if (event_get_callback(p_event) != call) return 0;
        auto* const p_task = static_cast<Task*>(event_get_callback_arg(p_event));
        static_cast<std::vector<Task*>*>(p_left)->push_back(p_task);
        return 0;
    }
    static void end(Task* p_task) {
        event_free(p_task->p_event);
        delete p_task;
    }

    LibeventLoop m_loop;
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_LIBEVENT_SCHEDULER_H

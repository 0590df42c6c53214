// uv_scheduler.h: libuv, a timer for each task and a thread in uv_run(), to which a task is handed
// over by a wake-up: no other thread may touch a timer. Nothing can be cancelled.

#ifndef BENCHMARKS_SCHEDULERS_UV_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_UV_SCHEDULER_H

#include <uv.h>

#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "schedulers/work.h"

namespace bench {

class UvScheduler {
public:
    static constexpr const char* kName = "libuv";
    struct Handle {};

    UvScheduler() {
        uv_loop_init(&m_loop);
        uv_async_init(&m_loop, &m_wakeUp, onWakeUp);
        m_wakeUp.data = this;
        m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
    }
    ~UvScheduler() {
        post(0, [this] { uv_stop(&m_loop); });
        m_thread.join();
        uv_close(reinterpret_cast<uv_handle_t*>(&m_wakeUp), nullptr);
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }

    UvScheduler(const UvScheduler&) = delete;
    UvScheduler& operator=(const UvScheduler&) = delete;

    Handle post(int delayMs, Work work) {
        auto* const p_task = new Task{{}, static_cast<std::uint64_t>(delayMs), std::move(work)};
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_posted.push_back(p_task);
        }
        uv_async_send(&m_wakeUp);
        return {};
    }

private:
    struct Task {
        uv_timer_t timer;
        std::uint64_t delayMs;
        Work work;
    };

    static void onWakeUp(uv_async_t* p_wakeUp) {
        static_cast<UvScheduler*>(p_wakeUp->data)->startPosted();
    }
    void startPosted() {
        std::vector<Task*> posted;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            posted.swap(m_posted);
        }
        for (Task* p_task : posted) {
            uv_timer_init(&m_loop, &p_task->timer);
            p_task->timer.data = p_task;
            uv_timer_start(&p_task->timer, onTimer, p_task->delayMs, 0);
        }
    }
    static void onTimer(uv_timer_t* p_timer) {
        static_cast<Task*>(p_timer->data)->work();
        uv_close(reinterpret_cast<uv_handle_t*>(p_timer),
                 [](uv_handle_t* p_handle) { delete static_cast<Task*>(p_handle->data); });
    }

    uv_loop_t m_loop;
    uv_async_t m_wakeUp;
    std::mutex m_mutex;
    std::vector<Task*> m_posted;
    std::thread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_UV_SCHEDULER_H

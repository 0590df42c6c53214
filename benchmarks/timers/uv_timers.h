// uv_timers.h: libuv's timers, on the thread that owns the loop: no other may touch them.

#ifndef BENCHMARKS_TIMERS_UV_TIMERS_H
#define BENCHMARKS_TIMERS_UV_TIMERS_H

#include <uv.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace bench {

class UvTimers {
public:
    static constexpr const char* kName = "libuv";

    UvTimers() { uv_loop_init(&m_loop); }
    ~UvTimers() {
        for (const auto& timer : m_timers) {
            uv_close(reinterpret_cast<uv_handle_t*>(&timer->handle), nullptr);
        }
        uv_run(&m_loop, UV_RUN_DEFAULT);
        uv_loop_close(&m_loop);
    }

    UvTimers(const UvTimers&) = delete;
    UvTimers& operator=(const UvTimers&) = delete;

    void add(int delayMs) {
        m_timers.push_back(std::make_unique<Timer>());
        m_timers.back()->delayMs = static_cast<std::uint64_t>(delayMs);
        uv_timer_init(&m_loop, &m_timers.back()->handle);
    }
    void start(std::size_t index) {
        Timer* const p_timer = m_timers[index].get();
        uv_timer_start(
            &p_timer->handle, [](uv_timer_t*) {}, p_timer->delayMs, 0);
    }
    void stop(std::size_t index) { uv_timer_stop(&m_timers[index]->handle); }

private:
    struct Timer {
        uv_timer_t handle;
        std::uint64_t delayMs;
    };

    uv_loop_t m_loop;
    std::vector<std::unique_ptr<Timer>> m_timers;
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_UV_TIMERS_H

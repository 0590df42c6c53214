// asio_timers.h: Boost.Asio's timers, from another thread than the one in io_context::run(), which
// is told of each that is stopped.

#ifndef BENCHMARKS_TIMERS_ASIO_TIMERS_H
#define BENCHMARKS_TIMERS_ASIO_TIMERS_H

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace bench {

class AsioTimers {
public:
    static constexpr const char* kName = "Boost.Asio";

    AsioTimers() = default;
    ~AsioTimers() {
        m_context.stop();
        m_thread.join();
    }

    AsioTimers(const AsioTimers&) = delete;
    AsioTimers& operator=(const AsioTimers&) = delete;

    void add(int delayMs) {
        m_timers.push_back(std::make_unique<Timer>(m_context, std::chrono::milliseconds(delayMs)));
    }
    void start(std::size_t index) {
        Timer* const p_timer = m_timers[index].get();
        p_timer->timer.expires_after(p_timer->delay);
        p_timer->timer.async_wait([](const boost::system::error_code&) {});
    }
    void stop(std::size_t index) { m_timers[index]->timer.cancel(); }

private:
    struct Timer {
        Timer(boost::asio::io_context& context, std::chrono::milliseconds delay_)
            : timer(context), delay(delay_) {}
        boost::asio::steady_timer timer;
        const std::chrono::milliseconds delay;
    };

    boost::asio::io_context m_context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_open{
        m_context.get_executor()};
    std::vector<std::unique_ptr<Timer>> m_timers;
    std::thread m_thread{[this] { m_context.run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_ASIO_TIMERS_H

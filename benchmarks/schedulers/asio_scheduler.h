// asio_scheduler.h: Boost.Asio, a timer for each task and a thread in io_context::run().

#ifndef BENCHMARKS_SCHEDULERS_ASIO_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_ASIO_SCHEDULER_H

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "schedulers/work.h"

namespace bench {

class AsioScheduler {
public:
    static constexpr const char* kName = "Boost.Asio";
    using Handle = std::shared_ptr<boost::asio::steady_timer>;

    AsioScheduler() = default;
    ~AsioScheduler() {
        m_context.stop();
        m_thread.join();
    }

    Handle post(int delayMs, Work work) {
        auto timer = std::make_shared<boost::asio::steady_timer>(
            m_context, std::chrono::milliseconds(delayMs));
        timer->async_wait([timer, work = std::move(work)](const boost::system::error_code& error) {
            if (!error) work();
        });
        return timer;
    }

    void cancel(const Handle& timer) { timer->cancel(); }

private:
    boost::asio::io_context m_context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_open{
        m_context.get_executor()};
    std::thread m_thread{[this] { m_context.run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_ASIO_SCHEDULER_H

// asio_mailbox.h: Boost.Asio, a thread in io_context::run() to which events are posted.

#ifndef BENCHMARKS_MAILBOXES_ASIO_MAILBOX_H
#define BENCHMARKS_MAILBOXES_ASIO_MAILBOX_H

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <thread>
#include <utility>

#include "mailboxes/handlers.h"

namespace bench {

class AsioMailbox : public EventMaker {
public:
    static constexpr const char* kName = "Boost.Asio";

    explicit AsioMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {}
    ~AsioMailbox() {
        m_work.reset();
        m_thread.join();
    }

    void post(EventPointer event) {
        boost::asio::post(m_context, [this, event = std::move(event)]() mutable {
            m_handlers.handle(std::move(event));
        });
    }

    int call(int type) {
        const auto event = std::make_shared<PromisedEvent>(type);
        std::future<int> reply = event->reply.get_future();
        post(event);
        return reply.get();
    }

private:
    static constexpr int kOneThread = 1;  // Spares it the hand-over to a second one.

    const Handlers<EventPointer> m_handlers;
    boost::asio::io_context m_context{kOneThread};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_work{
        m_context.get_executor()};
    std::thread m_thread{[this] { m_context.run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_ASIO_MAILBOX_H

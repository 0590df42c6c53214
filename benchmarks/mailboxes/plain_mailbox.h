// plain_mailbox.h: a queue, a mutex and a condition variable, as anyone writes it first.

#ifndef BENCHMARKS_MAILBOXES_PLAIN_MAILBOX_H
#define BENCHMARKS_MAILBOXES_PLAIN_MAILBOX_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "mailboxes/handlers.h"
#include "support/rows.h"

namespace bench {

class PlainMailbox : public EventMaker {
public:
    static constexpr const char* kName = kPlain;

    explicit PlainMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {}
    ~PlainMailbox() {
        post(nullptr);
        m_thread.join();
    }

    void post(EventPointer event) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
        m_wakeUp.notify_one();
    }

    int call(int type) {
        const auto event = std::make_shared<PromisedEvent>(type);
        std::future<int> reply = event->reply.get_future();
        post(event);
        return reply.get();
    }

private:
    void run() {
        while (EventPointer event = take()) m_handlers.handle(std::move(event));
    }

    EventPointer take() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wakeUp.wait(lock, [this] { return !m_events.empty(); });
        EventPointer event = std::move(m_events.front());
        m_events.pop_front();
        return event;
    }

    const Handlers<EventPointer> m_handlers;
    std::mutex m_mutex;
    std::condition_variable m_wakeUp;
    std::deque<EventPointer> m_events;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_PLAIN_MAILBOX_H

// limit_mailbox.h: the barest way: a vector that the receiver takes whole, and a wake-up only
// for a receiver that sleeps.

#ifndef BENCHMARKS_MAILBOXES_LIMIT_MAILBOX_H
#define BENCHMARKS_MAILBOXES_LIMIT_MAILBOX_H

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "mailboxes/handlers.h"
#include "support/rows.h"

namespace bench {

class LimitMailbox : public EventMaker {
public:
    static constexpr const char* kName = kLimit;

    explicit LimitMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {}
    ~LimitMailbox() {
        post(nullptr);
        m_thread.join();
    }

    void post(EventPointer event) {
        bool isAsleep;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_events.push_back(std::move(event));
            isAsleep = m_isAsleep;
            m_isAsleep = false;
        }
        if (isAsleep) m_wakeUp.notify_one();
    }

private:
    void run() {
        std::vector<EventPointer> inHand;
        while (true) {
            takeAll(&inHand);
            for (EventPointer& event : inHand) {
                if (event == nullptr) return;
                m_handlers.handle(std::move(event));
            }
            inHand.clear();
        }
    }

    void takeAll(std::vector<EventPointer>* p_events) {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (m_events.empty()) {
            m_isAsleep = true;
            m_wakeUp.wait(lock);
        }
        m_isAsleep = false;
        m_events.swap(*p_events);
    }

    const Handlers<EventPointer> m_handlers;
    std::mutex m_mutex;
    std::condition_variable m_wakeUp;
    bool m_isAsleep = false;
    std::vector<EventPointer> m_events;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_LIMIT_MAILBOX_H

// uv_mailbox.h: libuv, a thread in uv_run() that uv_async_send() wakes for one call at a time. It
// has no queue of its own, so it takes no part where events have to wait.

#ifndef BENCHMARKS_MAILBOXES_UV_MAILBOX_H
#define BENCHMARKS_MAILBOXES_UV_MAILBOX_H

#include <uv.h>

#include <memory>
#include <thread>
#include <utility>

#include "mailboxes/handlers.h"

namespace bench {

class UvMailbox : public EventMaker {
public:
    static constexpr const char* kName = "libuv";

    explicit UvMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {
        uv_loop_init(&m_loop);
        uv_async_init(&m_loop, &m_async, onWakeUp);
        m_async.data = this;
        m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
    }
    ~UvMailbox() {
        uv_async_send(&m_async);
        m_thread.join();
        uv_loop_close(&m_loop);
    }

    int call(int type) {
        const auto event = std::make_shared<Call>(type);
        m_next = event;
        uv_async_send(&m_async);
        return event->waitForResult();
    }

private:
    class Call : public Event {
    public:
        explicit Call(int ofType) : Event(ofType) { uv_sem_init(&m_hasReply, 0); }
        ~Call() override { uv_sem_destroy(&m_hasReply); }
        void replyResult(int result) override {
            m_reply = result;
            uv_sem_post(&m_hasReply);
        }
        int waitForResult() {
            uv_sem_wait(&m_hasReply);
            return m_reply;
        }

    private:
        uv_sem_t m_hasReply;
        int m_reply = 0;
    };

    static void onWakeUp(uv_async_t* p_async) {
        static_cast<UvMailbox*>(p_async->data)->handleNext();
    }

    void handleNext() {
        if (m_next != nullptr) return m_handlers.handle(std::move(m_next));
        // The last open handle: the loop ends with it.
        uv_close(reinterpret_cast<uv_handle_t*>(&m_async), nullptr);
    }

    const Handlers<EventPointer> m_handlers;
    EventPointer m_next;  // Handed over by the wake-up; the caller waits until it is taken.
    uv_loop_t m_loop;
    uv_async_t m_async;
    std::thread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_UV_MAILBOX_H

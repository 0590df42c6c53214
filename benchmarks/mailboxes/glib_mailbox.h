// glib_mailbox.h: GLib, a thread in g_main_loop_run() whose context is asked to invoke.

#ifndef BENCHMARKS_MAILBOXES_GLIB_MAILBOX_H
#define BENCHMARKS_MAILBOXES_GLIB_MAILBOX_H

#include <glib.h>

#include <memory>
#include <thread>
#include <utility>

#include "mailboxes/handlers.h"

namespace bench {

class GlibMailbox : public EventMaker {
public:
    static constexpr const char* kName = "GLib";

    explicit GlibMailbox(HandlerList handlers) : m_handlers(std::move(handlers)) {
        m_thread = std::thread([this] { run(); });
        // Before the context has an owner, invoke() would call right here.
        while (g_main_loop_is_running(m_loop) == FALSE) std::this_thread::yield();
    }
    ~GlibMailbox() {
        g_main_loop_quit(m_loop);
        m_thread.join();
        g_main_loop_unref(m_loop);
        g_main_context_unref(m_context);
    }

    void post(EventPointer event) {
        auto* const p_delivery = new Delivery{this, std::move(event)};
        g_main_context_invoke_full(m_context, G_PRIORITY_DEFAULT, deliver, p_delivery, destroy);
    }

    int call(int type) {
        const auto event = std::make_shared<Call>(type);
        post(event);
        return event->waitForResult();
    }

private:
    struct Delivery {
        GlibMailbox* p_mailbox;
        EventPointer event;
    };

    class Call : public Event {
    public:
        explicit Call(int ofType) : Event(ofType) {
            g_mutex_init(&m_mutex);
            g_cond_init(&m_cond);
        }
        ~Call() override {
            g_cond_clear(&m_cond);
            g_mutex_clear(&m_mutex);
        }
        void replyResult(int result) override {
            g_mutex_lock(&m_mutex);
            m_reply = result;
            m_hasReply = true;
            g_cond_signal(&m_cond);
            g_mutex_unlock(&m_mutex);
        }
        int waitForResult() {
            g_mutex_lock(&m_mutex);
            while (!m_hasReply) g_cond_wait(&m_cond, &m_mutex);
            g_mutex_unlock(&m_mutex);
            return m_reply;
        }

    private:
        GMutex m_mutex;
        GCond m_cond;
        bool m_hasReply = false;
        int m_reply = 0;
    };

    static gboolean deliver(gpointer p_data) {
        auto* const p_delivery = static_cast<Delivery*>(p_data);
        p_delivery->p_mailbox->m_handlers.handle(std::move(p_delivery->event));
        return G_SOURCE_REMOVE;
    }
    static void destroy(gpointer p_data) { delete static_cast<Delivery*>(p_data); }

    void run() {
        g_main_context_push_thread_default(m_context);
        g_main_loop_run(m_loop);
        g_main_context_pop_thread_default(m_context);
    }

    const Handlers<EventPointer> m_handlers;
    GMainContext* const m_context = g_main_context_new();
    GMainLoop* const m_loop = g_main_loop_new(m_context, FALSE);
    std::thread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_GLIB_MAILBOX_H

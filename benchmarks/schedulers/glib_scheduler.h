// glib_scheduler.h: GLib, a timeout source for each task and a thread in g_main_loop_run().

#ifndef BENCHMARKS_SCHEDULERS_GLIB_SCHEDULER_H
#define BENCHMARKS_SCHEDULERS_GLIB_SCHEDULER_H

#include <glib.h>

#include <thread>
#include <utility>

#include "schedulers/work.h"

namespace bench {

class GlibScheduler {
public:
    static constexpr const char* kName = "GLib";
    using Handle = GSource*;

    GlibScheduler() = default;
    ~GlibScheduler() {
        while (g_main_loop_is_running(m_loop) == FALSE) std::this_thread::yield();
        g_main_loop_quit(m_loop);
        m_thread.join();
        g_main_loop_unref(m_loop);
        g_main_context_unref(m_context);
    }

    Handle post(int delayMs, Work work) {
        GSource* const p_source = g_timeout_source_new(static_cast<guint>(delayMs));
        g_source_set_callback(p_source, call, new Work(std::move(work)), destroy);
        g_source_attach(p_source, m_context);
        g_source_unref(p_source);  // The context keeps it until it has fired or is destroyed.
        return p_source;
    }

    void cancel(Handle source) { g_source_destroy(source); }

private:
    static gboolean call(gpointer p_work) {
        (*static_cast<Work*>(p_work))();
        return G_SOURCE_REMOVE;
    }
    static void destroy(gpointer p_work) { delete static_cast<Work*>(p_work); }

    GMainContext* const m_context = g_main_context_new();
    GMainLoop* const m_loop = g_main_loop_new(m_context, FALSE);
    std::thread m_thread{[this] { g_main_loop_run(m_loop); }};
};

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_GLIB_SCHEDULER_H

// libevent_loop.h: a libevent base and the thread in its loop.

#ifndef BENCHMARKS_SUPPORT_LIBEVENT_LOOP_H
#define BENCHMARKS_SUPPORT_LIBEVENT_LOOP_H

#include <event2/event.h>
#include <event2/thread.h>

#include <thread>

namespace bench {

class LibeventLoop {
public:
    LibeventLoop() : m_base(newBase()) {
        m_thread = std::thread([this] { event_base_loop(m_base, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    ~LibeventLoop() {
        stop();
        event_base_free(m_base);
    }

    LibeventLoop(const LibeventLoop&) = delete;
    LibeventLoop& operator=(const LibeventLoop&) = delete;

    event_base* base() const { return m_base; }

    /// Ends the thread; only once counts.
    void stop() {
        if (!m_thread.joinable()) return;
        // From within: a loop that has not begun yet would forget that it is to end.
        runOnce([](evutil_socket_t, short,
                   void* p_base) { event_base_loopbreak(static_cast<event_base*>(p_base)); },
                m_base);
        m_thread.join();
    }

    /// Has @p call made on the thread.
    void runOnce(event_callback_fn call, void* p_data) {
        static const timeval s_now = {0, 0};
        event_base_once(m_base, -1, EV_TIMEOUT, call, p_data, &s_now);
    }

private:
    static event_base* newBase() {
        static const int s_useThreads = evthread_use_pthreads();
        (void)s_useThreads;
        // Without it libevent reads a coarse clock and waits for whole milliseconds.
        event_config* const p_config = event_config_new();
        event_config_set_flag(p_config, EVENT_BASE_FLAG_PRECISE_TIMER);
        event_base* const p_base = event_base_new_with_config(p_config);
        event_config_free(p_config);
        return p_base;
    }

    event_base* const m_base;
    std::thread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_LIBEVENT_LOOP_H

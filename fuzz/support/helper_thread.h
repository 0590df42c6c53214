// helper_thread.h: a second thread that does one thing at a time, while its owner waits.

#ifndef FUZZ_SUPPORT_HELPER_THREAD_H
#define FUZZ_SUPPORT_HELPER_THREAD_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace fuzz {

class HelperThread {
public:
    HelperThread() : m_thread([this] { run(); }) {}
    ~HelperThread() {
        call(nullptr);
        m_thread.join();
    }

    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    /// Returns when @p work has been done there.
    void call(std::function<void()> work) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_work = std::move(work);
        m_hasWork = true;
        m_change.notify_all();
        m_change.wait(lock, [this] { return !m_hasWork; });
    }

private:
    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_change.wait(lock, [this] { return m_hasWork; });
            const bool isEnd = m_work == nullptr;
            if (!isEnd) m_work();
            m_hasWork = false;
            m_change.notify_all();
            if (isEnd) return;
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_change;
    std::function<void()> m_work;  // None ends the thread.
    bool m_hasWork = false;
    std::thread m_thread;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_HELPER_THREAD_H

// limit_timers.h: a heap whose timers know their places, behind a mutex, and a thread that is woken
// only where a timer has become the first. It runs no handler: none is due.

#ifndef BENCHMARKS_TIMERS_LIMIT_TIMERS_H
#define BENCHMARKS_TIMERS_LIMIT_TIMERS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

#include "support/rows.h"

namespace bench {

class LimitTimers {
public:
    static constexpr const char* kName = kLimit;

    LimitTimers() = default;
    ~LimitTimers() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_isEnding = true;
        }
        m_changed.notify_one();
        m_thread.join();
    }

    LimitTimers(const LimitTimers&) = delete;
    LimitTimers& operator=(const LimitTimers&) = delete;

    void add(int delayMs) { m_timers.push_back({std::chrono::milliseconds(delayMs), 0}); }

    void start(std::size_t index) {
        const Clock::time_point due = Clock::now() + m_timers[index].delay;
        bool isFirst;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_heap.emplace_back();
            siftUp(m_heap.size() - 1, {due, index});
            isFirst = m_timers[index].place == 0;
        }
        if (isFirst) m_changed.notify_one();
    }

    void stop(std::size_t index) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const std::size_t place = m_timers[index].place;
        const Entry last = m_heap.back();
        m_heap.pop_back();
        if (place == m_heap.size()) return;
        if (place > 0 && last.due < m_heap[(place - 1) / 2].due) {
            siftUp(place, last);
        } else {
            siftDown(place, last);
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    struct Timer {
        std::chrono::milliseconds delay;
        std::size_t place;
    };
    struct Entry {
        Clock::time_point due;
        std::size_t timer;
    };

    void put(std::size_t place, const Entry& entry) {
        m_heap[place] = entry;
        m_timers[entry.timer].place = place;
    }
    void siftUp(std::size_t place, const Entry& entry) {
        while (place > 0 && entry.due < m_heap[(place - 1) / 2].due) {
            put(place, m_heap[(place - 1) / 2]);
            place = (place - 1) / 2;
        }
        put(place, entry);
    }
    void siftDown(std::size_t place, const Entry& entry) {
        for (std::size_t child = 2 * place + 1; child < m_heap.size(); child = 2 * place + 1) {
            if (child + 1 < m_heap.size() && m_heap[child + 1].due < m_heap[child].due) ++child;
            if (!(m_heap[child].due < entry.due)) break;
            put(place, m_heap[child]);
            place = child;
        }
        put(place, entry);
    }

    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_isEnding) {
            if (m_heap.empty()) {
                m_changed.wait(lock);
            } else {
                m_changed.wait_until(lock, m_heap.front().due);
            }
        }
    }

    std::vector<Timer> m_timers;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Entry> m_heap;  // Min-heap: entry i is due no later than entries 2i+1 and 2i+2.
    bool m_isEnding = false;
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_LIMIT_TIMERS_H

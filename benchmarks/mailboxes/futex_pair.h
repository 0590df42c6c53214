// futex_pair.h: the least that a call to another thread and its reply can be: two words, each
// side asleep on one and waking the other.

#ifndef BENCHMARKS_MAILBOXES_FUTEX_PAIR_H
#define BENCHMARKS_MAILBOXES_FUTEX_PAIR_H

#include <thread>

#include "mailboxes/handlers.h"
#include "support/futex.h"
#include "support/rows.h"

namespace bench {

class FutexPair : public EventMaker {
public:
    static constexpr const char* kName = kLimit;

    explicit FutexPair(const HandlerList&) {}
    ~FutexPair() {
        m_isEnding = true;
        set(m_request);
        m_thread.join();
    }

    int call(int) {
        set(m_request);
        take(m_reply);
        return m_result;
    }

private:
    static void set(FutexWord& word) {
        word.store(1, std::memory_order_release);
        futexWake(word);
    }

    static void take(FutexWord& word) {
        while (word.exchange(0, std::memory_order_acquire) == 0) futexWait(word, 0);
    }

    void run() {
        while (true) {
            take(m_request);
            if (m_isEnding) return;
            m_result = kReply;
            set(m_reply);
        }
    }

    FutexWord m_request{0};
    FutexWord m_reply{0};
    int m_result = 0;         // Handed over by the words.
    bool m_isEnding = false;  // Likewise.
    std::thread m_thread{[this] { run(); }};
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_FUTEX_PAIR_H

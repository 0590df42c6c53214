// contention.h: two threads at both sides of one lock.

#ifndef TESTS_SUPPORT_CONTENTION_H
#define TESTS_SUPPORT_CONTENTION_H

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "support/event.h"
#include "support/fault_injection.h"

namespace test {

/// Does @p work on a thread of its own, which is joined when the object goes. For the hooks of
/// fault_injection.h: the thread that made it holds a lock there.
class Contender {
public:
    explicit Contender(std::function<void()> work)
        : m_thread([this, work = std::move(work)] { run(work); }) {}
    ~Contender() { m_thread.join(); }

    Contender(const Contender&) = delete;
    Contender& operator=(const Contender&) = delete;

    /// Blocks until the work is done, or has come to a lock that somebody holds; whether it has.
    [[nodiscard]] bool hasToWait() { return m_isDecided.wait() && m_hasToWait; }

private:
    void run(const std::function<void()>& work) {
        const ReplaceCall<int(pthread_mutex_t*)> lock(
            Call::PthreadMutexLock, [this](pthread_mutex_t* p_mutex) {
                const int status = pthread_mutex_trylock(p_mutex);
                if (status != EBUSY) return status;
                m_hasToWait = true;
                m_isDecided.set();
                return pthread_mutex_lock(p_mutex);
            });
        work();
        m_isDecided.set();
    }

    std::atomic<bool> m_hasToWait{false};
    Event m_isDecided;
    std::thread m_thread;
};

/// Whether @p other, on another thread, has to wait for the lock that @p work gives back, first or
/// @p when else. Returns when both are done.
template <typename Work>
[[nodiscard]] bool keepsWaiting(Work work, const std::function<void()>& other,
                                const When& when = When()) {
    bool hasToWait = false;
    std::unique_ptr<Contender> contender;
    const RunAtCall atUnlock(
        Call::PthreadMutexUnlock,
        [&] {
            contender = std::make_unique<Contender>(other);
            hasToWait = contender->hasToWait();
        },
        when);
    work();
    contender.reset();
    return hasToWait;
}

/// A moment that one thread gives to another one. It does not order the two in the eyes of the
/// thread sanitizer, which thus sees whether the locks of the library do.
class UnorderedTurn {
public:
    /// Returns when the other one has used it.
    void give() {
        m_isGiven.store(true, std::memory_order_relaxed);
        while (!m_isOver.load(std::memory_order_relaxed)) std::this_thread::yield();
    }

    template <typename Work>
    void use(Work work) {
        while (!m_isGiven.load(std::memory_order_relaxed)) std::this_thread::yield();
        work();
        m_isOver.store(true, std::memory_order_relaxed);
    }

private:
    std::atomic<bool> m_isGiven{false};
    std::atomic<bool> m_isOver{false};
};

}  // namespace test

#endif  // TESTS_SUPPORT_CONTENTION_H

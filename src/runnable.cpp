#include "base/threading/runnable.h"

#include <time.h>

#include "base/logging/blog.h"
#include "base/synchronization/unique_lock.h"
#include "os/forked_child.h"
#include "os/no_cancellation.h"

// These lines carry fixed numbers, by which they are found in the logs of all releases.
#define LOG_CALLED_AT(line) logCalled(line, __func__)

namespace tevalon::base::Threading {
namespace {

__attribute__((noinline)) void logCalled(int line, const char* function) {
    BLOG_AT(BLOG_TAG, kLogInfo, __FILE__, line, function, "called\n\n");
}

}  // namespace

Runnable::Runnable(std::int32_t interval) : m_process(markOfThisProcess()) {
    BLOG_AT(BLOG_TAG, kLogInfo, __FILE__, 9, __func__, "called, interval: %d\n\n", interval);
    m_interval = interval;
}

Runnable::~Runnable() {
    const NoCancellation noCancellation;
    BLOG(kLogInfo, "called\n\n");
    renewInForkedChild();  // Condition variables are not destroyed while threads wait for them.
}

std::int32_t Runnable::run() {
    LOG_CALLED_AT(21);
    while (true) {
        sleepForInterval();
        if (!waitWhilePaused()) return 0;
        execute();
    }
}

void Runnable::stop() {
    LOG_CALLED_AT(36);
    renewInForkedChild();
    UniqueLock lock(m_mutex);
    if (m_paused) endPause();
    m_stopped = true;
}

void Runnable::pause() {
    LOG_CALLED_AT(46);
    renewInForkedChild();
    UniqueLock lock(m_mutex);
    m_paused = true;
}

void Runnable::resume() {
    LOG_CALLED_AT(52);
    renewInForkedChild();
    UniqueLock lock(m_mutex);
    endPause();
}

// The flags stay as they are.
void Runnable::renewInForkedChild() {
    if (!isFromParent(m_process)) return;
    renewOnce(&m_process, [this] { replaceUndestroyed(&m_mutex, &m_condition); });
}

bool Runnable::running() {
    renewInForkedChild();
    UniqueLock lock(m_mutex);
    return !m_paused && !m_stopped;
}

bool Runnable::waitWhilePaused() {
    renewInForkedChild();
    UniqueLock lock(m_mutex);
    while (m_paused) m_condition.wait(lock);
    return !m_stopped;
}

void Runnable::sleepForInterval() const {
    timespec interval = {};
    interval.tv_sec = m_interval / 1000;
    interval.tv_nsec = (m_interval % 1000) * 1000000L;
    (void)nanosleep(&interval, nullptr);  // Cut short by a signal, the round begins early.
}

void Runnable::endPause() {
    m_paused = false;
    m_condition.notify_one();
}

}  // namespace tevalon::base::Threading

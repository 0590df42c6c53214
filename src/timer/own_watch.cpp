#include "base/timer/internal/own_watch.h"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "base/synchronization/lock_guard.h"
#include "base/timer/watchdog.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"
#include "os/monotonic_time.h"
#include "os/no_cancellation.h"

namespace tevalon::base::timer::internal {
namespace {

// Begin times up to here are no times: the clock could not be read.
constexpr double kNoTime = 1.0;

AnnotatedMutex g_mutex;  // A leaf: not held over a callback.
OwnWatch* g_first TEVALON_GUARDED_BY(g_mutex) = nullptr;
std::uint32_t g_pass TEVALON_GUARDED_BY(g_mutex) = 0;

// Whether there are any; written under the lock. Relaxed: what begins meanwhile is not overdue yet.
std::atomic<bool> g_isUsed{false};

/// Where the mutex cannot be locked, the guard says so, and the operation goes on, as with the
/// watchdog's own.
class TEVALON_SCOPED_CAPABILITY ListLock {
public:
    ListLock() TEVALON_ACQUIRE(g_mutex) : m_lock(g_mutex.native()) {}
    ~ListLock() TEVALON_RELEASE() {}

    ListLock(const ListLock&) = delete;
    ListLock& operator=(const ListLock&) = delete;

private:
    const LockGuard<std::mutex> m_lock;
};

}  // namespace

/// A report in hand, on the stack of the thread that calls back. However the callback ends.
class OwnWatch::Reporting {
public:
    Reporting() = default;
    ~Reporting() {
        if (p_watch == nullptr || isFromParent(m_process)) return;
        const ListLock lock;
        if (isEnded) return;
        p_watch->m_reporting = nullptr;
        if (p_ended != nullptr) p_ended->notify_one();
    }

    Reporting(const Reporting&) = delete;
    Reporting& operator=(const Reporting&) = delete;

    OwnWatch* p_watch = nullptr;
    double seconds = 0;
    bool isEnded = false;                        // By its own callback.
    std::condition_variable* p_ended = nullptr;  // Of the thread that ends it meanwhile.
    const pthread_t thread = pthread_self();

private:
    const ProcessMark m_process{markOfThisProcess()};
};

// In the list, unless that is a parent's.
void OwnWatch::begin() {
    inEachForkedChild(forgetAllInForkedChild);
    m_dog.renewInForkedChild();
    const double now = monotonicSeconds();
    const ListLock lock;
    m_beginTime = now;
    m_elapsed = 0;
    OwnWatch** p_place = &g_first;
    while (*p_place != nullptr && *p_place != this) p_place = &(*p_place)->m_next;
    if (*p_place == this) return;
    m_next = nullptr;
    m_reporting = nullptr;
    m_pass = g_pass;
    *p_place = this;
    g_isUsed.store(true, std::memory_order_relaxed);
}

// Not cancelled: a destructor waits.
void OwnWatch::end() {
    const NoCancellation noCancellation;
    std::condition_variable ended;
    const ListLock lock;
    OwnWatch** p_place = &g_first;
    while (*p_place != nullptr && *p_place != this) p_place = &(*p_place)->m_next;
    if (*p_place == nullptr) return;  // A parent's: nobody reports it here.
    *p_place = m_next;
    g_isUsed.store(g_first != nullptr, std::memory_order_relaxed);
    if (m_reporting == nullptr) return;
    if (pthread_equal(m_reporting->thread, pthread_self()) != 0) {
        m_reporting->isEnded = true;
        return;
    }
    m_reporting->p_ended = &ended;
    std::unique_lock<std::mutex> held(g_mutex.native(), std::adopt_lock);
    while (m_reporting != nullptr) ended.wait(held);
    (void)held.release();  // To the guard.
}

void OwnWatch::checkAll(const WatchDog* p_dog) {
    if (!g_isUsed.load(std::memory_order_relaxed)) return;
    std::uint32_t pass;
    {
        const ListLock lock;
        pass = ++g_pass;
    }
    bool isFound = true;
    while (isFound) {
        Reporting reporting;
        isFound = takeOverdue(p_dog, pass, &reporting);
        if (isFound) reporting.p_watch->m_report(reporting.p_watch, reporting.seconds);
    }
}

// From the front for each, for a callback may begin and end watches; the pass tells those that have
// been seen. Written so that NaN is never overdue.
bool OwnWatch::takeOverdue(const WatchDog* p_dog, std::uint32_t pass, Reporting* p_reporting) {
    const ListLock lock;
    const double now = monotonicSeconds();
    for (OwnWatch* p_watch = g_first; p_watch != nullptr; p_watch = p_watch->m_next) {
        OwnWatch& watch = *p_watch;
        if (&watch.m_dog != p_dog || watch.m_pass == pass || watch.m_reporting != nullptr) continue;
        watch.m_pass = pass;
        const double period = now - watch.m_beginTime;
        if (!(watch.m_beginTime > kNoTime) || !(period > watch.m_timeout)) continue;
        watch.m_elapsed += period;
        watch.m_beginTime = now;
        if (!(watch.m_elapsed > 0)) continue;
        watch.m_reporting = p_reporting;
        p_reporting->p_watch = p_watch;
        p_reporting->seconds = watch.m_elapsed;
        return true;
    }
    return false;
}

// Unchecked: there is one thread, and nobody holds the mutex, whatever it says.
void OwnWatch::forgetAllInForkedChild() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    replaceUndestroyed(&g_mutex);
    g_first = nullptr;
    g_isUsed.store(false, std::memory_order_relaxed);
}

}  // namespace tevalon::base::timer::internal

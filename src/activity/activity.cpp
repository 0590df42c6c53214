#include "activity/activity.h"

#include <pthread.h>

#include <atomic>

#include "base/threading/current_thread.h"
#include "locks/benaphore.h"

namespace tevalon::base::activity {
namespace {

// No mutex: each wait for a reply comes here twice.
Benaphore g_lock;
Activity* g_first = nullptr;  // Guarded by g_lock, as all that is chained to it.
pthread_once_t g_once = PTHREAD_ONCE_INIT;
std::atomic<bool> g_isReady{false};

// 0 where it was not asked for yet. In the block that every thread has from its start.
__attribute__((tls_model("initial-exec"))) thread_local std::int32_t t_threadId = 0;

std::int32_t thisThread() {
    if (t_threadId == 0) t_threadId = currentThread();
    return t_threadId;
}

bool isServing(Kind kind) {
    return kind <= Kind::TimerRun;
}

}  // namespace

/// The list, locked for a change.
class Change {
public:
    Change() {
        if (!g_isReady.load(std::memory_order_acquire)) (void)pthread_once(&g_once, getReady);
        g_lock.lock();
    }
    ~Change() { g_lock.unlock(); }

    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    static const Activity* next(const Activity& activity) { return activity.m_next; }
    static void link(Activity* p_activity) {
        p_activity->m_next = g_first;
        p_activity->m_link = &g_first;
        if (g_first != nullptr) g_first->m_link = &p_activity->m_next;
        g_first = p_activity;
    }
    static void unlink(Activity* p_activity) {
        *p_activity->m_link = p_activity->m_next;
        if (p_activity->m_next != nullptr) p_activity->m_next->m_link = p_activity->m_link;
    }
    static void forget(const void* p_object) {
        for (Activity* p_next = g_first; p_next != nullptr; p_next = p_next->m_next) {
            if (p_next->m_object == p_object) p_next->m_object = nullptr;
        }
    }

    // A fork waits until the list is whole. In the child, what other threads did is gone with them.
    // The one that is left has another id, and serves no object any more.
    static void lockForFork() { g_lock.lock(); }
    static void unlockInParent() { g_lock.unlock(); }
    static void keepOwnInChild() {
        const std::int32_t oldId = t_threadId;
        t_threadId = 0;
        for (Activity* p_next = g_first; p_next != nullptr; p_next = p_next->m_next) {
            if (p_next->m_threadId == oldId) {
                p_next->m_threadId = thisThread();
                if (isServing(p_next->m_kind)) p_next->m_object = nullptr;
            } else {
                unlink(p_next);
            }
        }
        g_lock.reset();
    }

private:
    __attribute__((cold)) static void getReady() {
        g_lock.init();
        (void)pthread_atfork(lockForFork, unlockInParent, keepOwnInChild);
        g_isReady.store(true, std::memory_order_release);
    }
};

Activity::Activity(Kind kind, const void* p_object)
    : m_object(p_object), m_threadId(thisThread()), m_kind(kind) {}

Listing::Listing(Activity* p_activity) : m_activity(p_activity) {
    const Change change;
    Change::link(m_activity);
}

Listing::~Listing() {
    const Change change;
    Change::unlink(m_activity);
}

void forgetObject(const void* p_object) {
    const Change change;
    Change::forget(p_object);
}

std::int32_t threadOf(const void* p_object) {
    const Change change;
    for (const Activity* p_next = g_first; p_next != nullptr; p_next = Change::next(*p_next)) {
        if (isServing(p_next->kind()) && p_next->object() == p_object) return p_next->threadId();
    }
    return 0;
}

List::List(std::uint64_t untilNs) : m_isLocked(g_lock.tryUntil(untilNs)) {}

List::~List() {
    if (m_isLocked) g_lock.unlock();
}

const Activity* List::first() {
    return g_first;
}

}  // namespace tevalon::base::activity

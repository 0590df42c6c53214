#include "activity/activity.h"

#include <pthread.h>

#include "base/threading/current_thread.h"

namespace tevalon::base::activity {
namespace {

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
Activity* g_first = nullptr;  // Guarded by g_mutex, as all that is chained to it.
pthread_once_t g_handlersOnce = PTHREAD_ONCE_INIT;

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

/// The list, locked for a change. An own mutex for it: one that records its waits would call back.
class Change {
public:
    Change() { (void)pthread_mutex_lock(&g_mutex); }
    ~Change() { (void)pthread_mutex_unlock(&g_mutex); }

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

    // A fork waits until the list is whole. In the child, what other threads did is gone with them;
    // the one that is left has another id.
    static void lockForFork() { (void)pthread_mutex_lock(&g_mutex); }
    static void unlockInParent() { (void)pthread_mutex_unlock(&g_mutex); }
    static void keepOwnInChild() {
        const std::int32_t oldId = t_threadId;
        t_threadId = 0;
        for (Activity* p_next = g_first; p_next != nullptr; p_next = p_next->m_next) {
            if (p_next->m_threadId == oldId) {
                p_next->m_threadId = thisThread();
            } else {
                unlink(p_next);
            }
        }
        (void)pthread_mutex_unlock(&g_mutex);
    }
};

Activity::Activity(Kind kind, const void* p_object)
    : m_object(p_object), m_threadId(thisThread()), m_kind(kind) {}

Listing::Listing(Activity* p_activity) : m_activity(p_activity) {
    (void)pthread_once(&g_handlersOnce, [] {
        (void)pthread_atfork(Change::lockForFork, Change::unlockInParent, Change::keepOwnInChild);
    });
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

List::List(std::uint64_t untilNs) : m_lock(&g_mutex, untilNs) {}

const Activity* List::first() {
    return g_first;
}

}  // namespace tevalon::base::activity

#include "diagnostics/state_lists.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstring>

#include "base/event_dispatcher/browser_event.h"
#include "base/timer/watchdog.h"
#include "diagnostics/wait_graph.h"
#include "record/names.h"

namespace tevalon::base::diagnostics {
namespace {

using activity::Kind;
using event_dispatcher::kAnyModule;
using record::NameKind;

double seconds(std::uint32_t milliseconds) {
    return milliseconds / 1000.0;
}

/// A third of std::sort()'s code.
template <typename Iterator, typename IsBefore>
void sortByHeap(Iterator begin, Iterator end, IsBefore isBefore) {
    std::make_heap(begin, end, isBefore);
    std::sort_heap(begin, end, isBefore);
}

class StateLists {
public:
    StateLists(const Snapshot& earlier, const Snapshot& snapshot, std::size_t most,
               ReportText* p_text)
        : m_earlier(earlier), m_now(snapshot), m_graph(snapshot), m_most(most), m_text(*p_text) {}

    void addAll() {
        addHubs();
        addWaits();
        addWays();
        addTimers();
        addRuns();
        addTaskThreads();
        addWatches();
        addLocks();
        if (!m_now.areThreadsSeen) m_text.add("what threads do is locked: waits are missing\n");
        if (m_isComplete && m_now.isComplete && m_earlier.isComplete) return;
        m_text.add("memory ran out: entries are missing\n");
        m_text.setIncomplete();
    }

private:
    // ---- names ----

    void addName(NameKind kind, std::int32_t id) {
        const char* const name = record::findName(kind, id);
        m_text.add(name != nullptr ? "%" PRId32 " '%s'" : "%" PRId32, id, name);
    }
    void addModule(std::int32_t id) {
        if (id == kAnyModule) {
            m_text.add("any module");
            return;
        }
        m_text.add("module ");
        addName(NameKind::Module, id);
    }
    void addEvent(std::int32_t type, std::int32_t source) {
        m_text.add("event ");
        addName(NameKind::Event, type);
        m_text.add(" of ");
        addModule(source);
    }
    // Its name as the kernel has it.
    void addThread(std::int32_t threadId) {
        char path[48];
        (void)std::snprintf(path, sizeof(path), "/proc/self/task/%d/comm", threadId);
        char name[17] = {};
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            (void)!read(fd, name, sizeof(name) - 1);
            (void)close(fd);
        }
        if (char* const p_end = std::strrchr(name, '\n')) *p_end = '\0';
        m_text.add(name[0] != '\0' ? "thread %d '%s'" : "thread %d", threadId, name);
    }
    /// By what it serves, else as a thread.
    void addServed(std::int32_t threadId) {
        if (const HubLook* const p_hub = find(m_now.hubs, threadId)) {
            addModule(p_hub->module);
        } else if (const TaskThreadLook* const p_tasks = find(m_now.taskThreads, threadId)) {
            m_text.add("task thread '%s'", p_tasks->name.data());
        } else if (const RunLook* const p_run = find(m_now.runs, threadId)) {
            m_text.add("timer '%s'", p_run->name.data());
        } else if (find(m_now.watchDogs, threadId) != nullptr) {
            m_text.add("watchdog");
        } else {
            addThread(threadId);
        }
    }
    template <typename Look>
    static const Look* find(const Pages<Look>& looks, std::int32_t threadId) {
        return findIn(looks, [=](const Look& look) { return look.threadId == threadId; });
    }

    // ---- lists ----

    template <typename Look, typename Add>
    void addList(const char* title, const Pages<Look>& looks, Add add) {
        if (looks.empty()) {
            m_text.add("%s: none\n", title);
            return;
        }
        m_text.add("%s: %zu\n", title, looks.size());
        const std::size_t shown = std::min(m_most, looks.size());
        for (std::size_t i = 0; i < shown; ++i) {
            m_text.add("  ");
            add(looks[i]);
            m_text.add("\n");
        }
        if (shown < looks.size()) m_text.add("  and %zu more\n", looks.size() - shown);
    }

    void addUnseen(const char* what, std::int32_t holder) {
        m_text.add("%s: locked", what);
        addHolder(holder);
        m_text.add("\n");
    }
    void addHolder(std::int32_t holder) {
        if (holder == 0) return;
        m_text.add(" by ");
        addThread(holder);
    }

    // Where not all are shown, those first that have something to do.
    void addHubs() {
        if (!m_now.dispatcher.isSeen) addUnseen("registered hubs", m_now.dispatcher.holder);
        Pages<const HubLook*> hubs;
        for (const bool isActive : {true, false}) {
            for (const HubLook& hub : m_now.hubs) {
                const bool isTurn = m_now.hubs.size() <= m_most
                                        ? isActive
                                        : (hub.isBusy || hub.waiting > 0) == isActive;
                if (isTurn) m_isComplete &= hubs.add(&hub);
            }
        }
        addList("hubs", hubs, [this](const HubLook* p_hub) { addHub(*p_hub); });
    }
    void addHub(const HubLook& hub) {
        addModule(hub.module);
        m_text.add(": ");
        if (hub.threadId != 0) {
            addThread(hub.threadId);
        } else {
            m_text.add("no thread");
        }
        if (!hub.isRegistered) m_text.add(", not registered");
        m_text.add(hub.isQueueSeen ? ", %" PRIu32 " waiting" : ", queue locked", hub.waiting);
        if (hub.threadId == 0) return;
        m_text.add(", ");
        addHandler(hub);
    }
    void addHandler(const HubLook& hub) {
        if (!hub.isBusy) {
            m_text.add(hub.waiting > 0 ? "about to handle" : "idle");
        } else if (!isSameHandler(hub)) {
            m_text.add("handling");  // Each for less time than between the two looks.
        } else {
            m_text.add("in ");
            addEvent(hub.type, hub.source);
            const double elapsed = seconds(m_now.nowMs - hub.readingMs);
            m_text.add(hub.begunSinceReading == 0 ? " for %.3f s" : " for at most %.3f s", elapsed);
        }
    }
    bool isSameHandler(const HubLook& hub) const {
        return nullptr != findIn(m_earlier.hubs, [&](const HubLook& old) {
                   return old.p_hub == hub.p_hub && old.isBusy && old.p_event == hub.p_event &&
                          old.type == hub.type && old.source == hub.source &&
                          old.readingMs == hub.readingMs &&
                          old.begunSinceReading == hub.begunSinceReading;
               });
    }

    void addWaits() {
        addList("waits", m_now.waits, [this](const WaitLook& wait) { addWait(wait); });
    }
    void addWait(const WaitLook& wait) {
        addThread(wait.threadId);
        if (const HubLook* const p_hub = find(m_now.hubs, wait.threadId)) {
            m_text.add(" of ");
            addModule(p_hub->module);
        }
        switch (wait.kind) {
            case Kind::SyncSend:
                return addReplyWait(wait);
            case Kind::Destructor:
                m_text.add(", in a destructor");
                break;
            case Kind::Unregister:
                m_text.add(", in an unregister");
                break;
            default:
                m_text.add(", in a stop");
                break;
        }
        const std::int32_t awaited = m_graph.threadAwaitedBy(wait);
        if (awaited == 0) return;
        m_text.add(", for ");
        addThread(awaited);
        m_text.add(" of ");
        addServed(awaited);
    }
    void addReplyWait(const WaitLook& wait) {
        m_text.add(", for the reply of ");
        addModule(wait.target);
        m_text.add(" to ");
        addEvent(wait.type, wait.source);
        const double elapsed = m_now.nowSeconds - wait.since;
        m_text.add(", since %.3f s, ", elapsed);
        if (wait.timeoutMs < 0) {
            m_text.add("without limit");
        } else {
            m_text.add("until in %.3f s", wait.timeoutMs / 1000.0 - elapsed);
        }
        if (wait.handledBy == kAnyModule || isInHand(wait.p_object)) return;
        m_text.add("; handled by ");
        addModule(wait.handledBy);
        m_text.add(" and not answered");
    }
    bool isInHand(const void* p_event) const {
        return nullptr != findIn(m_now.hubs, [=](const HubLook& hub) {
                   return hub.isBusy && hub.p_event == p_event;
               });
    }

    // ---- who waits for whom ----

    // Circles first; then the ways from those that nobody waits for.
    void addWays() {
        if (m_now.waits.empty()) return;
        m_text.add("who waits for whom:\n");
        std::size_t left = m_most;
        for (const bool areCircles : {true, false}) {
            for (const WaitLook& wait : m_now.waits) {
                if (left == 0) return;
                if (&wait != m_graph.waitOf(wait.threadId)) continue;
                const bool isFirst = areCircles ? m_graph.isFirstOfCircle(wait.threadId)
                                                : !m_graph.isAwaited(wait.threadId);
                if (!isFirst) continue;
                --left;
                m_text.add(areCircles ? "  circle: " : "  ");
                addWay(wait.threadId);
                m_text.add("\n");
            }
        }
    }
    void addWay(std::int32_t first) {
        addServed(first);
        const bool isCircle = m_graph.isInCircle(first);
        std::int32_t thread = first;
        while (const WaitLook* const p_wait = m_graph.waitOf(thread)) {
            thread = m_graph.threadAwaitedBy(*p_wait);
            m_text.add(" -> ");
            if (thread == 0) return addNobody(*p_wait);
            addServed(thread);
            if (thread == first) return;
            if (!isCircle && m_graph.isInCircle(thread)) {
                m_text.add(", in a circle");
                return;
            }
        }
        addDoing(thread);
    }
    void addNobody(const WaitLook& wait) {
        if (wait.kind != Kind::SyncSend) {
            m_text.add("a thread that is about to end");
        } else if (wait.target == kAnyModule) {
            m_text.add("whoever replies");
        } else {
            addModule(wait.target);
            m_text.add(", which has no thread");
        }
    }
    void addDoing(std::int32_t threadId) {
        if (const HubLook* const p_hub = find(m_now.hubs, threadId)) {
            m_text.add(", ");
            addHandler(*p_hub);
        } else if (const TaskThreadLook* const p_tasks = find(m_now.taskThreads, threadId)) {
            m_text.add(", ");
            addTaskInHand(*p_tasks);
        }
    }

    // ---- timers ----

    void addTimers() {
        if (!m_now.scheduler.isSeen) return addUnseen("timers", m_now.scheduler.holder);
        Pages<const TimerLook*> timers;
        for (const TimerLook& timer : m_now.timers) m_isComplete &= timers.add(&timer);
        sortByHeap(timers.begin(), timers.end(),
                   [](const TimerLook* p_left, const TimerLook* p_right) {
                       return p_left->dueInNs < p_right->dueInNs;
                   });
        addList("timers", timers, [this](const TimerLook* p_timer) { addTimer(*p_timer); });
    }
    void addTimer(const TimerLook& timer) {
        m_text.add("'%s' in %.3f s", timer.name.data(), static_cast<double>(timer.dueInNs) / 1e9);
        if (timer.isPeriodic) {
            m_text.add(", every %.3f s", static_cast<double>(timer.timeoutNs) / 1e9);
        }
        if (!timer.areRunsSeen) {
            m_text.add(", locked");
            addHolder(timer.holder);
        } else if (timer.runs > 0) {
            m_text.add(timer.runs == 1 ? ", %u run going on" : ", %u runs going on", timer.runs);
        }
    }

    void addRuns() {
        addList("timer runs", m_now.runs, [this](const RunLook& run) {
            m_text.add("'%s': ", run.name.data());
            addThread(run.threadId);
            m_text.add(", for %.3f s", seconds(m_now.nowMs - run.sinceMs));
        });
    }

    // ---- tasks ----

    void addTaskThreads() {
        addList("task threads", m_now.taskThreads, [this](const TaskThreadLook& tasks) {
            m_text.add("'%s': ", tasks.name.data());
            addThread(tasks.threadId);
            if (!tasks.isQueueSeen) {
                m_text.add(", queue locked");
            } else if (tasks.queued == 0) {
                m_text.add(", 0 queued");
            } else if (tasks.isFirstCancelled) {
                m_text.add(", %" PRIu32 " queued, first cancelled", tasks.queued);
            } else {
                m_text.add(", %" PRIu32 " queued, first in %.3f s", tasks.queued, tasks.firstDueIn);
            }
            m_text.add(", ");
            addTaskInHand(tasks);
        });
    }
    void addTaskInHand(const TaskThreadLook& tasks) {
        if (!tasks.isBusy) {
            m_text.add("idle");
        } else if (!isSameTask(tasks)) {
            m_text.add("at work");  // Each for less time than between the two looks.
        } else {
            m_text.add("in task ");
            addName(NameKind::Task, tasks.taskId);
            m_text.add(" of session %" PRId32 " for %.3f s", tasks.sessionId,
                       m_now.nowSeconds - tasks.since);
        }
    }
    bool isSameTask(const TaskThreadLook& tasks) const {
        return nullptr != findIn(m_earlier.taskThreads, [&](const TaskThreadLook& old) {
                   return old.p_thread == tasks.p_thread && old.isBusy &&
                          old.taskId == tasks.taskId && old.sessionId == tasks.sessionId &&
                          !(old.since < tasks.since) && !(tasks.since < old.since);
               });
    }

    // ---- watches ----

    void addWatches() {
        for (const WatchDogThreadLook& watchDog : m_now.watchDogs) {
            if (!watchDog.lock.isSeen) addUnseen("a watchdog", watchDog.lock.holder);
        }
        addList("watches", m_now.watches, [this](const WatchLook& watch) {
            const auto id = static_cast<timer::WatchDog::WATCH_ID>(watch.id);
            m_text.add("%" PRId32 " '%s': ", watch.id, timer::WatchDog::getWatchIdName(id));
            const double left = watch.allowed - watch.elapsed;
            m_text.add(left > 0 ? "%.3f s left of %.3f s" : "overdue by %.3f s of %.3f s",
                       left > 0 ? left : -left, watch.allowed);
        });
    }

    // ---- locks ----

    struct HeldLock {
        const char* name;
        const HubLook* p_hub;  // These say whose it is; all null for the whole process's.
        const TaskThreadLook* p_tasks;
        const TimerLook* p_timer;
        std::int32_t holder;
    };

    // Held by the same thread in both looks.
    void addLocks() {
        Pages<HeldLock> held;
        const auto addIfSame = [&](const HeldLock& lock, std::int32_t earlierHolder) {
            if (lock.holder != 0 && lock.holder == earlierHolder) m_isComplete &= held.add(lock);
        };
        addIfSame({"list of hubs", nullptr, nullptr, nullptr, m_now.dispatcher.holder},
                  m_earlier.dispatcher.holder);
        addIfSame({"list of timers", nullptr, nullptr, nullptr, m_now.scheduler.holder},
                  m_earlier.scheduler.holder);
        for (const HubLook& hub : m_now.hubs) {
            const HubLook* const p_old = findObject(m_earlier.hubs, &HubLook::p_hub, hub);
            for (std::size_t i = 0; p_old != nullptr && i < hub.holders.size(); ++i) {
                addIfSame({event_dispatcher::kHubLocks[i], &hub, nullptr, nullptr, hub.holders[i]},
                          p_old->holders[i]);
            }
        }
        for (const TaskThreadLook& tasks : m_now.taskThreads) {
            const auto* const p_old =
                findObject(m_earlier.taskThreads, &TaskThreadLook::p_thread, tasks);
            if (p_old == nullptr) continue;
            addIfSame({"queue", nullptr, &tasks, nullptr, tasks.holder}, p_old->holder);
        }
        for (const TimerLook& timer : m_now.timers) {
            if (timer.holder == 0) continue;
            const auto* const p_old = findObject(m_earlier.timers, &TimerLook::p_timer, timer);
            if (p_old == nullptr) continue;
            addIfSame({"runs", nullptr, nullptr, &timer, timer.holder}, p_old->holder);
        }
        for (const WatchDogThreadLook& watchDog : m_now.watchDogs) {
            const auto* const p_old =
                findObject(m_earlier.watchDogs, &WatchDogThreadLook::p_watchDog, watchDog);
            if (p_old == nullptr) continue;
            addIfSame({"watches", nullptr, nullptr, nullptr, watchDog.lock.holder},
                      p_old->lock.holder);
        }
        addList("locks held", held, [this](const HeldLock& lock) { addLock(lock); });
    }
    void addLock(const HeldLock& lock) {
        m_text.add("%s", lock.name);
        if (lock.p_hub != nullptr) {
            m_text.add(" of ");
            addModule(lock.p_hub->module);
        } else if (lock.p_tasks != nullptr) {
            m_text.add(" of task thread '%s'", lock.p_tasks->name.data());
        } else if (lock.p_timer != nullptr) {
            m_text.add(" of timer '%s'", lock.p_timer->name.data());
        }
        addHolder(lock.holder);
    }
    template <typename Look, typename Object>
    static const Look* findObject(const Pages<Look>& looks, Object Look::*p_member,
                                  const Look& wanted) {
        return findIn(looks, [&](const Look& look) { return look.*p_member == wanted.*p_member; });
    }

    const Snapshot& m_earlier;
    const Snapshot& m_now;
    const WaitGraph m_graph;
    const std::size_t m_most;
    ReportText& m_text;
    bool m_isComplete = true;  // Else memory ran out.
};

}  // namespace

void addStateLists(const Snapshot& earlier, const Snapshot& snapshot, std::size_t most,
                   ReportText* p_text) {
    StateLists(earlier, snapshot, most, p_text).addAll();
}

}  // namespace tevalon::base::diagnostics

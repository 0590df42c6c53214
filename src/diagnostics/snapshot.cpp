#include "diagnostics/snapshot.h"

#include "event_dispatcher/reply_wait.h"
#include "os/monotonic_time.h"

namespace tevalon::base::diagnostics {
namespace {

using activity::Activity;
using activity::Kind;

/// Adds what it visits to an array.
template <typename Visitor, typename Look>
class Collector final : public Visitor {
public:
    Collector(Pages<Look>* p_looks, bool* p_isComplete)
        : m_looks(*p_looks), m_isComplete(*p_isComplete) {}

    void visit(const Look& look) override { m_isComplete &= m_looks.add(look); }

private:
    Pages<Look>& m_looks;
    bool& m_isComplete;
};

WaitLook lookAtWait(const Activity& activity) {
    WaitLook look = {};
    look.kind = activity.kind();
    look.threadId = activity.threadId();
    look.p_object = activity.object();
    if (look.kind != Kind::SyncSend) return look;
    const auto& wait = static_cast<const event_dispatcher::ReplyWait&>(activity);
    look.type = wait.type();
    look.source = wait.source();
    look.target = wait.target();
    look.handledBy = wait.handledBy();
    look.timeoutMs = wait.timeoutMs();
    look.since = static_cast<double>(nanosecondsOf(wait.since())) * 1e-9;
    return look;
}

/// Takes in what is seen of one thread after the other, with the list of activities locked.
class ThreadsTaker {
public:
    ThreadsTaker(Snapshot* p_snapshot, std::uint64_t untilNs)
        : m_snapshot(*p_snapshot), m_untilNs(untilNs) {}

    void take(const Activity& activity) {
        switch (activity.kind()) {
            case Kind::HubThread:
                return takeHub(activity);
            case Kind::TaskThread:
                return takeTaskThread(activity);
            case Kind::WatchThread:
                return takeWatchDog(activity);
            case Kind::TimerRun:
                return takeRun(activity);
            case Kind::SyncSend:
            case Kind::Stop:
            case Kind::Destructor:
            case Kind::Unregister:
                return add(&m_snapshot.waits, lookAtWait(activity));
        }
    }

private:
    template <typename Look>
    void add(Pages<Look>* p_looks, const Look& look) {
        m_snapshot.isComplete &= p_looks->add(look);
    }

    void takeHub(const Activity& activity) {
        HubLook look;
        if (!event_dispatcher::lookAtHubOf(activity, m_untilNs, &look)) return;
        HubLook* const p_listed = findIn(
            m_snapshot.hubs, [&](const HubLook& other) { return other.p_hub == look.p_hub; });
        if (p_listed == nullptr) return add(&m_snapshot.hubs, look);
        look.isRegistered = p_listed->isRegistered;
        *p_listed = look;
    }
    void takeTaskThread(const Activity& activity) {
        TaskThreadLook look;
        if (timer::TaskThreadLooker::look(activity, m_untilNs, &look)) {
            add(&m_snapshot.taskThreads, look);
        }
    }
    void takeRun(const Activity& activity) {
        RunLook look;
        if (simple_timer::lookAtRun(activity, &look)) add(&m_snapshot.runs, look);
    }
    void takeWatchDog(const Activity& activity) {
        Collector<timer::WatchVisitor, WatchLook> watches(&m_snapshot.watches,
                                                          &m_snapshot.isComplete);
        const timer::WatchDogLook lock = timer::WatchLooker::look(activity, m_untilNs, &watches);
        add(&m_snapshot.watchDogs, {activity.object(), activity.threadId(), lock});
    }

    Snapshot& m_snapshot;
    const std::uint64_t m_untilNs;
};

}  // namespace

void Snapshot::take(std::uint64_t untilNs) {
    Collector<event_dispatcher::HubVisitor, HubLook> registered(&hubs, &isComplete);
    dispatcher = event_dispatcher::HubsOfProcess::look(untilNs, &registered);
    {
        const activity::List threads(untilNs);
        areThreadsSeen = threads.isLocked();
        ThreadsTaker taker(this, untilNs);
        if (areThreadsSeen)
            threads.forEach([&](const Activity& activity) { taker.take(activity); });
    }
    Collector<simple_timer::TimerVisitor, TimerLook> started(&timers, &isComplete);
    scheduler = simple_timer::lookAtTimers(untilNs, &started);
    nowMs = monotonicMilliseconds();
    nowSeconds = monotonicSeconds();
}

}  // namespace tevalon::base::diagnostics

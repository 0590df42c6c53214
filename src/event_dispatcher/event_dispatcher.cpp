#define BLOG_TAG "EventDispatcher"

#include "base/event_dispatcher/event_dispatcher.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include "base/event_dispatcher/event_hub.h"
#include "base/logging/blog.h"
#include "base/singleton.h"
#include "event_dispatcher/event_hub_impl.h"
#include "event_dispatcher/hub_look.h"
#include "event_dispatcher/status.h"
#include "locks/annotated_mutex.h"
#include "locks/patient_lock.h"
#include "os/forked_child.h"
#include "record/record.h"

namespace tevalon::base::event_dispatcher {
namespace {

__attribute__((noinline, cold)) void reportNullHub(const char* function) {
    BLOG_AS(function, kLogError, "p_hub is NULL.\n");
}

}  // namespace

// The registered hubs in order of registration. Lock order: this lock, then a hub's queue lock;
// its handlers are found without one.
class TEVALON_BASE_LOCAL EventDispatcher::HubList {
public:
    HubList() {
        inEachForkedChild(resetInForkedChild);
        HubList* p_none = nullptr;
        (void)s_first.compare_exchange_strong(p_none, this);
    }
    ~HubList() {
        HubList* p_self = this;
        (void)s_first.compare_exchange_strong(p_self, nullptr);
    }

    HubList(const HubList&) = delete;
    HubList& operator=(const HubList&) = delete;

    bool add(EventHub* p_hub) {
        const MutexGuard lock(m_hubsMtx);
        if (find(p_hub) != m_hubs.end()) return false;
        m_hubs.push_back({p_hub->moduleId(), p_hub});
        return true;
    }

    bool remove(EventHub* p_hub) {
        const MutexGuard lock(m_hubsMtx);
        const auto listed = find(p_hub);
        if (listed == m_hubs.end()) return false;
        m_hubs.erase(listed);
        return true;
    }

    /// Leaves an event that is not queued to the caller: what the payload's destructor does, it
    /// does without our lock.
    template <bool kIsRecording>
    std::int32_t deliver(std::shared_ptr<BrowserEvent>&& event, std::int32_t target) {
        const MutexGuard lock(m_hubsMtx, kIsRecording);
        EventHub* p_last = nullptr;
        for (const Listed& listed : m_hubs) {
            if (target != kAnyModule && target != listed.moduleId) continue;
            if (p_last != nullptr) {
                (void)p_last->receive<kIsRecording>(std::shared_ptr<BrowserEvent>(event));
            }
            p_last = listed.p_hub;
        }
        if (p_last == nullptr) {
            if constexpr (kIsRecording) recordRefused(*event, target);
            return kFailed;
        }
        // The last one takes the event itself; mostly it is the only one.
        return p_last->receive<kIsRecording>(std::move(event));
    }

#ifndef TEVALON_BASE_NO_DIAGNOSTICS
    static DispatcherLook lookAtProcess(std::uint64_t untilNs, HubVisitor* p_visitor) {
        HubList* const p_list = s_first.load();
        if (p_list == nullptr) return {true, 0};
        const std::int32_t holder = p_list->m_hubsMtx.holder();
        return {p_list->look(untilNs, p_visitor), holder};
    }
#endif

private:
    struct Listed {
        std::int32_t moduleId;  // The hub's, at hand without a look into each hub.
        EventHub* p_hub;        // Not owned.
    };

#ifndef TEVALON_BASE_NO_DIAGNOSTICS
    bool look(std::uint64_t untilNs, HubVisitor* p_visitor) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        const PatientLock lock(m_hubsMtx.native().native_handle(), untilNs);
        if (!lock.isLocked()) return false;
        for (const Listed& listed : m_hubs) {
            HubLook look = {};
            look.module = listed.moduleId;
            if (listed.p_hub->m_impl != nullptr) listed.p_hub->m_impl->look(untilNs, &look);
            look.isRegistered = true;
            p_visitor->visit(look);
        }
        return true;
    }
#endif

    // The parent's hubs are not listed in a forked child. Unchecked: there is one thread, and
    // nobody holds the mutex, whatever it says.
    static void resetInForkedChild() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        HubList* const p_list = s_first.load();
        if (p_list != nullptr) replaceUndestroyed(&p_list->m_hubsMtx, &p_list->m_hubs);
    }

    static void recordRefused(const BrowserEvent& event, std::int32_t target) {
        record::eventRefused(&event, event.eventType, event.srcModule, target,
                             record::Refusal::NoHub);
    }

    std::vector<Listed>::iterator find(const EventHub* p_hub) TEVALON_REQUIRES(m_hubsMtx) {
        return std::find_if(m_hubs.begin(), m_hubs.end(),
                            [=](const Listed& listed) { return listed.p_hub == p_hub; });
    }

    // Of the process's dispatcher, which is never destroyed; the only one, but in tests.
    static inline std::atomic<HubList*> s_first{nullptr};

    AnnotatedMutex m_hubsMtx;  // Held over a whole delivery.
    std::vector<Listed> m_hubs TEVALON_GUARDED_BY(m_hubsMtx);
};

#ifndef TEVALON_BASE_NO_DIAGNOSTICS
DispatcherLook HubsOfProcess::look(std::uint64_t untilNs, HubVisitor* p_visitor) {
    return EventDispatcher::HubList::lookAtProcess(untilNs, p_visitor);
}
#endif

EventDispatcher::EventDispatcher() : m_hubs(std::make_unique<HubList>()) {
    BLOG(kLogAlways, "Create EventDispatcher.\n");
}

EventDispatcher::~EventDispatcher() = default;

EventDispatcher* EventDispatcher::GetInstance() {
    return Singleton<EventDispatcher, DefaultSingletonTraits<EventDispatcher>,
                     EventDispatcher>::GetInstance();
}

EventDispatcher* EventDispatcher::getInstance() {
    return GetInstance();
}

std::int32_t EventDispatcher::registerHub(EventHub* p_hub) {
    if (p_hub == nullptr) {
        reportNullHub(__func__);
        return kNullArgument;
    }
    BLOG(kLogInfo, "Register hub:%p for moudle:%d.\n", static_cast<void*>(p_hub),
         p_hub->moduleId());
    p_hub->renewInForkedChild();
    if (!m_hubs->add(p_hub)) {
        BLOG(kLogError, "EventHub:%p already exists.\n", static_cast<void*>(p_hub));
        return kExists;
    }
    if (record::isOn()) record::hubRegistered(p_hub, p_hub->moduleId());
    p_hub->onHubRegistered();
    return kOk;
}

// The hub is told after the list's lock is released: it joins its thread, whose handler in hand may
// send. Once remove() has returned no delivery reaches the hub any more, for each holds the lock
// over its whole walk.
std::int32_t EventDispatcher::unregisterHub(EventHub* p_hub) {
    if (p_hub == nullptr) {
        reportNullHub(__func__);
        return kNullArgument;
    }
    BLOG(kLogInfo, "UnRegister hub:%p from module:%d.\n", static_cast<void*>(p_hub),
         p_hub->moduleId());
    if (!m_hubs->remove(p_hub)) return kOk;
    if (record::isOn()) record::hubUnregistered(p_hub, p_hub->moduleId());
    p_hub->onHubUnregistered();
    return kOk;
}

std::int32_t EventDispatcher::send(std::shared_ptr<BrowserEvent> event, std::int32_t target) {
    return deliver(std::move(event), target);
}

// Where a send and a hub's sendEvent() meet. By rvalue reference: an event that nobody queues stays
// with the sender, whose thread destroys it, and its payload, without the list's lock.
std::int32_t EventDispatcher::deliver(std::shared_ptr<BrowserEvent>&& event, std::int32_t target) {
    if (event == nullptr) {
        BLOG_AS("send", kLogError, "event is NULL.\n");
        if (record::isOn()) {
            record::eventRefused(nullptr, 0, 0, target, record::Refusal::NoEvent);
        }
        return kNullArgument;
    }
    if (record::isOn()) return deliverRecorded(std::move(event), target);
    return m_hubs->deliver<false>(std::move(event), target);
}

__attribute__((noinline, cold)) std::int32_t EventDispatcher::deliverRecorded(
    std::shared_ptr<BrowserEvent>&& event, std::int32_t target) {
    record::eventSent(event.get(), event->eventType, event->srcModule, target);
    return m_hubs->deliver<true>(std::move(event), target);
}

std::int32_t evtdispch_register_hub(EventHub* p_hub) {
    return EventDispatcher::getInstance()->registerHub(p_hub);
}

std::int32_t evtdispch_unregister_hub(EventHub* p_hub) {
    return EventDispatcher::getInstance()->unregisterHub(p_hub);
}

std::int32_t evtdispch_send_event(std::shared_ptr<BrowserEvent> event, std::int32_t target) {
    return EventDispatcher::getInstance()->send(std::move(event), target);
}

}  // namespace tevalon::base::event_dispatcher

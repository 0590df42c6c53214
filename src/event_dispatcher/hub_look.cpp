#include "event_dispatcher/hub_look.h"

#include "event_dispatcher/event_hub_impl.h"
#include "event_dispatcher/hub_activity.h"
#include "locks/patient_lock.h"

namespace tevalon::base::event_dispatcher {

// The queue's length alone needs a lock: with the others it is of interest who holds them.
void EventHubImpl::look(std::uint64_t untilNs, HubLook* p_look) {
    p_look->p_hub = this;
    p_look->module = m_moduleId;
    p_look->holders = {m_teardownMtx.holder(), m_threadMtx.holder(), m_queueMtx.holder(),
                       m_handlerMtx.holder()};
    const PatientLock lock(m_queueMtx.native().native_handle(), untilNs);
    p_look->isQueueSeen = lock.isLocked();
    if (lock.isLocked()) p_look->waiting += m_eventQueue.pushed();
}

bool lookAtHubOf(const activity::Activity& activity, std::uint64_t untilNs, HubLook* p_look) {
    // The dispatcher's list has them constant; here nobody else has a pointer to the hub.
    auto* const p_hub = static_cast<EventHubImpl*>(const_cast<void*>(activity.object()));
    if (p_hub == nullptr) return false;
    const auto& thread = static_cast<const HubActivity&>(activity);
    *p_look = {};
    p_look->waiting = thread.waiting();
    p_look->threadId = thread.threadId();
    const InnerHandler_t* const p_handler = thread.handler();
    p_look->isBusy = p_handler != nullptr;
    p_look->p_event = thread.event();
    p_look->type = p_handler != nullptr ? p_handler->eventType : 0;
    p_look->source = thread.source();
    p_look->readingMs = thread.readingMs();
    p_look->begunSinceReading = thread.begunSinceReading();
    p_hub->look(untilNs, p_look);
    return true;
}

}  // namespace tevalon::base::event_dispatcher

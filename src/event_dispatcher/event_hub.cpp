#define BLOG_TAG "EventDispatcher"

#include "base/event_dispatcher/event_hub.h"

#include <new>
#include <utility>

#include "base/event_dispatcher/event_dispatcher.h"
#include "base/logging/blog.h"
#include "event_dispatcher/block_cache.h"
#include "event_dispatcher/event_hub_impl.h"
#include "event_dispatcher/reply_spin.h"
#include "event_dispatcher/status.h"
#include "record/record.h"

namespace tevalon::base::event_dispatcher {
namespace {

__attribute__((noinline, cold)) void reportNoImpl(const char* function) {
    BLOG_AS(function, kLogError, "m_impl is NULL.\n");
}

// Into both who call it.
__attribute__((always_inline)) inline std::shared_ptr<BrowserEvent> makeEvent(
    std::int32_t moduleId, std::int32_t eventType) {
    return std::allocate_shared<BrowserEvent>(BlockAllocator<BrowserEvent>(), moduleId, eventType,
                                              nullptr);
}

__attribute__((noinline, cold)) std::shared_ptr<BrowserEvent> makeRecordedEvent(
    std::int32_t moduleId, std::int32_t eventType) {
    auto event = makeEvent(moduleId, eventType);
    record::eventCreated(event.get(), eventType, moduleId);
    return event;
}

}  // namespace

EventHub::EventHub(std::int32_t moduleId) : m_moduleId(moduleId) {
    try {
        m_impl = std::make_shared<EventHubImpl>(moduleId);
    } catch (const std::bad_alloc&) {
        BLOG(kLogError, "Fail to create EventHubImpl.\n");
    }
}

EventHub::~EventHub() = default;

std::int32_t EventHub::moduleId() const {
    return m_moduleId;
}

void EventHub::renewInForkedChild() {
    if (m_impl != nullptr) m_impl->renewInForkedChild();
}

std::int32_t EventHub::registerHandler(std::int32_t eventType, Handler handler) {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return kFailed;
    }
    return m_impl->registerHandler(eventType, std::move(handler));
}

std::int32_t EventHub::registerHandler(std::int32_t srcModule, std::int32_t eventType,
                                       Handler handler) {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return kFailed;
    }
    return m_impl->registerHandler(srcModule, eventType, std::move(handler));
}

std::shared_ptr<BrowserEvent> EventHub::createEvent(std::int32_t eventType) const {
    if (record::isOn()) return makeRecordedEvent(m_moduleId, eventType);
    return makeEvent(m_moduleId, eventType);
}

std::int32_t EventHub::sendEvent(std::shared_ptr<BrowserEvent> event, std::int32_t target) {
    return EventDispatcher::getInstance()->deliver(std::move(event), target);
}

std::int32_t EventHub::sendEventSync(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                                     std::int32_t timeout) {
    // A null event is left to the dispatcher, which reports it.
    if (event != nullptr && event->initWaitResultCv() != kOk) {
        BLOG(kLogError, "Fail to initialize event's codition_variable.\n");
        return kFailed;
    }
    t_replySpin.skipNext(false);  // Set by the hub that gets the event, if that has to be woken.
    if (evtdispch_send_event(event, target) != kOk) {
        BLOG(kLogError, "Fail to send event.\n");
        return kFailed;
    }
    return event->waitForReply(timeout, target);
}

std::int32_t EventHub::sendAsync(std::shared_ptr<BrowserEvent> event, std::int32_t target,
                                 std::int32_t timeout, ReplyCallback callback) {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return kFailed;
    }
    // A null event is left to the dispatcher, which reports it.
    if (event == nullptr) return evtdispch_send_event(nullptr, target);
    if (!callback) return kNullArgument;
    return m_impl->sendAsync(std::move(event), target, timeout, std::move(callback));
}

void EventHub::setQueueLimit(std::uint32_t events) {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return;
    }
    renewInForkedChild();
    m_impl->setQueueLimit(events);
}

std::uint32_t EventHub::queueLength() const {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return 0;
    }
    m_impl->renewInForkedChild();
    return m_impl->queueLength();
}

std::int32_t EventHub::receiveEvent(std::shared_ptr<BrowserEvent> event) {
    renewInForkedChild();
    if (record::isOn()) return receive<true>(std::move(event));
    return receive<false>(std::move(event));
}

template <bool kIsRecording>
std::int32_t EventHub::receive(std::shared_ptr<BrowserEvent>&& event) {
    if (m_impl == nullptr) {
        reportNoImpl("receiveEvent");
        return kFailed;
    }
    return m_impl->receiveEvent<kIsRecording>(std::move(event));
}

template std::int32_t EventHub::receive<false>(std::shared_ptr<BrowserEvent>&& event);
template std::int32_t EventHub::receive<true>(std::shared_ptr<BrowserEvent>&& event);

void EventHub::onHubRegistered() {}

void EventHub::onHubUnregistered() {
    if (m_impl == nullptr) {
        reportNoImpl(__func__);
        return;
    }
    m_impl->onUnregistered();
}

}  // namespace tevalon::base::event_dispatcher

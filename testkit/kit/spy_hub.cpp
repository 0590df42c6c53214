#include "testkit/spy_hub.h"

#include <algorithm>
#include <utility>

#include "base/event_dispatcher/event_dispatcher.h"

namespace tevalon::testkit {

using base::event_dispatcher::evtdispch_register_hub;
using base::event_dispatcher::evtdispch_unregister_hub;

SpyHub::SpyHub(std::int32_t moduleId) : m_hub(moduleId) {
    (void)evtdispch_register_hub(&m_hub);  // Fails only where it is registered.
}

SpyHub::~SpyHub() {
    (void)evtdispch_unregister_hub(&m_hub);
}

SpyHub& SpyHub::take(std::int32_t eventType) {
    return answer(eventType, Reply());
}

SpyHub& SpyHub::answer(std::int32_t eventType, EventResult result) {
    return answer(eventType, [result](const Event&) { return result; });
}

SpyHub& SpyHub::answer(std::int32_t eventType, Reply reply) {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_replies[eventType] = std::move(reply);
    }
    // A handler that is there already stays, and finds the new reply.
    (void)m_hub.registerHandler(eventType, [this](Event event) { onEvent(event); });
    return *this;
}

std::int32_t SpyHub::send(std::int32_t eventType, std::int32_t target,
                          std::unique_ptr<base::event_dispatcher::EventParam> param) {
    Event event = m_hub.createEvent(eventType);
    event->param = param.release();
    return send(std::move(event), target);
}

std::int32_t SpyHub::send(Event event, std::int32_t target) {
    return m_hub.sendEvent(std::move(event), target);
}

// Replied to before it counts: whoever waits for the count may rely on the reply.
void SpyHub::onEvent(const Event& event) {
    Reply reply;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        reply = m_replies[event->eventType];
    }
    if (reply) event->replyResult(reply(event));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_received.push_back(event);
    m_grown.notify_all();
}

std::vector<SpyHub::Event> SpyHub::received() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_received;
}

std::vector<SpyHub::Event> SpyHub::received(std::int32_t eventType) const {
    std::vector<Event> events = received();
    events.erase(
        std::remove_if(events.begin(), events.end(),
                       [eventType](const Event& event) { return event->eventType != eventType; }),
        events.end());
    return events;
}

std::size_t SpyHub::count(std::int32_t eventType) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return countLocked(eventType);
}

void SpyHub::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_received.clear();
}

bool SpyHub::waitFor(std::int32_t eventType, std::size_t count,
                     std::chrono::milliseconds limit) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_grown.wait_for(lock, limit, [=] { return countLocked(eventType) >= count; });
}

std::size_t SpyHub::countLocked(std::int32_t eventType) const {
    return static_cast<std::size_t>(
        std::count_if(m_received.begin(), m_received.end(),
                      [eventType](const Event& event) { return event->eventType == eventType; }));
}

}  // namespace tevalon::testkit

#include "modules.h"

namespace client {

using tevalon::base::event_dispatcher::evtdispch_register_hub;
using tevalon::base::event_dispatcher::evtdispch_unregister_hub;

namespace {

constexpr int kNoLimit = -1;

}  // namespace

Tuner::Tuner() : m_hub(kTuner) {
    (void)m_hub.registerHandler(kChannelAsked,
                                [this](const Event& event) { onChannelAsked(event); });
    evtdispch_register_hub(&m_hub);
}

Tuner::~Tuner() {
    evtdispch_unregister_hub(&m_hub);
}

void Tuner::changeChannel(int channel) {
    m_channel = channel;
    (void)m_hub.sendEvent(m_hub.createEvent(kChannelChanged), kGuide);
}

int Tuner::title() {
    return m_hub.sendEventSync(m_hub.createEvent(kTitleAsked), kGuide, kNoLimit);
}

// Shows the title beside the channel, and so waits for the guide on the tuner's thread.
void Tuner::onChannelAsked(const Event& event) {
    (void)title();
    event->replyResult(m_channel);
}

Guide::Guide(bool asksInHandler) : m_asksInHandler(asksInHandler), m_hub(kGuide) {
    (void)m_hub.registerHandler(kTitleAsked, [this](const Event& event) { onTitleAsked(event); });
    (void)m_hub.registerHandler(kChannelChanged,
                                [this](const Event& event) { onChannelChanged(event); });
    evtdispch_register_hub(&m_hub);
}

Guide::~Guide() {
    evtdispch_unregister_hub(&m_hub);
}

void Guide::onTitleAsked(const Event& event) {
    event->replyResult(100 + m_channel);
}

void Guide::onChannelChanged(const Event&) {
    if (!m_asksInHandler) return;
    m_channel = m_hub.sendEventSync(m_hub.createEvent(kChannelAsked), kTuner, kNoLimit);
}

}  // namespace client

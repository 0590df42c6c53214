// tuner.cpp: the hub's handlers run on the hub's thread, one at a time.
#include "tuner.h"

#include "base/logging.h"

using tevalon::base::kLogInfo;
using tevalon::base::event_dispatcher::evtdispch_register_hub;
using tevalon::base::event_dispatcher::evtdispch_unregister_hub;

namespace tv {

Tuner::Tuner() : m_hub(kTuner) {
    (void)m_hub.registerHandler(kTune, [this](const Event& event) { onTune(event); });
    evtdispch_register_hub(&m_hub);
}

Tuner::~Tuner() {
    evtdispch_unregister_hub(&m_hub);  // Stops the thread: no handler runs from here on.
}

void Tuner::onTune(const Event& event) {
    const int channel = event->param != nullptr ? event->param->intValue() : 0;
    if (channel < 1 || channel > 4) {
        event->replyResult(kNoSuchChannel);
        return;
    }
    BLOG(kLogInfo, "From channel %d to %d.\n", m_shown, channel);
    m_shown = channel;
    event->replyResult(m_shown);
}

}  // namespace tv

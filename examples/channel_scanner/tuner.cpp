#include "tuner.h"

#include <chrono>

namespace scanner {

using namespace std::chrono_literals;
using namespace tevalon::base::event_dispatcher;

Tuner::Tuner(const Air& air) : m_air(air) {
    (void)m_hub.registerHandler(kTune, [this](const Request& request) { onTune(request); });
}

// The hub first: no handler gives the thread work any more. Then the thread, which may be at it.
Tuner::~Tuner() {
    m_registration.reset();
    m_thread.stop();
}

void Tuner::onTune(const Request& request) {
    const auto* const p_tune = payload<Tune>(request);
    if (p_tune == nullptr) return;
    (void)m_work.cancel();  // What is left to do for another frequency.
    const Broadcast* const p_broadcast = at(m_air, p_tune->frequencyMhz);
    if (p_broadcast == nullptr || p_broadcast->qualityPercent == 0) {
        (void)fillReply<Signal>(request, Signal{false, 0});
        request->replyResult(0);
    } else if (p_broadcast->lockTime >= 0ms) {
        m_work = m_thread.post([this, request, p_broadcast] { onLocked(request, *p_broadcast); },
                               p_broadcast->lockTime);
    } else {
        // It hangs: nobody answers, and the request is not let go of, either.
        m_work = m_thread.post([request] {}, 1h);
    }
}

void Tuner::onLocked(const Request& request, const Broadcast& broadcast) {
    m_playingMhz = broadcast.frequencyMhz;
    (void)fillReply<Signal>(request, Signal{true, broadcast.qualityPercent});
    request->replyResult(0);
    sendSection(broadcast, 0);
}

void Tuner::sendSection(const Broadcast& broadcast, std::size_t number) {
    constexpr std::size_t kRounds = 3;
    const bool isLeft = m_playingMhz != broadcast.frequencyMhz;
    if (isLeft || number == kRounds * broadcast.sections.size()) return;
    const auto& bytes = broadcast.sections[number % broadcast.sections.size()];
    (void)m_hub.sendEvent(makeEvent<Section>(m_hub, kSection, broadcast.frequencyMhz, bytes),
                          kDemultiplexer);
    (void)m_thread.post([this, &broadcast, number] { sendSection(broadcast, number + 1); }, 1ms);
}

}  // namespace scanner

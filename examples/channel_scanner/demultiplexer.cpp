#include "demultiplexer.h"

#include <cstdint>

#include "base/logging.h"
#include "section.h"

namespace scanner {

using namespace tevalon::base::event_dispatcher;
using tevalon::base::kLogInfo;

Demultiplexer::Demultiplexer() {
    (void)m_hub.registerHandler(kSection, [this](const std::shared_ptr<BrowserEvent>& event) {
        if (const auto* const p_section = payload<Section>(event)) onSection(*p_section);
    });
}

void Demultiplexer::onSection(const Section& section) {
    if (section.frequencyMhz != m_frequencyMhz) {
        m_frequencyMhz = section.frequencyMhz;
        m_isTold = false;
        m_servicesBySection.clear();
    }
    if (m_isTold) return;
    const auto read = readSection(section.bytes);
    if (!read) {
        BLOG(kLogInfo, "a broken section at %d MHz\n", section.frequencyMhz);
        return;
    }
    m_servicesBySection[read->number] = read->services;
    if (static_cast<int>(m_servicesBySection.size()) > read->lastNumber) tellScanner();
}

void Demultiplexer::tellScanner() {
    Services found = {m_frequencyMhz, {}};
    for (const auto& [number, services] : m_servicesBySection) {
        found.services.insert(found.services.end(), services.begin(), services.end());
    }
    m_isTold = true;
    (void)m_hub.sendEvent(makeEvent<Services>(m_hub, kServicesFound, std::move(found)), kScanner);
}

}  // namespace scanner

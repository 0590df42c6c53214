// demultiplexer.h: the module that puts sections together.

#ifndef CHANNEL_SCANNER_DEMULTIPLEXER_H
#define CHANNEL_SCANNER_DEMULTIPLEXER_H

#include <map>
#include <memory>
#include <vector>

#include "base/event_dispatcher.h"
#include "messages.h"

namespace scanner {

/// Checks each section, and tells the scanner once what services a frequency has when all its
/// sections are there. Broken ones come again.
class Demultiplexer {
public:
    Demultiplexer();

private:
    void onSection(const Section& section);
    void tellScanner();

    // Touched by the handler alone.
    int m_frequencyMhz = 0;
    bool m_isTold = false;
    std::map<int, std::vector<Service>> m_servicesBySection;
    tevalon::base::event_dispatcher::EventHub m_hub{kDemultiplexer};
    tevalon::base::event_dispatcher::HubRegistration m_registration{&m_hub};
};

}  // namespace scanner

#endif  // CHANNEL_SCANNER_DEMULTIPLEXER_H

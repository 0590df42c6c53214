#include "channel_list.h"

#include <algorithm>
#include <utility>

namespace scanner {

using namespace tevalon::base::event_dispatcher;

ChannelList::ChannelList() {
    (void)m_hub.registerHandler(kAddServices, [this](const Request& event) {
        if (const auto* const p_services = payload<Services>(event)) onAddServices(*p_services);
    });
    (void)m_hub.registerHandler(kListChannels,
                                [this](const Request& request) { onListChannels(request); });
}

void ChannelList::onAddServices(const Services& services) {
    const auto isReplaced = [&services](const CommonValue& channel) {
        return channel[0] == services.frequencyMhz;
    };
    m_channels.erase(std::remove_if(m_channels.begin(), m_channels.end(), isReplaced),
                     m_channels.end());
    for (const Service& service : services.services) {
        m_channels.push_back(CommonValue::list({services.frequencyMhz, service.id, service.name}));
    }
}

void ChannelList::onListChannels(const Request& request) const {
    Channels channels;
    for (const CommonValue& channel : m_channels) {
        channels.push_back(channel[1].convertToStringType() + " " +
                           channel[2].convertToStringType() + " at " +
                           channel[0].convertToStringType() + " MHz");
    }
    (void)fillReply<Channels>(request, std::move(channels));
    request->replyResult(0);
}

}  // namespace scanner

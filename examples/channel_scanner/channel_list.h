// channel_list.h: the module that keeps the channels.

#ifndef CHANNEL_SCANNER_CHANNEL_LIST_H
#define CHANNEL_SCANNER_CHANNEL_LIST_H

#include <memory>

#include "base/container.h"
#include "base/event_dispatcher.h"
#include "messages.h"

namespace scanner {

/// Knows the services that were found. Services of a frequency replace those that it had.
class ChannelList {
public:
    ChannelList();

private:
    using CommonValue = tevalon::base::container::CommonValue;
    using Request = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void onAddServices(const Services& services);
    void onListChannels(const Request& request) const;

    // Lists of frequency, identifier and name; touched by the handlers alone.
    CommonValue::Array m_channels;
    tevalon::base::event_dispatcher::EventHub m_hub{kChannelList};
    tevalon::base::event_dispatcher::HubRegistration m_registration{&m_hub};
};

}  // namespace scanner

#endif  // CHANNEL_SCANNER_CHANNEL_LIST_H

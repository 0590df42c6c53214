// messages.h: what the modules of the scanner say to each other.

#ifndef CHANNEL_SCANNER_MESSAGES_H
#define CHANNEL_SCANNER_MESSAGES_H

#include <cstdint>
#include <string>
#include <vector>

namespace scanner {

/// The modules.
enum Module : std::int32_t { kTuner = 1, kDemultiplexer, kScanner, kChannelList };

/// The events, and what each carries.
enum Event : std::int32_t {
    kTune = 1,       ///< To the tuner: Tune, answered with a Signal.
    kSection,        ///< To the demultiplexer: Section.
    kServicesFound,  ///< To the scanner: Services.
    kAddServices,    ///< To the channel list: Services.
    kListChannels,   ///< To the channel list, answered with Channels.
};

struct Tune {
    int frequencyMhz;
};

struct Signal {
    bool isLocked;
    int qualityPercent;
};

/// A section as it came off the air, its CRC at its end.
struct Section {
    int frequencyMhz;
    std::vector<std::uint8_t> bytes;
};

struct Service {
    int id;
    std::string name;
};

/// All services of one frequency.
struct Services {
    int frequencyMhz;
    std::vector<Service> services;
};

/// The list as text, a line a channel: "101 News at 474 MHz".
using Channels = std::vector<std::string>;

}  // namespace scanner

#endif  // CHANNEL_SCANNER_MESSAGES_H

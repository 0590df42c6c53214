// air.h: what is broadcast where the scanner stands.

#ifndef CHANNEL_SCANNER_AIR_H
#define CHANNEL_SCANNER_AIR_H

#include <chrono>
#include <cstdint>
#include <vector>

namespace scanner {

/// One frequency.
struct Broadcast {
    int frequencyMhz;
    int qualityPercent;  ///< 0: nothing is broadcast there.
    /// How long a tuner takes to lock. Negative: it hangs, and never answers.
    std::chrono::milliseconds lockTime;
    /// Sent over and over.
    std::vector<std::vector<std::uint8_t>> sections;
};

using Air = std::vector<Broadcast>;

/// Five frequencies: two with services, one with none, one on which the tuner hangs, and one whose
/// every other section is broken on the way.
Air anEveningsAir();

/// The broadcast there; null where there is none.
const Broadcast* at(const Air& air, int frequencyMhz);

}  // namespace scanner

#endif  // CHANNEL_SCANNER_AIR_H

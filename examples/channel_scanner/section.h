// section.h: the sections in which a broadcast says what it consists of.

#ifndef CHANNEL_SCANNER_SECTION_H
#define CHANNEL_SCANNER_SECTION_H

#include <cstdint>
#include <optional>
#include <vector>

#include "messages.h"

namespace scanner {

/// A section that has been read: a part of the list of services.
struct ReadSection {
    int number;
    int lastNumber;
    std::vector<Service> services;
};

/// A section: its number and the last one's, a service's identifier, length and name each, and the
/// CRC-32/MPEG-2 of all that. (The real ones have more fields.)
std::vector<std::uint8_t> makeSection(int number, int lastNumber,
                                      const std::vector<Service>& services);

/// Nothing where the CRC is wrong, or a field does not fit.
std::optional<ReadSection> readSection(const std::vector<std::uint8_t>& bytes);

}  // namespace scanner

#endif  // CHANNEL_SCANNER_SECTION_H

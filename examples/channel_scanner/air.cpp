#include "air.h"

#include <string>

#include "section.h"

namespace scanner {
namespace {

using std::chrono::milliseconds;

std::vector<std::uint8_t> broken(std::vector<std::uint8_t> section) {
    section[section.size() / 2] ^= 0x40;
    return section;
}

}  // namespace

Air anEveningsAir() {
    const auto first = makeSection(0, 1, {{101, "News"}, {102, "Films"}});
    const auto second = makeSection(1, 1, {{103, "Sports"}});
    const auto regional = makeSection(0, 0, {{201, "Regional"}, {202, "Radio"}});
    const auto shopping = makeSection(0, 0, {{301, "Shopping"}});
    return {{474, 91, milliseconds(3), {first, second}},
            {482, 0, milliseconds(3), {}},
            {490, 84, milliseconds(3), {regional}},
            {498, 88, milliseconds(-1), {}},
            {506, 35, milliseconds(5), {broken(shopping), shopping}}};
}

const Broadcast* at(const Air& air, int frequencyMhz) {
    for (const Broadcast& broadcast : air) {
        if (broadcast.frequencyMhz == frequencyMhz) return &broadcast;
    }
    return nullptr;
}

}  // namespace scanner

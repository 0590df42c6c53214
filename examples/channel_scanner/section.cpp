#include "section.h"

#include <cstddef>

#include "base/utils/check_sum.h"

namespace scanner {
namespace {

constexpr std::size_t kHeaderSize = 2;
constexpr std::size_t kServiceSize = 3;
constexpr std::size_t kCrcSize = 4;

std::uint32_t crcOf(const std::vector<std::uint8_t>& bytes) {
    return tevalon::base::utils::CheckSum().crc_32_mpeg_2(bytes.data(),
                                                          static_cast<unsigned>(bytes.size()));
}

}  // namespace

std::vector<std::uint8_t> makeSection(int number, int lastNumber,
                                      const std::vector<Service>& services) {
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(number),
                                       static_cast<std::uint8_t>(lastNumber)};
    for (const Service& service : services) {
        bytes.push_back(static_cast<std::uint8_t>(service.id >> 8));
        bytes.push_back(static_cast<std::uint8_t>(service.id));
        bytes.push_back(static_cast<std::uint8_t>(service.name.size()));
        bytes.insert(bytes.end(), service.name.begin(), service.name.end());
    }
    const std::uint32_t crc = crcOf(bytes);
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<std::uint8_t>(crc >> shift));
    }
    return bytes;
}

std::optional<ReadSection> readSection(const std::vector<std::uint8_t>& bytes) {
    // Of a section with its CRC the CRC is 0.
    if (bytes.size() < kHeaderSize + kCrcSize || crcOf(bytes) != 0) return std::nullopt;
    const std::size_t end = bytes.size() - kCrcSize;
    ReadSection section = {bytes[0], bytes[1], {}};
    for (std::size_t at = kHeaderSize; at < end;) {
        if (end - at < kServiceSize || end - at - kServiceSize < bytes[at + 2]) return std::nullopt;
        const auto name = bytes.begin() + static_cast<std::ptrdiff_t>(at + kServiceSize);
        section.services.push_back(
            {bytes[at] << 8 | bytes[at + 1], std::string(name, name + bytes[at + 2])});
        at += kServiceSize + bytes[at + 2];
    }
    return section;
}

}  // namespace scanner

// crc_rule.h: what tells one CRC from another.

#ifndef SRC_CHECK_SUM_CRC_RULE_H
#define SRC_CHECK_SUM_CRC_RULE_H

#include <cstdint>

namespace tevalon::base::utils::crc {

template <unsigned kWidth>
struct RegisterOf;
template <>
struct RegisterOf<8> {
    using Type = std::uint8_t;
};
template <>
struct RegisterOf<16> {
    using Type = std::uint16_t;
};
template <>
struct RegisterOf<32> {
    using Type = std::uint32_t;
};
template <>
struct RegisterOf<64> {
    using Type = std::uint64_t;
};

constexpr std::uint64_t bitReversed(std::uint64_t value, unsigned width) {
    std::uint64_t reversed = 0;
    for (unsigned bit = 0; bit < width; ++bit) {
        reversed |= ((value >> bit) & 1) << (width - 1 - bit);
    }
    return reversed;
}

/// One CRC: everything else (tables, folding constants, code) follows from these three.
///
/// @tparam kWidthBits   8, 16, 32 or 64.
/// @tparam kPoly        The polynomial without its top term, most significant bit first also
///                      where the CRC is reflected.
/// @tparam kIsReflected Whether the least significant bit of a byte comes first.
template <unsigned kWidthBits, std::uint64_t kPoly, bool kIsReflected>
struct Rule {
    using Register = typename RegisterOf<kWidthBits>::Type;

    static constexpr unsigned kWidth = kWidthBits;
    static constexpr std::uint64_t kPolynomial = kPoly;
    static constexpr bool kReflected = kIsReflected;

    /// The polynomial in the bit order of the register.
    static constexpr auto kRegisterPolynomial =
        static_cast<Register>(kIsReflected ? bitReversed(kPoly, kWidthBits) : kPoly);

    /// What the register becomes while one zero bit is taken in.
    static constexpr Register bitStep(Register crc) {
        const std::uint64_t wide = crc;
        const bool carry = (kReflected ? wide & 1 : wide >> (kWidth - 1)) != 0;
        const std::uint64_t shifted = kReflected ? wide >> 1 : wide << 1;
        return static_cast<Register>(carry ? shifted ^ kRegisterPolynomial : shifted);
    }
};

using Crc8 = Rule<8, 0x31, false>;
using Crc16 = Rule<16, 0x8005, true>;
using CrcCcitt = Rule<16, 0x1021, false>;
using CrcDnp = Rule<16, 0x3D65, true>;
using CrcKermit = Rule<16, 0x1021, true>;
using Crc32 = Rule<32, 0x04C11DB7, true>;
using Crc32Mpeg2 = Rule<32, 0x04C11DB7, false>;
using Crc64 = Rule<64, 0x42F0E1EBA9EA3693, false>;

}  // namespace tevalon::base::utils::crc

#endif  // SRC_CHECK_SUM_CRC_RULE_H

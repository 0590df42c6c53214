// crc_folding.h: the constants with which carry-less multiplication computes a CRC.

#ifndef SRC_CHECK_SUM_CRC_FOLDING_H
#define SRC_CHECK_SUM_CRC_FOLDING_H

#include <cstddef>
#include <cstdint>

#include "check_sum/crc_rule.h"

namespace tevalon::base::utils::crc {

// A buffer is a polynomial over GF(2), and its CRC what a division by the CRC's polynomial P
// leaves. 16 bytes that stand d bits ahead of others may be replaced, there, by the sum of their
// two halves times (x^(d+64) mod P) and (x^d mod P): the remainder stays the same, and the buffer
// is 16 bytes shorter. That is done until 16 bytes are left, and those are divided by way of a
// multiplication with the reciprocal.
//
// One code serves all widths, for every CRC is computed as one of 64 bits: dividing by
// G = P * x^(64 - width) leaves the remainder by P, shifted up by 64 - width bits.
//
// Where the CRC is reflected, so is every 64-bit word here. The product of two reflected words
// comes out one place too high, which is why their exponents are less by one.

/// The pair for the two 64-bit words of a 16-byte vector, the lower one first.
struct alignas(16) FoldPair {
    std::uint64_t low;
    std::uint64_t high;
};

struct FoldConstants {
    FoldPair over16Bytes;  ///< For vectors that lie that far ahead of those they are added to.
    FoldPair over32Bytes;
    FoldPair over48Bytes;
    FoldPair over64Bytes;
    FoldPair over128Bytes;
    FoldPair over256Bytes;     ///< For reflected vectors, also where the CRC is not.
    std::uint64_t over8Bytes;  ///< Takes the 64-bit CRC's 128 bits down to 64, modulo G.
    std::uint64_t reciprocal;  ///< x^128 / G; without its top term, or if reflected its last.
    std::uint64_t divisor;     ///< G; without its top term, or if reflected its last, a zero.
};

/// x^exponent modulo a polynomial given without its top term.
constexpr std::uint64_t powerOfX(unsigned exponent, std::uint64_t polynomial, unsigned width) {
    const std::uint64_t mask = ~std::uint64_t{0} >> (64 - width);
    std::uint64_t power = 1;
    for (unsigned i = 0; i < exponent; ++i) {
        const bool carry = (power >> (width - 1)) != 0;
        power = ((power << 1) ^ (carry ? polynomial : 0)) & mask;
    }
    return power;
}

/// x^128 divided by x^64 + @p polynomial, without the top term of the quotient.
constexpr std::uint64_t reciprocalOf(std::uint64_t polynomial) {
    std::uint64_t quotient = 0;
    std::uint64_t rest = polynomial;  // After the first step of the division.
    for (unsigned i = 0; i < 64; ++i) {
        const bool carry = (rest >> 63) != 0;
        quotient = quotient << 1 | (carry ? 1 : 0);
        rest = (rest << 1) ^ (carry ? polynomial : 0);
    }
    return quotient;
}

template <class R>
constexpr FoldPair makeFoldPair(unsigned distanceBits, bool reflected = R::kReflected) {
    if (!reflected) {
        return {powerOfX(distanceBits, R::kPolynomial, R::kWidth),
                powerOfX(distanceBits + 64, R::kPolynomial, R::kWidth)};
    }
    return {bitReversed(powerOfX(distanceBits + 63, R::kPolynomial, R::kWidth), 64),
            bitReversed(powerOfX(distanceBits - 1, R::kPolynomial, R::kWidth), 64)};
}

template <class R>
constexpr FoldConstants makeFoldConstants() {
    static_assert(!R::kReflected || R::kWidth < 64, "the last term of G must be zero");
    constexpr std::uint64_t kScaled = R::kPolynomial << (64 - R::kWidth);

    FoldConstants constants = {};
    constants.over16Bytes = makeFoldPair<R>(128);
    constants.over32Bytes = makeFoldPair<R>(256);
    constants.over48Bytes = makeFoldPair<R>(384);
    constants.over64Bytes = makeFoldPair<R>(512);
    constants.over128Bytes = makeFoldPair<R>(1024);
    constants.over256Bytes = makeFoldPair<R>(2048, true);
    if (!R::kReflected) {
        constants.over8Bytes = powerOfX(128, kScaled, 64);
        constants.reciprocal = reciprocalOf(kScaled);
        constants.divisor = kScaled;
    } else {
        // 65 terms each; the top one takes the lowest bit.
        constants.over8Bytes = bitReversed(powerOfX(127, kScaled, 64), 64);
        constants.reciprocal = bitReversed(reciprocalOf(kScaled), 64) << 1 | 1;
        constants.divisor = bitReversed(kScaled, 64) << 1 | 1;
    }
    return constants;
}

template <class R>
inline constexpr FoldConstants kFoldConstants = makeFoldConstants<R>();

/// The register as one of 64 bits, as the folding code wants it, and back.
template <class R>
constexpr std::uint64_t widened(typename R::Register crc) {
    const std::uint64_t wide = crc;
    return R::kReflected ? wide : wide << (64 - R::kWidth);
}

template <class R>
constexpr typename R::Register narrowed(std::uint64_t crc) {
    return static_cast<typename R::Register>(R::kReflected ? crc : crc >> (64 - R::kWidth));
}

}  // namespace tevalon::base::utils::crc

#endif  // SRC_CHECK_SUM_CRC_FOLDING_H

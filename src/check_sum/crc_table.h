// crc_table.h: CRCs by table, on any processor: one byte at a time, and several.

#ifndef SRC_CHECK_SUM_CRC_TABLE_H
#define SRC_CHECK_SUM_CRC_TABLE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "check_sum/crc_rule.h"

// How many bytes the tables take in at once: 1, 2, 4, 8 or 16; or 0 for half a byte. One slice of
// every table is 4,096 bytes or more; the tables for half bytes are 400. A television set has more
// use for the flash than for the last bit of speed.
#ifndef TEVALON_BASE_CRC_SLICES
#ifdef __arm__
#define TEVALON_BASE_CRC_SLICES 4
#else
#define TEVALON_BASE_CRC_SLICES 16
#endif
#endif

namespace tevalon::base::utils::crc {

inline constexpr std::size_t kDefaultSlices = TEVALON_BASE_CRC_SLICES;
static_assert(kDefaultSlices == 0 || kDefaultSlices == 1 || kDefaultSlices == 2 ||
                  kDefaultSlices == 4 || kDefaultSlices == 8 || kDefaultSlices == 16,
              "TEVALON_BASE_CRC_SLICES is 0, 1, 2, 4, 8 or 16");

/// How many slices the tables of R have. A television set has next to no use for CRC-8 and
/// CRC-16/DNP, and their frames are short.
template <class R>
inline constexpr std::size_t kSlicesOf = kDefaultSlices;
#if defined(__arm__) && TEVALON_BASE_CRC_SLICES != 0
template <>
inline constexpr std::size_t kSlicesOf<Crc8> = 1;
template <>
inline constexpr std::size_t kSlicesOf<CrcDnp> = 1;
#endif

/// The byte of the register that meets byte @p n of the data, counted from the next one.
template <class R>
constexpr std::uint8_t registerByte(typename R::Register crc, std::size_t n) {
    const std::size_t shift = R::kReflected ? 8 * n : R::kWidth - 8 - 8 * n;
    return static_cast<std::uint8_t>(crc >> shift);
}

/// What is left of the register once its next @p n bytes are used up.
template <class R>
constexpr typename R::Register registerRest(typename R::Register crc, std::size_t n) {
    if (8 * n >= R::kWidth) return 0;
    const std::uint64_t wide = crc;
    return static_cast<typename R::Register>(R::kReflected ? wide >> (8 * n) : wide << (8 * n));
}

/// Slice 0 is the plain byte table; entry i of slice n is what byte i amounts to when n zero
/// bytes follow it.
template <class R, std::size_t kSlices>
struct Table {
    typename R::Register slice[kSlices][256];
};

template <class R, std::size_t kSlices>
constexpr Table<R, kSlices> makeTable() {
    using Register = typename R::Register;
    Table<R, kSlices> table = {};
    for (unsigned i = 0; i < 256; ++i) {
        const std::uint64_t byte = i;
        auto crc = static_cast<Register>(R::kReflected ? byte : byte << (R::kWidth - 8));
        for (unsigned bit = 0; bit < 8; ++bit) crc = R::bitStep(crc);
        table.slice[0][i] = crc;
    }
    for (std::size_t n = 1; n < kSlices; ++n) {
        for (unsigned i = 0; i < 256; ++i) {
            const Register crc = table.slice[n - 1][i];
            table.slice[n][i] = static_cast<Register>(table.slice[0][registerByte<R>(crc, 0)] ^
                                                      registerRest<R>(crc, 1));
        }
    }
    return table;
}

template <class R, std::size_t kSlices>
inline constexpr Table<R, kSlices> kTable = makeTable<R, kSlices>();

/// Takes in sizeof...(kIndex) bytes with one lookup for each, none waiting for another.
template <class R, std::size_t kSlices, std::size_t... kIndex>
inline typename R::Register takeBytes(typename R::Register crc, const unsigned char* p_data,
                                      std::index_sequence<kIndex...>) {
    using Register = typename R::Register;
    constexpr std::size_t kStep = sizeof...(kIndex);
    const auto looked = [&](auto index) {
        constexpr std::size_t n = decltype(index)::value;
        std::uint8_t byte = p_data[n];
        if constexpr (8 * n < R::kWidth) {
            byte = static_cast<std::uint8_t>(byte ^ registerByte<R>(crc, n));
        }
        return kTable<R, kSlices>.slice[kStep - 1 - n][byte];
    };
    // Summed up from the last byte: what waits for the register comes in last.
    return static_cast<Register>((looked(std::integral_constant<std::size_t, kIndex>()) ^ ... ^
                                  registerRest<R>(crc, kStep)));
}

/// Takes in one byte.
template <class R, std::size_t kSlices = kSlicesOf<R>>
inline typename R::Register byteStep(typename R::Register crc, unsigned char byte) {
    return takeBytes<R, kSlices>(crc, &byte, std::make_index_sequence<1>());
}

/// Takes in @p length bytes, one at a time.
template <class R, std::size_t kSlices = kSlicesOf<R>>
inline typename R::Register byteUpdate(typename R::Register crc, const unsigned char* p_data,
                                       std::size_t length) {
    for (; length != 0; --length, ++p_data) crc = byteStep<R, kSlices>(crc, *p_data);
    return crc;
}

/// Takes in @p length bytes, @p kStep at a time while there are as many, the rest in ever
/// smaller steps.
template <class R, std::size_t kSlices = kSlicesOf<R>, std::size_t kStep = kSlices>
inline typename R::Register tableUpdate(typename R::Register crc, const unsigned char* p_data,
                                        std::size_t length) {
    for (; length >= kStep; length -= kStep, p_data += kStep) {
        crc = takeBytes<R, kSlices>(crc, p_data, std::make_index_sequence<kStep>());
    }
    if constexpr (kStep > 1) return tableUpdate<R, kSlices, kStep / 2>(crc, p_data, length);
    return crc;
}

/// What half a byte amounts to.
template <class R>
struct HalfByteTable {
    typename R::Register entry[16];
};

template <class R>
constexpr HalfByteTable<R> makeHalfByteTable() {
    HalfByteTable<R> table = {};
    for (unsigned i = 0; i < 16; ++i) {
        const std::uint64_t bits = i;
        auto crc =
            static_cast<typename R::Register>(R::kReflected ? bits : bits << (R::kWidth - 4));
        for (unsigned bit = 0; bit < 4; ++bit) crc = R::bitStep(crc);
        table.entry[i] = crc;
    }
    return table;
}

template <class R>
inline constexpr HalfByteTable<R> kHalfByteTable = makeHalfByteTable<R>();

/// Takes in @p length bytes, half a byte at a time.
template <class R>
inline typename R::Register halfByteUpdate(typename R::Register crc, const unsigned char* p_data,
                                           std::size_t length) {
    using Register = typename R::Register;
    std::uint64_t sum = crc;
    for (; length != 0; --length, ++p_data) {
        const std::uint64_t byte = *p_data;
        sum ^= R::kReflected ? byte : byte << (R::kWidth - 8);
        for (int half = 0; half < 2; ++half) {
            const std::uint64_t rest = R::kReflected ? sum >> 4 : sum << 4;
            const std::uint64_t index = R::kReflected ? sum & 15 : sum >> (R::kWidth - 4);
            sum = static_cast<Register>(rest ^ kHalfByteTable<R>.entry[index]);
        }
    }
    return static_cast<Register>(sum);
}

#if defined(__arm__) && __ARM_ARCH >= 7
inline constexpr bool kReversesBitsAtOnce = true;
#else
inline constexpr bool kReversesBitsAtOnce = false;
#endif

/// @p word with its 32 bits in reverse order.
inline std::uint32_t wordReversed(std::uint32_t word) {
#if defined(__arm__) && __ARM_ARCH >= 7
    __asm__("rbit %0, %1" : "=r"(word) : "r"(word));
    return word;
#else
    return static_cast<std::uint32_t>(bitReversed(word, 32));
#endif
}

/// The CRC with the same polynomial and the other bit order.
template <class R>
using MirrorOf = Rule<R::kWidth, R::kPolynomial, !R::kReflected>;

/// Whether R is computed with the tables of its mirror, which another CRC needs anyway. Only where
/// an instruction reverses the bits of a word: it costs two of them for four bytes, and saves as
/// many KiB as there are slices.
template <class R>
inline constexpr bool kUsesMirrorTables = false;
template <>
inline constexpr bool kUsesMirrorTables<Crc32Mpeg2> = kReversesBitsAtOnce;
template <>
inline constexpr bool kUsesMirrorTables<CrcKermit> = kReversesBitsAtOnce;

/// @p crc with its bits in reverse order.
template <class R>
inline typename R::Register registerReversed(typename R::Register crc) {
    return static_cast<typename R::Register>(wordReversed(crc) >> (32 - R::kWidth));
}

/// tableUpdate() with the tables of the mirror: the reversed bytes in, the reversed register out.
template <class R, std::size_t kSlices = kSlicesOf<MirrorOf<R>>>
inline typename R::Register mirroredUpdate(typename R::Register crc, const unsigned char* p_data,
                                           std::size_t length) {
    static_assert(R::kWidth <= 32);
    using Mirror = MirrorOf<R>;
    constexpr std::size_t kStep = sizeof(std::uint32_t);
    typename R::Register reversed = registerReversed<R>(crc);
    for (; length >= kStep; length -= kStep, p_data += kStep) {
        std::uint32_t word;
        std::memcpy(&word, p_data, kStep);
        word = __builtin_bswap32(wordReversed(word));
        unsigned char bytes[kStep];
        std::memcpy(bytes, &word, kStep);
        reversed = tableUpdate<Mirror, kSlices, (kSlices < kStep ? kSlices : kStep)>(reversed,
                                                                                     bytes, kStep);
    }
    for (; length != 0; --length, ++p_data) {
        const auto byte = static_cast<unsigned char>(wordReversed(*p_data) >> 24);
        reversed = byteStep<Mirror, kSlices>(reversed, byte);
    }
    return registerReversed<R>(reversed);
}

/// Takes in @p length bytes by table, whichever table it is.
template <class R, std::size_t kStep = kSlicesOf<R>>
inline typename R::Register lookedUp(typename R::Register crc, const unsigned char* p_data,
                                     std::size_t length) {
    if constexpr (kDefaultSlices == 0) {
        return halfByteUpdate<R>(crc, p_data, length);
    } else if constexpr (kUsesMirrorTables<R>) {
        return mirroredUpdate<R>(crc, p_data, length);
    } else if constexpr (kStep == 1) {
        return byteUpdate<R>(crc, p_data, length);
    } else {
        return tableUpdate<R, kSlicesOf<R>, kStep>(crc, p_data, length);
    }
}

}  // namespace tevalon::base::utils::crc

#endif  // SRC_CHECK_SUM_CRC_TABLE_H

#include "check_sum/crc_arm.h"

#if TEVALON_BASE_CRC_ARM

#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>

#include <cstring>

// Each function asks for its own instructions: the library as a whole runs on any ARMv7.
#define TARGET_CRC __attribute__((target("arch=armv8-a+crc,fpu=neon-fp-armv8")))
#define TARGET_PMULL __attribute__((target("arch=armv8-a,fpu=crypto-neon-fp-armv8")))
#define INLINE __attribute__((always_inline)) inline

namespace tevalon::base::utils::crc {
namespace {

// Vectors hold the data such that bit order is the register's: as it lies in memory where the
// CRC is reflected, else with the 16 bytes turned round.

template <bool kReflected>
TARGET_PMULL INLINE uint8x16_t ordered(uint8x16_t vector) {
    if constexpr (kReflected) return vector;
    const uint8x16_t turnedHalves = vrev64q_u8(vector);
    return vextq_u8(turnedHalves, turnedHalves, 8);
}

template <bool kReflected>
TARGET_PMULL INLINE uint64x2_t load(const unsigned char* p_data) {
    return vreinterpretq_u64_u8(ordered<kReflected>(vld1q_u8(p_data)));
}

TARGET_PMULL INLINE uint64x2_t pairOf(const FoldPair& pair) {
    return vcombine_u64(vcreate_u64(pair.low), vcreate_u64(pair.high));
}

TARGET_PMULL INLINE uint64x2_t multiplied(std::uint64_t left, std::uint64_t right) {
    return vreinterpretq_u64_p128(
        vmull_p64(static_cast<poly64_t>(left), static_cast<poly64_t>(right)));
}

/// @p ahead, folded over the distance of @p pair, plus @p other.
TARGET_PMULL INLINE uint64x2_t fold(uint64x2_t ahead, uint64x2_t pair, uint64x2_t other) {
    const uint64x2_t low = multiplied(vgetq_lane_u64(ahead, 0), vgetq_lane_u64(pair, 0));
    const uint64x2_t high = vreinterpretq_u64_p128(
        vmull_high_p64(vreinterpretq_p64_u64(ahead), vreinterpretq_p64_u64(pair)));
    return veorq_u64(veorq_u64(low, high), other);
}

/// Takes in the last, fewer than 16 bytes.
template <bool kReflected>
TARGET_PMULL INLINE uint64x2_t takeTail(uint64x2_t sum, const unsigned char* p_data,
                                        std::size_t length, const FoldConstants& constants) {
    // The sum and the tail are 16 bytes and a few: fold those few, off the front of the sum.
    unsigned char bytes[48] = {};
    vst1q_u8(bytes + 16, ordered<kReflected>(vreinterpretq_u8_u64(sum)));
    std::memcpy(bytes + 32, p_data, length);
    return fold(load<kReflected>(bytes + length), pairOf(constants.over16Bytes),
                load<kReflected>(bytes + 16 + length));
}

/// What dividing the 16 bytes, with 8 zero bytes behind them, by G leaves.
template <bool kReflected>
TARGET_PMULL INLINE std::uint64_t remainder(uint64x2_t sum, const FoldConstants& constants) {
    constexpr int kFirst = kReflected ? 0 : 1;
    constexpr int kLast = 1 - kFirst;
    const uint64x2_t over8 = multiplied(vgetq_lane_u64(sum, kFirst), constants.over8Bytes);
    const std::uint64_t first = vgetq_lane_u64(over8, kFirst) ^ vgetq_lane_u64(sum, kLast);
    std::uint64_t quotient = vgetq_lane_u64(multiplied(first, constants.reciprocal), kFirst);
    if constexpr (!kReflected) quotient ^= first;
    const uint64x2_t product = multiplied(quotient, constants.divisor);
    return vgetq_lane_u64(over8, kLast) ^ vgetq_lane_u64(product, kLast);
}

template <bool kReflected>
TARGET_PMULL std::uint64_t foldPmull(std::uint64_t crc, const unsigned char* p_data,
                                     std::size_t length, const FoldConstants& constants) {
    const uint64x2_t start = kReflected ? vcombine_u64(vcreate_u64(crc), vcreate_u64(0))
                                        : vcombine_u64(vcreate_u64(0), vcreate_u64(crc));
    uint64x2_t sum = veorq_u64(load<kReflected>(p_data), start);
    p_data += 16;
    length -= 16;
    if (length >= 48) {
        uint64x2_t first = sum;
        uint64x2_t second = load<kReflected>(p_data);
        uint64x2_t third = load<kReflected>(p_data + 16);
        uint64x2_t fourth = load<kReflected>(p_data + 32);
        const uint64x2_t over64 = pairOf(constants.over64Bytes);
        for (p_data += 48, length -= 48; length >= 64; p_data += 64, length -= 64) {
            first = fold(first, over64, load<kReflected>(p_data));
            second = fold(second, over64, load<kReflected>(p_data + 16));
            third = fold(third, over64, load<kReflected>(p_data + 32));
            fourth = fold(fourth, over64, load<kReflected>(p_data + 48));
        }
        fourth = fold(first, pairOf(constants.over48Bytes), fourth);
        fourth = fold(second, pairOf(constants.over32Bytes), fourth);
        sum = fold(third, pairOf(constants.over16Bytes), fourth);
    }
    const uint64x2_t over16 = pairOf(constants.over16Bytes);
    for (; length >= 16; length -= 16, p_data += 16) {
        sum = fold(sum, over16, load<kReflected>(p_data));
    }
    if (length != 0) sum = takeTail<kReflected>(sum, p_data, length, constants);
    return remainder<kReflected>(sum, constants);
}

TARGET_CRC std::uint32_t updateByInstruction(std::uint32_t crc, const unsigned char* p_data,
                                             std::size_t length) {
    for (; length >= 4; length -= 4, p_data += 4) {
        std::uint32_t word;
        std::memcpy(&word, p_data, sizeof word);
        crc = __builtin_arm_crc32w(crc, word);
    }
    for (; length != 0; --length, ++p_data) crc = __builtin_arm_crc32b(crc, *p_data);
    return crc;
}

std::uint32_t updateByBoth(std::uint32_t crc, const unsigned char* p_data, std::size_t length) {
    constexpr std::size_t kFoldPays = 64;
    if (length < kFoldPays) return updateByInstruction(crc, p_data, length);
    return narrowed<Crc32>(
        foldPmull<true>(widened<Crc32>(crc), p_data, length, kFoldConstants<Crc32>));
}

bool hasCrc32() {
    return (getauxval(AT_HWCAP2) & HWCAP2_CRC32) != 0;
}

bool hasPmull() {
    return hasCrc32() && (getauxval(AT_HWCAP2) & HWCAP2_PMULL) != 0;
}

}  // namespace

constexpr Engine kArmPmullEngine = {"PMULL", hasPmull, foldPmull<true>, foldPmull<false>,
                                    updateByBoth};
constexpr Engine kArmCrc32Engine = {"CRC32", hasCrc32, nullptr, nullptr, updateByInstruction};

}  // namespace tevalon::base::utils::crc

#endif  // TEVALON_BASE_CRC_ARM

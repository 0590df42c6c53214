#include "check_sum/crc_x86.h"

#ifdef __x86_64__

#include <cpuid.h>
#include <immintrin.h>

// Each function asks for its own instructions, so that the build needs no flag and nothing else
// in the library may come to use them.
#define TARGET_128 __attribute__((target("pclmul,sse4.1")))
#define TARGET_256 __attribute__((target("pclmul,vpclmulqdq,avx2")))
#define TARGET_512 __attribute__((target("pclmul,vpclmulqdq,avx2,avx512f,avx512bw,avx512vl,gfni")))
#define INLINE __attribute__((always_inline)) inline

namespace tevalon::base::utils::crc {
namespace {

// Vectors hold the data such that bit order is the register's: as it lies in memory where the
// CRC is reflected, else with the 16 bytes turned round.

// A window of 16 into these bytes is the shuffle that moves a vector up or down by whole bytes.
alignas(16) constexpr unsigned char kShiftWindows[48] = {
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80,
    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80};

TARGET_128 INLINE __m128i rawLoad128(const unsigned char* p_data) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p_data));
}

TARGET_128 INLINE __m128i pair128(const FoldPair& pair) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(&pair));
}

/// The shuffle that turns the 16 bytes round.
TARGET_128 INLINE __m128i turn128() {
    return _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

/// From the order in memory to the register's, or back.
template <bool kReflected>
TARGET_128 INLINE __m128i ordered128(__m128i vector) {
    return kReflected ? vector : _mm_shuffle_epi8(vector, turn128());
}

template <bool kReflected>
TARGET_128 INLINE __m128i load128(const unsigned char* p_data) {
    return ordered128<kReflected>(rawLoad128(p_data));
}

/// @p ahead, folded over the distance of @p pair, plus @p other.
TARGET_128 INLINE __m128i fold128(__m128i ahead, __m128i pair, __m128i other) {
    const __m128i low = _mm_clmulepi64_si128(ahead, pair, 0x00);
    const __m128i high = _mm_clmulepi64_si128(ahead, pair, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), other);
}

/// The register, where it meets the first 8 of 16 bytes.
template <bool kReflected>
TARGET_128 INLINE __m128i start128(std::uint64_t crc) {
    const __m128i vector = _mm_cvtsi64_si128(static_cast<long long>(crc));
    return kReflected ? vector : _mm_slli_si128(vector, 8);
}

/// Takes in the last, fewer than 16 bytes, which end at @p p_end; at least 16 lie before there.
template <bool kReflected>
TARGET_128 INLINE __m128i takeTail(__m128i sum, const unsigned char* p_end, std::size_t length,
                                   const FoldConstants& constants) {
    // The sum and the tail are 16 bytes and a few: fold those few, off the front of the sum.
    const __m128i inMemory = ordered128<kReflected>(sum);
    const __m128i toBack = rawLoad128(kShiftWindows + length);
    const __m128i toFront = rawLoad128(kShiftWindows + 16 + length);
    const __m128i ahead = _mm_shuffle_epi8(inMemory, toBack);
    const __m128i rest =
        _mm_blendv_epi8(rawLoad128(p_end - 16), _mm_shuffle_epi8(inMemory, toFront), toBack);
    return fold128(ordered128<kReflected>(ahead), pair128(constants.over16Bytes),
                   ordered128<kReflected>(rest));
}

/// What dividing the 16 bytes, with 8 zero bytes behind them, by G leaves.
template <bool kReflected>
TARGET_128 INLINE std::uint64_t remainder128(__m128i sum, const FoldConstants& constants) {
    const __m128i over8 = _mm_cvtsi64_si128(static_cast<long long>(constants.over8Bytes));
    const __m128i reciprocal = _mm_cvtsi64_si128(static_cast<long long>(constants.reciprocal));
    const __m128i divisor = _mm_cvtsi64_si128(static_cast<long long>(constants.divisor));
    if constexpr (kReflected) {
        const __m128i folded =
            _mm_xor_si128(_mm_clmulepi64_si128(sum, over8, 0x00), _mm_srli_si128(sum, 8));
        const __m128i quotient = _mm_clmulepi64_si128(folded, reciprocal, 0x00);
        const __m128i product = _mm_clmulepi64_si128(quotient, divisor, 0x00);
        return static_cast<std::uint64_t>(_mm_extract_epi64(_mm_xor_si128(folded, product), 1));
    } else {
        const __m128i folded =
            _mm_xor_si128(_mm_clmulepi64_si128(sum, over8, 0x01), _mm_slli_si128(sum, 8));
        const __m128i quotient =
            _mm_xor_si128(_mm_clmulepi64_si128(folded, reciprocal, 0x01), folded);
        const __m128i product = _mm_clmulepi64_si128(quotient, divisor, 0x01);
        return static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_xor_si128(folded, product)));
    }
}

/// Takes @p length more bytes into the sum of those before them, and divides.
template <bool kReflected>
TARGET_128 INLINE std::uint64_t finish128(__m128i sum, const unsigned char* p_data,
                                          std::size_t length, const FoldConstants& constants) {
    const __m128i over16 = pair128(constants.over16Bytes);
    for (; length >= 16; length -= 16, p_data += 16) {
        sum = fold128(sum, over16, load128<kReflected>(p_data));
    }
    if (length != 0) sum = takeTail<kReflected>(sum, p_data + length, length, constants);
    return remainder128<kReflected>(sum, constants);
}

/// Four neighbouring vectors as one.
TARGET_128 INLINE __m128i joined128(__m128i first, __m128i second, __m128i third, __m128i fourth,
                                    const FoldConstants& constants) {
    const __m128i ofFirst = fold128(first, pair128(constants.over48Bytes), fourth);
    const __m128i ofSecond = fold128(second, pair128(constants.over32Bytes), ofFirst);
    return fold128(third, pair128(constants.over16Bytes), ofSecond);
}

template <bool kReflected>
TARGET_128 INLINE std::uint64_t foldBy128(std::uint64_t crc, const unsigned char* p_data,
                                          std::size_t length, const FoldConstants& constants) {
    __m128i first = _mm_xor_si128(load128<kReflected>(p_data), start128<kReflected>(crc));
    if (length < 64) {
        return finish128<kReflected>(first, p_data + 16, length - 16, constants);
    }
    __m128i second = load128<kReflected>(p_data + 16);
    __m128i third = load128<kReflected>(p_data + 32);
    __m128i fourth = load128<kReflected>(p_data + 48);
    const __m128i over64 = pair128(constants.over64Bytes);
    for (p_data += 64, length -= 64; length >= 64; p_data += 64, length -= 64) {
        first = fold128(first, over64, load128<kReflected>(p_data));
        second = fold128(second, over64, load128<kReflected>(p_data + 16));
        third = fold128(third, over64, load128<kReflected>(p_data + 32));
        fourth = fold128(fourth, over64, load128<kReflected>(p_data + 48));
    }
    return finish128<kReflected>(joined128(first, second, third, fourth, constants), p_data, length,
                                 constants);
}

TARGET_256 INLINE __m256i pair256(const FoldPair& pair) {
    return _mm256_broadcastsi128_si256(pair128(pair));
}

template <bool kReflected>
TARGET_256 INLINE __m256i load256(const unsigned char* p_data) {
    const __m256i vector = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p_data));
    if constexpr (kReflected) return vector;
    return _mm256_shuffle_epi8(vector, _mm256_broadcastsi128_si256(turn128()));
}

TARGET_256 INLINE __m256i fold256(__m256i ahead, __m256i pair, __m256i other) {
    const __m256i low = _mm256_clmulepi64_epi128(ahead, pair, 0x00);
    const __m256i high = _mm256_clmulepi64_epi128(ahead, pair, 0x11);
    return _mm256_xor_si256(_mm256_xor_si256(low, high), other);
}

/// One neighbouring pair of vectors as one of half the size.
TARGET_256 INLINE __m128i joined256(__m256i sum, const FoldConstants& constants) {
    return fold128(_mm256_castsi256_si128(sum), pair128(constants.over16Bytes),
                   _mm256_extracti128_si256(sum, 1));
}

/// At least 64 bytes, two vectors at a time: fewer multiplications than by four smaller ones, and
/// fewer to put together in the end than with four of this size.
template <bool kReflected>
TARGET_256 INLINE std::uint64_t foldByTwo256(std::uint64_t crc, const unsigned char* p_data,
                                             std::size_t length, const FoldConstants& constants) {
    const __m256i start = _mm256_zextsi128_si256(start128<kReflected>(crc));
    __m256i first = _mm256_xor_si256(load256<kReflected>(p_data), start);
    __m256i second = load256<kReflected>(p_data + 32);
    const __m256i over64 = pair256(constants.over64Bytes);
    for (p_data += 64, length -= 64; length >= 64; p_data += 64, length -= 64) {
        first = fold256(first, over64, load256<kReflected>(p_data));
        second = fold256(second, over64, load256<kReflected>(p_data + 32));
    }
    const __m256i sum = fold256(first, pair256(constants.over32Bytes), second);
    return finish128<kReflected>(joined256(sum, constants), p_data, length, constants);
}

template <bool kReflected>
TARGET_256 INLINE std::uint64_t foldBy256(std::uint64_t crc, const unsigned char* p_data,
                                          std::size_t length, const FoldConstants& constants) {
    const __m256i start =
        _mm256_inserti128_si256(_mm256_setzero_si256(), start128<kReflected>(crc), 0);
    __m256i first = _mm256_xor_si256(load256<kReflected>(p_data), start);
    __m256i second = load256<kReflected>(p_data + 32);
    __m256i third = load256<kReflected>(p_data + 64);
    __m256i fourth = load256<kReflected>(p_data + 96);
    const __m256i over128 = pair256(constants.over128Bytes);
    for (p_data += 128, length -= 128; length >= 128; p_data += 128, length -= 128) {
        first = fold256(first, over128, load256<kReflected>(p_data));
        second = fold256(second, over128, load256<kReflected>(p_data + 32));
        third = fold256(third, over128, load256<kReflected>(p_data + 64));
        fourth = fold256(fourth, over128, load256<kReflected>(p_data + 96));
    }
    const __m256i over64 = pair256(constants.over64Bytes);
    const __m256i over32 = pair256(constants.over32Bytes);
    third = fold256(first, over64, third);
    fourth = fold256(second, over64, fourth);
    __m256i sum = fold256(third, over32, fourth);
    for (; length >= 32; p_data += 32, length -= 32) {
        sum = fold256(sum, over32, load256<kReflected>(p_data));
    }
    return finish128<kReflected>(joined256(sum, constants), p_data, length, constants);
}

// The forms with a mask, for GCC takes the unset operand of the plain ones for a mistake of ours.
TARGET_512 INLINE __m512i broadcast512(__m128i vector) {
    constexpr __mmask16 kAll = 0xFFFF;
    return _mm512_maskz_broadcast_i32x4(kAll, vector);
}

template <int kLane>
TARGET_512 INLINE __m128i lane512(__m512i vector) {
    constexpr __mmask8 kAll = 0xFF;
    return _mm512_maskz_extracti32x4_epi32(kAll, vector, kLane);
}

TARGET_512 INLINE __m512i pair512(const FoldPair& pair) {
    return broadcast512(pair128(pair));
}

TARGET_512 INLINE __m512i rawLoad512(const unsigned char* p_data) {
    return _mm512_loadu_si512(p_data);
}

TARGET_512 INLINE __m512i turned512(__m512i vector) {
    return _mm512_shuffle_epi8(vector, broadcast512(turn128()));
}

template <bool kReflected>
TARGET_512 INLINE __m512i load512(const unsigned char* p_data) {
    return kReflected ? rawLoad512(p_data) : turned512(rawLoad512(p_data));
}

/// With the bits of each byte in reverse.
TARGET_512 INLINE __m512i bitsReversed512(__m512i vector) {
    constexpr std::uint64_t kReverse = 0x8040201008040201;
    return _mm512_gf2p8affine_epi64_epi8(vector,
                                         _mm512_set1_epi64(static_cast<long long>(kReverse)), 0);
}

// Turning the bytes round competes with the multiplications for one port of the processor, and
// reversing the bits does not; so the long loop runs on reflected vectors whatever the CRC.

template <bool kReflected>
TARGET_512 INLINE __m512i toReflected512(__m512i inMemory) {
    return kReflected ? inMemory : bitsReversed512(inMemory);
}

template <bool kReflected>
TARGET_512 INLINE __m512i fromReflected512(__m512i vector) {
    return kReflected ? vector : turned512(bitsReversed512(vector));
}

template <bool kReflected>
TARGET_512 INLINE __m512i loadReflected512(const unsigned char* p_data) {
    return toReflected512<kReflected>(rawLoad512(p_data));
}

TARGET_512 INLINE __m512i fold512(__m512i ahead, __m512i pair, __m512i other) {
    const __m512i low = _mm512_clmulepi64_epi128(ahead, pair, 0x00);
    const __m512i high = _mm512_clmulepi64_epi128(ahead, pair, 0x11);
    constexpr int kXorOfThree = 0x96;
    return _mm512_ternarylogic_epi64(low, high, other, kXorOfThree);
}

template <bool kReflected>
TARGET_512 INLINE std::uint64_t foldBy512(std::uint64_t crc, const unsigned char* p_data,
                                          std::size_t length, const FoldConstants& constants) {
    const __m512i start = _mm512_inserti32x4(_mm512_setzero_si512(),
                                             ordered128<kReflected>(start128<kReflected>(crc)), 0);
    __m512i first = toReflected512<kReflected>(_mm512_xor_si512(rawLoad512(p_data), start));
    __m512i second = loadReflected512<kReflected>(p_data + 64);
    __m512i third = loadReflected512<kReflected>(p_data + 128);
    __m512i fourth = loadReflected512<kReflected>(p_data + 192);
    const __m512i over256 = pair512(constants.over256Bytes);
    for (p_data += 256, length -= 256; length >= 256; p_data += 256, length -= 256) {
        first = fold512(first, over256, loadReflected512<kReflected>(p_data));
        second = fold512(second, over256, loadReflected512<kReflected>(p_data + 64));
        third = fold512(third, over256, loadReflected512<kReflected>(p_data + 128));
        fourth = fold512(fourth, over256, loadReflected512<kReflected>(p_data + 192));
    }
    first = fromReflected512<kReflected>(first);
    second = fromReflected512<kReflected>(second);
    third = fromReflected512<kReflected>(third);
    fourth = fromReflected512<kReflected>(fourth);
    const __m512i over128 = pair512(constants.over128Bytes);
    const __m512i over64 = pair512(constants.over64Bytes);
    third = fold512(first, over128, third);
    fourth = fold512(second, over128, fourth);
    __m512i sum = fold512(third, over64, fourth);
    for (; length >= 64; p_data += 64, length -= 64) {
        sum = fold512(sum, over64, load512<kReflected>(p_data));
    }
    const __m128i joined =
        joined128(lane512<0>(sum), lane512<1>(sum), lane512<2>(sum), lane512<3>(sum), constants);
    return finish128<kReflected>(joined, p_data, length, constants);
}

// A vector of 64 bytes that is not aligned lies in two cache lines, and takes two loads.
constexpr std::size_t kAlignmentPays = 1024;

/// How many bytes to take in so that the rest is aligned to 64: none, or as many as a fold takes.
INLINE std::size_t bytesToAligned(const unsigned char* p_data) {
    const std::size_t ahead = (0 - reinterpret_cast<std::uintptr_t>(p_data)) % 64;
    return ahead == 0 || ahead >= kFoldMinimum ? ahead : ahead + 64;
}

// The wide vectors pay only once all four of theirs are full.

template <bool kReflected>
TARGET_128 std::uint64_t foldPclmul(std::uint64_t crc, const unsigned char* p_data,
                                    std::size_t length, const FoldConstants& constants) {
    return foldBy128<kReflected>(crc, p_data, length, constants);
}

template <bool kReflected>
TARGET_256 std::uint64_t foldAvx2(std::uint64_t crc, const unsigned char* p_data,
                                  std::size_t length, const FoldConstants& constants) {
    if (length < 64) return foldBy128<kReflected>(crc, p_data, length, constants);
    if (length < 128) return foldByTwo256<kReflected>(crc, p_data, length, constants);
    return foldBy256<kReflected>(crc, p_data, length, constants);
}

template <bool kReflected>
TARGET_512 std::uint64_t foldAvx512(std::uint64_t crc, const unsigned char* p_data,
                                    std::size_t length, const FoldConstants& constants) {
    if (length < 64) return foldBy128<kReflected>(crc, p_data, length, constants);
    if (length < 256) return foldByTwo256<kReflected>(crc, p_data, length, constants);
    if (length >= kAlignmentPays) {
        const std::size_t ahead = bytesToAligned(p_data);
        if (ahead != 0) crc = foldBy128<kReflected>(crc, p_data, ahead, constants);
        p_data += ahead;
        length -= ahead;
    }
    return foldBy512<kReflected>(crc, p_data, length, constants);
}

// Asked for here: the compiler's own __builtin_cpu_supports() brings a constructor that asks for
// all there is when the library is loaded, and under a hypervisor each question is an exit to it.
struct Features {
    unsigned int leaf1Ecx = 0;
    unsigned int leaf7Ebx = 0;
    unsigned int leaf7Ecx = 0;
    unsigned int savedState = 0;  // The registers that the system keeps for each thread: XCR0.
};

Features readFeatures() {
    Features features;
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int edx = 0;
    const auto maxLeaf = static_cast<unsigned int>(__get_cpuid_max(0, nullptr));
    if (maxLeaf >= 1) __cpuid(1, eax, ebx, features.leaf1Ecx, edx);
    if (maxLeaf >= 7) __cpuid_count(7, 0, eax, features.leaf7Ebx, features.leaf7Ecx, edx);
    if ((features.leaf1Ecx & bit_OSXSAVE) != 0) {
        __asm__("xgetbv" : "=a"(features.savedState), "=d"(edx) : "c"(0));
    }
    return features;
}

constexpr bool hasAll(unsigned int bits, unsigned int wanted) {
    return (bits & wanted) == wanted;
}

bool hasPclmul(const Features& features) {
    return hasAll(features.leaf1Ecx, bit_PCLMUL | bit_SSE4_1);
}

bool hasWidePclmul(const Features& features) {
    constexpr unsigned int kVectorState = 0x06;  // SSE and AVX.
    return hasPclmul(features) && hasAll(features.savedState, kVectorState) &&
           hasAll(features.leaf7Ebx, bit_AVX2) && hasAll(features.leaf7Ecx, bit_VPCLMULQDQ);
}

bool hasWidestPclmul(const Features& features) {
    constexpr unsigned int kWidestState = 0xE6;  // These, the masks and both parts of AVX-512.
    constexpr unsigned int kAvx512 = static_cast<unsigned int>(bit_AVX512F) |
                                     static_cast<unsigned int>(bit_AVX512BW) |
                                     static_cast<unsigned int>(bit_AVX512VL);
    return hasWidePclmul(features) && hasAll(features.savedState, kWidestState) &&
           hasAll(features.leaf7Ebx, kAvx512) && hasAll(features.leaf7Ecx, bit_GFNI);
}

template <bool (*kHas)(const Features&)>
bool isSupported() {
    return kHas(readFeatures());
}

}  // namespace

constexpr Engine kPclmulEngine = {"PCLMULQDQ", isSupported<hasPclmul>, foldPclmul<true>,
                                  foldPclmul<false>, nullptr};
constexpr Engine kAvx2Engine = {"VPCLMULQDQ 256", isSupported<hasWidePclmul>, foldAvx2<true>,
                                foldAvx2<false>, nullptr};
constexpr Engine kAvx512Engine = {"VPCLMULQDQ 512", isSupported<hasWidestPclmul>, foldAvx512<true>,
                                  foldAvx512<false>, nullptr};

}  // namespace tevalon::base::utils::crc

#endif  // __x86_64__

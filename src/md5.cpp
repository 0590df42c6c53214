#include "base/utils/md5.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <ostream>

// The rounds are one long chain of dependent additions; a call in between, or a word that goes
// through memory, shows at once.
#if defined(__GNUC__)
#define ALWAYS_INLINE __attribute__((always_inline)) inline
#else
#define ALWAYS_INLINE inline
#endif

// std::cout without <iostream>, which sets up every stream and the locale when the library is
// loaded: a tenth of a process's start, in each process, for the one function that prints.
#ifdef __GLIBCXX__
namespace std {
extern ostream cout;  // NOLINT(cert-dcl58-cpp): the declaration of <iostream>.
}
#else
#include <iostream>
#endif

namespace tevalon::base::utils {
namespace {

constexpr unsigned int kBlockSize = 64;
constexpr unsigned int kCountOffset = 56;  // Where the last block holds the bit count.

struct State {
    std::uint32_t a, b, c, d;
};

// Little-endian bytes to a word and back, whatever the alignment; the length is in bytes.
ALWAYS_INLINE std::uint32_t decode(const unsigned char* input) {
    return static_cast<std::uint32_t>(input[0]) | static_cast<std::uint32_t>(input[1]) << 8 |
           static_cast<std::uint32_t>(input[2]) << 16 | static_cast<std::uint32_t>(input[3]) << 24;
}

void encode(unsigned char* output, const std::uint32_t* input, unsigned int length) {
    for (unsigned int i = 0; i < length; i += 4, ++input) {
        output[i] = static_cast<unsigned char>(*input);
        output[i + 1] = static_cast<unsigned char>(*input >> 8);
        output[i + 2] = static_cast<unsigned char>(*input >> 16);
        output[i + 3] = static_cast<unsigned char>(*input >> 24);
    }
}

// The 16 words of a block, read where they lie.
struct Words {
    const unsigned char* p_block;

    ALWAYS_INLINE std::uint32_t operator[](unsigned int i) const {
        return decode(p_block + std::size_t{4} * i);
    }
};

template <int kShift>
constexpr std::uint32_t rotatedLeft(std::uint32_t word) {
    return word << kShift | word >> (32 - kShift);
}

// Ends a sum here: left alone, compilers regroup the additions of a step, and then the late
// operand is waited for too soon. Makes no instruction.
ALWAYS_INLINE void keepApart(std::uint32_t& word) {
#if defined(__GNUC__)
    __asm__("" : "+r"(word));
#else
    (void)word;
#endif
}

// The four step functions of RFC 1321. A step waits for b alone, which the step before it has
// just made, so each adds to a first whatever can be had without b.
template <int kShift>
ALWAYS_INLINE void stepF(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                         std::uint32_t addend) {
    a += addend;
    keepApart(a);
    a += d ^ (b & (c ^ d));
    a = b + rotatedLeft<kShift>(a);
}

template <int kShift>
ALWAYS_INLINE void stepG(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                         std::uint32_t addend) {
    a += addend;
    keepApart(a);
    // (b & d) | (c & ~d): the two never have a bit in common, so that a sum does for the or.
    a += c & ~d;
    keepApart(a);
    a += b & d;
    a = b + rotatedLeft<kShift>(a);
}

template <int kShift>
ALWAYS_INLINE void stepH(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                         std::uint32_t addend) {
    a += addend;
    keepApart(a);
    a += b ^ (c ^ d);
    a = b + rotatedLeft<kShift>(a);
}

template <int kShift>
ALWAYS_INLINE void stepI(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d,
                         std::uint32_t addend) {
    a += addend;
    keepApart(a);
    a += c ^ (b | ~d);
    a = b + rotatedLeft<kShift>(a);
}

// clang-format off
ALWAYS_INLINE void roundF(State& state, Words x) {
    auto& [a, b, c, d] = state;
    stepF< 7>(a, b, c, d, x[ 0] + 0xD76AA478); stepF<12>(d, a, b, c, x[ 1] + 0xE8C7B756);
    stepF<17>(c, d, a, b, x[ 2] + 0x242070DB); stepF<22>(b, c, d, a, x[ 3] + 0xC1BDCEEE);
    stepF< 7>(a, b, c, d, x[ 4] + 0xF57C0FAF); stepF<12>(d, a, b, c, x[ 5] + 0x4787C62A);
    stepF<17>(c, d, a, b, x[ 6] + 0xA8304613); stepF<22>(b, c, d, a, x[ 7] + 0xFD469501);
    stepF< 7>(a, b, c, d, x[ 8] + 0x698098D8); stepF<12>(d, a, b, c, x[ 9] + 0x8B44F7AF);
    stepF<17>(c, d, a, b, x[10] + 0xFFFF5BB1); stepF<22>(b, c, d, a, x[11] + 0x895CD7BE);
    stepF< 7>(a, b, c, d, x[12] + 0x6B901122); stepF<12>(d, a, b, c, x[13] + 0xFD987193);
    stepF<17>(c, d, a, b, x[14] + 0xA679438E); stepF<22>(b, c, d, a, x[15] + 0x49B40821);
}

ALWAYS_INLINE void roundG(State& state, Words x) {
    auto& [a, b, c, d] = state;
    stepG< 5>(a, b, c, d, x[ 1] + 0xF61E2562); stepG< 9>(d, a, b, c, x[ 6] + 0xC040B340);
    stepG<14>(c, d, a, b, x[11] + 0x265E5A51); stepG<20>(b, c, d, a, x[ 0] + 0xE9B6C7AA);
    stepG< 5>(a, b, c, d, x[ 5] + 0xD62F105D); stepG< 9>(d, a, b, c, x[10] + 0x02441453);
    stepG<14>(c, d, a, b, x[15] + 0xD8A1E681); stepG<20>(b, c, d, a, x[ 4] + 0xE7D3FBC8);
    stepG< 5>(a, b, c, d, x[ 9] + 0x21E1CDE6); stepG< 9>(d, a, b, c, x[14] + 0xC33707D6);
    stepG<14>(c, d, a, b, x[ 3] + 0xF4D50D87); stepG<20>(b, c, d, a, x[ 8] + 0x455A14ED);
    stepG< 5>(a, b, c, d, x[13] + 0xA9E3E905); stepG< 9>(d, a, b, c, x[ 2] + 0xFCEFA3F8);
    stepG<14>(c, d, a, b, x[ 7] + 0x676F02D9); stepG<20>(b, c, d, a, x[12] + 0x8D2A4C8A);
}

ALWAYS_INLINE void roundH(State& state, Words x) {
    auto& [a, b, c, d] = state;
    stepH< 4>(a, b, c, d, x[ 5] + 0xFFFA3942); stepH<11>(d, a, b, c, x[ 8] + 0x8771F681);
    stepH<16>(c, d, a, b, x[11] + 0x6D9D6122); stepH<23>(b, c, d, a, x[14] + 0xFDE5380C);
    stepH< 4>(a, b, c, d, x[ 1] + 0xA4BEEA44); stepH<11>(d, a, b, c, x[ 4] + 0x4BDECFA9);
    stepH<16>(c, d, a, b, x[ 7] + 0xF6BB4B60); stepH<23>(b, c, d, a, x[10] + 0xBEBFBC70);
    stepH< 4>(a, b, c, d, x[13] + 0x289B7EC6); stepH<11>(d, a, b, c, x[ 0] + 0xEAA127FA);
    stepH<16>(c, d, a, b, x[ 3] + 0xD4EF3085); stepH<23>(b, c, d, a, x[ 6] + 0x04881D05);
    stepH< 4>(a, b, c, d, x[ 9] + 0xD9D4D039); stepH<11>(d, a, b, c, x[12] + 0xE6DB99E5);
    stepH<16>(c, d, a, b, x[15] + 0x1FA27CF8); stepH<23>(b, c, d, a, x[ 2] + 0xC4AC5665);
}

ALWAYS_INLINE void roundI(State& state, Words x) {
    auto& [a, b, c, d] = state;
    stepI< 6>(a, b, c, d, x[ 0] + 0xF4292244); stepI<10>(d, a, b, c, x[ 7] + 0x432AFF97);
    stepI<15>(c, d, a, b, x[14] + 0xAB9423A7); stepI<21>(b, c, d, a, x[ 5] + 0xFC93A039);
    stepI< 6>(a, b, c, d, x[12] + 0x655B59C3); stepI<10>(d, a, b, c, x[ 3] + 0x8F0CCC92);
    stepI<15>(c, d, a, b, x[10] + 0xFFEFF47D); stepI<21>(b, c, d, a, x[ 1] + 0x85845DD1);
    stepI< 6>(a, b, c, d, x[ 8] + 0x6FA87E4F); stepI<10>(d, a, b, c, x[15] + 0xFE2CE6E0);
    stepI<15>(c, d, a, b, x[ 6] + 0xA3014314); stepI<21>(b, c, d, a, x[13] + 0x4E0811A1);
    stepI< 6>(a, b, c, d, x[ 4] + 0xF7537E82); stepI<10>(d, a, b, c, x[11] + 0xBD3AF235);
    stepI<15>(c, d, a, b, x[ 2] + 0x2AD7D2BB); stepI<21>(b, c, d, a, x[ 9] + 0xEB86D391);
}
// clang-format on

}  // namespace

MD5::MD5(const std::string& text) {
    init();
    // One update takes no more than a 32-bit length.
    constexpr std::size_t kLongest = std::numeric_limits<unsigned int>::max();
    for (std::size_t done = 0; done < text.size();) {
        const std::size_t length = std::min(text.size() - done, kLongest);
        update(text.data() + done, static_cast<unsigned int>(length));
        done += length;
    }
    finalize();
}

void MD5::init() {
    m_finalized = false;
    m_count[0] = 0;
    m_count[1] = 0;
    m_state[0] = 0x67452301;
    m_state[1] = 0xEFCDAB89;
    m_state[2] = 0x98BADCFE;
    m_state[3] = 0x10325476;
}

void MD5::update(const unsigned char* input, unsigned int length) {
    if (length == 0) return;  // The input may be null then.

    const unsigned int index = bytesInBuffer();
    const std::uint32_t addedBits = length << 3;
    m_count[0] += addedBits;
    if (m_count[0] < addedBits) ++m_count[1];
    m_count[1] += length >> 29;

    if (index != 0) {
        const unsigned int taken = std::min(length, kBlockSize - index);
        std::memcpy(m_buffer + index, input, taken);
        if (index + taken < kBlockSize) return;
        transform(m_buffer, 1);
        input += taken;
        length -= taken;
    }
    transform(input, length / kBlockSize);
    const unsigned int rest = length % kBlockSize;
    std::memcpy(m_buffer, input + (length - rest), rest);
}

void MD5::update(const char* input, unsigned int length) {
    update(reinterpret_cast<const unsigned char*>(input), length);
}

MD5& MD5::finalize() {
    if (m_finalized) return *this;

    unsigned int used = bytesInBuffer();
    m_buffer[used++] = 0x80;
    if (used > kCountOffset) {
        std::memset(m_buffer + used, 0, kBlockSize - used);
        transform(m_buffer, 1);
        used = 0;
    }
    std::memset(m_buffer + used, 0, kCountOffset - used);
    encode(m_buffer + kCountOffset, m_count, sizeof m_count);
    transform(m_buffer, 1);
    encode(m_digest, m_state, sizeof m_digest);

    std::memset(m_buffer, 0, sizeof m_buffer);
    m_count[0] = 0;
    m_count[1] = 0;
    m_finalized = true;
    return *this;
}

std::string MD5::hexDigest() const {
    if (!m_finalized) return {};
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * sizeof m_digest);
    for (const unsigned char byte : m_digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string MD5::binDigest() const {
    if (!m_finalized) return {};
    return std::string(std::begin(m_digest), std::end(m_digest));
}

std::string MD5::md5() const {
    return hexDigest();
}

void MD5::changeFinalized(bool value, MD5 other) {
    m_finalized = value;
    output(other);
}

unsigned int MD5::bytesInBuffer() const {
    return (m_count[0] >> 3) % kBlockSize;
}

void MD5::transform(const unsigned char* blocks, unsigned int count) {
    State state = {m_state[0], m_state[1], m_state[2], m_state[3]};
    for (; count != 0; --count, blocks += kBlockSize) {
        const Words words = {blocks};
        State mixed = state;
        roundF(mixed, words);
        roundG(mixed, words);
        roundH(mixed, words);
        roundI(mixed, words);
        state.a += mixed.a;
        state.b += mixed.b;
        state.c += mixed.c;
        state.d += mixed.d;
    }
    m_state[0] = state.a;
    m_state[1] = state.b;
    m_state[2] = state.c;
    m_state[3] = state.d;
}

std::ostream& operator<<(std::ostream& out, MD5 md5) {
    return out << md5.hexDigest();
}

void output(MD5 md5) {
    const std::ios_base::Init streams;  // What a client's <iostream> would have done.
    std::cout << md5 << std::endl;
}

}  // namespace tevalon::base::utils

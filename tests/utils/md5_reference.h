// md5_reference.h: MD5, written for plainness from RFC 1321.

#ifndef TESTS_UTILS_MD5_REFERENCE_H
#define TESTS_UTILS_MD5_REFERENCE_H

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace tevalon::base::test {

using Md5State = std::array<std::uint32_t, 4>;
using Md5Block = std::array<unsigned char, 64>;

inline constexpr Md5State kMd5Start = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};

/// RFC 1321, 3.4: the table T.
inline const std::array<std::uint32_t, 64>& md5SineTable() {
    static const auto table = [] {
        std::array<std::uint32_t, 64> sines;
        for (unsigned i = 0; i < 64; ++i) {
            sines[i] = static_cast<std::uint32_t>(std::fabs(std::sin(i + 1.0)) * 4294967296.0);
        }
        return sines;
    }();
    return table;
}

/// RFC 1321, 3.4: the state after one more block.
inline Md5State md5Compressed(const Md5State& state, const Md5Block& block) {
    constexpr unsigned kShifts[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    auto [a, b, c, d] = state;
    for (unsigned i = 0; i < 64; ++i) {
        const unsigned round = i / 16;
        std::uint32_t mixed = 0;
        unsigned word = 0;
        if (round == 0) {
            mixed = (b & c) | (~b & d);
            word = i;
        } else if (round == 1) {
            mixed = (b & d) | (c & ~d);
            word = (5 * i + 1) % 16;
        } else if (round == 2) {
            mixed = b ^ c ^ d;
            word = (3 * i + 5) % 16;
        } else {
            mixed = c ^ (b | ~d);
            word = 7 * i % 16;
        }
        std::uint32_t x = 0;
        for (unsigned byte = 0; byte < 4; ++byte) {
            x |= static_cast<std::uint32_t>(block[4 * word + byte]) << 8 * byte;
        }
        const std::uint32_t sum = a + mixed + x + md5SineTable()[i];
        const unsigned shift = kShifts[round][i % 4];
        a = d;
        d = c;
        c = b;
        b += sum << shift | sum >> (32 - shift);
    }
    return {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
}

/// The 16 raw bytes of the digest of a whole message.
inline std::string md5Digest(const unsigned char* p_data, std::size_t length) {
    std::vector<unsigned char> padded(p_data, p_data + length);
    padded.push_back(0x80);
    while (padded.size() % 64 != 56) padded.push_back(0);
    const std::uint64_t bits = std::uint64_t{8} * length;
    for (unsigned shift = 0; shift < 64; shift += 8) {
        padded.push_back(static_cast<unsigned char>(bits >> shift));
    }
    Md5State state = kMd5Start;
    for (std::size_t i = 0; i < padded.size(); i += 64) {
        Md5Block block;
        std::memcpy(block.data(), &padded[i], block.size());
        state = md5Compressed(state, block);
    }
    std::string digest;
    for (const std::uint32_t word : state) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            digest += static_cast<char>(word >> shift & 0xFF);
        }
    }
    return digest;
}

}  // namespace tevalon::base::test

#endif  // TESTS_UTILS_MD5_REFERENCE_H

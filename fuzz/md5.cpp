// MD5 over pieces, beside the steps of RFC 1321 one after the other.

#include "base/utils/md5.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/expect.h"
#include "support/input.h"

namespace {

using tevalon::base::utils::MD5;

class Model {
public:
    void init() {
        m_isFinal = false;
        m_bits = 0;
        m_rest.clear();
        m_state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    }

    void update(const std::string& bytes) {
        m_bits += 8 * std::uint64_t{bytes.size()};
        m_rest += bytes;
        while (m_rest.size() >= 64) {
            transform(m_rest.substr(0, 64));
            m_rest.erase(0, 64);
        }
    }

    void finalize() {
        if (m_isFinal) return;
        std::string end(1, '\x80');
        while ((m_rest.size() + end.size()) % 64 != 56) end += '\0';
        for (unsigned i = 0; i < 8; ++i) end += static_cast<char>(m_bits >> (8 * i) & 0xFF);
        update(end);
        m_digest.clear();
        for (const std::uint32_t word : m_state) {
            for (unsigned i = 0; i < 4; ++i) m_digest += static_cast<char>(word >> (8 * i) & 0xFF);
        }
        m_bits = 0;
        m_isFinal = true;
    }

    void setFinal(bool isFinal) { m_isFinal = isFinal; }

    std::string binary() const { return m_isFinal ? m_digest : std::string(); }

    std::string hexadecimal() const {
        constexpr const char* kDigits = "0123456789abcdef";
        std::string text;
        for (const char c : binary()) {
            const auto byte = static_cast<unsigned char>(c);
            text += {kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
        return text;
    }

private:
    static std::uint32_t rotated(std::uint32_t word, unsigned count) {
        return word << count | word >> (32 - count);
    }

    void transform(const std::string& block) {
        constexpr unsigned kRotations[4][4] = {
            {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
        std::array<std::uint32_t, 16> words = {};
        for (std::size_t i = 0; i < 64; ++i) {
            const std::uint32_t byte = static_cast<unsigned char>(block[i]);
            words[i / 4] |= byte << (8 * (i % 4));
        }
        auto [a, b, c, d] = m_state;
        for (unsigned i = 0; i < 64; ++i) {
            const std::uint32_t functions[4] = {(b & c) | (~b & d), (b & d) | (c & ~d), b ^ c ^ d,
                                                c ^ (b | ~d)};
            const unsigned indices[4] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
            const unsigned round = i / 16;
            const auto sine = static_cast<std::uint32_t>(
                std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0));
            const std::uint32_t sum = a + functions[round] + words[indices[round] % 16] + sine;
            a = d;
            d = c;
            c = b;
            b += rotated(sum, kRotations[round][i % 4]);
        }
        m_state = {m_state[0] + a, m_state[1] + b, m_state[2] + c, m_state[3] + d};
    }

    bool m_isFinal = false;
    std::uint64_t m_bits = 0;
    std::string m_rest;
    std::array<std::uint32_t, 4> m_state = {};
    std::string m_digest;
};

struct Pair {
    Pair() { model.init(); }

    MD5 md5;
    Model model;
};

void compare(const Pair& pair) {
    fuzz::expectEqual(pair.md5.hexDigest(), pair.model.hexadecimal(), "the hexadecimal digest");
    fuzz::expectEqual(pair.md5.md5(), pair.model.hexadecimal(), "md5()");
    fuzz::expectEqual(pair.md5.binDigest(), pair.model.binary(), "the digest");
    std::ostringstream out;
    out << pair.md5;
    fuzz::expectEqual(out.str(), pair.model.hexadecimal(), "what is written to a stream");
}

void update(fuzz::Input* p_input, Pair* p_pair) {
    std::string bytes = p_input->text(200);
    // Some blocks at once.
    for (std::size_t i = p_input->below(3); i > 0; --i) bytes += bytes;
    const auto length = static_cast<unsigned int>(bytes.size());
    if (p_input->flag()) {
        p_pair->md5.update(bytes.data(), length);
    } else {
        p_pair->md5.update(reinterpret_cast<const unsigned char*>(bytes.data()), length);
    }
    p_pair->model.update(bytes);
}

void changeFinalized(fuzz::Input* p_input, Pair* p_pair, const Pair& other) {
    std::ostringstream out;
    std::streambuf* const p_before = std::cout.rdbuf(out.rdbuf());
    const bool isFinal = p_input->flag();
    p_pair->md5.changeFinalized(isFinal, other.md5);
    std::cout.rdbuf(p_before);
    fuzz::expectEqual(out.str(), other.model.hexadecimal() + "\n", "what is printed");
    p_pair->model.setFinal(isFinal);
}

void compareWhole(const std::string& text) {
    Model model;
    model.init();
    model.update(text);
    model.finalize();
    fuzz::expectEqual(MD5(text).hexDigest(), model.hexadecimal(), "the digest of a text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    std::array<Pair, 2> pairs;
    while (!input.isAtEnd()) {
        const std::uint8_t operation = input.byte();
        Pair& pair = pairs[operation >> 7];
        Pair& other = pairs[1 - (operation >> 7)];
        switch (operation % 8) {
            case 0:
                pair.md5.init();
                pair.model.init();
                break;
            case 1:
                fuzz::expect(&pair.md5.finalize() == &pair.md5, "what finalize() returns");
                pair.model.finalize();
                break;
            case 2:
                pair = other;
                break;
            case 3:
                // What it held before nobody promises: reopened, it may only be finalized again.
                if (pair.md5.hexDigest().empty()) pair.md5.finalize(), pair.model.finalize();
                compare(pair);
                changeFinalized(&input, &pair, input.flag() ? pair : Pair(other));
                break;
            case 4:
                compareWhole(input.text(255));
                break;
            default:
                update(&input, &pair);
        }
        compare(pair);
    }
    return 0;
}

#include <cstdint>
#include <string>

#include "base/utils.h"
#include "sample_bytes.h"

#ifdef HAVE_ZLIB
#include <zlib.h>
#endif
#ifdef HAVE_BOOST
#include <boost/crc.hpp>
#endif
#ifdef HAVE_ISAL
#include <isa-l/crc.h>
#include <isa-l/crc64.h>
#endif

namespace {

using tevalon::base::utils::CheckSum;

template <typename Sum>
void sumSamples(benchmark::State& state, Sum sum) {
    const std::vector<unsigned char> bytes = sampleBytes(state);
    for (auto _ : state) benchmark::DoNotOptimize(sum(bytes.data(), bytes.size()));
    countBytes(state);
}

// ---- each of ours, beside its plain byte table, at full optimisation in this very file ----

template <typename Register, unsigned kWidth, std::uint64_t kPolynomial, bool kReflected>
struct ByteTable {
    Register entry[256] = {};

    constexpr ByteTable() {
        for (unsigned byte = 0; byte < 256; ++byte) {
            std::uint64_t crc = kReflected ? byte : std::uint64_t{byte} << (kWidth - 8);
            for (unsigned bit = 0; bit < 8; ++bit) crc = step(crc);
            entry[byte] = static_cast<Register>(crc);
        }
    }

    static constexpr std::uint64_t step(std::uint64_t crc) {
        if (kReflected) return (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
        const bool isCarried = ((crc >> (kWidth - 1)) & 1) != 0;
        return (crc << 1) ^ (isCarried ? kPolynomial : 0);
    }

    Register sum(const unsigned char* p_bytes, std::size_t length, Register crc) const {
        for (const unsigned char* p_end = p_bytes + length; p_bytes != p_end; ++p_bytes) {
            if constexpr (kReflected) {
                crc = static_cast<Register>((kWidth > 8 ? crc >> 8 : 0) ^
                                            entry[(crc ^ *p_bytes) & 0xFFU]);
            } else {
                const auto top = static_cast<unsigned char>(crc >> (kWidth - 8));
                crc = static_cast<Register>((kWidth > 8 ? std::uint64_t{crc} << 8 : 0) ^
                                            entry[top ^ *p_bytes]);
            }
        }
        return crc;
    }
};

constexpr ByteTable<std::uint8_t, 8, 0x31, false> kTable8;
constexpr ByteTable<std::uint16_t, 16, 0xA001, true> kTable16;
constexpr ByteTable<std::uint16_t, 16, 0x1021, false> kTableCcitt;
constexpr ByteTable<std::uint16_t, 16, 0xA6BC, true> kTableDnp;
constexpr ByteTable<std::uint16_t, 16, 0x8408, true> kTableKermit;
constexpr ByteTable<std::uint32_t, 32, 0xEDB88320, true> kTable32;
constexpr ByteTable<std::uint64_t, 64, 0x42F0E1EBA9EA3693, false> kTable64;

#define OURS(name, function)                                                   \
    void name##Ours(benchmark::State& state) {                                 \
        sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) {    \
            return CheckSum().function(p_bytes, static_cast<unsigned int>(n)); \
        });                                                                    \
    }                                                                          \
    BENCHMARK(name##Ours)->Apply(sampleSizes)

#define BYTE_TABLE(name, table)                                             \
    void name##ByteTable(benchmark::State& state) {                         \
        sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) { \
            return table.sum(p_bytes, n, 0);                                \
        });                                                                 \
    }                                                                       \
    BENCHMARK(name##ByteTable)->Apply(sampleSizes)

OURS(Crc8, crc_8);
BYTE_TABLE(Crc8, kTable8);
OURS(Crc16, crc_16);
BYTE_TABLE(Crc16, kTable16);
OURS(CrcXmodem, crc_xmodem);
BYTE_TABLE(CrcXmodem, kTableCcitt);
OURS(CrcDnp, crc_dnp);
BYTE_TABLE(CrcDnp, kTableDnp);
OURS(CrcKermit, crc_kermit);
BYTE_TABLE(CrcKermit, kTableKermit);
OURS(Crc32, crc_32);
BYTE_TABLE(Crc32, kTable32);
OURS(Crc64, crc_64_ecma);
BYTE_TABLE(Crc64, kTable64);
OURS(CrcSick, crc_sick);  // Has no table to stand beside.

// ---- the peers ----

#ifdef HAVE_ZLIB
void Crc32Zlib(benchmark::State& state) {
    sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) {
        return crc32(0, p_bytes, static_cast<unsigned int>(n));
    });
}
BENCHMARK(Crc32Zlib)->Apply(sampleSizes);
#endif

#ifdef HAVE_BOOST
void Crc32Boost(benchmark::State& state) {
    sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) {
        boost::crc_32_type crc;
        crc.process_bytes(p_bytes, n);
        return crc.checksum();
    });
}
BENCHMARK(Crc32Boost)->Apply(sampleSizes);
#endif

#ifdef HAVE_ISAL
void Crc32Isal(benchmark::State& state) {
    sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) {
        return crc32_gzip_refl(0, p_bytes, n);
    });
}
BENCHMARK(Crc32Isal)->Apply(sampleSizes);

void Crc64Isal(benchmark::State& state) {
    sumSamples(state, [](const unsigned char* p_bytes, std::size_t n) {
        return crc64_ecma_norm(0, p_bytes, n);
    });
}
BENCHMARK(Crc64Isal)->Apply(sampleSizes);
#endif

}  // namespace

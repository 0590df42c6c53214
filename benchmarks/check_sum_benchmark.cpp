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

namespace bench {
namespace {

using tevalon::base::utils::CheckSum;

template <typename Sum>
void addSumRows(const std::string& task, const char* peer, Sum sum) {
    addSampleRows(task, peer, [sum](const std::vector<unsigned char>& bytes) {
        benchmark::DoNotOptimize(sum(bytes.data(), bytes.size()));
    });
}

// ---- ours ----

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

// A member of CheckSum as a callable.
template <typename Register, typename Length>
auto ours(Register (CheckSum::*p_sum)(const unsigned char*, Length)) {
    return [p_sum](const unsigned char* p_bytes, std::size_t length) {
        return (CheckSum().*p_sum)(p_bytes, static_cast<Length>(length));
    };
}

// Each beside its byte table, at full optimisation in this very file.
template <typename Sum, typename Table>
void addRowsBesideTable(const std::string& task, Sum sum, const Table* p_table) {
    addSumRows(task, kOurs, ours(sum));
    addSumRows(task, kPlain, [p_table](const unsigned char* p_bytes, std::size_t length) {
        return p_table->sum(p_bytes, length, 0);
    });
}

void addOurRows() {
    addRowsBesideTable("crc8", &CheckSum::crc_8, &kTable8);
    addRowsBesideTable("crc16", &CheckSum::crc_16, &kTable16);
    addRowsBesideTable("crc_xmodem", &CheckSum::crc_xmodem, &kTableCcitt);
    addRowsBesideTable("crc_dnp", &CheckSum::crc_dnp, &kTableDnp);
    addRowsBesideTable("crc_kermit", &CheckSum::crc_kermit, &kTableKermit);
    addRowsBesideTable("crc32", &CheckSum::crc_32, &kTable32);
    addRowsBesideTable("crc64", &CheckSum::crc_64_ecma, &kTable64);
    addSumRows("crc_sick", kOurs, ours(&CheckSum::crc_sick));  // Has no table to stand beside.
}

// ---- the peers ----

void addPeerRows() {
#ifdef HAVE_ZLIB
    addSumRows("crc32", "zlib", [](const unsigned char* p_bytes, std::size_t n) {
        return crc32(0, p_bytes, static_cast<unsigned int>(n));
    });
#endif
#ifdef HAVE_BOOST
    addSumRows("crc32", "Boost.CRC", [](const unsigned char* p_bytes, std::size_t n) {
        boost::crc_32_type crc;
        crc.process_bytes(p_bytes, n);
        return crc.checksum();
    });
#endif
#ifdef HAVE_ISAL
    addSumRows("crc32", "ISA-L", [](const unsigned char* p_bytes, std::size_t n) {
        return crc32_gzip_refl(0, p_bytes, n);
    });
    addSumRows("crc64", "ISA-L", [](const unsigned char* p_bytes, std::size_t n) {
        return crc64_ecma_norm(0, p_bytes, n);
    });
#endif
}

const bool s_areRowsAdded = [] {
    addOurRows();
    addPeerRows();
    return true;
}();

}  // namespace
}  // namespace bench

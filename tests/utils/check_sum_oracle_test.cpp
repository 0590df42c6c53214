#include <gtest/gtest.h>
#include <zlib.h>

#include <boost/crc.hpp>
#include <cstddef>
#include <cstdint>

#include "base/utils/check_sum.h"
#include "random_bytes.h"

// The CRCs against those of zlib and Boost.CRC.

namespace tevalon::base::utils {
namespace {

using test::randomBytes;

std::uint64_t bytesSwapped(std::uint64_t value) {
    return (value >> 8 | value << 8) & 0xFFFF;
}

TEST(CheckSumOracleTest, Crc32AgreesWithZlib) {
    CheckSum sum;
    const auto data = randomBytes(100'000, 4);
    for (unsigned int length = 0; length < data.size(); length += 1 + length / 7) {
        ASSERT_EQ(sum.crc_32(data.data() + length % 3, length - length % 3),
                  crc32(0, data.data() + length % 3, length - length % 3));
    }
}

template <class BoostCrc>
std::uint64_t boostCrc(const unsigned char* data, std::size_t length) {
    BoostCrc crc;
    crc.process_bytes(data, length);
    return crc.checksum();
}

TEST(CheckSumOracleTest, AgreesWithBoost) {
    using boost::crc_optimal;
    CheckSum sum;
    const auto data = randomBytes(20'000, 5);
    const unsigned char* p = data.data();
    for (unsigned int length = 0; length < data.size(); length += 1 + length / 5) {
        SCOPED_TRACE(length);
        EXPECT_EQ(sum.crc_8(p, length),
                  (boostCrc<crc_optimal<8, 0x31, 0, 0, false, false>>(p, length)));
        EXPECT_EQ(sum.crc_16(p, length), boostCrc<boost::crc_16_type>(p, length));
        EXPECT_EQ(sum.crc_modbus(p, length),
                  (boostCrc<crc_optimal<16, 0x8005, 0xFFFF, 0, true, true>>(p, length)));
        EXPECT_EQ(sum.crc_32(p, length), boostCrc<boost::crc_32_type>(p, length));
        EXPECT_EQ(sum.crc_32_mpeg_2(p, length),
                  (boostCrc<crc_optimal<32, 0x04C11DB7, 0xFFFFFFFF, 0, false, false>>(p, length)));
        EXPECT_EQ(sum.crc_xmodem(p, length),
                  (boostCrc<crc_optimal<16, 0x1021, 0, 0, false, false>>(p, length)));
        EXPECT_EQ(sum.crc_ccitt_1d0f(p, length),
                  (boostCrc<crc_optimal<16, 0x1021, 0x1D0F, 0, false, false>>(p, length)));
        EXPECT_EQ(sum.crc_ccitt_ffff(p, length), boostCrc<boost::crc_ccitt_type>(p, length));
        EXPECT_EQ(
            sum.crc_dnp(p, length),
            bytesSwapped(boostCrc<crc_optimal<16, 0x3D65, 0, 0xFFFF, true, true>>(p, length)));
        EXPECT_EQ(sum.crc_kermit(p, length),
                  bytesSwapped(boostCrc<crc_optimal<16, 0x1021, 0, 0, true, true>>(p, length)));
        EXPECT_EQ(sum.crc_64_ecma(p, length),
                  (boostCrc<crc_optimal<64, 0x42F0E1EBA9EA3693, 0, 0, false, false>>(p, length)));
        EXPECT_EQ(sum.crc_64_we(p, length),
                  (boostCrc<crc_optimal<64, 0x42F0E1EBA9EA3693, 0xFFFFFFFFFFFFFFFF,
                                        0xFFFFFFFFFFFFFFFF, false, false>>(p, length)));
    }
}

}  // namespace
}  // namespace tevalon::base::utils

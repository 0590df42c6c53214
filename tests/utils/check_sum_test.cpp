#include "base/utils/check_sum.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "crc_reference.h"
#include "guarded_bytes.h"
#include "random_bytes.h"

namespace tevalon::base::utils {
namespace {

using test::CrcParameters;
using test::CrcReference;
using test::GuardedBytes;
using test::randomBytes;
using test::referenceCrc;

const unsigned char* bytesOf(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

std::uint64_t bytesSwapped(std::uint64_t value) {
    return (value >> 8 | value << 8) & 0xFFFF;
}

/// One whole-buffer function, whatever its width, and what it is to agree with.
struct WholeBuffer {
    const char* p_name;
    std::uint64_t (*p_compute)(const unsigned char* data, unsigned int length);
    CrcParameters parameters;
    bool swapped;
    std::uint64_t ofNothing;
};

template <auto kFunction>
std::uint64_t compute(const unsigned char* data, unsigned int length) {
    CheckSum sum;
    return (sum.*kFunction)(data, length);
}

const WholeBuffer kWholeBuffers[] = {
    {"crc_8", compute<&CheckSum::crc_8>, test::kCrc8, false, 0x00},
    {"crc_16", compute<&CheckSum::crc_16>, test::kCrc16Arc, false, 0x0000},
    {"crc_modbus", compute<&CheckSum::crc_modbus>, test::kCrc16Modbus, false, 0xFFFF},
    {"crc_32", compute<&CheckSum::crc_32>, test::kCrc32IsoHdlc, false, 0x00000000},
    {"crc_32_mpeg_2", compute<&CheckSum::crc_32_mpeg_2>, test::kCrc32Mpeg2, false, 0xFFFFFFFF},
    {"crc_64_ecma", compute<&CheckSum::crc_64_ecma>, test::kCrc64Ecma182, false, 0},
    {"crc_64_we", compute<&CheckSum::crc_64_we>, test::kCrc64We, false, 0},
    {"crc_xmodem", compute<&CheckSum::crc_xmodem>, test::kCrc16Xmodem, false, 0x0000},
    {"crc_ccitt_1d0f", compute<&CheckSum::crc_ccitt_1d0f>, test::kCrc16SpiFujitsu, false, 0x1D0F},
    {"crc_ccitt_ffff", compute<&CheckSum::crc_ccitt_ffff>, test::kCrc16Ibm3740, false, 0xFFFF},
    {"crc_dnp", compute<&CheckSum::crc_dnp>, test::kCrc16Dnp, true, 0xFFFF},
    {"crc_kermit", compute<&CheckSum::crc_kermit>, test::kCrc16Kermit, true, 0x0000},
};

std::uint64_t expectedOf(const WholeBuffer& function, const unsigned char* data,
                         std::size_t length) {
    const std::uint64_t crc = referenceCrc(function.parameters, data, length);
    return function.swapped ? bytesSwapped(crc) : crc;
}

/// The CRC of SICK sensors from its definition, in numbers wide enough to hold everything.
std::uint64_t referenceSick(const unsigned char* data, std::size_t length) {
    unsigned long crc = 0;
    unsigned long previous = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const bool topBit = crc >= 0x8000;
        crc = crc * 2 % 0x10000;
        if (topBit) crc ^= 0x8005;
        crc ^= data[i] + previous * 0x100;
        previous = data[i];
    }
    return bytesSwapped(crc);
}

std::string nmeaChecksum(const std::string& sentence) {
    CheckSum sum;
    unsigned char result[3] = {0xEE, 0xEE, 0xEE};
    if (sum.checksum_NMEA(bytesOf(sentence.c_str()), result) != result) return "no result";
    return std::string(reinterpret_cast<const char*>(result));
}

TEST(CrcReferenceTest, GivesThePublishedCheckValues) {
    for (const WholeBuffer& function : kWholeBuffers) {
        SCOPED_TRACE(function.parameters.p_name);
        EXPECT_EQ(referenceCrc(function.parameters, bytesOf("123456789"), 9),
                  function.parameters.check);
    }
}

TEST(CheckSumTest, GivesTheCheckValues) {
    const unsigned char* digits = bytesOf("123456789");
    CheckSum sum;

    EXPECT_EQ(sum.crc_8(digits, 9), 0xA2);
    EXPECT_EQ(sum.crc_16(digits, 9), 0xBB3D);
    EXPECT_EQ(sum.crc_modbus(digits, 9), 0x4B37);
    EXPECT_EQ(sum.crc_32(digits, 9), 0xCBF43926U);
    EXPECT_EQ(sum.crc_32_mpeg_2(digits, 9), 0x0376E6E7U);
    EXPECT_EQ(sum.crc_64_ecma(digits, 9), 0x6C40DF5F0B497347U);
    EXPECT_EQ(sum.crc_64_we(digits, 9), 0x62EC59E3F1A4F00AU);
    EXPECT_EQ(sum.crc_xmodem(digits, 9), 0x31C3);
    EXPECT_EQ(sum.crc_ccitt_1d0f(digits, 9), 0xE5CC);
    EXPECT_EQ(sum.crc_ccitt_ffff(digits, 9), 0x29B1);
    EXPECT_EQ(sum.crc_dnp(digits, 9), 0x82EA);
    EXPECT_EQ(sum.crc_kermit(digits, 9), 0x8921);
    EXPECT_EQ(sum.crc_sick(digits, 9), 0x56A6);
}

TEST(CheckSumTest, ReturnsTheFixedValueForNothing) {
    CheckSum sum;
    const unsigned char byte = 0x5A;
    for (const WholeBuffer& function : kWholeBuffers) {
        SCOPED_TRACE(function.p_name);
        EXPECT_EQ(function.p_compute(nullptr, 0), function.ofNothing);
        EXPECT_EQ(function.p_compute(nullptr, 9), function.ofNothing);
        EXPECT_EQ(function.p_compute(nullptr, 0xFFFFFFFF), function.ofNothing);
        EXPECT_EQ(function.p_compute(&byte, 0), function.ofNothing);
    }
    EXPECT_EQ(sum.crc_sick(nullptr, 0), 0x0000);
    EXPECT_EQ(sum.crc_sick(nullptr, 9), 0x0000);
    EXPECT_EQ(sum.crc_sick(&byte, 0), 0x0000);
}

TEST(CheckSumTest, AgreesWithTheReferenceAtEveryLengthAndAlignment) {
    const auto data = randomBytes(300 + 64, 1);
    for (const WholeBuffer& function : kWholeBuffers) {
        for (unsigned int length = 0; length <= 300; ++length) {
            // Far fewer alignments for the long ones would do; 17 keeps all in turn.
            const std::size_t offset = length * 17 % 64;
            ASSERT_EQ(function.p_compute(data.data() + offset, length),
                      expectedOf(function, data.data() + offset, length))
                << function.p_name << " of " << length << " bytes at " << offset;
        }
        for (std::size_t offset = 0; offset < 64; ++offset) {
            ASSERT_EQ(function.p_compute(data.data() + offset, 300),
                      expectedOf(function, data.data() + offset, 300))
                << function.p_name << " of 300 bytes at " << offset;
        }
    }
}

TEST(CheckSumTest, AgreesWithTheReferenceOnLargeBuffers) {
    const auto data = randomBytes(70'000, 2);
    const unsigned int lengths[] = {1000, 1023, 1024, 1025, 4095, 4096, 4097, 65'536, 69'931};
    for (const WholeBuffer& function : kWholeBuffers) {
        for (const unsigned int length : lengths) {
            const std::size_t offset = length % 64;
            ASSERT_EQ(function.p_compute(data.data() + offset, length),
                      expectedOf(function, data.data() + offset, length))
                << function.p_name << " of " << length << " bytes";
        }
    }
}

TEST(CheckSumTest, ReadsNothingBesideTheBuffer) {
    const GuardedBytes guarded(4096);
    const auto data = randomBytes(guarded.size(), 3);
    std::memcpy(guarded.begin(), data.data(), data.size());
    for (const WholeBuffer& function : kWholeBuffers) {
        for (unsigned int length = 1; length <= 600; ++length) {
            const unsigned char* p_last = data.data() + data.size() - length;
            ASSERT_EQ(function.p_compute(guarded.begin(), length),
                      function.p_compute(data.data(), length));
            ASSERT_EQ(function.p_compute(guarded.end() - length, length),
                      function.p_compute(p_last, length));
        }
    }
}

TEST(CheckSumTest, SickFollowsItsDefinition) {
    CheckSum sum;
    const auto data = randomBytes(5000, 6);
    for (unsigned int length = 0; length <= 300; ++length) {
        ASSERT_EQ(sum.crc_sick(data.data() + length, length),
                  referenceSick(data.data() + length, length));
    }
    EXPECT_EQ(sum.crc_sick(data.data(), 5000), referenceSick(data.data(), 5000));
}

TEST(CheckSumTest, UpdateTakesInOneByteOfTheRunningValue) {
    CheckSum sum;
    const auto states = randomBytes(8 * 64, 7);
    const auto step = [](const CrcParameters& parameters, std::uint64_t running,
                         unsigned char byte) {
        CrcReference reference(parameters);
        reference.setRunning(running);
        reference.update(byte);
        return reference.running();
    };
    for (std::size_t i = 0; i < states.size(); i += 8) {
        std::uint64_t running;
        std::memcpy(&running, &states[i], sizeof running);
        const auto crc8 = static_cast<unsigned char>(running);
        const auto crc16 = static_cast<unsigned short>(running);
        const auto crc32 = static_cast<unsigned int>(running);
        for (unsigned int value = 0; value < 256; ++value) {
            const auto byte = static_cast<unsigned char>(value);
            ASSERT_EQ(sum.update_crc_8(crc8, byte), step(test::kCrc8, crc8, byte));
            ASSERT_EQ(sum.update_crc_16(crc16, byte), step(test::kCrc16Arc, crc16, byte));
            ASSERT_EQ(sum.update_crc_ccitt(crc16, byte), step(test::kCrc16Xmodem, crc16, byte));
            ASSERT_EQ(sum.update_crc_dnp(crc16, byte), step(test::kCrc16Dnp, crc16, byte));
            ASSERT_EQ(sum.update_crc_kermit(crc16, byte), step(test::kCrc16Kermit, crc16, byte));
            ASSERT_EQ(sum.update_crc_32(crc32, byte), step(test::kCrc32IsoHdlc, crc32, byte));
            ASSERT_EQ(sum.update_crc_32_mpeg_2(crc32, byte), step(test::kCrc32Mpeg2, crc32, byte));
            ASSERT_EQ(sum.update_crc_64(running, byte), step(test::kCrc64Ecma182, running, byte));
        }
    }
}

TEST(CheckSumTest, UpdatesFromTheStartValueGiveTheRunningValueOfTheWhole) {
    CheckSum sum;
    unsigned short arc = 0;
    unsigned short dnp = 0;
    unsigned short kermit = 0;
    unsigned short sick = 0;
    unsigned char previous = 0;
    unsigned int crc32 = 0xFFFFFFFF;
    for (const char digit : std::string("123456789")) {
        const auto byte = static_cast<unsigned char>(digit);
        arc = sum.update_crc_16(arc, byte);
        dnp = sum.update_crc_dnp(dnp, byte);
        kermit = sum.update_crc_kermit(kermit, byte);
        crc32 = sum.update_crc_32(crc32, byte);
        sick = sum.update_crc_sick(sick, byte, previous);
        previous = byte;
    }

    EXPECT_EQ(arc, 0xBB3D);
    EXPECT_EQ(dnp, 0x157D);
    EXPECT_EQ(kermit, 0x2189);
    EXPECT_EQ(crc32, ~0xCBF43926U);
    EXPECT_EQ(sick, 0xA656);
}

// The program association table of a broadcast, as a demultiplexer gives it, its CRC at its end.
TEST(CheckSumTest, ASectionWithItsCrcComesToZero) {
    const unsigned char section[] = {0x00, 0xB0, 0x0D, 0x00, 0x01, 0xC1, 0x00, 0x00,
                                     0x00, 0x01, 0xF0, 0x00, 0x2A, 0xB1, 0x04, 0xB2};
    CheckSum sum;

    EXPECT_EQ(sum.crc_32_mpeg_2(section, sizeof section - 4), 0x2AB104B2U);
    EXPECT_EQ(sum.crc_32_mpeg_2(section, sizeof section), 0U);
    unsigned int running = 0xFFFFFFFF;
    for (const unsigned char byte : section) running = sum.update_crc_32_mpeg_2(running, byte);
    EXPECT_EQ(running, 0U);
}

TEST(CheckSumTest, SickUpdateTakesThePreviousByteFromTheCaller) {
    CheckSum sum;
    EXPECT_EQ(sum.update_crc_sick(0x0000, 0x31, 0x00), 0x0031);
    EXPECT_EQ(sum.update_crc_sick(0x0000, 0x31, 0xAB), 0xAB31);
    EXPECT_EQ(sum.update_crc_sick(0x8000, 0x00, 0x00), 0x8005);
    EXPECT_EQ(sum.update_crc_sick(0xFFFF, 0xFF, 0xFF), (0xFFFE ^ 0x8005 ^ 0xFFFF));
}

TEST(CheckSumTest, FirstUseByManyThreadsAtOnceIsSafe) {
    const auto data = randomBytes(4096, 8);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (const WholeBuffer& function : kWholeBuffers) {
                EXPECT_EQ(function.p_compute(data.data(), 4096),
                          expectedOf(function, data.data(), 4096));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(CheckSumNmeaTest, GivesTheChecksumThatRealSentencesCarry) {
    const char* sentences[] = {
        "$GPGLL,5300.97914,N,00259.98174,E,125926,A*28",
        "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47",
        "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A",
        "$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39",
        "$GPGSV,2,1,08,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45*75",
        "$GPRMC,081836,A,3751.65,S,14507.36,E,000.0,360.0,130998,011.3,E*62",
        "$GPRMC,225446,A,4916.45,N,12311.12,W,000.5,054.7,191194,020.3,E*68",
        "$GPVTG,360.0,T,348.7,M,000.0,N,000.0,K*43",
        "$GPAAM,A,A,0.10,N,WPTNME*32",
    };
    for (const std::string sentence : sentences) {
        SCOPED_TRACE(sentence);
        const std::string carried = sentence.substr(sentence.find('*') + 1);
        EXPECT_EQ(nmeaChecksum(sentence), carried);
        EXPECT_EQ(nmeaChecksum(sentence + "\r\n"), carried);
        EXPECT_EQ(nmeaChecksum(sentence.substr(1)), carried) << "without the leading $";
        EXPECT_EQ(nmeaChecksum(sentence.substr(0, sentence.find('*'))), carried);
    }
}

TEST(CheckSumNmeaTest, GivesZeroForSentencesWithNothingInThem) {
    for (const char* sentence : {"", "$", "*", "$*", "*47", "$*47", "\r", "\n", "$\r\n", "\r\nA"}) {
        EXPECT_EQ(nmeaChecksum(sentence), "00") << '"' << sentence << '"';
    }
}

TEST(CheckSumNmeaTest, StopsAtTheFirstEndOfAnyKind) {
    EXPECT_EQ(nmeaChecksum("A*B*C"), "41");
    EXPECT_EQ(nmeaChecksum("A\rB"), "41");
    EXPECT_EQ(nmeaChecksum("A\nB"), "41");
    EXPECT_EQ(nmeaChecksum(std::string("A\0B", 3)), "41");
}

TEST(CheckSumNmeaTest, SkipsOneLeadingDollarOnly) {
    EXPECT_EQ(nmeaChecksum("$$"), "24");
    EXPECT_EQ(nmeaChecksum("$$A"), "65");
    EXPECT_EQ(nmeaChecksum("A$"), "65");
    EXPECT_EQ(nmeaChecksum("!AIVDM"), nmeaChecksum("$!AIVDM"));
}

TEST(CheckSumNmeaTest, WritesTwoUpperCaseDigitsForEveryValue) {
    EXPECT_EQ(nmeaChecksum("\x01"), "01");
    EXPECT_EQ(nmeaChecksum("\x0F"), "0F");
    EXPECT_EQ(nmeaChecksum("\x7F"), "7F");
    EXPECT_EQ(nmeaChecksum("\xAB"), "AB");
    EXPECT_EQ(nmeaChecksum("\xFF"), "FF");
    EXPECT_EQ(nmeaChecksum("\xFF\xFF"), "00");
}

TEST(CheckSumNmeaTest, WritesThreeBytesAndNoMore) {
    CheckSum sum;
    unsigned char result[5] = {0x11, 0x22, 0x33, 0x44, 0x55};

    unsigned char* p_returned = sum.checksum_NMEA(bytesOf("$A*41"), result + 1);

    EXPECT_EQ(p_returned, result + 1);
    const unsigned char expected[5] = {0x11, '4', '1', '\0', 0x55};
    EXPECT_EQ(std::memcmp(result, expected, sizeof expected), 0);
}

TEST(CheckSumNmeaTest, ReturnsNullForANullPointerAndWritesNothing) {
    CheckSum sum;
    unsigned char result[3] = {0x11, 0x22, 0x33};

    EXPECT_EQ(sum.checksum_NMEA(nullptr, result), nullptr);
    EXPECT_EQ(sum.checksum_NMEA(bytesOf("$A*41"), nullptr), nullptr);
    EXPECT_EQ(sum.checksum_NMEA(nullptr, nullptr), nullptr);

    const unsigned char untouched[3] = {0x11, 0x22, 0x33};
    EXPECT_EQ(std::memcmp(result, untouched, sizeof untouched), 0);
}

TEST(CheckSumNmeaTest, MayWriteItsResultIntoTheSentence) {
    CheckSum sum;
    unsigned char sentence[] = "$GPAAM,A,A,0.10,N,WPTNME*";

    sum.checksum_NMEA(sentence, sentence);

    EXPECT_STREQ(reinterpret_cast<const char*>(sentence), "32");
}

}  // namespace
}  // namespace tevalon::base::utils

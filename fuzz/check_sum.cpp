// The CRCs, at once and byte by byte, beside a shift register that takes a bit at a time.

#include "base/utils/check_sum.h"

#include <cstdint>
#include <string>
#include <vector>

#include "support/expect.h"
#include "support/input.h"

namespace {

using tevalon::base::utils::CheckSum;

/// As the catalogue of parametrised CRC algorithms has them. The polynomial is not reflected.
struct Parameters {
    unsigned width;
    std::uint64_t polynomial;
    std::uint64_t start;
    bool isReflected;
    std::uint64_t finalXor;
};

std::uint64_t reflected(std::uint64_t value, unsigned width) {
    std::uint64_t result = 0;
    for (unsigned i = 0; i < width; ++i) result |= (value >> i & 1) << (width - 1 - i);
    return result;
}

std::uint64_t crcModel(const Parameters& parameters, const std::vector<unsigned char>& bytes) {
    std::uint64_t crc = parameters.start;
    const std::uint64_t top = std::uint64_t{1} << (parameters.width - 1);
    const std::uint64_t mask = top | (top - 1);
    for (const unsigned char byte : bytes) {
        const std::uint64_t bits = parameters.isReflected ? reflected(byte, 8) : byte;
        for (unsigned i = 8; i > 0; --i) {
            const bool isOne = ((crc & top) != 0) != ((bits >> (i - 1) & 1) != 0);
            crc = (crc << 1) & mask;
            if (isOne) crc ^= parameters.polynomial;
        }
    }
    if (parameters.isReflected) crc = reflected(crc, parameters.width);
    return crc ^ parameters.finalXor;
}

unsigned short swapped(std::uint64_t word) {
    return static_cast<unsigned short>((word & 0xFF) << 8 | (word >> 8 & 0xFF));
}

unsigned short sickModel(const std::vector<unsigned char>& bytes) {
    unsigned crc = 0;
    unsigned previous = 0;
    for (const unsigned char byte : bytes) {
        crc = (crc & 0x8000U) != 0 ? (crc << 1 ^ 0x8005U) & 0xFFFFU : crc << 1;
        crc ^= byte | previous << 8;
        previous = byte;
    }
    return swapped(crc);
}

constexpr std::uint64_t kAll64 = UINT64_MAX;
constexpr std::uint64_t kEcma = 0x42F0E1EBA9EA3693;

// At once. What is only started with another value, or finished otherwise, has the same engine.
void compareWhole(CheckSum* p_sum, const unsigned char* p_data, unsigned int length) {
    const std::vector<unsigned char> bytes(p_data, p_data + length);
    const auto model = [&bytes](const Parameters& parameters) {
        return crcModel(parameters, bytes);
    };
    const bool isEmpty = bytes.empty();
    CheckSum& sum = *p_sum;
    const auto check = [](std::uint64_t actual, std::uint64_t expected, const char* name) {
        fuzz::expectEqual(actual, expected, name);
    };
    check(sum.crc_8(p_data, length), model({8, 0x31, 0, false, 0}), "crc_8");
    check(sum.crc_16(p_data, length), model({16, 0x8005, 0, true, 0}), "crc_16");
    check(sum.crc_modbus(p_data, length), model({16, 0x8005, 0xFFFF, true, 0}), "crc_modbus");
    check(sum.crc_32(p_data, length), model({32, 0x04C11DB7, 0xFFFFFFFF, true, 0xFFFFFFFF}),
          "crc_32");
    check(sum.crc_32_mpeg_2(p_data, length), model({32, 0x04C11DB7, 0xFFFFFFFF, false, 0}),
          "crc_32_mpeg_2");
    check(sum.crc_64_ecma(p_data, length), model({64, kEcma, 0, false, 0}), "crc_64_ecma");
    check(sum.crc_64_we(p_data, length), isEmpty ? 0 : model({64, kEcma, kAll64, false, kAll64}),
          "crc_64_we");
    check(sum.crc_xmodem(p_data, length), model({16, 0x1021, 0, false, 0}), "crc_xmodem");
    check(sum.crc_ccitt_1d0f(p_data, length), model({16, 0x1021, 0x1D0F, false, 0}),
          "crc_ccitt_1d0f");
    check(sum.crc_ccitt_ffff(p_data, length), model({16, 0x1021, 0xFFFF, false, 0}),
          "crc_ccitt_ffff");
    check(sum.crc_dnp(p_data, length), swapped(model({16, 0x3D65, 0, true, 0xFFFF})), "crc_dnp");
    check(sum.crc_kermit(p_data, length), swapped(model({16, 0x1021, 0, true, 0})), "crc_kermit");
    check(sum.crc_sick(p_data, length), sickModel(bytes), "crc_sick");
}

void comparePieces(CheckSum* p_sum, const unsigned char* p_data, unsigned int length) {
    CheckSum& sum = *p_sum;
    unsigned char crc8 = 0;
    unsigned short crc16 = 0;
    unsigned int crc32 = 0xFFFFFFFF;
    unsigned int mpeg = 0xFFFFFFFF;
    unsigned long long crc64 = 0;
    unsigned short ccitt = 0xFFFF;
    unsigned short dnp = 0;
    unsigned short kermit = 0;
    unsigned short sick = 0;
    unsigned char previous = 0;
    for (unsigned int i = 0; i < length; ++i) {
        crc8 = sum.update_crc_8(crc8, p_data[i]);
        crc16 = sum.update_crc_16(crc16, p_data[i]);
        crc32 = sum.update_crc_32(crc32, p_data[i]);
        mpeg = sum.update_crc_32_mpeg_2(mpeg, p_data[i]);
        crc64 = sum.update_crc_64(crc64, p_data[i]);
        ccitt = sum.update_crc_ccitt(ccitt, p_data[i]);
        dnp = sum.update_crc_dnp(dnp, p_data[i]);
        kermit = sum.update_crc_kermit(kermit, p_data[i]);
        sick = sum.update_crc_sick(sick, p_data[i], previous);
        previous = p_data[i];
    }
    fuzz::expect(crc8 == sum.crc_8(p_data, length), "update_crc_8");
    fuzz::expect(crc16 == sum.crc_16(p_data, length), "update_crc_16");
    fuzz::expect(~crc32 == sum.crc_32(p_data, length), "update_crc_32");
    fuzz::expect(mpeg == sum.crc_32_mpeg_2(p_data, length), "update_crc_32_mpeg_2");
    fuzz::expect(crc64 == sum.crc_64_ecma(p_data, length), "update_crc_64");
    fuzz::expect(ccitt == sum.crc_ccitt_ffff(p_data, length), "update_crc_ccitt");
    fuzz::expect(swapped(~std::uint64_t{dnp}) == sum.crc_dnp(p_data, length), "update_crc_dnp");
    fuzz::expect(swapped(kermit) == sum.crc_kermit(p_data, length), "update_crc_kermit");
    fuzz::expect(swapped(sick) == sum.crc_sick(p_data, length), "update_crc_sick");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    // The engines take the bytes up to an alignment one by one.
    const std::size_t offset = input.below(16);
    const std::size_t repetitions = 1 + input.below(4);
    const std::string text = input.rest().substr(0, 1024);
    std::string bytes;
    for (std::size_t i = 0; i < repetitions; ++i) bytes += text;
    // Of the very size, so that a byte too far is noticed.
    std::vector<unsigned char> buffer(offset, 0xA5);
    buffer.insert(buffer.end(), bytes.begin(), bytes.end());
    buffer.shrink_to_fit();
    CheckSum sum;
    const auto length = static_cast<unsigned int>(bytes.size());
    compareWhole(&sum, buffer.data() + offset, length);
    comparePieces(&sum, buffer.data() + offset, length);
    return 0;
}

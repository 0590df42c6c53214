// crc_reference.h: any CRC, one bit at a time, straight from the parameters it is published with.

#ifndef TESTS_UTILS_CRC_REFERENCE_H
#define TESTS_UTILS_CRC_REFERENCE_H

#include <cstddef>
#include <cstdint>

namespace tevalon::base::test {

/// A parameter set in the form of the published catalogues: the polynomial most significant
/// bit first and without its top term, "check" the CRC of the nine bytes "123456789".
struct CrcParameters {
    const char* p_name;
    unsigned width;
    std::uint64_t poly;
    std::uint64_t init;
    bool refin;
    bool refout;
    std::uint64_t xorout;
    std::uint64_t check;
};

inline constexpr CrcParameters kCrc8{
    "CRC-8/NRSC-5 polynomial, init 0", 8, 0x31, 0, false, false, 0, 0xA2};
inline constexpr CrcParameters kCrc16Arc{"CRC-16/ARC", 16, 0x8005, 0, true, true, 0, 0xBB3D};
inline constexpr CrcParameters kCrc16Modbus{"CRC-16/MODBUS", 16, 0x8005, 0xFFFF, true, true, 0,
                                            0x4B37};
inline constexpr CrcParameters kCrc16Xmodem{"CRC-16/XMODEM", 16,    0x1021, 0,
                                            false,           false, 0,      0x31C3};
inline constexpr CrcParameters kCrc16SpiFujitsu{
    "CRC-16/SPI-FUJITSU", 16, 0x1021, 0x1D0F, false, false, 0, 0xE5CC};
inline constexpr CrcParameters kCrc16Ibm3740{
    "CRC-16/IBM-3740", 16, 0x1021, 0xFFFF, false, false, 0, 0x29B1};
inline constexpr CrcParameters kCrc16Dnp{"CRC-16/DNP", 16, 0x3D65, 0, true, true, 0xFFFF, 0xEA82};
inline constexpr CrcParameters kCrc16Kermit{"CRC-16/KERMIT", 16, 0x1021, 0, true, true, 0, 0x2189};
inline constexpr CrcParameters kCrc32IsoHdlc{
    "CRC-32/ISO-HDLC", 32, 0x04C11DB7, 0xFFFFFFFF, true, true, 0xFFFFFFFF, 0xCBF43926};
inline constexpr CrcParameters kCrc32Mpeg2{"CRC-32/MPEG-2", 32,    0x04C11DB7, 0xFFFFFFFF,
                                           false,           false, 0,          0x0376E6E7};
inline constexpr CrcParameters kCrc64Ecma182{
    "CRC-64/ECMA-182", 64, 0x42F0E1EBA9EA3693, 0, false, false, 0, 0x6C40DF5F0B497347};
inline constexpr CrcParameters kCrc64We{"CRC-64/WE", 64,    0x42F0E1EBA9EA3693, 0xFFFFFFFFFFFFFFFF,
                                        false,       false, 0xFFFFFFFFFFFFFFFF, 0x62EC59E3F1A4F00A};

/// The lowest @p width bits of @p value in reverse.
inline std::uint64_t reflect(std::uint64_t value, unsigned width) {
    std::uint64_t reflected = 0;
    for (unsigned i = 0; i < width; ++i, value >>= 1) reflected = reflected << 1 | (value & 1);
    return reflected;
}

/// The shift register of the textbook: bits enter at the top, most significant first, whatever
/// the parameters; reflection turns round the bits of each byte on the way in, and the whole
/// register on the way out.
class CrcReference {
public:
    explicit CrcReference(const CrcParameters& parameters)
        : m_parameters(parameters), m_register(parameters.init) {}

    void update(unsigned char byte) {
        const std::uint64_t bits = m_parameters.refin ? reflect(byte, 8) : byte;
        for (int i = 7; i >= 0; --i) shiftIn((bits >> i & 1) != 0);
    }

    void update(const unsigned char* p_data, std::size_t length) {
        for (std::size_t i = 0; i < length; ++i) update(p_data[i]);
    }

    std::uint64_t result() const { return running() ^ m_parameters.xorout; }

    /// The register as a running value, before the final step.
    std::uint64_t running() const {
        return m_parameters.refout ? reflect(m_register, m_parameters.width) : m_register;
    }
    void setRunning(std::uint64_t value) {
        m_register = m_parameters.refout ? reflect(value, m_parameters.width) : value;
    }

private:
    void shiftIn(bool bit) {
        const unsigned topBit = m_parameters.width - 1;
        const std::uint64_t mask = ~std::uint64_t{0} >> (63 - topBit);
        m_register ^= static_cast<std::uint64_t>(bit) << topBit;
        const bool leaving = (m_register >> topBit) != 0;
        m_register = (m_register << 1) & mask;
        if (leaving) m_register ^= m_parameters.poly;
    }

    CrcParameters m_parameters;
    std::uint64_t m_register;
};

inline std::uint64_t referenceCrc(const CrcParameters& parameters, const unsigned char* p_data,
                                  std::size_t length) {
    CrcReference reference(parameters);
    reference.update(p_data, length);
    return reference.result();
}

}  // namespace tevalon::base::test

#endif  // TESTS_UTILS_CRC_REFERENCE_H

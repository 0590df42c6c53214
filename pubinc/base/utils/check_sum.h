// check_sum.h: cyclic redundancy checks, and the checksum of NMEA 0183 sentences.

#ifndef BASE_UTILS_CHECK_SUM_H
#define BASE_UTILS_CHECK_SUM_H

#include "base/export.h"

namespace tevalon::base::utils {

/// The common CRCs, one function for each published parameter set, named there.
///
///     const unsigned int crc = CheckSum().crc_32(bytes, length);
///
/// For data that arrives in pieces, each CRC has an update function: it takes one byte into a
/// running value that the caller starts, keeps and finishes.
///
///     unsigned int crc = 0xFFFFFFFF;
///     while (next(&byte)) crc = sum.update_crc_32(crc, byte);
///     crc ^= 0xFFFFFFFF;
///
/// An instance holds nothing; any will do.
///
/// Thread-safety: everything may be called from any thread at any time. Nothing is logged,
/// nothing throws.
class TEVALON_BASE_EXPORT CheckSum {
public:
    // Whole buffers. Null data is as good as length 0.

    /// CRC-8: polynomial 0x31, start 0, not reflected. Of nothing: 0x00.
    unsigned char crc_8(const unsigned char* data, unsigned int length);

    /// CRC-16/ARC. Of nothing: 0x0000.
    unsigned short crc_16(const unsigned char* data, unsigned int length);

    /// CRC-16/MODBUS. Of nothing: 0xFFFF.
    unsigned short crc_modbus(const unsigned char* data, unsigned int length);

    /// CRC-32/ISO-HDLC, that of Ethernet, zip and PNG. Of nothing: 0x00000000.
    unsigned int crc_32(const unsigned char* data, unsigned int length);

    /// CRC-32/MPEG-2, which ends every section of a broadcast (ISO/IEC 13818-1, annex A); of a
    /// section with its CRC: 0. Of nothing: 0xFFFFFFFF.
    unsigned int crc_32_mpeg_2(const unsigned char* data, unsigned int length);

    /// CRC-64/ECMA-182. Of nothing: 0.
    unsigned long long crc_64_ecma(const unsigned char* data, unsigned int length);

    /// CRC-64/WE. Of nothing: 0.
    unsigned long long crc_64_we(const unsigned char* data, unsigned int length);

    /// CRC-16/XMODEM. Of nothing: 0x0000.
    unsigned short crc_xmodem(const unsigned char* data, unsigned int length);

    /// CRC-16/SPI-FUJITSU. Of nothing: 0x1D0F.
    unsigned short crc_ccitt_1d0f(const unsigned char* data, unsigned int length);

    /// CRC-16/IBM-3740. Of nothing: 0xFFFF.
    unsigned short crc_ccitt_ffff(const unsigned char* data, unsigned int length);

    // These three have their two bytes swapped: stored as a little-endian word, the result
    // lies in the order in which the protocol transmits it.

    /// CRC-16/DNP, swapped. Of nothing: 0xFFFF.
    unsigned short crc_dnp(const unsigned char* data, unsigned int length);

    /// CRC-16/KERMIT, swapped. Of nothing: 0x0000.
    unsigned short crc_kermit(const unsigned char* data, unsigned int length);

    /// The CRC of SICK sensors, swapped. Of nothing: 0x0000.
    unsigned short crc_sick(const unsigned char* data, unsigned int length);

    // One more byte. No start value, no final complement, no swap.

    /// For crc_8.
    unsigned char update_crc_8(unsigned char crc, unsigned char byte);
    /// For crc_16 and crc_modbus.
    unsigned short update_crc_16(unsigned short crc, unsigned char byte);
    /// For crc_32.
    unsigned int update_crc_32(unsigned int crc, unsigned char byte);
    /// For crc_32_mpeg_2.
    unsigned int update_crc_32_mpeg_2(unsigned int crc, unsigned char byte);
    /// For crc_64_ecma and crc_64_we.
    unsigned long long update_crc_64(unsigned long long crc, unsigned char byte);
    /// For crc_xmodem, crc_ccitt_1d0f and crc_ccitt_ffff.
    unsigned short update_crc_ccitt(unsigned short crc, unsigned char byte);
    /// For crc_dnp: complement and swap are the caller's.
    unsigned short update_crc_dnp(unsigned short crc, unsigned char byte);
    /// For crc_kermit: the swap is the caller's.
    unsigned short update_crc_kermit(unsigned short crc, unsigned char byte);
    /// For crc_sick: the swap is the caller's.
    ///
    /// @param crc           The running value; 0 at first.
    /// @param byte          The next byte.
    /// @param previousByte  The byte before @p byte; 0 for the first.
    unsigned short update_crc_sick(unsigned short crc, unsigned char byte,
                                   unsigned char previousByte);

    /// The checksum of an NMEA 0183 sentence as two upper-case hexadecimal digits: what stands
    /// between a leading '$', if there is one, and the first '*', line end or zero byte.
    ///
    /// @param sentence  Ends at the latest with a zero byte.
    /// @param result    Takes the digits and a zero byte: 3 bytes.
    /// @return @p result; null, with nothing written, where either pointer is null.
    unsigned char* checksum_NMEA(const unsigned char* sentence, unsigned char* result);
};

}  // namespace tevalon::base::utils

#endif  // BASE_UTILS_CHECK_SUM_H

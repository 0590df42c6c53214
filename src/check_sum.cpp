#include "base/utils/check_sum.h"

#include <algorithm>
#include <type_traits>

#include "check_sum/crc_engine.h"
#include "check_sum/crc_table.h"

namespace tevalon::base::utils {
namespace {

using crc::Crc16;
using crc::Crc32;
using crc::Crc32Mpeg2;
using crc::Crc64;
using crc::Crc8;
using crc::CrcCcitt;
using crc::CrcDnp;
using crc::CrcKermit;

// What all CRCs together keep in read-only memory: 18,176 bytes with the 4 slices of a television
// set's build, 1,024 of them for the processor's help. Without that 4,864 with plain byte tables,
// and 400 with those for half bytes.
template <class R>
constexpr std::size_t tableSize() {
    if (crc::kDefaultSlices == 0) return sizeof(crc::HalfByteTable<R>);
    if (crc::kUsesMirrorTables<R>) return 0;
    return crc::kSlicesOf<R> * 256 * sizeof(typename R::Register);
}
template <class... R>
constexpr std::size_t kConstantsSize = (0 + ... + (tableSize<R>() + sizeof(crc::FoldConstants)));
#if defined(__arm__) && __ARM_ARCH >= 7
static_assert(kConstantsSize<Crc8, Crc16, CrcCcitt, CrcDnp, CrcKermit, Crc32, Crc32Mpeg2, Crc64> ==
              (crc::kDefaultSlices == 0 ? 400 : crc::kDefaultSlices * 4096 + 768) + 1024);
#endif
static_assert(kConstantsSize<Crc8, Crc16, CrcCcitt, CrcDnp, CrcKermit, Crc32, Crc32Mpeg2, Crc64> <
                      std::size_t{24} * 1024 ||
                  crc::kDefaultSlices > 4 || !crc::kReversesBitsAtOnce,
              "the television set's share of the flash");

template <class R>
crc::Fold foldOf(const crc::Engine& engine) {
    return R::kReflected ? engine.p_foldReflected : engine.p_foldMsbFirst;
}

template <class R>
typename R::Register updatedByFold(crc::Fold fold, typename R::Register crc,
                                   const unsigned char* p_data, std::size_t length) {
    return crc::narrowed<R>(fold(crc::widened<R>(crc), p_data, length, crc::kFoldConstants<R>));
}

/// The best way the processor has, chosen if need be. Takes at least crc::kFoldMinimum bytes.
template <class R>
[[gnu::noinline]] typename R::Register updatedByEngine(typename R::Register crc,
                                                       const unsigned char* p_data,
                                                       std::size_t length) {
    const crc::Engine& engine = crc::engine();
    if constexpr (std::is_same_v<R, Crc32>) {
        if (engine.p_updateCrc32 != nullptr) return engine.p_updateCrc32(crc, p_data, length);
    }
    const crc::Fold fold = foldOf<R>(engine);
    if (fold == nullptr) return crc::lookedUp<R>(crc, p_data, length);
    return updatedByFold<R>(fold, crc, p_data, length);
}

// What is folded goes there without a detour, which 64 bytes would feel; but where size is all.
#ifdef __OPTIMIZE_SIZE__
constexpr bool kFoldsDirectly = false;
#else
constexpr bool kFoldsDirectly = true;
#endif

/// updatedByEngine(), with calls at its end alone: part of updated(), it takes no register that
/// would have to be saved, for shorter lengths too. Most of what is checked is short.
template <class R>
typename R::Register updatedDirectly(typename R::Register crc, const unsigned char* p_data,
                                     std::size_t length) {
    const crc::Engine& engine = *crc::g_engine.load(std::memory_order_relaxed);
    const crc::Fold fold = foldOf<R>(engine);
    const bool hasBetter = std::is_same_v<R, Crc32> && engine.p_updateCrc32 != nullptr;
    if (__builtin_expect(fold == nullptr || hasBetter, 0)) {
        return updatedByEngine<R>(crc, p_data, length);
    }
    return updatedByFold<R>(fold, crc, p_data, length);
}

/// Takes @p length bytes into the register, by the fastest way the processor has.
template <class R>
typename R::Register updated(typename R::Register crc, const unsigned char* p_data,
                             std::size_t length) {
    constexpr std::size_t kStepsPay = 4;
    constexpr std::size_t kLargestStep = std::min<std::size_t>(8, crc::kSlicesOf<R>);
    if (p_data == nullptr) return crc;
    // Expected, for the fewer the bytes, the more a jump costs.
    if (__builtin_expect(length < kStepsPay, 1)) return crc::lookedUp<R, 1>(crc, p_data, length);
    if constexpr (crc::kHasEngines) {
        if (length >= crc::kFoldMinimum) {
            return kFoldsDirectly ? updatedDirectly<R>(crc, p_data, length)
                                  : updatedByEngine<R>(crc, p_data, length);
        }
    }
    return crc::lookedUp<R, kLargestStep>(crc, p_data, length);
}

constexpr unsigned short bytesSwapped(unsigned short value) {
    return static_cast<unsigned short>(value << 8 | value >> 8);
}

constexpr unsigned short complemented(unsigned short value) {
    return static_cast<unsigned short>(~value);
}

constexpr unsigned short sickStep(unsigned short crc, unsigned char byte,
                                  unsigned char previousByte) {
    constexpr unsigned int kPolynomial = 0x8005;
    const unsigned int reduction = (0u - (crc >> 15)) & kPolynomial;
    const unsigned int taken = byte | static_cast<unsigned int>(previousByte) << 8;
    return static_cast<unsigned short>((static_cast<unsigned int>(crc) << 1 ^ taken) ^ reduction);
}

}  // namespace

unsigned char CheckSum::crc_8(const unsigned char* data, unsigned int length) {
    return updated<Crc8>(0, data, length);
}

unsigned short CheckSum::crc_16(const unsigned char* data, unsigned int length) {
    return updated<Crc16>(0, data, length);
}

unsigned short CheckSum::crc_modbus(const unsigned char* data, unsigned int length) {
    return updated<Crc16>(0xFFFF, data, length);
}

unsigned int CheckSum::crc_32(const unsigned char* data, unsigned int length) {
    return ~updated<Crc32>(0xFFFFFFFF, data, length);
}

unsigned int CheckSum::crc_32_mpeg_2(const unsigned char* data, unsigned int length) {
    return updated<Crc32Mpeg2>(0xFFFFFFFF, data, length);
}

unsigned long long CheckSum::crc_64_ecma(const unsigned char* data, unsigned int length) {
    return updated<Crc64>(0, data, length);
}

unsigned long long CheckSum::crc_64_we(const unsigned char* data, unsigned int length) {
    return ~updated<Crc64>(~std::uint64_t{0}, data, length);
}

unsigned short CheckSum::crc_xmodem(const unsigned char* data, unsigned int length) {
    return updated<CrcCcitt>(0, data, length);
}

unsigned short CheckSum::crc_ccitt_1d0f(const unsigned char* data, unsigned int length) {
    return updated<CrcCcitt>(0x1D0F, data, length);
}

unsigned short CheckSum::crc_ccitt_ffff(const unsigned char* data, unsigned int length) {
    return updated<CrcCcitt>(0xFFFF, data, length);
}

unsigned short CheckSum::crc_dnp(const unsigned char* data, unsigned int length) {
    return bytesSwapped(complemented(updated<CrcDnp>(0, data, length)));
}

unsigned short CheckSum::crc_kermit(const unsigned char* data, unsigned int length) {
    return bytesSwapped(updated<CrcKermit>(0, data, length));
}

unsigned short CheckSum::crc_sick(const unsigned char* data, unsigned int length) {
    if (data == nullptr) return 0;
    unsigned short crc = 0;
    unsigned char previousByte = 0;
    for (const unsigned char* p_end = data + length; data != p_end; ++data) {
        crc = sickStep(crc, *data, previousByte);
        previousByte = *data;
    }
    return bytesSwapped(crc);
}

unsigned char CheckSum::update_crc_8(unsigned char crc, unsigned char byte) {
    return crc::lookedUp<Crc8, 1>(crc, &byte, 1);
}

unsigned short CheckSum::update_crc_16(unsigned short crc, unsigned char byte) {
    return crc::lookedUp<Crc16, 1>(crc, &byte, 1);
}

unsigned int CheckSum::update_crc_32(unsigned int crc, unsigned char byte) {
    return crc::lookedUp<Crc32, 1>(crc, &byte, 1);
}

unsigned int CheckSum::update_crc_32_mpeg_2(unsigned int crc, unsigned char byte) {
    return crc::lookedUp<Crc32Mpeg2, 1>(crc, &byte, 1);
}

unsigned long long CheckSum::update_crc_64(unsigned long long crc, unsigned char byte) {
    return crc::lookedUp<Crc64, 1>(crc, &byte, 1);
}

unsigned short CheckSum::update_crc_ccitt(unsigned short crc, unsigned char byte) {
    return crc::lookedUp<CrcCcitt, 1>(crc, &byte, 1);
}

unsigned short CheckSum::update_crc_dnp(unsigned short crc, unsigned char byte) {
    return crc::lookedUp<CrcDnp, 1>(crc, &byte, 1);
}

unsigned short CheckSum::update_crc_kermit(unsigned short crc, unsigned char byte) {
    return crc::lookedUp<CrcKermit, 1>(crc, &byte, 1);
}

unsigned short CheckSum::update_crc_sick(unsigned short crc, unsigned char byte,
                                         unsigned char previousByte) {
    return sickStep(crc, byte, previousByte);
}

unsigned char* CheckSum::checksum_NMEA(const unsigned char* sentence, unsigned char* result) {
    if (sentence == nullptr || result == nullptr) return nullptr;

    const auto endsAt = [](unsigned char byte) {
        return byte == '\0' || byte == '\r' || byte == '\n' || byte == '*';
    };
    if (*sentence == '$') ++sentence;
    unsigned int sum = 0;
    for (; !endsAt(*sentence); ++sentence) sum ^= *sentence;

    constexpr char kDigits[] = "0123456789ABCDEF";
    result[0] = static_cast<unsigned char>(kDigits[sum >> 4]);
    result[1] = static_cast<unsigned char>(kDigits[sum & 15]);
    result[2] = '\0';
    return result;
}

}  // namespace tevalon::base::utils

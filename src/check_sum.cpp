#include "base/utils/check_sum.h"

#include <algorithm>
#include <type_traits>

#include "check_sum/crc_engine.h"
#include "check_sum/crc_table.h"

namespace tevalon::base::utils {
namespace {

using crc::Crc16;
using crc::Crc32;
using crc::Crc64;
using crc::Crc8;
using crc::CrcCcitt;
using crc::CrcDnp;
using crc::CrcKermit;

// What all CRCs together keep in read-only memory: 22,400 bytes with the 4 slices of a
// television set's build, 6,272 with plain byte tables.
template <class... R>
constexpr std::size_t kConstantsSize =
    (0 + ... + (sizeof crc::kTable<R, crc::kDefaultSlices> + sizeof crc::kFoldConstants<R>));
static_assert(kConstantsSize<Crc8, Crc16, CrcCcitt, CrcDnp, CrcKermit, Crc32, Crc64> ==
              crc::kDefaultSlices * 5376 + 896);
static_assert(4 * 5376 + 896 < 24 * 1024, "the television set's share of the flash");

constexpr unsigned short bytesSwapped(unsigned short value) {
    return static_cast<unsigned short>(value << 8 | value >> 8);
}

/// What becomes of the register in the end.
enum class Finish { Unchanged, Complement, Swap, ComplementAndSwap };

template <Finish kFinish, class Register>
constexpr Register finished(Register crc) {
    if constexpr (kFinish == Finish::Complement) return static_cast<Register>(~crc);
    if constexpr (kFinish == Finish::Swap) return bytesSwapped(crc);
    if constexpr (kFinish == Finish::ComplementAndSwap) {
        return bytesSwapped(static_cast<Register>(~crc));
    }
    return crc;
}

// What the register is taken to be XORed with once all bytes are in.
template <class R, Finish kFinish>
constexpr std::uint64_t kFinalXor =
    kFinish == Finish::Complement || kFinish == Finish::ComplementAndSwap
        ? crc::widened<R>(static_cast<typename R::Register>(~typename R::Register{0}))
        : 0;

template <class R>
crc::Fold foldOf(const crc::Engine& engine) {
    return R::kReflected ? engine.p_foldReflected : engine.p_foldMsbFirst;
}

template <class R, Finish kFinish>
typename R::Register crcByFold(crc::Fold fold, typename R::Register start,
                               const unsigned char* p_data, std::size_t length) {
    const auto crc = crc::narrowed<R>(fold(crc::widened<R>(start), p_data, length,
                                           crc::kFoldConstants<R>, kFinalXor<R, kFinish>));
    if constexpr (kFinish == Finish::Swap || kFinish == Finish::ComplementAndSwap) {
        return bytesSwapped(crc);
    }
    return crc;
}

/// Where the processor has a better way than folding, or none but tables; and for the first CRC.
template <class R, Finish kFinish>
[[gnu::noinline]] typename R::Register crcWithoutFold(typename R::Register start,
                                                      const unsigned char* p_data,
                                                      std::size_t length) {
    const crc::Engine& engine = crc::engine();
    if constexpr (std::is_same_v<R, Crc32>) {
        if (engine.p_updateCrc32 != nullptr) {
            return finished<kFinish>(engine.p_updateCrc32(start, p_data, length));
        }
    }
    const crc::Fold fold = foldOf<R>(engine);
    if (fold != nullptr) return crcByFold<R, kFinish>(fold, start, p_data, length);
    return finished<kFinish>(crc::tableUpdate<R>(start, p_data, length));
}

/// Of at least crc::kFoldMinimum bytes. With calls at its end alone, which need no saved registers:
/// those would cost shorter lengths too, and most of what is checked is short.
template <class R, Finish kFinish>
typename R::Register crcByEngine(typename R::Register start, const unsigned char* p_data,
                                 std::size_t length) {
    const crc::Engine& engine = *crc::g_engine.load(std::memory_order_relaxed);
    const crc::Fold fold = foldOf<R>(engine);
    const bool hasInstruction = std::is_same_v<R, Crc32> && engine.p_updateCrc32 != nullptr;
    if (__builtin_expect(fold == nullptr || hasInstruction, 0)) {
        return crcWithoutFold<R, kFinish>(start, p_data, length);
    }
    return crcByFold<R, kFinish>(fold, start, p_data, length);
}

/// The CRC of @p length bytes, by the fastest way the processor has.
template <class R, Finish kFinish = Finish::Unchanged>
typename R::Register crcOf(typename R::Register start, const unsigned char* p_data,
                           std::size_t length) {
    constexpr std::size_t kStepsPay = 4;
    constexpr std::size_t kLargestStep = std::min<std::size_t>(8, crc::kDefaultSlices);
    if (p_data == nullptr) return finished<kFinish>(start);
    // Expected, for the fewer the bytes, the more a jump costs.
    if (__builtin_expect(length < kStepsPay, 1)) {
        return finished<kFinish>(crc::byteUpdate<R>(start, p_data, length));
    }
    if (length >= crc::kFoldMinimum) return crcByEngine<R, kFinish>(start, p_data, length);
    return finished<kFinish>(
        crc::tableUpdate<R, crc::kDefaultSlices, kLargestStep>(start, p_data, length));
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
    return crcOf<Crc8>(0, data, length);
}

unsigned short CheckSum::crc_16(const unsigned char* data, unsigned int length) {
    return crcOf<Crc16>(0, data, length);
}

unsigned short CheckSum::crc_modbus(const unsigned char* data, unsigned int length) {
    return crcOf<Crc16>(0xFFFF, data, length);
}

unsigned int CheckSum::crc_32(const unsigned char* data, unsigned int length) {
    return crcOf<Crc32, Finish::Complement>(0xFFFFFFFF, data, length);
}

unsigned long long CheckSum::crc_64_ecma(const unsigned char* data, unsigned int length) {
    return crcOf<Crc64>(0, data, length);
}

unsigned long long CheckSum::crc_64_we(const unsigned char* data, unsigned int length) {
    return crcOf<Crc64, Finish::Complement>(~std::uint64_t{0}, data, length);
}

unsigned short CheckSum::crc_xmodem(const unsigned char* data, unsigned int length) {
    return crcOf<CrcCcitt>(0, data, length);
}

unsigned short CheckSum::crc_ccitt_1d0f(const unsigned char* data, unsigned int length) {
    return crcOf<CrcCcitt>(0x1D0F, data, length);
}

unsigned short CheckSum::crc_ccitt_ffff(const unsigned char* data, unsigned int length) {
    return crcOf<CrcCcitt>(0xFFFF, data, length);
}

unsigned short CheckSum::crc_dnp(const unsigned char* data, unsigned int length) {
    return crcOf<CrcDnp, Finish::ComplementAndSwap>(0, data, length);
}

unsigned short CheckSum::crc_kermit(const unsigned char* data, unsigned int length) {
    return crcOf<CrcKermit, Finish::Swap>(0, data, length);
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
    return crc::byteStep<Crc8>(crc, byte);
}

unsigned short CheckSum::update_crc_16(unsigned short crc, unsigned char byte) {
    return crc::byteStep<Crc16>(crc, byte);
}

unsigned int CheckSum::update_crc_32(unsigned int crc, unsigned char byte) {
    return crc::byteStep<Crc32>(crc, byte);
}

unsigned long long CheckSum::update_crc_64(unsigned long long crc, unsigned char byte) {
    return crc::byteStep<Crc64>(crc, byte);
}

unsigned short CheckSum::update_crc_ccitt(unsigned short crc, unsigned char byte) {
    return crc::byteStep<CrcCcitt>(crc, byte);
}

unsigned short CheckSum::update_crc_dnp(unsigned short crc, unsigned char byte) {
    return crc::byteStep<CrcDnp>(crc, byte);
}

unsigned short CheckSum::update_crc_kermit(unsigned short crc, unsigned char byte) {
    return crc::byteStep<CrcKermit>(crc, byte);
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

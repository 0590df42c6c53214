#include <gtest/gtest.h>

#ifdef __x86_64__
#include <cpuid.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "base/utils/check_sum.h"
#include "check_sum/crc_engine.h"
#include "check_sum/crc_folding.h"
#include "check_sum/crc_table.h"
#include "crc_reference.h"
#include "guarded_bytes.h"
#include "random_bytes.h"

// Every way in which the library can compute a CRC against the plain one, a byte at a time by
// table: every width of the tables, and every engine that the processor at hand supports.

namespace tevalon::base::utils::crc {
namespace {

using test::GuardedBytes;
using test::randomBytes;

template <class R>
std::string nameOf() {
    return "width " + std::to_string(R::kWidth) + ", polynomial " + std::to_string(R::kPolynomial) +
           (R::kReflected ? ", reflected" : "");
}

template <class R>
typename R::Register plainUpdate(typename R::Register crc, const unsigned char* p_data,
                                 std::size_t length) {
    return byteUpdate<R, 1>(crc, p_data, length);
}

template <class R>
typename R::Register foldedUpdate(Fold fold, typename R::Register crc, const unsigned char* p_data,
                                  std::size_t length) {
    return narrowed<R>(fold(widened<R>(crc), p_data, length, kFoldConstants<R>));
}

/// The engines that can be tested on this processor.
std::vector<const Engine*> supportedEngines() {
    std::vector<const Engine*> supported;
    for (const Engine* const* pp = allEngines(); *pp != nullptr; ++pp) {
        if ((*pp)->p_isSupported()) supported.push_back(*pp);
    }
    return supported;
}

template <class R>
class CrcPathsTest : public testing::Test {
protected:
    using Register = typename R::Register;

    Register randomRegister() { return static_cast<Register>(m_generator()); }

    /// Calls @p check with each fold for the rule at hand, and its engine's name.
    template <class Check>
    void forEachFold(Check check) {
        for (const Engine* p_engine : supportedEngines()) {
            const Fold fold = R::kReflected ? p_engine->p_foldReflected : p_engine->p_foldMsbFirst;
            if (fold == nullptr) continue;
            SCOPED_TRACE(nameOf<R>() + ", " + p_engine->p_name);
            check(fold);
        }
    }

private:
    std::mt19937_64 m_generator{20240607};
};

using Rules = testing::Types<Crc8, Crc16, CrcCcitt, CrcDnp, CrcKermit, Crc32, Crc32Mpeg2, Crc64>;

class RuleNames {
public:
    template <class R>
    static std::string GetName(int index) {
        const char* names[] = {"Crc8",      "Crc16", "CrcCcitt",   "CrcDnp",
                               "CrcKermit", "Crc32", "Crc32Mpeg2", "Crc64"};
        return names[index];
    }
};

TYPED_TEST_SUITE(CrcPathsTest, Rules, RuleNames);

TYPED_TEST(CrcPathsTest, TableIsThatOfTheReference) {
    const test::CrcParameters parameters{"",
                                         TypeParam::kWidth,
                                         TypeParam::kPolynomial,
                                         0,
                                         TypeParam::kReflected,
                                         TypeParam::kReflected,
                                         0,
                                         0};
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<unsigned char>(i);
        ASSERT_EQ((kTable<TypeParam, 1>.slice[0][i]), test::referenceCrc(parameters, &byte, 1));
    }
}

TYPED_TEST(CrcPathsTest, SlicesAddZeroBytes) {
    const auto& table = kTable<TypeParam, 16>;
    for (std::size_t n = 1; n < 16; ++n) {
        for (unsigned i = 0; i < 256; ++i) {
            const auto shorter = table.slice[n - 1][i];
            ASSERT_EQ(table.slice[n][i], (byteStep<TypeParam, 1>(shorter, 0)));
        }
    }
}

TYPED_TEST(CrcPathsTest, EveryNumberOfSlicesGivesTheSame) {
    const auto data = randomBytes(400, 11);
    for (std::size_t length = 0; length <= 300; ++length) {
        const unsigned char* p_data = data.data() + length % 32;
        const auto start = this->randomRegister();
        const auto expected = plainUpdate<TypeParam>(start, p_data, length);
        ASSERT_EQ((tableUpdate<TypeParam, 1>(start, p_data, length)), expected) << length;
        ASSERT_EQ((tableUpdate<TypeParam, 2>(start, p_data, length)), expected) << length;
        ASSERT_EQ((tableUpdate<TypeParam, 4>(start, p_data, length)), expected) << length;
        ASSERT_EQ((tableUpdate<TypeParam, 8>(start, p_data, length)), expected) << length;
        ASSERT_EQ((tableUpdate<TypeParam, 16>(start, p_data, length)), expected) << length;
        ASSERT_EQ((tableUpdate<TypeParam, 16, 8>(start, p_data, length)), expected) << length;
    }
}

// What a processor that reverses bits at once does, here on any.
template <class R>
void expectMirrorsTables() {
    const auto data = randomBytes(400, 19);
    auto start = static_cast<typename R::Register>(0xFFFFFFFF);
    for (std::size_t length = 0; length <= 300; ++length) {
        const unsigned char* p_data = data.data() + length % 32;
        const auto expected = plainUpdate<R>(start, p_data, length);
        ASSERT_EQ((mirroredUpdate<R, 1>(start, p_data, length)), expected) << length;
        ASSERT_EQ((mirroredUpdate<R, 2>(start, p_data, length)), expected) << length;
        ASSERT_EQ((mirroredUpdate<R, 4>(start, p_data, length)), expected) << length;
        ASSERT_EQ((mirroredUpdate<R, 16>(start, p_data, length)), expected) << length;
        start = expected;
    }
}

TEST(CrcMirrorTest, TheTablesOfTheMirrorGiveTheSame) {
    expectMirrorsTables<Crc32Mpeg2>();
    expectMirrorsTables<CrcKermit>();
}

TYPED_TEST(CrcPathsTest, HalfBytesGiveTheSame) {
    const auto data = randomBytes(400, 20);
    for (std::size_t length = 0; length <= 300; ++length) {
        const unsigned char* p_data = data.data() + length % 32;
        const auto start = this->randomRegister();
        ASSERT_EQ(halfByteUpdate<TypeParam>(start, p_data, length),
                  plainUpdate<TypeParam>(start, p_data, length))
            << length;
    }
}

TYPED_TEST(CrcPathsTest, EveryFoldGivesTheSameAtEveryLengthAndAlignment) {
    const auto data = randomBytes(300 + 64, 12);
    this->forEachFold([&](Fold fold) {
        for (std::size_t offset = 0; offset < 64; ++offset) {
            const unsigned char* p_data = data.data() + offset;
            const auto start = this->randomRegister();
            auto expected = plainUpdate<TypeParam>(start, p_data, kFoldMinimum);
            for (std::size_t length = kFoldMinimum; length <= 300; ++length) {
                ASSERT_EQ((foldedUpdate<TypeParam>(fold, start, p_data, length)), expected)
                    << length << " bytes at " << offset;
                expected = byteStep<TypeParam, 1>(expected, p_data[length]);
            }
        }
    });
}

TYPED_TEST(CrcPathsTest, EveryFoldGivesTheSameForLargeBuffers) {
    const auto data = randomBytes(1'100'000, 13);
    std::mt19937 generator(14);
    this->forEachFold([&](Fold fold) {
        for (int i = 0; i < 200; ++i) {
            const std::size_t length = 300 + generator() % 5000;
            const unsigned char* p_data = data.data() + generator() % 1000;
            const auto start = this->randomRegister();
            ASSERT_EQ((foldedUpdate<TypeParam>(fold, start, p_data, length)),
                      (plainUpdate<TypeParam>(start, p_data, length)))
                << length;
        }
        const auto start = this->randomRegister();
        ASSERT_EQ((foldedUpdate<TypeParam>(fold, start, data.data() + 1, data.size() - 1)),
                  (plainUpdate<TypeParam>(start, data.data() + 1, data.size() - 1)));
    });
}

TYPED_TEST(CrcPathsTest, EveryBitOfTheDataAndTheRegisterCounts) {
    // One set bit each: what folds to the wrong place cannot hide behind other bits.
    constexpr std::size_t kLength = 600;
    this->forEachFold([&](Fold fold) {
        std::vector<unsigned char> data(kLength, 0);
        for (std::size_t bit = 0; bit < 8 * kLength; ++bit) {
            data[bit / 8] = static_cast<unsigned char>(1U << bit % 8);
            ASSERT_EQ((foldedUpdate<TypeParam>(fold, 0, data.data(), kLength)),
                      (plainUpdate<TypeParam>(0, data.data(), kLength)))
                << bit;
            data[bit / 8] = 0;
        }
        for (unsigned bit = 0; bit < TypeParam::kWidth; ++bit) {
            const auto start = static_cast<typename TypeParam::Register>(std::uint64_t{1} << bit);
            ASSERT_EQ((foldedUpdate<TypeParam>(fold, start, data.data(), kLength)),
                      (plainUpdate<TypeParam>(start, data.data(), kLength)))
                << bit;
        }
    });
}

TYPED_TEST(CrcPathsTest, NoFoldReadsBesideTheBuffer) {
    const GuardedBytes guarded(4096);
    const auto data = randomBytes(guarded.size(), 15);
    std::memcpy(guarded.begin(), data.data(), data.size());
    this->forEachFold([&](Fold fold) {
        for (std::size_t length = kFoldMinimum; length <= 1400; ++length) {
            const unsigned char* p_last = data.data() + data.size() - length;
            ASSERT_EQ((foldedUpdate<TypeParam>(fold, 0, guarded.begin(), length)),
                      (foldedUpdate<TypeParam>(fold, 0, data.data(), length)));
            ASSERT_EQ((foldedUpdate<TypeParam>(fold, 0, guarded.end() - length, length)),
                      (foldedUpdate<TypeParam>(fold, 0, p_last, length)));
        }
    });
}

TEST(CrcEngineTest, Crc32InstructionsGiveTheSame) {
    const auto data = randomBytes(1000, 16);
    for (const Engine* p_engine : supportedEngines()) {
        if (p_engine->p_updateCrc32 == nullptr) continue;
        SCOPED_TRACE(p_engine->p_name);
        for (std::size_t length = 0; length <= 900; ++length) {
            const unsigned char* p_data = data.data() + length % 64;
            ASSERT_EQ(p_engine->p_updateCrc32(0x12345678, p_data, length),
                      plainUpdate<Crc32>(0x12345678, p_data, length))
                << length;
        }
    }
}

TEST(CrcEngineTest, TheFirstSupportedEngineIsUsed) {
    EXPECT_EQ(&engine(), supportedEngines().front());
    EXPECT_EQ(&engine(), &engine());
}

TEST(CrcEngineTest, PlainTablesAreTheLastResort) {
    const Engine* p_last = supportedEngines().back();

    EXPECT_STREQ(p_last->p_name, "tables");
    EXPECT_EQ(p_last->p_foldReflected, nullptr);
    EXPECT_EQ(p_last->p_foldMsbFirst, nullptr);
    EXPECT_EQ(p_last->p_updateCrc32, nullptr);
}

/// All thirteen CRCs of one buffer.
std::vector<std::uint64_t> allCrcs(const unsigned char* p_data, unsigned int length) {
    CheckSum sum;
    return {sum.crc_8(p_data, length),          sum.crc_16(p_data, length),
            sum.crc_modbus(p_data, length),     sum.crc_32(p_data, length),
            sum.crc_64_ecma(p_data, length),    sum.crc_64_we(p_data, length),
            sum.crc_xmodem(p_data, length),     sum.crc_ccitt_1d0f(p_data, length),
            sum.crc_ccitt_ffff(p_data, length), sum.crc_dnp(p_data, length),
            sum.crc_kermit(p_data, length),     sum.crc_sick(p_data, length),
            sum.crc_32_mpeg_2(p_data, length)};
}

TEST(CrcEngineTest, CheckSumGivesTheSameWithEveryEngine) {
    const auto data = randomBytes(5000, 17);
    const Engine& preferred = engine();
    for (unsigned int length = 0; length <= 4500; length += 1 + length / 300) {
        const unsigned char* p_data = data.data() + length % 61;
        g_engine = supportedEngines().back();
        const auto expected = allCrcs(p_data, length);
        for (const Engine* p_engine : supportedEngines()) {
            g_engine = p_engine;
            ASSERT_EQ(allCrcs(p_data, length), expected) << p_engine->p_name << ", " << length;
        }
    }
    g_engine = &preferred;
}

#ifdef __x86_64__

/// What the processor says of itself, by the bits that its makers' manuals name. Asked here once
/// more, apart from the library: an engine that is never found to be supported is a mistake which
/// no result shows.
class Processor {
public:
    Processor() {
        (void)__get_cpuid(1, &m_eax, &m_ebx, &m_ecx1, &m_edx);
        (void)__get_cpuid_count(7, 0, &m_eax, &m_ebx7, &m_ecx7, &m_edx);
        if (bit(m_ecx1, kOsxsave)) m_saved = savedState();
    }

    bool canRun(const std::string& engine) const {
        if (engine == "tables") return true;
        if (engine == "PCLMULQDQ") return hasFold128();
        if (engine == "VPCLMULQDQ 256") return hasFold256();
        return engine == "VPCLMULQDQ 512" && hasFold512();
    }

private:
    static constexpr int kPclmulqdq = 1, kSse41 = 19, kOsxsave = 27;                // Leaf 1, ECX.
    static constexpr int kAvx2 = 5, kAvx512f = 16, kAvx512bw = 30, kAvx512vl = 31;  // 7, EBX.
    static constexpr int kGfni = 8, kVpclmulqdq = 10;                               // Leaf 7, ECX.
    static constexpr unsigned kYmmState = 0x06;
    static constexpr unsigned kZmmState = 0xE6;

    static bool bit(unsigned word, int number) { return (word >> number & 1U) != 0; }

    /// The registers that the system saves.
    static unsigned savedState() {
        unsigned low = 0;
        unsigned high = 0;
        __asm__ __volatile__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
        return low;
    }

    bool hasFold128() const { return bit(m_ecx1, kPclmulqdq) && bit(m_ecx1, kSse41); }
    bool hasFold256() const {
        return hasFold128() && bit(m_ecx7, kVpclmulqdq) && bit(m_ebx7, kAvx2) &&
               (m_saved & kYmmState) == kYmmState;
    }
    bool hasFold512() const {
        return hasFold256() && bit(m_ebx7, kAvx512f) && bit(m_ebx7, kAvx512bw) &&
               bit(m_ebx7, kAvx512vl) && bit(m_ecx7, kGfni) && (m_saved & kZmmState) == kZmmState;
    }

    unsigned m_eax = 0, m_ebx = 0, m_edx = 0;
    unsigned m_ecx1 = 0, m_ebx7 = 0, m_ecx7 = 0;
    unsigned m_saved = 0;
};

TEST(CrcEngineTest, AnEngineIsSupportedExactlyWhereTheProcessorCanRunIt) {
    const Processor processor;
    for (const Engine* const* pp = allEngines(); *pp != nullptr; ++pp) {
        EXPECT_EQ((*pp)->p_isSupported(), processor.canRun((*pp)->p_name)) << (*pp)->p_name;
    }
}

// The widest, for it is the fastest; or, on processors of several kinds, the one that each of them
// is to show at work.
TEST(CrcEngineTest, TheWidestEngineThatTheProcessorCanRunIsUsed) {
    const Processor processor;
    std::string expected;
    for (const char* name : {"tables", "PCLMULQDQ", "VPCLMULQDQ 256", "VPCLMULQDQ 512"}) {
        if (processor.canRun(name)) expected = name;
    }
    if (const char* const p_shown = std::getenv("TEVALON_TEST_CRC_ENGINE")) {
        if (!processor.canRun(p_shown)) GTEST_SKIP() << "this processor cannot run " << p_shown;
        expected = p_shown;
    }

    EXPECT_EQ(engine().p_name, expected);
}

#endif  // __x86_64__

int g_engineCalls = 0;
int g_instructionCalls = 0;

template <bool kReflected>
std::uint64_t countedFold(std::uint64_t crc, const unsigned char*, std::size_t length,
                          const FoldConstants&) {
    EXPECT_GE(length, kFoldMinimum);
    ++g_engineCalls;
    return crc;
}

std::uint32_t countedUpdate(std::uint32_t crc, const unsigned char*, std::size_t) {
    ++g_instructionCalls;
    return crc;
}

/// While it lives, the CRCs are computed by an engine that counts its calls and computes nothing.
class CountingEngine {
public:
    explicit CountingEngine(UpdateCrc32 p_updateCrc32 = nullptr)
        : m_engine{"counting", nullptr, countedFold<true>, countedFold<false>, p_updateCrc32} {
        g_engine = &m_engine;
    }
    ~CountingEngine() { g_engine = &m_before; }

    CountingEngine(const CountingEngine&) = delete;
    CountingEngine& operator=(const CountingEngine&) = delete;

    /// How many of the thirteen CRCs of so many bytes come by it.
    static int callsFor(unsigned int length) {
        const std::vector<unsigned char> data(length);
        g_engineCalls = 0;
        (void)allCrcs(data.data(), length);
        return g_engineCalls;
    }

private:
    const Engine& m_before = engine();
    const Engine m_engine;
};

// All but the one of the SICK sensors, which folds differently.
TEST(CrcEngineTest, EveryCrcOfEnoughBytesIsTheEnginesWork) {
    const CountingEngine counting;

    EXPECT_EQ(CountingEngine::callsFor(kFoldMinimum), 12);
    EXPECT_EQ(CountingEngine::callsFor(17), 12);
    EXPECT_EQ(CountingEngine::callsFor(100000), 12);
}

TEST(CrcEngineTest, FewerBytesThanAnEngineTakesAreNotGivenToIt) {
    const CountingEngine counting;

    for (unsigned int length = 0; length < kFoldMinimum; ++length) {
        EXPECT_EQ(CountingEngine::callsFor(length), 0) << length;
    }
}

TEST(CrcEngineTest, InstructionsForTheCrc32ComeBeforeItsFold) {
    const CountingEngine counting(countedUpdate);
    const auto data = randomBytes(64, 18);
    CheckSum sum;
    g_engineCalls = 0;
    g_instructionCalls = 0;

    EXPECT_EQ(sum.crc_32(data.data(), 64), 0U);  // The start value's complement, untouched.
    EXPECT_EQ(g_engineCalls, 0);
    EXPECT_EQ(g_instructionCalls, 1);
}

TEST(CrcTableTest, HoldsTheEntriesThatAreFixed) {
    EXPECT_EQ((kTable<Crc8, 1>.slice[0][1]), 0x31);
    EXPECT_EQ((kTable<Crc16, 1>.slice[0][128]), 0xA001);
    EXPECT_EQ((kTable<CrcCcitt, 1>.slice[0][1]), 0x1021);
    EXPECT_EQ((kTable<CrcDnp, 1>.slice[0][128]), 0xA6BC);
    EXPECT_EQ((kTable<CrcKermit, 1>.slice[0][128]), 0x8408);
    EXPECT_EQ((kTable<Crc32, 1>.slice[0][128]), 0xEDB88320U);
    EXPECT_EQ((kTable<Crc64, 1>.slice[0][1]), 0x42F0E1EBA9EA3693U);
}

// Constants of the program, so that there is no first use to race on.
static_assert(kTable<Crc32, 16>.slice[0][128] == 0xEDB88320);
static_assert(kFoldConstants<Crc64>.divisor == Crc64::kPolynomial);

}  // namespace
}  // namespace tevalon::base::utils::crc

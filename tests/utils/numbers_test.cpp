#include "base/utils/numbers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "base/utils.h"

namespace {

using namespace tevalon::base;

// The dsto functions under one name.

std::int32_t parse(const std::string& text, int& value) {
    return dstoi(text, value);
}
std::int32_t parse(const std::string& text, long& value) {
    return dstol(text, value);
}
std::int32_t parse(const std::string& text, long long& value) {
    return dstoll(text, value);
}
std::int32_t parse(const std::string& text, unsigned int& value) {
    return dstoui(text, value);
}
std::int32_t parse(const std::string& text, unsigned long& value) {
    return dstoul(text, value);
}
std::int32_t parse(const std::string& text, unsigned long long& value) {
    return dstoull(text, value);
}

/// What is expected of a parser: whether it takes the text, and the number, if it is small.
struct Reading {
    bool isTaken;
    long long number;
};

/// The rule for texts of a few characters, which nothing wraps in.
Reading readSmall(const std::string& text) {
    if (text.empty() || text == "+" || text == "-") return {false, 0};
    const bool hasSign = text[0] == '+' || text[0] == '-';
    const std::size_t first = hasSign ? 1 : 0;
    const std::size_t last = text.find_first_not_of("0123456789", first);
    const std::string digits = text.substr(first, last == std::string::npos ? last : last - first);
    const long long magnitude = digits.empty() ? 0 : std::stoll(digits);
    return {true, text[0] == '-' ? -magnitude : magnitude};
}

/// The decimal sum of two decimal numbers.
std::string sum(const std::string& left, const std::string& right) {
    std::string digits;
    int carry = 0;
    for (std::size_t i = 0; i < left.size() || i < right.size() || carry > 0; ++i) {
        const int a = i < left.size() ? left[left.size() - 1 - i] - '0' : 0;
        const int b = i < right.size() ? right[right.size() - 1 - i] - '0' : 0;
        digits.insert(digits.begin(), static_cast<char>('0' + (a + b + carry) % 10));
        carry = (a + b + carry) / 10;
    }
    return digits;
}

std::string powerOfTwo(int exponent) {
    std::string number = "1";
    for (int i = 0; i < exponent; ++i) number = sum(number, number);
    return number;
}

std::vector<std::string> allTexts(const std::string& alphabet, std::size_t longest) {
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() == longest) break;
        const std::string text = texts[i];
        for (const char letter : alphabet) texts.push_back(text + letter);
    }
    return texts;
}

/// Names the instances of the tests below after their integer.
struct IntegerNames {
    template <typename T>
    static std::string GetName(int) {
        if (std::is_same_v<T, char>) return "Char";
        if (std::is_same_v<T, unsigned char>) return "UnsignedChar";
        if (std::is_same_v<T, signed char>) return "SignedChar";
        const std::string sign = std::is_signed_v<T> ? "" : "Unsigned";
        if (std::is_same_v<std::make_signed_t<T>, short>) return sign + "Short";
        if (std::is_same_v<std::make_signed_t<T>, int>) return sign + "Int";
        return sign + (std::is_same_v<std::make_signed_t<T>, long> ? "Long" : "LongLong");
    }
};

template <typename T>
class ParserTest : public testing::Test {
protected:
    static constexpr int kBits = static_cast<int>(sizeof(T)) * CHAR_BIT;
    static constexpr T kUntouched = T{77};

    static void expectRead(const std::string& text, T expected) {
        T value = kUntouched;
        ASSERT_EQ(parse(text, value), 0) << "'" << text << "'";
        ASSERT_EQ(value, expected) << "'" << text << "'";
    }

    static void expectRefused(const std::string& text) {
        T value = kUntouched;
        ASSERT_EQ(parse(text, value), -1) << "'" << text << "'";
        ASSERT_EQ(value, kUntouched) << "'" << text << "'";
    }

    /// @p image modulo the width of T.
    static T wrapped(unsigned long long image) { return static_cast<T>(image); }
};

using ParsedTypes =
    testing::Types<int, long, long long, unsigned int, unsigned long, unsigned long long>;
TYPED_TEST_SUITE(ParserTest, ParsedTypes, IntegerNames);

TYPED_TEST(ParserTest, RefusesTheEmptyTextAndLoneSigns) {
    TestFixture::expectRefused("");
    TestFixture::expectRefused("+");
    TestFixture::expectRefused("-");
}

TYPED_TEST(ParserTest, ReadsEveryShortTextByTheRule) {
    for (const std::string& text : allTexts("019+-a ", 5)) {
        const Reading expected = readSmall(text);
        if (expected.isTaken) {
            const auto image = static_cast<unsigned long long>(expected.number);
            TestFixture::expectRead(text, TestFixture::wrapped(image));
        } else {
            TestFixture::expectRefused(text);
        }
    }
}

TYPED_TEST(ParserTest, StopsAtTheFirstCharacterThatIsNoDigit) {
    TestFixture::expectRead("12ab", TypeParam{12});
    TestFixture::expectRead("abc", TypeParam{0});
    TestFixture::expectRead("-x", TypeParam{0});
    TestFixture::expectRead("+-5", TypeParam{0});
    TestFixture::expectRead("--5", TypeParam{0});
    TestFixture::expectRead(" 5", TypeParam{0});
    TestFixture::expectRead("7", TypeParam{7});
    TestFixture::expectRead("0x10", TypeParam{0});
    TestFixture::expectRead("1.9", TypeParam{1});
    TestFixture::expectRead("007", TypeParam{7});
    TestFixture::expectRead("-12z", TestFixture::wrapped(-12ULL));
    TestFixture::expectRead(std::string("1\0"
                                        "2",
                                        3),
                            TypeParam{1});
}

TYPED_TEST(ParserTest, TakesTheTenDigitsAloneForDigits) {
    for (int code = CHAR_MIN; code <= CHAR_MAX; ++code) {
        const char letter = static_cast<char>(code);
        const bool isDigit = letter >= '0' && letter <= '9';
        const int expected = isDigit ? 10 + (letter - '0') : 1;

        TestFixture::expectRead(std::string("1") + letter, static_cast<TypeParam>(expected));
    }
}

TYPED_TEST(ParserTest, ReadsItsLimits) {
    using Limits = std::numeric_limits<TypeParam>;

    TestFixture::expectRead(std::to_string(Limits::max()), Limits::max());
    TestFixture::expectRead(std::to_string(Limits::min()), Limits::min());
    TestFixture::expectRead("+" + std::to_string(Limits::max()), Limits::max());
}

TYPED_TEST(ParserTest, WrapsAroundEveryMultipleOfHalfItsRange) {
    const std::string half = powerOfTwo(TestFixture::kBits - 1);
    const unsigned long long halfImage = 1ULL << (TestFixture::kBits - 1);
    std::string multiple = "0";
    for (unsigned long long count = 0; count <= 40; ++count) {
        for (unsigned long long offset = 0; offset < 5; ++offset) {
            const std::string text = sum(multiple, std::to_string(offset));
            const unsigned long long image = count * halfImage + offset;
            TestFixture::expectRead(text, TestFixture::wrapped(image));
            TestFixture::expectRead("-" + text, TestFixture::wrapped(~image + 1));
        }
        multiple = sum(multiple, half);
    }
}

TYPED_TEST(ParserTest, WrapsJustBelowTheEndOfItsRange) {
    const std::string nearTheEnd = sum(powerOfTwo(TestFixture::kBits), "0");
    std::string below = nearTheEnd;  // 2^32 and 2^64 end in 6.
    below.back() = '5';

    TestFixture::expectRead(below, TestFixture::wrapped(~0ULL));
    TestFixture::expectRead("-" + below, TypeParam{1});
    TestFixture::expectRead(nearTheEnd, TypeParam{0});
    TestFixture::expectRead("-" + nearTheEnd, TypeParam{0});
}

TYPED_TEST(ParserTest, WrapsOnTheWayThroughLongTexts) {
    // Ten to the hundredth is a multiple of two to the hundredth.
    TestFixture::expectRead(std::string(100, '9'), TestFixture::wrapped(~0ULL));
    TestFixture::expectRead("-" + std::string(100, '9'), TypeParam{1});
    TestFixture::expectRead("1" + std::string(100, '0'), TypeParam{0});
    TestFixture::expectRead(std::string(100000, '0') + "42", TypeParam{42});
}

TEST(ParserByHandTest, Numbers) {
    int number = 0;
    unsigned int unsignedNumber = 0;
    long long wide = 0;
    unsigned long long unsignedWide = 0;

    EXPECT_EQ(dstoi("2147483648", number), 0);
    EXPECT_EQ(number, INT_MIN);
    EXPECT_EQ(dstoi("-2147483649", number), 0);
    EXPECT_EQ(number, INT_MAX);
    EXPECT_EQ(dstoui("-5", unsignedNumber), 0);
    EXPECT_EQ(unsignedNumber, 4294967291U);
    EXPECT_EQ(dstoui("-0", unsignedNumber), 0);
    EXPECT_EQ(unsignedNumber, 0U);
    EXPECT_EQ(dstoll("9223372036854775808", wide), 0);
    EXPECT_EQ(wide, LLONG_MIN);
    EXPECT_EQ(dstoull("-1", unsignedWide), 0);
    EXPECT_EQ(unsignedWide, 18446744073709551615ULL);
}

// Hexadecimal.

template <typename T>
std::string hexOf(T value, bool upper) {
    const auto image = static_cast<unsigned long long>(static_cast<std::make_unsigned_t<T>>(value));
    char text[32];
    if (upper) {
        std::snprintf(text, sizeof text, "%llX", image);
    } else {
        std::snprintf(text, sizeof text, "%llx", image);
    }
    return text;
}

template <typename T>
class HexTest : public testing::Test {
protected:
    /// Expects a single digit to replace what was there, and more to follow it.
    static void expectHex(T value) {
        for (const bool upper : {false, true}) {
            const std::string digits = hexOf(value, upper);
            for (const char* before : {"", "0x", "something that is longer than any short text"}) {
                std::string out = before;
                ASSERT_EQ(convert2HexStr(value, out, upper), 0);
                ASSERT_EQ(out, digits.size() == 1 ? digits : before + digits);
            }
        }
    }
};

// Every type that std::int64_t or std::uint64_t is a name of, on either architecture.
using HexTypes = testing::Types<char, unsigned char, int, unsigned int, long, unsigned long,
                                long long, unsigned long long, signed char, short, unsigned short>;
TYPED_TEST_SUITE(HexTest, HexTypes, IntegerNames);

TYPED_TEST(HexTest, ASingleDigitReplacesAndMoreAreAppended) {
    for (unsigned long value = 0; value <= 300; ++value) {
        constexpr TypeParam kHighest = std::numeric_limits<TypeParam>::max();
        const bool isInRange = value <= static_cast<unsigned long>(kHighest);
        if (isInRange) TestFixture::expectHex(static_cast<TypeParam>(value));
    }
}

TYPED_TEST(HexTest, EveryBitCounts) {
    using Unsigned = std::make_unsigned_t<TypeParam>;
    constexpr int kBits = static_cast<int>(sizeof(TypeParam)) * CHAR_BIT;
    for (int bit = 0; bit < kBits; ++bit) {
        const unsigned long long power = 1ULL << bit;
        for (const unsigned long long image : {power, power - 1, power + 1, ~power}) {
            TestFixture::expectHex(static_cast<TypeParam>(static_cast<Unsigned>(image)));
        }
    }
}

TYPED_TEST(HexTest, TheHighestValueIsAllFs) {
    const auto highest = static_cast<TypeParam>(~std::make_unsigned_t<TypeParam>{0});
    std::string out = "#";

    EXPECT_EQ(convert2HexStr(highest, out, true), 0);

    EXPECT_EQ(out, "#" + std::string(2 * sizeof(TypeParam), 'F'));
}

TEST(HexByHandTest, NumbersOfSixtyFourBits) {
    std::string out = "0x";
    EXPECT_EQ(convert2HexStr(std::uint64_t{0xFEDCBA9876543210U}, out, true), 0);
    EXPECT_EQ(out, "0xFEDCBA9876543210");
    EXPECT_EQ(convert2HexStr(std::uint64_t{15}, out, true), 0);
    EXPECT_EQ(out, "F");
    EXPECT_EQ(convert2HexStr(std::int64_t{-1}, out, false), 0);
    EXPECT_EQ(out, "F" + std::string(16, 'f'));
}

TEST(HexByHandTest, Texts) {
    std::string out = "whatever it held";
    EXPECT_EQ(convert2HexStr(10, out, true), 0);
    EXPECT_EQ(out, "A");
    EXPECT_EQ(convert2HexStr(0, out, true), 0);
    EXPECT_EQ(out, "0");
    out = "0x";
    EXPECT_EQ(convert2HexStr(255, out, false), 0);
    EXPECT_EQ(out, "0xff");
    EXPECT_EQ(convert2HexStr(16, out, false), 0);
    EXPECT_EQ(out, "0xff10");
    out = "";
    EXPECT_EQ(convert2HexStr(-1, out, true), 0);
    EXPECT_EQ(out, "FFFFFFFF");
    EXPECT_EQ(convert2HexStr(static_cast<char>(-1), out, false), 0);
    EXPECT_EQ(out, "FFFFFFFFff");
    EXPECT_EQ(convert2HexStr(0xABCDEF12U, out, false), 0);
    EXPECT_EQ(out, "FFFFFFFFffabcdef12");
    EXPECT_EQ(convert2HexStr(15, out, false), 0);
    EXPECT_EQ(out, "f");
}

}  // namespace

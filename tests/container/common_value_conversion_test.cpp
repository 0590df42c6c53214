#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "base/container/common_value.h"

namespace {

using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;
using Array = CommonValue::Array;

// The conversion table is written down here a second time, in other terms: integers as the
// 64-bit image of their mathematical value, narrowed by arithmetic alone.

/// What a value is a number of, if any.
enum class Nature { None, Negative, NotNegative, Truth, Floating };

struct Case {
    CommonValue value;
    Nature nature = Nature::None;
    std::uint64_t image = 0;  ///< Of an integer or a truth: its value modulo 2^64.
    double number = 0;        ///< Of a floating value.
    std::string text;
};

std::string floatingText(double number) {
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", number);
    return text;
}

template <typename T>
Case integerCase(T number) {
    const bool isNegative = number < T{0};
    return {CommonValue(number), isNegative ? Nature::Negative : Nature::NotNegative,
            static_cast<std::uint64_t>(number), 0, std::to_string(number)};
}

template <typename T>
Case floatingCase(T number) {
    return {CommonValue(number), Nature::Floating, 0, static_cast<double>(number),
            floatingText(static_cast<double>(number))};
}

/// Zero, the limits, and the neighbourhood of every power of two.
template <typename T>
std::set<T> integerBoundaries() {
    using Wide = unsigned long long;
    std::set<T> numbers = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), 0};
    for (int bit = 0; bit < 64; ++bit) {
        for (const Wide offset : {Wide{0}, Wide{1}, ~Wide{0}}) {
            const Wide number = (Wide{1} << bit) + offset;
            numbers.insert(static_cast<T>(number));
            numbers.insert(static_cast<T>(~number + 1));
        }
    }
    return numbers;
}

/// The limits, what lies around every power of two up to beyond 64 bits, fractions, and what is
/// no number or no finite one.
template <typename T>
std::vector<T> floatingBoundaries() {
    using Limits = std::numeric_limits<T>;
    std::vector<T> numbers = {T(0),
                              T(1e10),
                              T(2.9),
                              T(65537.5),
                              T(1e20),
                              Limits::min(),
                              Limits::denorm_min(),
                              Limits::max(),
                              Limits::infinity(),
                              Limits::quiet_NaN()};
    for (int exponent = -2; exponent <= 66; ++exponent) {
        const T power = std::ldexp(T(1), exponent);
        numbers.push_back(power);
        numbers.push_back(std::nextafter(power, T(0)));
        numbers.push_back(std::nextafter(power, Limits::infinity()));
        numbers.push_back(power + T(0.5));
        numbers.push_back(power - T(0.5));
        numbers.push_back(power + T(1));
        numbers.push_back(power - T(1));
    }
    const std::vector<T> positive = numbers;
    for (const T number : positive) numbers.push_back(-number);
    return numbers;
}

template <typename T>
void addIntegers(std::vector<Case>* p_cases) {
    for (const T number : integerBoundaries<T>()) p_cases->push_back(integerCase(number));
}

template <typename T>
void addFloats(std::vector<Case>* p_cases) {
    for (const T number : floatingBoundaries<T>()) p_cases->push_back(floatingCase(number));
}

void addOthers(std::vector<Case>* p_cases) {
    p_cases->push_back({CommonValue(), Nature::None, 0, 0, "Undefined"});
    p_cases->push_back({CommonValue::null(), Nature::None, 0, 0, "null"});
    p_cases->push_back({CommonValue(true), Nature::Truth, 1, 0, "TRUE"});
    p_cases->push_back({CommonValue(false), Nature::Truth, 0, 0, "FALSE"});
    for (const char* text : {"", "1", "-1", "true", "TRUE", "1.5", "[1]"}) {
        p_cases->push_back({CommonValue(text), Nature::None, 0, 0, text});
    }
    p_cases->push_back({CommonValue(Point{1, -2}), Nature::None, 0, 0, "(1,-2)"});
    p_cases->push_back(
        {CommonValue(Point{INT_MIN, INT_MAX}), Nature::None, 0, 0, "(-2147483648,2147483647)"});
    p_cases->push_back({CommonValue(Array{}), Nature::None, 0, 0, "[]"});
    p_cases->push_back({CommonValue(Array{1}), Nature::None, 0, 0, "[1]"});
    p_cases->push_back({CommonValue(Array{-1, true}), Nature::None, 0, 0, "[-1,TRUE]"});
}

std::vector<Case> allCases() {
    std::vector<Case> cases;
    addOthers(&cases);
    addIntegers<int>(&cases);
    addIntegers<unsigned int>(&cases);
    addIntegers<short>(&cases);
    addIntegers<unsigned short>(&cases);
    addIntegers<long long>(&cases);
    addIntegers<unsigned long long>(&cases);
    addFloats<float>(&cases);
    addFloats<double>(&cases);
    return cases;
}

// The other table.

double twoTo(int exponent) {
    return std::ldexp(1.0, exponent);
}

/// The image of @p number, cut off towards zero and kept within a signed or unsigned integer of
/// @p bits.
std::uint64_t saturatedImage(double number, int bits, bool isSigned) {
    if (std::isnan(number)) return 0;
    const double whole = std::trunc(number);
    const double limit = isSigned ? twoTo(bits - 1) : twoTo(bits);
    const std::uint64_t most = ~std::uint64_t{0} >> (64 - bits + (isSigned ? 1 : 0));
    if (whole >= limit) return most;
    if (isSigned && whole <= -limit) return ~most;
    if (whole >= 0) return static_cast<std::uint64_t>(whole);
    return isSigned ? ~static_cast<std::uint64_t>(-whole) + 1 : 0;
}

std::uint64_t expectedImage(const Case& given, int bits, bool isSigned) {
    if (given.nature != Nature::Floating) return given.image;
    return saturatedImage(given.number, bits < 32 ? 32 : bits, isSigned);
}

/// @p image modulo 2^bits, as T.
template <typename T>
T narrowed(std::uint64_t image) {
    constexpr int kBits = static_cast<int>(sizeof(T)) * CHAR_BIT;
    const std::uint64_t low = kBits == 64 ? image : image % (std::uint64_t{1} << (kBits % 64));
    if (low <= static_cast<std::uint64_t>(std::numeric_limits<T>::max())) {
        return static_cast<T>(low);
    }
    const std::uint64_t complement = ~low << (64 - kBits) >> (64 - kBits);
    return static_cast<T>(-static_cast<long long>(complement) - 1);
}

template <typename T>
T expectedInteger(const Case& given) {
    constexpr int kBits = static_cast<int>(sizeof(T)) * CHAR_BIT;
    return narrowed<T>(expectedImage(given, kBits, std::is_signed_v<T>));
}

bool expectedBool(const Case& given) {
    if (given.nature == Nature::Floating) return !(given.number == 0);
    return given.image != 0;
}

template <typename T>
T expectedFloating(const Case& given) {
    if (given.nature == Nature::Floating) return static_cast<T>(given.number);
    if (given.nature == Nature::Negative) return -static_cast<T>(~given.image + 1);
    return static_cast<T>(given.image);
}

Point expectedPoint(const Case& given) {
    Point point;
    if (given.value.type() == CommonValue::kPoint) {
        EXPECT_EQ(std::sscanf(given.text.c_str(), "(%d,%d)", &point.x, &point.y), 2);
    }
    return point;
}

template <typename T>
bool areSame(T left, T right) {
    if (std::isnan(left) || std::isnan(right)) return std::isnan(left) && std::isnan(right);
    return left == right && std::signbit(left) == std::signbit(right);
}

std::string describe(const Case& given) {
    return "tag " + std::to_string(given.value.type()) + ", " + given.text;
}

class CommonValueConversionTest : public testing::Test {
protected:
    template <typename T>
    void expectIntegers() const {
        for (const Case& given : m_cases) {
            const T converted = given.value.operator T();
            ASSERT_EQ(converted, expectedInteger<T>(given)) << describe(given);
        }
    }

    template <typename T>
    void expectFloats() const {
        for (const Case& given : m_cases) {
            const T converted = given.value.operator T();
            ASSERT_TRUE(areSame(converted, expectedFloating<T>(given)))
                << describe(given) << " becomes " << converted;
        }
    }

    const std::vector<Case> m_cases = allCases();
};

TEST_F(CommonValueConversionTest, CasesAreOfEveryKind) {
    std::set<int> kinds;

    for (const Case& given : m_cases) kinds.insert(given.value.type());

    EXPECT_EQ(kinds, (std::set<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 255}));
}

TEST_F(CommonValueConversionTest, ToBool) {
    for (const Case& given : m_cases) {
        EXPECT_EQ(given.value.operator bool(), expectedBool(given)) << describe(given);
    }
}

TEST_F(CommonValueConversionTest, ToShort) {
    expectIntegers<short>();
}

TEST_F(CommonValueConversionTest, ToUnsignedShort) {
    expectIntegers<unsigned short>();
}

TEST_F(CommonValueConversionTest, ToInt) {
    expectIntegers<int>();
}

TEST_F(CommonValueConversionTest, ToUnsignedInt) {
    expectIntegers<unsigned int>();
}

TEST_F(CommonValueConversionTest, ToLongLong) {
    expectIntegers<long long>();
}

TEST_F(CommonValueConversionTest, ToUnsignedLongLong) {
    expectIntegers<unsigned long long>();
}

TEST_F(CommonValueConversionTest, ToFloat) {
    expectFloats<float>();
}

TEST_F(CommonValueConversionTest, ToDouble) {
    expectFloats<double>();
}

TEST_F(CommonValueConversionTest, ToPoint) {
    for (const Case& given : m_cases) {
        const Point converted = given.value;
        const Point expected = expectedPoint(given);
        EXPECT_EQ(converted.x, expected.x) << describe(given);
        EXPECT_EQ(converted.y, expected.y) << describe(given);
    }
}

TEST_F(CommonValueConversionTest, ToText) {
    for (const Case& given : m_cases) {
        const std::string converted = given.value;
        EXPECT_EQ(converted, given.text) << describe(given);
        EXPECT_EQ(given.value.convertToStringType(), given.text) << describe(given);
    }
}

TEST_F(CommonValueConversionTest, ToNumbers) {
    for (const Case& given : m_cases) {
        std::vector<unsigned int> expected = {expectedInteger<unsigned int>(given)};
        if (given.text == "[]") expected = {};
        if (given.value.type() == CommonValue::kArray && given.text == "[1]") expected = {1};
        if (given.text == "[-1,TRUE]") expected = {UINT_MAX, 1};

        const std::vector<unsigned int> converted = given.value;

        EXPECT_EQ(converted, expected) << describe(given);
        EXPECT_EQ(given.value.convertToVectorT<unsigned int>(), expected) << describe(given);
    }
}

TEST_F(CommonValueConversionTest, ToTexts) {
    for (const Case& given : m_cases) {
        std::vector<std::string> expected = {given.text};
        if (given.text == "[]") expected = {};
        if (given.value.type() == CommonValue::kArray && given.text == "[1]") expected = {"1"};
        if (given.text == "[-1,TRUE]") expected = {"-1", "TRUE"};

        const std::vector<std::string> converted = given.value;

        EXPECT_EQ(converted, expected) << describe(given);
        EXPECT_EQ(given.value.convertToVectorT<std::string>(), expected) << describe(given);
    }
}

/// A few entries by hand, so that the two tables cannot be wrong in the same way.
TEST(CommonValueConversionByHandTest, Integers) {
    EXPECT_EQ(CommonValue(short{-1}).operator unsigned int(), 4294967295U);
    EXPECT_EQ(CommonValue(short{-1}).operator unsigned short(), 65535);
    EXPECT_EQ(CommonValue(-1).operator unsigned long long(), 18446744073709551615ULL);
    EXPECT_EQ(CommonValue(65537).operator short(), 1);
    EXPECT_EQ(CommonValue(32768).operator short(), -32768);
    EXPECT_EQ(CommonValue(4294967295U).operator int(), -1);
    EXPECT_EQ(CommonValue(4294967295U).operator long long(), 4294967295LL);
    EXPECT_EQ(CommonValue(4294967296LL).operator int(), 0);
    EXPECT_TRUE(CommonValue(4294967296LL).operator bool());
    EXPECT_TRUE(CommonValue(65536).operator bool());
    EXPECT_EQ(CommonValue(0x123456789ABCDEF0LL).operator unsigned int(), 0x9ABCDEF0U);
    EXPECT_EQ(CommonValue(0x123456789ABCDEF0LL).operator short(), static_cast<short>(0xDEF0));
    EXPECT_EQ(CommonValue(16777217).operator float(), 16777216.0F);
    EXPECT_EQ(CommonValue(ULLONG_MAX).operator double(), 18446744073709551616.0);
}

TEST(CommonValueConversionByHandTest, FloatingValues) {
    const double infinity = std::numeric_limits<double>::infinity();
    const double notANumber = std::numeric_limits<double>::quiet_NaN();

    EXPECT_EQ(CommonValue(2.9F).operator int(), 2);
    EXPECT_EQ(CommonValue(-2.9).operator int(), -2);
    EXPECT_EQ(CommonValue(1e10).operator int(), INT_MAX);
    EXPECT_EQ(CommonValue(-1e10).operator int(), INT_MIN);
    EXPECT_EQ(CommonValue(2147483647.5).operator int(), INT_MAX);
    EXPECT_EQ(CommonValue(-2147483648.5).operator int(), INT_MIN);
    EXPECT_EQ(CommonValue(-1.0F).operator unsigned int(), 0U);
    EXPECT_EQ(CommonValue(-0.5).operator unsigned int(), 0U);
    EXPECT_EQ(CommonValue(4294967296.0).operator unsigned int(), UINT_MAX);
    EXPECT_EQ(CommonValue(70000.0).operator short(), 4464);
    EXPECT_EQ(CommonValue(1e10).operator short(), -1);
    EXPECT_EQ(CommonValue(-1e10).operator short(), 0);
    EXPECT_EQ(CommonValue(-1.0).operator unsigned short(), 0);
    EXPECT_EQ(CommonValue(3e9).operator unsigned short(), 3000000000U % 65536);
    EXPECT_EQ(CommonValue(3e9).operator short(), -1);
    EXPECT_EQ(CommonValue(9223372036854775808.0).operator long long(), LLONG_MAX);
    EXPECT_EQ(CommonValue(-9223372036854775808.0).operator long long(), LLONG_MIN);
    EXPECT_EQ(CommonValue(18446744073709551616.0).operator unsigned long long(), ULLONG_MAX);
    EXPECT_EQ(CommonValue(-1.0).operator unsigned long long(), 0U);
    EXPECT_EQ(CommonValue(infinity).operator long long(), LLONG_MAX);
    EXPECT_EQ(CommonValue(-infinity).operator short(), 0);
    EXPECT_EQ(CommonValue(notANumber).operator int(), 0);
    EXPECT_EQ(CommonValue(notANumber).operator unsigned short(), 0);
    EXPECT_EQ(CommonValue(notANumber).operator unsigned long long(), 0U);
    EXPECT_TRUE(CommonValue(notANumber).operator bool());
    EXPECT_FALSE(CommonValue(-0.0).operator bool());
    EXPECT_EQ(CommonValue(1e300).operator float(), std::numeric_limits<float>::infinity());
    EXPECT_EQ(CommonValue(0.1F).operator double(), static_cast<double>(0.1F));
}

TEST(CommonValueConversionByHandTest, TextsAreNotParsed) {
    EXPECT_FALSE(CommonValue("1").operator bool());
    EXPECT_EQ(CommonValue("1").operator int(), 0);
    EXPECT_EQ(CommonValue("1.5").operator double(), 0.0);
    EXPECT_FALSE(CommonValue("TRUE").operator bool());
    EXPECT_EQ(CommonValue(Array{7}).operator int(), 0);
}

TEST(CommonValueConversionByHandTest, IsImplicit) {
    const CommonValue value(65);
    const int number = value;
    const bool truth = value;
    const double floating = value;
    const std::string text = value;

    EXPECT_EQ(number, 65);
    EXPECT_TRUE(truth);
    EXPECT_EQ(floating, 65.0);
    EXPECT_EQ(text, "65");
}

}  // namespace

#include "base/container/common_value.h"

#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <locale>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/container.h"
#include "support/fault_injection.h"

namespace {

using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;
using Array = CommonValue::Array;

const std::string kLongText = "a text that is too long to be kept within a string object itself";

std::string textOf(const CommonValue& value) {
    return value.convertToStringType();
}

// Kinds.

static_assert(CommonValue::kNull == 0 && CommonValue::kInt == 1 && CommonValue::kUInt == 2 &&
              CommonValue::kShort == 3 && CommonValue::kUShort == 4 &&
              CommonValue::kLongLong == 5 && CommonValue::kULongLong == 6 &&
              CommonValue::kBool == 7 && CommonValue::kFloat == 8 && CommonValue::kDouble == 9 &&
              CommonValue::kString == 10 && CommonValue::kPoint == 11 &&
              CommonValue::kArray == 12 && CommonValue::kUndefined == 255);
static_assert(!std::is_polymorphic_v<CommonValue>);
static_assert(std::is_nothrow_move_constructible_v<CommonValue>);
static_assert(std::is_nothrow_move_assignable_v<CommonValue>);

constexpr CommonValue::Type kLongKind =
    sizeof(long) == sizeof(int) ? CommonValue::kInt : CommonValue::kLongLong;
constexpr CommonValue::Type kULongKind =
    sizeof(long) == sizeof(int) ? CommonValue::kUInt : CommonValue::kULongLong;

/// Expects that @p given becomes a value of @p type with @p text, constructed and assigned.
template <typename T>
void expectKind(const T& given, CommonValue::Type type, const std::string& text) {
    const CommonValue constructed(given);
    CommonValue assigned(kLongText);
    CommonValue& result = assigned = given;

    EXPECT_EQ(constructed.type(), type) << text;
    EXPECT_EQ(textOf(constructed), text);
    EXPECT_EQ(assigned.type(), type) << text;
    EXPECT_EQ(textOf(assigned), text);
    EXPECT_EQ(&result, &assigned);
}

TEST(CommonValueTest, IsUndefinedUntilSomethingIsAssigned) {
    const CommonValue value;

    EXPECT_EQ(value.type(), CommonValue::kUndefined);
    EXPECT_EQ(textOf(value), "Undefined");
    EXPECT_EQ(value.operator int(), 0);
    EXPECT_FALSE(value.operator bool());
    EXPECT_EQ(value.convertToVectorT<unsigned int>(), std::vector<unsigned int>{0});
    EXPECT_EQ(value.convertToVectorT<std::string>(), std::vector<std::string>{"Undefined"});
    EXPECT_TRUE(value.array().empty());
}

TEST(CommonValueTest, CanBeNull) {
    const CommonValue value = CommonValue::null();

    EXPECT_EQ(value.type(), CommonValue::kNull);
    EXPECT_EQ(textOf(value), "null");
    EXPECT_EQ(value.operator int(), 0);
    EXPECT_TRUE(value.array().empty());
}

TEST(CommonValueTest, TakesTheKindOfWhatItIsGiven) {
    expectKind(true, CommonValue::kBool, "TRUE");
    expectKind(false, CommonValue::kBool, "FALSE");
    expectKind(short{-32768}, CommonValue::kShort, "-32768");
    expectKind(static_cast<unsigned short>(65535), CommonValue::kUShort, "65535");
    expectKind(INT_MIN, CommonValue::kInt, "-2147483648");
    expectKind(UINT_MAX, CommonValue::kUInt, "4294967295");
    expectKind(LLONG_MIN, CommonValue::kLongLong, "-9223372036854775808");
    expectKind(ULLONG_MAX, CommonValue::kULongLong, "18446744073709551615");
    expectKind(0.1F, CommonValue::kFloat, "0.1");
    expectKind(1.5, CommonValue::kDouble, "1.5");
    expectKind(std::string("abc"), CommonValue::kString, "abc");
    expectKind(Point{3, -4}, CommonValue::kPoint, "(3,-4)");
}

TEST(CommonValueTest, TakesLongByItsWidth) {
    expectKind(-1L, kLongKind, "-1");
    expectKind(LONG_MIN, kLongKind, std::to_string(LONG_MIN));
    expectKind(LONG_MAX, kLongKind, std::to_string(LONG_MAX));
    expectKind(0UL, kULongKind, "0");
    expectKind(ULONG_MAX, kULongKind, std::to_string(ULONG_MAX));
}

TEST(CommonValueTest, TakesLiteralsAsTextsAndNotAsBools) {
    const char* const pointer = "pointer";
    char letters[] = "letters";
    CommonValue assigned(true);
    assigned = "assigned";

    EXPECT_EQ(CommonValue("literal").type(), CommonValue::kString);
    EXPECT_EQ(textOf(CommonValue("literal")), "literal");
    EXPECT_EQ(CommonValue("").type(), CommonValue::kString);
    EXPECT_EQ(textOf(CommonValue("")), "");
    expectKind(pointer, CommonValue::kString, "pointer");
    expectKind(static_cast<char*>(letters), CommonValue::kString, "letters");
    EXPECT_EQ(assigned.type(), CommonValue::kString);
    EXPECT_EQ(textOf(assigned), "assigned");
}

TEST(CommonValueTest, TakesANullTextAsTheEmptyOne) {
    const char* const none = nullptr;

    expectKind(none, CommonValue::kString, "");
}

TEST(CommonValueTest, KeepsTextsWithZeroBytesWhole) {
    const std::string text("a\0b\n", 4);

    expectKind(text, CommonValue::kString, text);
}

TEST(CommonValueTest, TakesArrays) {
    const Array elements = {1, true, Point{}};
    const CommonValue constructed(elements);
    CommonValue assigned("text");
    assigned = elements;

    for (const CommonValue* value : {&constructed, static_cast<const CommonValue*>(&assigned)}) {
        EXPECT_EQ(value->type(), CommonValue::kArray);
        EXPECT_EQ(textOf(*value), "[1,TRUE,(0,0)]");
        ASSERT_EQ(value->array().size(), 3U);
        EXPECT_EQ(value->array()[0].type(), CommonValue::kInt);
        EXPECT_EQ(value->array()[1].type(), CommonValue::kBool);
        EXPECT_EQ(value->array()[2].type(), CommonValue::kPoint);
    }
    EXPECT_EQ(elements.size(), 3U);
}

TEST(CommonValueTest, ShowsNoElementsOfWhatIsNoArrayAnyMore) {
    CommonValue value(Array{1, 2});

    value = 5;

    EXPECT_TRUE(value.array().empty());
    EXPECT_EQ(textOf(value), "5");
}

// Texts.

TEST(CommonValueTest, PrintsFloatsWithSixSignificantDigits) {
    EXPECT_EQ(textOf(0.1F), "0.1");
    EXPECT_EQ(textOf(1e20), "1e+20");
    EXPECT_EQ(textOf(1e20F), "1e+20");
    EXPECT_EQ(textOf(123456.0), "123456");
    EXPECT_EQ(textOf(1234567.0), "1.23457e+06");
    EXPECT_EQ(textOf(0.0001), "0.0001");
    EXPECT_EQ(textOf(0.00001), "1e-05");
    EXPECT_EQ(textOf(3.14159265358979), "3.14159");
    EXPECT_EQ(textOf(2.0), "2");
    EXPECT_EQ(textOf(-0.0), "-0");
    EXPECT_EQ(textOf(1e-320), "9.99989e-321");
    EXPECT_EQ(textOf(std::numeric_limits<double>::max()), "1.79769e+308");
    EXPECT_EQ(textOf(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(textOf(-std::numeric_limits<float>::infinity()), "-inf");
    EXPECT_EQ(textOf(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(CommonValueTest, PrintsArraysWithoutBlanksOrQuotes) {
    EXPECT_EQ(textOf(Array{}), "[]");
    EXPECT_EQ(textOf(Array{CommonValue()}), "[Undefined]");
    EXPECT_EQ(textOf(Array{CommonValue(Array{1, 2}), CommonValue(Array{})}), "[[1,2],[]]");
    EXPECT_EQ(textOf(Array{CommonValue(Array{CommonValue(Array{})})}), "[[[]]]");
    EXPECT_EQ(textOf(Array{"", "a,b", "]", CommonValue::null(), -1.5}), "[,a,b,],null,-1.5]");
    EXPECT_EQ(textOf(Array{CommonValue(Array{CommonValue(Array{1}), 2}), 3}), "[[[1],2],3]");
}

TEST(CommonValueTest, PrintsThePointsLimits) {
    EXPECT_EQ(textOf(Point{INT_MIN, INT_MAX}), "(-2147483648,2147483647)");
    EXPECT_EQ(textOf(Point{}), "(0,0)");
}

/// Groups digits and has a decimal comma.
class Grouping : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "wahr"; }
};

TEST(CommonValueTest, PrintsTheSameInEveryLocale) {
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));

    const std::string text =
        textOf(Array{1234567, 1234567ULL, 1.5, 1234.5F, true, Point{12345, -12345}});

    std::locale::global(before);
    EXPECT_EQ(text, "[1234567,1234567,1.5,1234.5,TRUE,(12345,-12345)]");
}

TEST(CommonValueTest, ConvertsArraysElementByElement) {
    const CommonValue value(Array{short{-1}, 2.9, "3", true, CommonValue(Array{4}), LLONG_MAX});

    const std::vector<unsigned int> numbers = value;
    const std::vector<std::string> texts = value;

    EXPECT_EQ(numbers, (std::vector<unsigned int>{UINT_MAX, 2, 0, 1, 0, UINT_MAX}));
    EXPECT_EQ(texts,
              (std::vector<std::string>{"-1", "2.9", "3", "TRUE", "[4]", "9223372036854775807"}));
    EXPECT_TRUE(CommonValue(Array{}).convertToVectorT<unsigned int>().empty());
    EXPECT_TRUE(CommonValue(Array{}).convertToVectorT<std::string>().empty());
}

// Copies.

/// One value of every kind.
std::vector<CommonValue> oneOfEach() {
    return {CommonValue(),
            CommonValue::null(),
            1,
            2U,
            short{3},
            static_cast<unsigned short>(4),
            5LL,
            6ULL,
            true,
            8.5F,
            9.5,
            kLongText,
            Point{11, -11},
            CommonValue(Array{12, kLongText, CommonValue(Array{13})})};
}

TEST(CommonValueTest, CopiesHaveTheKindAndTheText) {
    for (const CommonValue& value : oneOfEach()) {
        const CommonValue copy(value);
        CommonValue assigned("before");
        CommonValue& result = assigned = value;

        EXPECT_EQ(copy.type(), value.type());
        EXPECT_EQ(textOf(copy), textOf(value));
        EXPECT_EQ(assigned.type(), value.type());
        EXPECT_EQ(textOf(assigned), textOf(value));
        EXPECT_EQ(&result, &assigned);
    }
}

TEST(CommonValueTest, CopiesShareNothing) {
    const CommonValue original(Array{1, "text"});
    CommonValue copy(original);
    CommonValue assigned;
    assigned = original;

    EXPECT_NE(copy.array().data(), original.array().data());
    EXPECT_NE(assigned.array().data(), original.array().data());
    copy = 1;
    assigned = "other";
    EXPECT_EQ(textOf(original), "[1,text]");
}

TEST(CommonValueTest, MovesHaveTheKindAndTheText) {
    for (const CommonValue& value : oneOfEach()) {
        CommonValue first(value);
        CommonValue second(value);
        const CommonValue moved(std::move(first));
        CommonValue assigned("before");
        CommonValue& result = assigned = std::move(second);

        EXPECT_EQ(moved.type(), value.type());
        EXPECT_EQ(textOf(moved), textOf(value));
        EXPECT_EQ(assigned.type(), value.type());
        EXPECT_EQ(textOf(assigned), textOf(value));
        EXPECT_EQ(&result, &assigned);
    }
}

TEST(CommonValueTest, MovesLeaveTheirSourceItsKindWithAnEmptyTextOrArray) {
    CommonValue text(kLongText);
    CommonValue elements(Array{1, 2});
    CommonValue assignedText(kLongText);
    CommonValue assignedElements(Array{1, 2});
    CommonValue number(5);

    const CommonValue movedText(std::move(text));
    const CommonValue movedElements(std::move(elements));
    const CommonValue movedNumber(std::move(number));
    CommonValue target;
    target = std::move(assignedText);
    target = std::move(assignedElements);

    for (const CommonValue* value : {&text, &assignedText}) {
        EXPECT_EQ(value->type(), CommonValue::kString);
        EXPECT_EQ(textOf(*value), "");
    }
    for (const CommonValue* value : {&elements, &assignedElements}) {
        EXPECT_EQ(value->type(), CommonValue::kArray);
        EXPECT_EQ(textOf(*value), "[]");
    }
    EXPECT_EQ(textOf(number), "5");
}

TEST(CommonValueTest, MovesTakeTheElementsAlong) {
    CommonValue value(Array{1, kLongText});
    const CommonValue* const elements = value.array().data();

    const CommonValue moved(std::move(value));

    EXPECT_EQ(moved.array().data(), elements);
}

TEST(CommonValueTest, IsUnchangedWhenAssignedToItself) {
    for (CommonValue& value : oneOfEach()) {
        const std::string before = textOf(value);
        const CommonValue& self = value;

        value = self;

        EXPECT_EQ(textOf(value), before);
    }
}

TEST(CommonValueTest, SurvivesBeingMovedToItself) {
    for (CommonValue& value : oneOfEach()) {
        const CommonValue::Type before = value.type();
        CommonValue& self = value;

        value = std::move(self);

        EXPECT_EQ(value.type(), before);
        value = "usable";
        EXPECT_EQ(textOf(value), "usable");
    }
}

TEST(CommonValueTest, CanBeAssignedItsOwnText) {
    CommonValue value(kLongText);
    const CommonValue copy(value);

    value = value.operator std::string();

    EXPECT_EQ(textOf(value), textOf(copy));
}

TEST(CommonValueTest, CanBeAssignedACopyOfOneOfItsOwnElements) {
    for (const std::size_t index : {0U, 1U, 2U}) {
        CommonValue value(Array{kLongText, CommonValue(Array{1, kLongText}), Point{7, 8}});
        const std::string expected = textOf(value.array()[index]);

        value = value.array()[index];

        EXPECT_EQ(textOf(value), expected);
    }
}

TEST(CommonValueTest, CanBeAssignedItsOwnElements) {
    CommonValue value(Array{kLongText, 1});

    value = value.array();

    EXPECT_EQ(textOf(value), "[" + kLongText + ",1]");
}

// Memory that runs out.

TEST(CommonValueTest, GivesUpACopyWhenMemoryRunsOut) {
    const CommonValue value(Array{kLongText, CommonValue(Array{kLongText, 1}), 2});
    bool copied = false;

    for (long allocation = 1; !copied; ++allocation) {
        const test::FailCall fail(test::Call::New, 0, test::When().nth(allocation));
        try {
            const CommonValue copy(value);
            copied = true;
            EXPECT_GT(allocation, 4);
        } catch (const std::bad_alloc&) {
        }
    }

    EXPECT_EQ(textOf(value), "[" + kLongText + ",[" + kLongText + ",1],2]");
}

TEST(CommonValueTest, StaysUsableWhenMemoryRunsOutInAnAssignment) {
    const CommonValue value(Array{kLongText, CommonValue(Array{kLongText, 1}), 2});
    bool copied = false;

    for (long allocation = 1; !copied; ++allocation) {
        CommonValue target(Array{1, kLongText});
        {
            const test::FailCall fail(test::Call::New, 0, test::When().nth(allocation));
            try {
                target = value;
                copied = true;
            } catch (const std::bad_alloc&) {
            }
        }
        (void)textOf(target);
        target = 7;
        EXPECT_EQ(textOf(target), "7");
    }

    EXPECT_EQ(textOf(value), "[" + kLongText + ",[" + kLongText + ",1],2]");
}

TEST(CommonValueTest, NeedsNoMemoryToMoveOrToEnd) {
    CommonValue first(Array{kLongText, CommonValue(Array{CommonValue(Array{kLongText}), 1})});
    CommonValue second(Array{CommonValue(Array{CommonValue(Array{1, kLongText}), 2}), 3});
    const std::string text = textOf(second);
    std::string movedText;
    {
        const test::FailCall fail(test::Call::New, 0, test::When().everyTime());

        CommonValue moved(std::move(first));
        moved = std::move(second);

        const test::PassCalls pass;
        movedText = textOf(moved);
    }

    EXPECT_EQ(movedText, text);
}

// Lists, elements, equality.

TEST(CommonValueTest, AListIsAnArrayOfWhatIsListed) {
    const CommonValue value = CommonValue::list({1, "two", 3.5, CommonValue::list({true}), {}});

    EXPECT_EQ(value.type(), CommonValue::kArray);
    EXPECT_EQ(textOf(value), "[1,two,3.5,[TRUE],Undefined]");
    EXPECT_EQ(textOf(CommonValue::list({})), "[]");
    EXPECT_EQ(textOf(CommonValue::list({CommonValue::list({1})})), "[[1]]");
}

TEST(CommonValueTest, ElementsAreReadByIndexAndInOrder) {
    const CommonValue value = CommonValue::list({1, "two"});
    std::string texts;
    for (const CommonValue& element : value) texts += textOf(element) + ";";

    EXPECT_EQ(texts, "1;two;");
    EXPECT_EQ(value.size(), 2U);
    EXPECT_EQ(static_cast<int>(value[0]), 1);
    EXPECT_EQ(textOf(value[1]), "two");
    EXPECT_EQ(&value[1], &value.array()[1]);
}

TEST(CommonValueTest, AnElementThatIsNotThereIsUndefined) {
    const CommonValue array = CommonValue::list({1});
    CommonValue number = array;
    number = 5;  // The array is out of sight.

    for (const CommonValue* p_value : {&array, static_cast<const CommonValue*>(&number)}) {
        EXPECT_EQ((*p_value)[1].type(), CommonValue::kUndefined);
        EXPECT_EQ((*p_value)[static_cast<std::size_t>(-1)].type(), CommonValue::kUndefined);
    }
    EXPECT_EQ(number[0].type(), CommonValue::kUndefined);
    EXPECT_EQ(number.size(), 0U);
    EXPECT_EQ(number.begin(), number.end());
}

/// Expects the answer from both sides, and the opposite of "not equal".
void expectEquality(const CommonValue& left, const CommonValue& right, bool isEqual) {
    EXPECT_EQ(left == right, isEqual) << textOf(left) << " and " << textOf(right);
    EXPECT_EQ(right == left, isEqual) << textOf(right) << " and " << textOf(left);
    EXPECT_EQ(left != right, !isEqual);
    EXPECT_EQ(right != left, !isEqual);
}

TEST(CommonValueEqualityTest, NumbersAreEqualWhereTheyAreTheSameNumber) {
    const CommonValue fives[] = {
        5, 5U, static_cast<short>(5), static_cast<unsigned short>(5), 5LL, 5ULL, 5.0F, 5.0};
    for (const CommonValue& left : fives) {
        for (const CommonValue& right : fives) expectEquality(left, right, true);
        expectEquality(left, 6, false);
        expectEquality(left, 5.5, false);
        expectEquality(left, -5, false);
        expectEquality(left, "5", false);
    }
    expectEquality(-1, ~0U, false);
    expectEquality(-1, ~0ULL, false);
    expectEquality(-1LL, static_cast<short>(-1), true);
    expectEquality(-1, -1.0, true);
    expectEquality(0, -0.0, true);
    expectEquality(65537, static_cast<short>(1), false);
}

// Where a double cannot tell neighbours apart, a conversion to double would find them equal.
TEST(CommonValueEqualityTest, AnIntegerIsComparedWithAFloatingNumberExactly) {
    constexpr long long kBeyond53Bits = (1LL << 53) + 1;
    expectEquality(kBeyond53Bits, static_cast<double>(kBeyond53Bits), false);
    expectEquality(1LL << 53, 9007199254740992.0, true);
    expectEquality(-kBeyond53Bits, -9007199254740992.0, false);
    expectEquality(std::numeric_limits<long long>::min(), -9223372036854775808.0, true);
    expectEquality(std::numeric_limits<long long>::max(), 9223372036854775808.0, false);
    expectEquality(~0ULL, 18446744073709551616.0, false);
    expectEquality(1ULL << 63, 9223372036854775808.0, true);
    expectEquality(0, 0.5, false);
    expectEquality(0, -0.5, false);
    expectEquality(-1, -1.5, false);
    for (const double far : {1e300, -1e300, std::numeric_limits<double>::infinity()}) {
        expectEquality(std::numeric_limits<long long>::max(), far, false);
        expectEquality(std::numeric_limits<long long>::min(), far, false);
        expectEquality(~0ULL, far, false);
        expectEquality(far, far, true);
    }
}

TEST(CommonValueEqualityTest, NanEqualsNothing) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    expectEquality(nan, nan, false);
    expectEquality(nan, 0, false);
    expectEquality(CommonValue::list({nan}), CommonValue::list({nan}), false);
}

TEST(CommonValueEqualityTest, OtherKindsAreEqualToTheirOwnKindAlone) {
    const CommonValue kinds[] = {
        CommonValue(),         CommonValue::null(), true, 1, "1", CommonValue(Point{1, 0}),
        CommonValue::list({1})};
    for (const CommonValue& left : kinds) {
        for (const CommonValue& right : kinds) expectEquality(left, right, &left == &right);
    }
    expectEquality(true, false, false);
    expectEquality("a", "b", false);
    expectEquality(CommonValue(Point{1, 2}), CommonValue(Point{1, 3}), false);
    expectEquality(CommonValue(Point{2, 2}), CommonValue(Point{1, 2}), false);
    expectEquality(CommonValue(Point{1, 2}), CommonValue(Point{1, 2}), true);
}

TEST(CommonValueEqualityTest, WhatIsOutOfSightDoesNotCount) {
    CommonValue left = "a text";
    left = 5;
    expectEquality(left, 5, true);
}

TEST(CommonValueEqualityTest, ArraysAreEqualElementByElement) {
    const auto list = [](auto... values) { return CommonValue::list({values...}); };
    expectEquality(list(), list(), true);
    expectEquality(list(1, "a"), list(1.0, "a"), true);
    expectEquality(list(1, 2), list(2, 1), false);
    expectEquality(list(1), list(1, 2), false);
    expectEquality(list(list(1), list(2, list())), list(list(1), list(2, list())), true);
    expectEquality(list(list(1), list(2, list())), list(list(1), list(2, list(0))), false);
    expectEquality(list(list(1), 2), list(list(1), 3), false);
}

TEST(CommonValueEqualityTest, NestedArraysNeedNoStack) {
    constexpr int kDepth = 200000;
    CommonValue left = 1;
    CommonValue right = 1;
    for (int depth = 0; depth < kDepth; ++depth) {
        for (CommonValue* p_value : {&left, &right}) {
            Array outer;
            outer.push_back(std::move(*p_value));
            *p_value = std::move(outer);
        }
    }
    EXPECT_TRUE(left == right);
}

// What a client writes on either side of the sign; the values' own conversions do not get in its
// way.
TEST(CommonValueEqualityTest, AValueIsComparedWithWhatConvertsToOne) {
    const CommonValue five = 5;
    const CommonValue text = "text";
    const CommonValue yes = true;

    EXPECT_TRUE(five == 5 && 5 == five && five == 5U && five == 5L && five == 5.0 && 5.0F == five);
    EXPECT_TRUE(five != 6 && 6 != five && five == static_cast<short>(5));
    EXPECT_TRUE(text == "text" && "text" == text && text == std::string("text"));
    EXPECT_TRUE(text != "other" && std::string("other") != text);
    EXPECT_TRUE(yes == true && false != yes && yes != 1);
    EXPECT_TRUE(CommonValue(Point{1, 2}) == (Point{1, 2}));
    EXPECT_TRUE(CommonValue::list({1}) == Array{1});
}

TEST(CommonValueEqualityTest, WhatCouldBeComparedBeforeStillIs) {
    struct Derived : CommonValue {};
    const Array array = {1, 2};
    Derived derived;
    const CommonValue* const p_base = &derived;
    const int kind = 1;

    EXPECT_TRUE(array[0].type() == CommonValue::kInt && array[0].type() == kind);
    EXPECT_TRUE(kind == array[0].type());
    EXPECT_TRUE(array.begin() != array.end() && &array[0] != &array[1]);
    EXPECT_TRUE(p_base == &derived && p_base != nullptr && nullptr != p_base);
    EXPECT_TRUE(static_cast<int>(array[0]) == 1 && static_cast<std::string>(array[1]) == "2");
}

}  // namespace

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/container/common_value.h"

namespace {

using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;
using Array = CommonValue::Array;

const std::string kLongText = "a text that is too long to be kept within a string object itself";

/// A value laid open: the fields in their order.
struct Fields {
    std::int32_t tag;
    alignas(8) unsigned char scalar[8];
    std::int64_t reservedZero;
    std::int64_t reservedOnes;
    Point point;
    std::string text;
    Array elements;
};

static_assert(sizeof(Point) == 8 && offsetof(Point, x) == 0 && offsetof(Point, y) == 4);
static_assert(std::is_standard_layout_v<Fields>);
static_assert(sizeof(CommonValue) == sizeof(Fields) && alignof(CommonValue) == alignof(Fields));
static_assert(alignof(CommonValue) == 8);
static_assert(offsetof(Fields, scalar) == 8 && offsetof(Fields, reservedZero) == 16 &&
              offsetof(Fields, reservedOnes) == 24 && offsetof(Fields, point) == 32 &&
              offsetof(Fields, text) == 40);
static_assert(offsetof(Fields, elements) == 40 + sizeof(std::string));

unsigned char* bytesOf(CommonValue& value) {
    return reinterpret_cast<unsigned char*>(&value);
}

template <typename T>
T read(const CommonValue& value, std::size_t offset) {
    T result;
    std::memcpy(&result, reinterpret_cast<const unsigned char*>(&value) + offset, sizeof result);
    return result;
}

template <typename T>
void write(CommonValue& value, std::size_t offset, const T& field) {
    std::memcpy(bytesOf(value) + offset, &field, sizeof field);
}

std::uint64_t scalarOf(const CommonValue& value) {
    return read<std::uint64_t>(value, offsetof(Fields, scalar));
}

std::string& textSlot(CommonValue& value) {
    return *std::launder(reinterpret_cast<std::string*>(bytesOf(value) + offsetof(Fields, text)));
}

Array& arraySlot(CommonValue& value) {
    return *std::launder(reinterpret_cast<Array*>(bytesOf(value) + offsetof(Fields, elements)));
}

Point pointSlot(const CommonValue& value) {
    return read<Point>(value, offsetof(Fields, point));
}

void expectReserved(const CommonValue& value, std::int64_t first, std::int64_t second) {
    EXPECT_EQ(read<std::int64_t>(value, offsetof(Fields, reservedZero)), first);
    EXPECT_EQ(read<std::int64_t>(value, offsetof(Fields, reservedOnes)), second);
}

void setReserved(CommonValue& value) {
    write(value, offsetof(Fields, reservedZero), std::int64_t{123});
    write(value, offsetof(Fields, reservedOnes), std::int64_t{456});
}

/// Of kind kInt, with something else in every other slot.
CommonValue& fillAllSlots(CommonValue& value) {
    value = Array{1, 2};
    value = kLongText;
    value = Point{3, 4};
    value = 5;
    setReserved(value);
    return value;
}

std::string textOf(const CommonValue& value) {
    return value.convertToStringType();
}

TEST(CommonValueLayoutTest, StartsWithItsTag) {
    EXPECT_EQ(read<std::int32_t>(CommonValue(), 0), 255);
    EXPECT_EQ(read<std::int32_t>(CommonValue::null(), 0), 0);
    EXPECT_EQ(read<std::int32_t>(CommonValue(1), 0), 1);
    EXPECT_EQ(read<std::int32_t>(CommonValue(Array{}), 0), 12);
}

TEST(CommonValueLayoutTest, KeepsScalarsAtTheFrontOfTheirSlot) {
    EXPECT_EQ(read<int>(CommonValue(-7), 8), -7);
    EXPECT_EQ(read<unsigned int>(CommonValue(UINT_MAX), 8), UINT_MAX);
    EXPECT_EQ(read<short>(CommonValue(short{-7}), 8), -7);
    EXPECT_EQ(read<unsigned short>(CommonValue(static_cast<unsigned short>(65535)), 8), 65535);
    EXPECT_EQ(read<long long>(CommonValue(LLONG_MIN), 8), LLONG_MIN);
    EXPECT_EQ(read<unsigned long long>(CommonValue(ULLONG_MAX), 8), ULLONG_MAX);
    EXPECT_EQ(read<unsigned char>(CommonValue(true), 8), 1);
    EXPECT_EQ(read<float>(CommonValue(1.5F), 8), 1.5F);
    EXPECT_EQ(read<double>(CommonValue(-2.5), 8), -2.5);
}

TEST(CommonValueLayoutTest, KeepsTheOtherSlotsBehindTheReservedFields) {
    CommonValue text(kLongText);
    CommonValue elements(Array{1, 2});

    EXPECT_EQ(pointSlot(CommonValue(Point{3, -4})).x, 3);
    EXPECT_EQ(pointSlot(CommonValue(Point{3, -4})).y, -4);
    EXPECT_EQ(textSlot(text), kLongText);
    EXPECT_EQ(&arraySlot(elements), &elements.array());
}

/// Constructs a value in memory that holds something else everywhere, and expects the slots that
/// it does not use to be as they should.
template <typename... Arguments>
void expectAllSlotsSet(const Arguments&... arguments) {
    alignas(CommonValue) unsigned char memory[sizeof(CommonValue)];
    std::memset(memory, 0xA5, sizeof memory);

    auto* const value = new (memory) CommonValue(arguments...);

    SCOPED_TRACE(value->type());
    const CommonValue::Type type = value->type();
    const bool isScalar = type >= CommonValue::kInt && type <= CommonValue::kDouble;
    const bool isPoint = type == CommonValue::kPoint;
    expectReserved(*value, 0, -1);
    EXPECT_TRUE(isScalar || scalarOf(*value) == 0);
    EXPECT_TRUE(isPoint || pointSlot(*value).x == 0);
    EXPECT_TRUE(isPoint || pointSlot(*value).y == 0);
    EXPECT_TRUE(type == CommonValue::kString || textSlot(*value).empty());
    EXPECT_TRUE(type == CommonValue::kArray || arraySlot(*value).empty());
    value->~CommonValue();
}

TEST(CommonValueLayoutTest, EveryConstructorSetsAllSlots) {
    expectAllSlotsSet();
    expectAllSlotsSet(CommonValue::null());
    expectAllSlotsSet(true);
    expectAllSlotsSet(short{1});
    expectAllSlotsSet(static_cast<unsigned short>(1));
    expectAllSlotsSet(1);
    expectAllSlotsSet(1U);
    expectAllSlotsSet(1L);
    expectAllSlotsSet(1UL);
    expectAllSlotsSet(1LL);
    expectAllSlotsSet(1ULL);
    expectAllSlotsSet(1.0F);
    expectAllSlotsSet(1.0);
    expectAllSlotsSet("literal");
    expectAllSlotsSet(kLongText);
    expectAllSlotsSet(Point{1, 2});
    expectAllSlotsSet(Array{1});
    expectAllSlotsSet(CommonValue(1));
    expectAllSlotsSet(CommonValue(kLongText));
}

TEST(CommonValueLayoutTest, SmallScalarsLeaveTheRestOfTheirSlotZero) {
    EXPECT_EQ(read<std::uint32_t>(CommonValue(-1), 12), 0U);
    EXPECT_EQ(read<std::uint16_t>(CommonValue(short{-1}), 10), 0U);
    EXPECT_EQ(read<std::uint32_t>(CommonValue(short{-1}), 12), 0U);
    EXPECT_EQ(read<unsigned char>(CommonValue(true), 9), 0U);
    EXPECT_EQ(read<std::uint32_t>(CommonValue(-1.5F), 12), 0U);
}

TEST(CommonValueLayoutTest, AnAssignmentOfAValueTouchesItsOwnSlotAlone) {
    CommonValue value;
    fillAllSlots(value);

    EXPECT_EQ(textOf(value), "5");
    EXPECT_EQ(textSlot(value), kLongText);
    EXPECT_EQ(arraySlot(value).size(), 2U);
    EXPECT_EQ(pointSlot(value).y, 4);
    expectReserved(value, 123, 456);
    value = "other";
    EXPECT_EQ(textSlot(value), "other");
    EXPECT_EQ(scalarOf(value), 5U);
    EXPECT_EQ(arraySlot(value).size(), 2U);
}

TEST(CommonValueLayoutTest, CanBeAssignedItsOwnPointSlot) {
    CommonValue value(Point{3, -4});
    value = 1;

    value = *std::launder(reinterpret_cast<Point*>(bytesOf(value) + offsetof(Fields, point)));

    EXPECT_EQ(textOf(value), "(3,-4)");
}

TEST(CommonValueLayoutTest, CanBeAssignedItsOwnTextSlot) {
    CommonValue value(kLongText);
    value = 1;

    value = textSlot(value);

    EXPECT_EQ(value.type(), CommonValue::kString);
    EXPECT_EQ(textOf(value), kLongText);
}

TEST(CommonValueLayoutTest, ACopyHasTheNamedSlotAlone) {
    CommonValue value;
    fillAllSlots(value);

    CommonValue copy(value);

    EXPECT_EQ(textOf(copy), "5");
    EXPECT_EQ(textSlot(copy), "");
    EXPECT_TRUE(arraySlot(copy).empty());
    EXPECT_EQ(pointSlot(copy).x, 0);
    expectReserved(copy, 0, -1);
    EXPECT_EQ(textSlot(value), kLongText);
}

TEST(CommonValueLayoutTest, ACopyOfATagWithoutASlotHasTheTagAlone) {
    for (const std::int32_t tag : {0, 255, 13, 254, 256, -1, INT_MAX, INT_MIN}) {
        CommonValue value;
        fillAllSlots(value);
        write(value, 0, tag);

        CommonValue copy(value);
        CommonValue moved(std::move(value));

        for (CommonValue* p_made : {&copy, &moved}) {
            SCOPED_TRACE((p_made == &copy ? "copied " : "moved ") + std::to_string(tag));
            EXPECT_EQ(read<std::int32_t>(*p_made, 0), tag);
            EXPECT_EQ(scalarOf(*p_made), 0U);
            EXPECT_EQ(pointSlot(*p_made).x, 0);
            expectReserved(*p_made, 0, -1);
        }
        EXPECT_EQ(textSlot(copy), "");
        EXPECT_TRUE(arraySlot(copy).empty());
    }
}

TEST(CommonValueLayoutTest, ACopiedElementOfAnUnknownTagHasTheTagAlone) {
    CommonValue value(Array{5});
    write(arraySlot(value).front(), 0, std::int32_t{13});

    CommonValue copy(value);

    EXPECT_EQ(read<std::int32_t>(copy.array().front(), 0), 13);
    EXPECT_EQ(scalarOf(copy.array().front()), 0U);
}

TEST(CommonValueLayoutTest, AMoveConstructorSetsTheReservedFieldsAndTheUnnamedScalars) {
    CommonValue value;
    fillAllSlots(value);
    value = "text";

    CommonValue moved(std::move(value));

    EXPECT_EQ(textOf(moved), "text");
    EXPECT_EQ(scalarOf(moved), 0U);
    EXPECT_EQ(pointSlot(moved).x, 0);
    expectReserved(moved, 0, -1);
    EXPECT_EQ(textSlot(value), "");
}

TEST(CommonValueLayoutTest, ACopyAssignmentCarriesEverything) {
    CommonValue value;
    fillAllSlots(value);
    CommonValue target("before");

    target = value;

    for (CommonValue* p_value : {&value, &target}) {
        EXPECT_EQ(textOf(*p_value), "5");
        EXPECT_EQ(scalarOf(*p_value), 5U);
        EXPECT_EQ(textSlot(*p_value), kLongText);
        EXPECT_EQ(textOf(CommonValue(arraySlot(*p_value))), "[1,2]");
        EXPECT_EQ(pointSlot(*p_value).x, 3);
        expectReserved(*p_value, 123, 456);
    }
}

TEST(CommonValueLayoutTest, ACopyAssignmentCarriesAllEightScalarBytes) {
    CommonValue value(ULLONG_MAX);
    value = short{1};
    CommonValue target;

    target = value;

    EXPECT_EQ(scalarOf(target), scalarOf(value));
    EXPECT_EQ(scalarOf(CommonValue(value)) & 0xFFFF, scalarOf(value) & 0xFFFF);
}

TEST(CommonValueLayoutTest, AMoveAssignmentCarriesEverythingAndEmptiesTextAndArray) {
    CommonValue value;
    fillAllSlots(value);
    CommonValue target(Array{CommonValue("before")});

    target = std::move(value);

    EXPECT_EQ(textOf(target), "5");
    EXPECT_EQ(textSlot(target), kLongText);
    EXPECT_EQ(arraySlot(target).size(), 2U);
    EXPECT_EQ(pointSlot(target).x, 3);
    expectReserved(target, 123, 456);
    EXPECT_EQ(textOf(value), "5");
    EXPECT_EQ(textSlot(value), "");
    EXPECT_TRUE(arraySlot(value).empty());
    expectReserved(value, 123, 456);
}

TEST(CommonValueLayoutTest, ASelfAssignmentKeepsTheHiddenSlots) {
    CommonValue value;
    fillAllSlots(value);
    const CommonValue& self = value;

    value = self;

    EXPECT_EQ(textOf(value), "5");
    EXPECT_EQ(textSlot(value), kLongText);
    EXPECT_EQ(arraySlot(value).size(), 2U);
    EXPECT_EQ(pointSlot(value).y, 4);
    expectReserved(value, 123, 456);
}

TEST(CommonValueLayoutTest, AnUnknownTagConvertsToNothing) {
    for (const std::int32_t tag : {13, 254, 256, -1, INT_MAX, INT_MIN}) {
        CommonValue value;
        fillAllSlots(value);
        write(value, 0, tag);

        EXPECT_EQ(textOf(value), "") << tag;
        EXPECT_EQ(value.operator int(), 0);
        EXPECT_EQ(value.operator unsigned long long(), 0U);
        EXPECT_EQ(value.operator double(), 0.0);
        EXPECT_FALSE(value.operator bool());
        EXPECT_EQ(value.operator Point().x, 0);
        EXPECT_TRUE(value.array().empty());
        EXPECT_EQ(value.convertToVectorT<unsigned int>(), std::vector<unsigned int>{0});
        EXPECT_EQ(value.convertToVectorT<std::string>(), std::vector<std::string>{""});
    }
}

}  // namespace

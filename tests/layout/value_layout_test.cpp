// The layouts of the values and utilities.

#include <gtest/gtest.h>

#include <type_traits>

#include "base/container.h"
#include "base/utils.h"
#include "layout/field.h"

namespace layout {

using namespace tevalon::base::utils;
using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;

LAYOUT_FIELD(PointX, Point, x);
LAYOUT_FIELD(PointY, Point, y);

LAYOUT_FIELD(ValueType, CommonValue, m_type);
LAYOUT_FIELD(ValueScalar, CommonValue, m_scalar);
LAYOUT_FIELD(ValueReservedZero, CommonValue, m_reservedZero);
LAYOUT_FIELD(ValueReservedOnes, CommonValue, m_reservedOnes);
LAYOUT_FIELD(ValuePoint, CommonValue, m_point);
LAYOUT_FIELD(ValueString, CommonValue, m_string);
LAYOUT_FIELD(ValueArray, CommonValue, m_array);

LAYOUT_FIELD(OptionsParsed, CommandLine, m_parsed);
LAYOUT_FIELD(OptionsArgc, CommandLine, m_argc);
LAYOUT_FIELD(OptionsArgv, CommandLine, m_argv);
LAYOUT_FIELD(OptionsValues, CommandLine, m_values);
LAYOUT_FIELD(OptionsShortToLong, CommandLine, m_shortToLong);
LAYOUT_FIELD(OptionsOptString, CommandLine, m_optString);
LAYOUT_FIELD(OptionsLongOptions, CommandLine, m_longOptions);
LAYOUT_FIELD(OptionsHelpText, CommandLine, m_helpText);
LAYOUT_FIELD(OptionsUsageText, CommandLine, m_usageText);
LAYOUT_FIELD(OptionsExtraText, CommandLine, m_extraText);

LAYOUT_FIELD(Md5Finalized, MD5, m_finalized);
LAYOUT_FIELD(Md5Buffer, MD5, m_buffer);
LAYOUT_FIELD(Md5Count, MD5, m_count);
LAYOUT_FIELD(Md5State, MD5, m_state);
LAYOUT_FIELD(Md5Digest, MD5, m_digest);

TEST(ValueLayoutTest, Point) {
    expectLayout<Point>(kPoint, PointX(), PointY());
}

TEST(ValueLayoutTest, CommonValue) {
    expectLayout<CommonValue>(kCommonValue, ValueType(), ValueScalar(), ValueReservedZero(),
                              ValueReservedOnes(), ValuePoint(), ValueString(), ValueArray());
    EXPECT_FALSE(std::is_polymorphic_v<CommonValue>);
    EXPECT_EQ(sizeof(CommonValue::Type), 4U);
}

TEST(ValueLayoutTest, CommandLine) {
    expectLayout<CommandLine>(kCommandLine, OptionsParsed(), OptionsArgc(), OptionsArgv(),
                              OptionsValues(), OptionsShortToLong(), OptionsOptString(),
                              OptionsLongOptions(), OptionsHelpText(), OptionsUsageText(),
                              OptionsExtraText());
    EXPECT_FALSE(std::is_polymorphic_v<CommandLine>);
}

TEST(ValueLayoutTest, Md5) {
    expectLayout<MD5>(kMd5, Md5Finalized(), Md5Buffer(), Md5Count(), Md5State(), Md5Digest());
    EXPECT_FALSE(std::is_polymorphic_v<MD5>);
}

TEST(ValueLayoutTest, CheckSumHoldsNothing) {
    EXPECT_TRUE(std::is_empty_v<CheckSum>);
}

}  // namespace layout

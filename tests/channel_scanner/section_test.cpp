#include "section.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using scanner::makeSection;
using scanner::readSection;

const std::vector<std::uint8_t> kSection = makeSection(1, 2, {{101, "News"}, {0x1234, ""}});

TEST(SectionTest, IsReadAsItWasMade) {
    const auto section = readSection(kSection);

    ASSERT_TRUE(section);
    EXPECT_EQ(section->number, 1);
    EXPECT_EQ(section->lastNumber, 2);
    ASSERT_EQ(section->services.size(), 2U);
    EXPECT_EQ(section->services[0].id, 101);
    EXPECT_EQ(section->services[0].name, "News");
    EXPECT_EQ(section->services[1].id, 0x1234);
    EXPECT_EQ(section->services[1].name, "");
}

TEST(SectionTest, WithoutServicesItIsASection) {
    EXPECT_TRUE(readSection(makeSection(0, 0, {})));
}

TEST(SectionTest, IsRefusedWithAnyBitWrong) {
    for (std::size_t bit = 0; bit < 8 * kSection.size(); ++bit) {
        auto bytes = kSection;
        bytes[bit / 8] ^= static_cast<std::uint8_t>(1U << bit % 8);
        EXPECT_FALSE(readSection(bytes)) << bit;
    }
}

TEST(SectionTest, IsRefusedWhenCutOff) {
    for (std::size_t length = 0; length < kSection.size(); ++length) {
        EXPECT_FALSE(
            readSection({kSection.begin(), kSection.begin() + static_cast<std::ptrdiff_t>(length)}))
            << length;
    }
}

// With a CRC that is right.
TEST(SectionTest, IsRefusedWhereANameIsLongerThanTheSection) {
    const std::vector<std::uint8_t> bytes = {0x00, 0x00, 0x00, 0x65, 0x05,
                                             'N',  0xEE, 0xCB, 0x23, 0xC1};
    EXPECT_FALSE(readSection(bytes));
}

}  // namespace

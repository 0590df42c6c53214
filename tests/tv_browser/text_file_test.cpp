#include "text_file.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tv_browser/scratch_file.h"

namespace tv_browser {
namespace {

constexpr std::size_t kMebibyte = 1048576;

TEST(TextFileTest, AFileIsReadWholeAsItStands) {
    const std::string written = std::string("a\r\n\0b", 5) + std::string(10000, 'x');
    const test::ScratchFile file("whole", written);
    std::string text;

    EXPECT_EQ(readTextFile(file.path(), &text), 0);

    EXPECT_EQ(text, written);
}

TEST(TextFileTest, AnEmptyFileHasNoText) {
    const test::ScratchFile file("empty", "");
    std::string text = "before";

    EXPECT_EQ(readTextFile(file.path(), &text), 0);

    EXPECT_EQ(text, "");
}

TEST(TextFileTest, AFileOfOneMebibyteIsReadAndALargerOneIsNot) {
    const test::ScratchFile largest("largest", std::string(kMebibyte, 'x'));
    const test::ScratchFile tooLarge("tooLarge", std::string(kMebibyte + 1, 'x'));
    std::string text;
    std::string untouched = "before";

    EXPECT_EQ(readTextFile(largest.path(), &text), 0);
    EXPECT_EQ(readTextFile(tooLarge.path(), &untouched), EFBIG);

    EXPECT_EQ(text.size(), kMebibyte);
    EXPECT_EQ(untouched, "before");
}

TEST(TextFileTest, WhyAFileCannotBeReadIsTold) {
    std::string text = "before";

    EXPECT_EQ(readTextFile("/nowhere/file", &text), ENOENT);
    EXPECT_EQ(readTextFile("/", &text), EISDIR);

    EXPECT_EQ(text, "before");
}

}  // namespace
}  // namespace tv_browser

#include <gtest/gtest.h>

#include "base/logging/entry_points.h"

namespace {

TEST(BlogBaseNameTest, IsThePartBehindTheLastSlash) {
    EXPECT_STREQ(blog_base_name("x/y/z"), "z");
    EXPECT_STREQ(blog_base_name("/z"), "z");
    EXPECT_STREQ(blog_base_name("x//z.cpp"), "z.cpp");
}

TEST(BlogBaseNameTest, IsTheWholePathWithoutASlash) {
    EXPECT_STREQ(blog_base_name("z"), "z");
}

TEST(BlogBaseNameTest, IsEmptyBehindATrailingSlash) {
    EXPECT_STREQ(blog_base_name("x/"), "");
    EXPECT_STREQ(blog_base_name("/"), "");
}

TEST(BlogBaseNameTest, OfAnEmptyPathIsThatVeryString) {
    const char* const empty = "";

    EXPECT_EQ(blog_base_name(empty), empty);
}

TEST(BlogBaseNameTest, PointsIntoThePath) {
    const char* const path = "x/y/z";

    EXPECT_EQ(blog_base_name(path), path + 4);
}

}  // namespace

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <climits>

#include "base/logging/entry_points.h"

namespace {

TEST(DbgLocationTest, JoinsFileLineAndFunction) {
    EXPECT_EQ(dbg_location("z", 42, "start"), "z:42:start():");
}

TEST(DbgLocationTest, KeepsTheFoldersOfTheFile) {
    EXPECT_EQ(dbg_location("x/y/z.cpp", 1, "f"), "x/y/z.cpp:1:f():");
}

TEST(DbgLocationTest, IsEmptyForANullFile) {
    EXPECT_EQ(dbg_location(nullptr, 42, "start"), "");
    EXPECT_EQ(dbg_location(nullptr, 42, nullptr), "");
}

TEST(DbgLocationTest, EndsBehindTheLineForANullFunction) {
    EXPECT_EQ(dbg_location("z", 3, nullptr), "z:3:");
}

TEST(DbgLocationTest, TakesAnyLineAndEmptyStrings) {
    EXPECT_EQ(dbg_location("", 0, ""), ":0:():");
    EXPECT_EQ(dbg_location("z", INT_MIN, "f"), "z:-2147483648:f():");
    EXPECT_EQ(dbg_location("z", INT_MAX, "f"), "z:2147483647:f():");
}

TEST(DbgLocationTest, IsExportedUnderItsPlainNameLikeTheOthers) {
    EXPECT_EQ(reinterpret_cast<void*>(&dbg_location), dlsym(RTLD_DEFAULT, "dbg_location"));
    EXPECT_EQ(reinterpret_cast<void*>(&dump_memory), dlsym(RTLD_DEFAULT, "dump_memory"));
    EXPECT_EQ(reinterpret_cast<void*>(&blog_base_name), dlsym(RTLD_DEFAULT, "blog_base_name"));
}

}  // namespace

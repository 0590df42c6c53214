#include "base/synchronization/internal/system_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using tevalon::base::internal::throwSystemError;

std::string thrownText(const char* prefix, int error) {
    errno = error;
    try {
        throwSystemError(prefix);
    } catch (const std::runtime_error& thrown) {
        return thrown.what();
    }
}

TEST(SystemErrorTest, IsThePrefixAndTheDescriptionOfErrno) {
    EXPECT_EQ(thrownText("Mutex init error: ", EACCES),
              "Mutex init error: " + std::string(std::strerror(EACCES)));
}

TEST(SystemErrorTest, HasATextForNoErrorToo) {
    EXPECT_EQ(thrownText("a: ", 0), "a: Success");
}

TEST(SystemErrorTest, HasATextForAnErrorThatDoesNotExist) {
    EXPECT_EQ(thrownText("a: ", 9999), "a: Unknown error 9999");
}

TEST(SystemErrorTest, IsJustTheDescriptionWithoutAPrefix) {
    EXPECT_EQ(thrownText(nullptr, 0), "Success");
    EXPECT_EQ(thrownText("", 0), "Success");
}

}  // namespace

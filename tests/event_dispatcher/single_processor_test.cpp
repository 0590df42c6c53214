// As the library is on a set with one processor: the C library is asked in vain for others.

#include <gtest/gtest.h>

#include "event_dispatcher/spin.h"

extern "C" int get_nprocs() noexcept {
    return 1;
}

namespace {

TEST(SingleProcessorTest, NobodyLooksTwice) {
    ASSERT_EQ(std::thread::hardware_concurrency(), 1U);
    tevalon::base::event_dispatcher::AdaptiveSpin spin;
    int looks = 0;

    spin.until([&] {
        ++looks;
        return false;
    });

    EXPECT_EQ(looks, 1);
}

}  // namespace

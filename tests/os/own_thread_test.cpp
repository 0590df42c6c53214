#include "os/own_thread.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

struct Owner {};
using Own = tevalon::base::OwnThread<Owner>;

TEST(OwnThreadTest, IsOfTheInnermostOwnerWhileThatIsServed) {
    const Owner outer;
    const Owner inner;
    EXPECT_FALSE(Own::isThisThreadOf(&outer));
    {
        const Own ofOuter(&outer);
        EXPECT_TRUE(Own::isThisThreadOf(&outer));
        {
            const Own ofInner(&inner);
            EXPECT_TRUE(Own::isThisThreadOf(&inner));
            EXPECT_FALSE(Own::isThisThreadOf(&outer));
        }
        EXPECT_TRUE(Own::isThisThreadOf(&outer));
        EXPECT_FALSE(Own::isThisThreadOf(&inner));
    }
    EXPECT_FALSE(Own::isThisThreadOf(&outer));
}

TEST(OwnThreadTest, IsNoOtherThreads) {
    const Owner owner;
    const Own thread(&owner);

    std::thread([&] { EXPECT_FALSE(Own::isThisThreadOf(&owner)); }).join();
}

TEST(OwnThreadTest, LearnsThatItsOwnerIsGone) {
    const Owner outer;
    const Owner inner;
    const Own ofOuter(&outer);
    const Own ofInner(&inner);

    Own::ownerIsGone();
    EXPECT_TRUE(ofInner.isOwnerGone());
    EXPECT_FALSE(Own::isThisThreadOf(&inner));
    EXPECT_FALSE(ofOuter.isOwnerGone());

    Own::allOwnersAreGone();
    EXPECT_TRUE(ofOuter.isOwnerGone());
}

}  // namespace

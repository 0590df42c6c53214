#include <gtest/gtest.h>

#include "singleton/parts.h"
#include "support/threads.h"

namespace {

TEST(SingletonLinkedPartsTest, ExecutableAndSharedObjectsShareOneInstance) {
    void* instances[3] = {};

    test::runAtOnce(3, [&](int i) {
        if (i == 0) instances[i] = parts::SharedService::GetInstance();
        if (i == 1) instances[i] = sharedServiceOfPartOne();
        if (i == 2) instances[i] = sharedServiceOfPartTwo();
    });

    EXPECT_NE(instances[0], nullptr);
    EXPECT_EQ(instances[1], instances[0]);
    EXPECT_EQ(instances[2], instances[0]);
}

TEST(SingletonLinkedPartsTest, SharedObjectsShareOneInstanceThatTheExecutableDoesNotKnow) {
    EXPECT_NE(partsServiceOfPartOne(), nullptr);
    EXPECT_EQ(partsServiceOfPartOne(), partsServiceOfPartTwo());
}

TEST(SingletonLinkedPartsTest, DifferentClassesHaveDifferentInstances) {
    EXPECT_NE(sharedServiceOfPartOne(), partsServiceOfPartOne());
}

}  // namespace

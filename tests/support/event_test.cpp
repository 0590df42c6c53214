#include "support/event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/threads.h"

namespace {

TEST(EventTest, WaitReturnsOnceAnotherThreadHasSetIt) {
    test::Event event;
    int written = 0;
    std::thread setter([&] {
        written = 7;
        event.set();
    });

    const bool wasSet = event.wait();

    EXPECT_TRUE(wasSet);
    EXPECT_EQ(written, 7);
    setter.join();
}

TEST(EventTest, StaysSetUntilReset) {
    test::Event event;
    EXPECT_FALSE(event.isSet());

    event.set();
    event.set();

    EXPECT_TRUE(event.isSet());
    EXPECT_TRUE(event.wait());
    event.reset();
    EXPECT_FALSE(event.isSet());
}

TEST(CountdownTest, IsDoneAfterTheLastArrivalOnly) {
    test::Countdown countdown(2);

    countdown.arrive();
    EXPECT_FALSE(countdown.isDone());
    countdown.arrive();

    EXPECT_TRUE(countdown.isDone());
    EXPECT_TRUE(countdown.wait());
}

TEST(RunAtOnceTest, RunsEveryIndexOnceAndWaitsForAll) {
    std::atomic<int> runs[4] = {};

    test::runAtOnce(4, [&](int i) { ++runs[i]; });

    for (const std::atomic<int>& count : runs) EXPECT_EQ(count, 1);
}

}  // namespace

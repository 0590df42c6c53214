#include "delay.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "support/event.h"

namespace tv_browser {
namespace {

using namespace std::chrono_literals;

TEST(DelayTest, WaitLastsNoLessThanItsDuration) {
    Delay delay;
    const auto start = std::chrono::steady_clock::now();

    delay.wait(20ms);

    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(DelayTest, CancelEndsTheWaitOfAnotherThread) {
    Delay delay;
    test::Event started;
    test::Event ended;
    std::thread waiter([&] {
        started.set();
        delay.wait(1h);
        ended.set();
    });
    ASSERT_TRUE(started.wait());

    delay.cancel();

    EXPECT_TRUE(ended.wait());
    waiter.join();
}

TEST(DelayTest, AfterCancelNoWaitLasts) {
    Delay delay;
    delay.cancel();

    delay.wait(1h);  // Returns.
}

}  // namespace
}  // namespace tv_browser

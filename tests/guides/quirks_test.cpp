// What docs/quirks.md says and no test of the classes shows.

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <string>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "base/utils.h"

namespace tevalon::base {
namespace {

using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;

TEST(QuirksTest, WhatAHubsHandlerChangesInItselfIsLost) {
    constexpr int kModule = 7;
    constexpr int kCount = 8;
    EventHub hub(kModule);
    hub.registerHandler(kCount, [calls = 0](const std::shared_ptr<BrowserEvent>& event) mutable {
        event->replyResult(10 + ++calls);
    });
    event_dispatcher::evtdispch_register_hub(&hub);

    EXPECT_EQ(hub.sendEventSync(hub.createEvent(kCount), kModule, -1), 11);
    EXPECT_EQ(hub.sendEventSync(hub.createEvent(kCount), kModule, -1), 11);

    event_dispatcher::evtdispch_unregister_hub(&hub);
}

TEST(QuirksTest, AllRunsOfATimerShareOneHandler) {
    std::promise<int> second;
    simple_timer::Timer timer(
        "count", {0, 1, 0},
        [&second, calls = 0](simple_timer::Timer* p_timer, void*) mutable {
            if (++calls == 1) {
                p_timer->restart();
            } else {
                second.set_value(calls);
            }
        },
        nullptr, simple_timer::ONCE);

    ASSERT_EQ(timer.start(), 0);

    EXPECT_EQ(second.get_future().get(), 2);
}

TEST(QuirksTest, ACancellationMeetsEachPlaceOfATaskThatIsQueuedTwice) {
    std::promise<void> reached;
    int fired = 0;
    timer::TimerThread thread;
    const auto twice = std::make_shared<timer::CallableTimerTask>([&fired] { ++fired; });
    constexpr int kAnHour = 3600 * 1000;
    thread.postTask(twice, kAnHour);
    thread.postTask(twice, kAnHour);
    thread.cancelTaskBySessionId(twice->sessionId());
    thread.postTask(std::make_shared<timer::CallableTimerTask>([&reached] { reached.set_value(); }),
                    0);

    reached.get_future().wait();

    EXPECT_EQ(fired, 0);
    EXPECT_EQ(thread.taskCount(), 0);
}

TEST(QuirksTest, AnOptionIsErasedInTheFirstArgumentThatContainsIt) {
    std::string program = "/opt/web-ui/browser";
    std::string option = "-u";
    std::string value = "page.html";
    char* arguments[] = {program.data(), option.data(), value.data(), nullptr};
    utils::CommandLine commandLine(3, arguments, "", "", true);

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
    EXPECT_STREQ(arguments[0], "");
    EXPECT_STREQ(arguments[1], "-u");
}

TEST(QuirksTest, AfterALongOptionAShortOneMayStay) {
    std::string program = "browser";
    std::string longOne = "--url=page.html";
    std::string shortOne = "-s";
    char* arguments[] = {program.data(), longOne.data(), shortOne.data(), nullptr};
    utils::CommandLine commandLine(3, arguments, "", "", true);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_STREQ(arguments[1], "");
    EXPECT_STREQ(arguments[2], "-s");
}

}  // namespace
}  // namespace tevalon::base

#include "base/timer/scoped_watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <type_traits>
#include <vector>

#include "support/fresh_process.h"
#include "timer/watchdog_fixtures.h"

namespace {

using namespace std::chrono_literals;
using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::LogCapture;
using test::LogEntry;

using Lines = std::vector<LogEntry>;

constexpr WatchDog::WATCH_ID kShow = WatchDog::eWatchID_app_show;

LogEntry beginLine(const std::string& times) {
    return watchLine(kLogInfo, "beginWatch", "Watching : 20(eWatchID_app_show), " + times + "\n");
}
const LogEntry kStopLine =
    watchLine(kLogInfo, "stopWatch", "Stop Watching : 20(eWatchID_app_show)\n");

TEST(ScopedWatchTest, WatchesForItsScope) {
    HeldWatchDog dog;
    TurnedClock clock(100);
    LogCapture log(kLogInfo);
    {
        const ScopedWatch watch(*dog.operator->(), kShow, 0.5);
        clock.set(101);
        EXPECT_EQ(dog->checkTimers(), std::vector<int>{kShow});
    }
    clock.set(200);
    EXPECT_TRUE(dog->checkTimers().empty());
    EXPECT_EQ(log.entriesWithoutLineNumbers(),
              (Lines{beginLine("100.000000, 0.500000"),
                     watchLine(kLogError, "checkTimers",
                               "Watch dog Timeout : 20(eWatchID_app_show) ,  1.000000 \n"),
                     kStopLine}));
}

TEST(ScopedWatchTest, StopsHoweverTheScopeIsLeft) {
    HeldWatchDog dog;
    LogCapture log(kLogInfo);
    try {
        const ScopedWatch watch(*dog.operator->(), kShow, 1h);
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(linesOf("stopWatch", log.entriesWithoutLineNumbers()), Lines{kStopLine});
}

TEST(ScopedWatchTest, TakesDurationsOfAnyUnit) {
    HeldWatchDog dog;
    TurnedClock clock(100);
    LogCapture log(kLogInfo);
    {
        const ScopedWatch first(*dog.operator->(), kShow, 250ms);
        const ScopedWatch second(*dog.operator->(), kShow, std::chrono::hours::max());
        dog->beginWatchFor(kShow, 90s);
        dog->beginWatchFor(kShow, std::chrono::duration<double, std::milli>(1.5));
    }
    EXPECT_EQ(
        linesOf("beginWatch", log.entriesWithoutLineNumbers()),
        (Lines{beginLine("100.000000, 0.250000"),
               beginLine("100.000000, " + std::to_string(static_cast<double>(INT64_MAX) * 3600)),
               beginLine("100.000000, 90.000000"), beginLine("100.000000, 0.001500")}));
}

TEST(ScopedWatchTest, IsOnTheProcesssWatchDogByDefault) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogInfo);
        {
            const ScopedWatch first(kShow, 3600.0);
            const ScopedWatch second(kShow, 1h);
        }
        EXPECT_EQ(linesOf("stopWatch", log.entriesWithoutLineNumbers()),
                  (Lines{kStopLine, kStopLine}));
        EXPECT_FALSE(std::is_copy_constructible<ScopedWatch>::value);
    });
}

}  // namespace

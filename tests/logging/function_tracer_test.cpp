#include "base/logging/function_tracer.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "base/logging/log_level.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

TEST(FunctionTracerTest, WritesALineAtEachEndOfItsLife) {
    LogCapture log;

    { const FunctionTracer tracer("start", "x/y/z.cpp", 42); }

    const std::vector<LogEntry> expected = {{kLogDebug, "TRACE -> [start(IN)] :x/y/z.cpp:42 \n"},
                                            {kLogDebug, "TRACE <- [start(OUT)] :x/y/z.cpp:42 \n"}};
    EXPECT_EQ(log.entries(), expected);
}

TEST(FunctionTracerTest, WritesNothingWhenTheDebugLevelIsOff) {
    LogCapture log(kLogInfo);

    { const FunctionTracer tracer("start", "z.cpp", 42); }

    EXPECT_TRUE(log.entries().empty());
}

TEST(FunctionTracerTest, ChecksTheLevelAgainAtItsEnd) {
    LogCapture log;

    {
        const FunctionTracer tracer("one", "z.cpp", 1);
        test::setLogLevel(kLogInfo);
    }
    {
        const FunctionTracer tracer("two", "z.cpp", 2);
        test::setLogLevel(kLogDebug);
    }

    EXPECT_EQ(log.texts(), (std::vector<std::string>{"TRACE -> [one(IN)] :z.cpp:1 \n",
                                                     "TRACE <- [two(OUT)] :z.cpp:2 \n"}));
}

TEST(FunctionTracerTest, ShowsNullAsNothing) {
    LogCapture log;

    { const FunctionTracer tracer(nullptr, nullptr, 7); }

    EXPECT_EQ(log.texts(),
              (std::vector<std::string>{"TRACE -> [(IN)] ::7 \n", "TRACE <- [(OUT)] ::7 \n"}));
}

TEST(FunctionTracerTest, LetsNoExceptionOutOfItsDestructor) {
    EXPECT_TRUE(std::is_nothrow_destructible<FunctionTracer>::value);
}

}  // namespace

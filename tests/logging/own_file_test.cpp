#define BLOG_FILE "room/whole.cpp"
#define BLOG_LINE (4000 + __LINE__)

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "base/logging.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

std::string place(int line) {
    return "whole.cpp:" + std::to_string(line);
}

TEST(OwnFileTest, StandsInTheLinesOfTheSourceThatDefinesIt) {
    LogCapture log;

    const int line = BLOG_LINE;
    BLOG(kLogError, "text %d\n", 1);
    BLOG_EXCEPTION(std::runtime_error("what"));

    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] " + place(line + 1) + ":TestBody(): text 1\n"},
        {kLogError,
         "[B-LOG] " + place(line + 2) + ":TestBody(): An runtime_error has been caught:what.\n"}};
    EXPECT_EQ(log.entries(), expected);
}

TEST(OwnFileTest, ReachesTheTraces) {
    LogCapture log;

    const int line = BLOG_LINE;
    BLOG_TRACE_POINT();
    { BLOG_TRACE_SCOPE(); }

    const std::string scope = place(line + 2) + ":TestBody() \n";
    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 3U);
    EXPECT_EQ(texts[0].find("[TRACE] " + place(line + 1) + ":"), 0U);
    EXPECT_EQ(texts[1], "[TRACE -> TestBody(IN)] " + scope);
    EXPECT_EQ(texts[2], "[TRACE <- TestBody(OUT)] " + scope);
}

TEST(OwnFileTest, AStepMayLogAsTheFunctionItBelongsTo) {
    LogCapture log;

    BLOG_AS("whole", kLogInfo, "step %s\n", "one");

    const std::vector<LogEntry> expected = {{kLogInfo, "[B-LOG] whole.cpp:#:whole(): step one\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

}  // namespace

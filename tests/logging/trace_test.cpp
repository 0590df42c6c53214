#include "base/logging/trace.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace tracing {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

const std::string kFile = "trace_test.cpp:";

int traceScope() {
    BLOG_TRACE_SCOPE();
    const int line = __LINE__ - 1;
    BLOG(kLogDebug, "inside\n");
    return line;
}

TEST(BlogTraceScopeTest, WritesALineAtEachEndOfTheScopeWithTheStatementsLine) {
    LogCapture log;

    const std::string line = std::to_string(traceScope());

    const std::vector<LogEntry> entries = log.entries();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0], (LogEntry{kLogDebug, "[TRACE -> traceScope(IN)] " + kFile + line +
                                                   ":traceScope() \n"}));
    EXPECT_EQ(entries[2], (LogEntry{kLogDebug, "[TRACE <- traceScope(OUT)] " + kFile + line +
                                                   ":traceScope() \n"}));
}

TEST(BlogTraceScopeTest, WritesNothingWhenTheDebugLevelIsOff) {
    LogCapture log(kLogInfo);

    (void)traceScope();

    EXPECT_TRUE(log.entries().empty());
}

TEST(BlogTraceScopeTest, ChecksTheLevelAgainAtTheScopesEnd) {
    LogCapture log;

    {
        BLOG_TRACE_SCOPE();
        test::setLogLevel(kLogInfo);
    }
    {
        BLOG_TRACE_SCOPE();
        test::setLogLevel(kLogDebug);
    }

    const std::vector<LogEntry> entries = log.entriesWithoutLineNumbers();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].text, "[TRACE -> TestBody(IN)] " + kFile + "#:TestBody() \n");
    EXPECT_EQ(entries[1].text, "[TRACE <- TestBody(OUT)] " + kFile + "#:TestBody() \n");
}

TEST(BlogTraceScopeTest, MayStandTwiceInOneScope) {
    LogCapture log;

    {
        BLOG_TRACE_SCOPE();
        BLOG_TRACE_SCOPE();
    }

    EXPECT_EQ(log.entries().size(), 4U);
}

class Traced {
public:
    Traced() = default;
    ~Traced() { BLOG_TRACE_POINT(); }
    Traced(const Traced&) = delete;
    Traced& operator=(const Traced&) = delete;

    int point(const char** pp_signature) const {
        *pp_signature = __PRETTY_FUNCTION__;
        BLOG_TRACE_POINT();
        return __LINE__ - 1;
    }
};

TEST(BlogTracePointTest, WritesPlaceAndWholeSignature) {
    const Traced traced;
    LogCapture log;

    const char* signature = nullptr;
    const std::string line = std::to_string(traced.point(&signature));

    const std::vector<LogEntry> expected = {
        {kLogDebug, "[TRACE] " + kFile + line + ":" + signature + "\n"}};
    EXPECT_EQ(log.entries(), expected);
}

TEST(BlogTracePointTest, NamesNamespaceAndClass) {
    LogCapture log;

    { const Traced traced; }

    const std::vector<LogEntry> expected = {
        {kLogDebug, "[TRACE] " + kFile + "#:tracing::Traced::~Traced()\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTracePointTest, WritesNothingWhenTheDebugLevelIsOff) {
    LogCapture log(kLogInfo);

    { const Traced traced; }

    EXPECT_TRUE(log.entries().empty());
}

TEST(BlogTracePointTest, IsASingleStatementInAnUnbracedIfElse) {
    LogCapture log;

    if (log.entries().empty())
        BLOG_TRACE_POINT();
    else
        BLOG_TRACE_POINT();

    EXPECT_EQ(log.entries().size(), 1U);
}

}  // namespace tracing

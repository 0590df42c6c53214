#include "base/logging/blog.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

/// The line of a statement of this file, without a tag of its own.
std::string lineAt(int line, const std::string& function, const std::string& message) {
    return "[B-LOG] blog_test.cpp:" + std::to_string(line) + ":" + function + "(): " + message;
}

TEST(BlogTest, WritesTagPlaceAndMessageInOneCall) {
    LogCapture log;

    BLOG(kLogError, "Fail to start timer:'%s'.\n", "clock");
    const int line = __LINE__ - 1;

    const std::vector<LogEntry> expected = {
        {kLogError, lineAt(line, "TestBody", "Fail to start timer:'clock'.\n")}};
    EXPECT_EQ(log.entries(), expected);
}

TEST(BlogTest, WritesAtEachLevel) {
    for (const std::uint16_t level : {kLogAlways, kLogError, kLogWarn, kLogInfo, kLogDebug}) {
        LogCapture log;

        BLOG(level, "text");
        const int line = __LINE__ - 1;

        const std::vector<LogEntry> expected = {{level, lineAt(line, "TestBody", "text")}};
        EXPECT_EQ(log.entries(), expected);
    }
}

TEST(BlogTest, AddsNoLineEndOfItsOwn) {
    LogCapture log;

    BLOG(kLogError, "none");
    BLOG(kLogError, "two\n\n");

    const std::vector<std::string> texts = log.texts();
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0].back(), 'e');
    EXPECT_EQ(texts[1].substr(texts[1].size() - 5), "two\n\n");
}

TEST(BlogTest, WritesNothingWhenItsLevelIsOff) {
    LogCapture log(kLogInfo);

    BLOG(kLogDebug, "text\n");

    EXPECT_TRUE(log.entries().empty());
}

TEST(BlogTest, LeavesTheArgumentsOfALevelThatIsOffUnevaluated) {
    int evaluated = 0;
    const auto argument = [&evaluated] { return ++evaluated; };
    LogCapture log(kLogInfo);

    BLOG(kLogDebug, "%d\n", argument());
    const int whenOff = evaluated;
    BLOG(kLogInfo, "%d\n", argument());

    EXPECT_EQ(whenOff, 0);
    EXPECT_EQ(evaluated, 1);
}

TEST(BlogTest, EvaluatesTheLevelOnce) {
    int evaluated = 0;
    const auto level = [&evaluated] {
        ++evaluated;
        return kLogError;
    };
    const LogCapture log;

    BLOG(level(), "text\n");

    EXPECT_EQ(evaluated, 1);
}

TEST(BlogTest, AsksThePlatformOnce) {
    const LogCapture log;
    test::CountCalls checks(test::Call::ZorDebugCheckLevel);

    BLOG(kLogError, "text\n");

    EXPECT_EQ(checks.seen(), 1);
}

TEST(BlogTest, IsASingleStatementInAnUnbracedIfElse) {
    LogCapture log;

    for (const bool condition : {true, false}) {
        if (condition)
            BLOG(kLogError, "then\n");
        else
            BLOG(kLogError, "else %d\n", 1);
    }

    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] blog_test.cpp:#:TestBody(): then\n"},
        {kLogError, "[B-LOG] blog_test.cpp:#:TestBody(): else 1\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTest, LeavesAnElseToTheIfInFrontOfIt) {
    LogCapture log(kLogInfo);
    bool reachedElse = false;

    if (log.entries().empty())
        BLOG(kLogDebug, "off, so that an if of the macro's own would take the else\n");
    else
        reachedElse = true;

    EXPECT_FALSE(reachedElse);
}

template <typename T>
void logFromTemplate(const T& value) {
    BLOG(kLogInfo, "size %zu\n", sizeof value);
}

TEST(BlogTest, WorksInATemplate) {
    LogCapture log;

    logFromTemplate('c');
    logFromTemplate(std::int64_t{0});

    const std::vector<LogEntry> expected = {
        {kLogInfo, "[B-LOG] blog_test.cpp:#:logFromTemplate(): size 1\n"},
        {kLogInfo, "[B-LOG] blog_test.cpp:#:logFromTemplate(): size 8\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTest, WorksInALambda) {
    LogCapture log;
    const auto lambda = [](const char* text) { BLOG(kLogInfo, "in %s\n", text); };

    lambda("there");

    const std::vector<LogEntry> expected = {
        {kLogInfo, "[B-LOG] blog_test.cpp:#:operator()(): in there\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

struct Member {
    Member() { BLOG(kLogInfo, "made\n"); }
    ~Member() { BLOG(kLogInfo, "gone\n"); }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
};

TEST(BlogTest, NamesMemberFunctionsPlainly) {
    LogCapture log;

    { const Member member; }

    const std::vector<LogEntry> expected = {
        {kLogInfo, "[B-LOG] blog_test.cpp:#:Member(): made\n"},
        {kLogInfo, "[B-LOG] blog_test.cpp:#:~Member(): gone\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTest, IsNotConfusedByTheNamesAroundIt) {
    LogCapture log;
    const std::uint16_t level = kLogError;
    const char* const record = "a";
    const char* const tag = "b";
    const char* const file = "c";
    const char* const line = "d";
    const char* const function = "e";
    const char* const format = "f";
    const char* const result = "g";

    BLOG(level, "%s%s%s%s%s%s%s\n", record, tag, file, line, function, format, result);

    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] blog_test.cpp:#:TestBody(): abcdefg\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTest, TakesThirtyArguments) {
    LogCapture log;

    BLOG(kLogError,
         "%d%d%d%d%d%d%d%d%d%d %d%d%d%d%d%d%d%d%d%d %d%d%d%d%d%d%d%d%d%d\n",  //
         0, 1, 2, 3, 4, 5, 6, 7, 8, 9,                                        //
         9, 8, 7, 6, 5, 4, 3, 2, 1, 0,                                        //
         1, 3, 5, 7, 9, 2, 4, 6, 8, 0);

    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] blog_test.cpp:#:TestBody(): 0123456789 9876543210 1357924680\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogTest, TakesArgumentsWithCommasInParentheses) {
    LogCapture log;

    BLOG(kLogError, "%d %d\n", (std::vector<int>{1, 2}[1]), std::max<int>(3, 4));

    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] blog_test.cpp:#:TestBody(): 2 4\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogExceptionTest, ReportsACaughtErrorAtTheErrorLevel) {
    LogCapture log;

    BLOG_EXCEPTION(std::runtime_error("Mutex init error: Success"));
    const int line = __LINE__ - 1;

    const std::vector<LogEntry> expected = {
        {kLogError, lineAt(line, "TestBody",
                           "An runtime_error has been caught:Mutex init error: Success.\n")}};
    EXPECT_EQ(log.entries(), expected);
}

TEST(BlogExceptionTest, ShowsPercentSignsAsTheyAre) {
    LogCapture log;

    BLOG_EXCEPTION(std::runtime_error("100%s"));

    const std::vector<LogEntry> expected = {
        {kLogError,
         "[B-LOG] blog_test.cpp:#:TestBody(): An runtime_error has been caught:100%s.\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(BlogAtTest, NamesEveryPartOfTheLine) {
    LogCapture log;

    BLOG_AT("Own", kLogWarn, "some/where.h", 31, "Function", "%d%%\n", 5);

    const std::vector<LogEntry> expected = {{kLogWarn, "[Own] where.h:31:Function(): 5%\n"}};
    EXPECT_EQ(log.entries(), expected);
}

}  // namespace

namespace client::tevalon::base {

struct DebugLevelRecord {};
[[maybe_unused]] void isLogOn(int) {}

TEST(BlogTest, WorksBesideClientsNamespacesOfTheSameName) {
    LogCapture log;

    BLOG(::tevalon::base::kLogError, "text\n");

    EXPECT_EQ(log.entries().size(), 1U);
}

}  // namespace client::tevalon::base

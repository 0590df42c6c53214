#include "support/log_capture.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

namespace {

using test::LogCapture;
using test::LogEntry;
using tevalon::base::isLogOn;
using tevalon::base::kLogDebug;
using tevalon::base::kLogError;
using tevalon::base::kLogInfo;

void write(std::uint16_t level, const char* text) {
    if (isLogOn(level)) zorDebugOutput0("%s", text);
}

TEST(LogCaptureTest, RecordsLevelModuleAndTextInOrder) {
    LogCapture log;

    write(kLogError, "first\n");
    write(kLogDebug, "second\n\n");

    const std::vector<LogEntry> expected = {{kLogError, "first\n"}, {kLogDebug, "second\n\n"}};
    EXPECT_EQ(log.entries(), expected);
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"first\n", "second\n\n"}));
    EXPECT_EQ(log.texts(kLogDebug), std::vector<std::string>{"second\n\n"});
    EXPECT_EQ(log.entries().front().module, 0x5F);
}

TEST(LogCaptureTest, KeepsLevelsAboveTheGivenOneOff) {
    LogCapture log(kLogInfo);

    write(kLogInfo, "on");
    write(kLogDebug, "off");

    EXPECT_EQ(log.texts(), std::vector<std::string>{"on"});
}

TEST(LogCaptureTest, RestoresTheLevelThatWasOnBefore) {
    test::setLogLevel(3210);

    { const LogCapture log; }

    EXPECT_EQ(zorDebugGetLevel(0x5F), 3210);
    test::setLogLevel(kLogError);
}

TEST(LogCaptureTest, RecordsNothingOnceCleared) {
    LogCapture log;
    write(kLogError, "gone");

    log.clear();

    EXPECT_TRUE(log.entries().empty());
}

TEST(LogCaptureTest, WaitsForTextOfAnotherThread) {
    LogCapture log;
    std::thread writer([] { write(kLogError, "a needle in hay\n"); });

    const bool found = log.waitFor("needle");

    EXPECT_TRUE(found);
    writer.join();
}

TEST(LogCaptureTest, KeepsLongTextsWhole) {
    LogCapture log;
    const std::string text(100000, 'x');

    write(kLogError, text.c_str());

    EXPECT_EQ(log.texts(), std::vector<std::string>{text});
}

TEST(LogEntryTest, DiffersInLevelModuleOrText) {
    const LogEntry entry = {1000, "a"};

    EXPECT_TRUE(entry == (LogEntry{1000, "a"}));
    EXPECT_FALSE(entry == (LogEntry{1, "a"}));
    EXPECT_FALSE(entry == (LogEntry{1000, "b"}));
    EXPECT_FALSE(entry == (LogEntry{1000, "a", 1}));
}

TEST(LogEntryTest, PrintsLineEndsVisibly) {
    std::ostringstream stream;

    stream << LogEntry{1000, "a\n"};

    EXPECT_EQ(stream.str(), "{level 1000, module 95, \"a\\n\"}");
}

TEST(WithoutLineNumberTest, HidesTheNumberBehindTheFileNameAlone) {
    EXPECT_EQ(test::withoutLineNumber("[T] a.cpp:12:f(): b.cpp:34:\n"),
              "[T] a.cpp:#:f(): b.cpp:34:\n");
    EXPECT_EQ(test::withoutLineNumber("[T] a.h:7:f(): 12\n"), "[T] a.h:#:f(): 12\n");
    EXPECT_EQ(test::withoutLineNumber("12:34:\n"), "12:34:\n");
}

}  // namespace

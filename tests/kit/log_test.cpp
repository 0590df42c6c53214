#include "testkit/log.h"

#include <gmock/gmock.h>

#include <cassert>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/utils.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using tevalon::testkit::CapturedLog;
using tevalon::testkit::Logged;
using tevalon::testkit::LoggedInOrder;
using tevalon::testkit::LoggedNoError;
using tevalon::testkit::LoggedTimes;
using tevalon::testkit::LogLine;
using tevalon::testkit::Message;
using tevalon::testkit::Text;
namespace log_messages = tevalon::testkit::log_messages;

// What the library says to a null folder, and nothing else: an error.
void removeNullFolder() {
    EXPECT_EQ(tevalon::base::rmDir(nullptr), -1);
}

template <typename Matcher>
std::string explanationOf(const Matcher& matcher, const CapturedLog& log) {
    testing::StringMatchResultListener listener;
    EXPECT_FALSE(matcher.MatchAndExplain(log, listener.stream()));
    return listener.str();
}

TEST(CapturedLogTest, HasTheLibrarysLinesAndTheModules) {
    const CapturedLog log;

    removeNullFolder();
    print_browser_log(1, "tuner", "tuner.cpp", 12, "tune", "no signal on %d", 7);

    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].level, 1000);
    EXPECT_EQ(log.lines()[0].module, 0x5F);
    EXPECT_THAT(log.lines()[0].text, testing::EndsWith("rmDir(): dirPath is NULL.\n\n"));
    EXPECT_EQ(log.lines()[1].text, "[tuner]tuner.cpp:12:tune:no signal on 7\n");
}

TEST(CapturedLogTest, KeepsLevelsAboveTheGivenOneOff) {
    const CapturedLog log(1000);

    print_browser_log(4, "tuner", "tuner.cpp", 1, "tune", "debug");
    print_browser_log(1, "tuner", "tuner.cpp", 2, "tune", "error");

    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text, "[tuner]tuner.cpp:2:tune:error\n");
}

TEST(CapturedLogTest, EndsWithItsLifeAndBeginsEmpty) {
    {
        const CapturedLog log;
        removeNullFolder();
    }

    const CapturedLog log;

    EXPECT_TRUE(log.lines().empty());
}

TEST(CapturedLogTest, ForgetsWhatIsCleared) {
    CapturedLog log;
    removeNullFolder();

    log.clear();

    EXPECT_THAT(log, LoggedNoError());
}

TEST(CapturedLogTest, PutsThePiecesOfEachThreadsLinesTogether) {
    const CapturedLog log;
    constexpr int kLines = 100;
    const auto write = [](const char* tag) {
        for (int i = 0; i < kLines; ++i) {
            print_browser_log(1, tag, "t.cpp", 1, "f", "words of %s", tag);
        }
    };
    std::thread other([&] { write("other"); });
    write("this");
    other.join();

    EXPECT_THAT(log, LoggedTimes(kLines, Text("[this]t.cpp:1:f:words of this\n")));
    EXPECT_THAT(log, LoggedTimes(kLines, Text("[other]t.cpp:1:f:words of other\n")));
}

TEST(CapturedLogTest, WaitsForALineOfAnotherThread) {
    const CapturedLog log;
    std::thread other(removeNullFolder);

    const bool hasCome = log.waitFor(log_messages::kFolderNull);

    EXPECT_TRUE(hasCome);
    other.join();
}

TEST(CapturedLogTest, KeepsLongTextsWhole) {
    const CapturedLog log;
    const std::string text(100000, 'x');

    print_browser_log(1, "t", "t.cpp", 1, "f", "%s", text.c_str());

    EXPECT_EQ(log.lines()[0].text, "[t]t.cpp:1:f:" + text + "\n");
}

void logNumbered(int count) {
    for (int i = 1; i <= count; ++i) print_browser_log(1, "t", "t.cpp", 1, "f", "line %d.", i);
}

using CapturedLogDeathTest = testing::Test;

TEST(CapturedLogDeathTest, ItsLinesAreWrittenBeforeTheProcessTerminates) {
    const auto terminate = [] {
        const CapturedLog log;
        logNumbered(2);
        std::thread([] { throw std::runtime_error("not caught"); }).join();
    };

    EXPECT_DEATH(terminate(),
                 "testkit: the process ends abnormally; the captured log's last 2 of 2 lines:\n"
                 "    \\(error\\) \"\\[t\\]t.cpp:1:f:line 1.\\\\n\"\n"
                 "    \\(error\\) \"\\[t\\]t.cpp:1:f:line 2.\\\\n\"\n"
                 "terminate called after throwing an instance of 'std::runtime_error'\n");
}

TEST(CapturedLogDeathTest, ItsLastLinesAreWrittenBeforeTheProcessAborts) {
    const auto abort = [] {
        const CapturedLog log;
        logNumbered(60);
        std::abort();
    };

    EXPECT_DEATH(abort(), testing::AllOf(HasSubstr("the captured log's last 50 of 60 lines:\n"
                                                   "    (error) \"[t]t.cpp:1:f:line 11.\\n\"\n"),
                                         HasSubstr("line 60.\\n\"\n")));
}

#ifndef NDEBUG
TEST(CapturedLogDeathTest, ItsLinesAreWrittenBeforeAnAssertionEndsTheProcess) {
    const auto fail = [] {
        const CapturedLog log;
        logNumbered(1);
        assert(log.lines().empty());
    };

    EXPECT_DEATH(fail(), "last 1 of 1 line:\n    .*line 1.\\\\n\"\n.*log.lines\\(\\).empty\\(\\)");
}
#endif

TEST(CapturedLogDeathTest, TheTerminateHandlerThatWasThereIsCalled) {
    const auto terminate = [] {
        std::set_terminate([] {
            (void)std::fputs("the test's own handler\n", stderr);
            std::_Exit(7);
        });
        const CapturedLog log;
        logNumbered(1);
        std::terminate();
    };

    EXPECT_EXIT(terminate(), testing::ExitedWithCode(7), "line 1.\\\\n\"\nthe test's own handler");
}

TEST(CapturedLogDeathTest, ATerminateHandlerOverItsOwnIsCalledToo) {
    static std::terminate_handler s_captures;
    const auto terminate = [] {
        {
            const CapturedLog log;
            s_captures = std::set_terminate([] {
                (void)std::fputs("the test's own handler\n", stderr);
                s_captures();
            });
        }
        const CapturedLog log;
        logNumbered(1);
        std::terminate();
    };

    // Once, rather than until the stack overflows.
    EXPECT_EXIT(terminate(), testing::KilledBySignal(SIGABRT),
                "line 1.\\\\n\"\nthe test's own handler\n");
}

TEST(CapturedLogDeathTest, NothingIsWrittenWithoutACapture) {
    const auto abort = [] {
        {
            const CapturedLog log;
            logNumbered(1);
        }
        std::abort();
    };

    EXPECT_DEATH(abort(), Not(HasSubstr("captured log")));
}

TEST(CapturedLogTest, RestoresTheTerminateHandler) {
    const std::terminate_handler before = std::get_terminate();
    {
        const CapturedLog log;
        EXPECT_NE(std::get_terminate(), before);
    }

    EXPECT_EQ(std::get_terminate(), before);
}

TEST(LogMatchersTest, TellErrorsFromOtherLines) {
    const CapturedLog log;
    print_browser_log(2, "tuner", "tuner.cpp", 1, "tune", "a warning");
    EXPECT_THAT(log, LoggedNoError());

    removeNullFolder();

    EXPECT_THAT(log, Not(LoggedNoError()));
    EXPECT_THAT(explanationOf(LoggedNoError(), log), HasSubstr("dirPath is NULL."));
}

TEST(LogMatchersTest, KnowAMessageByLevelTextAndFunction) {
    const CapturedLog log;
    removeNullFolder();

    EXPECT_THAT(log, Logged(Message(log_messages::kFolderNull)));
    // The same text, of another function.
    EXPECT_THAT(log, Not(Logged(Message(log_messages::kRemovalNull))));
    EXPECT_THAT(log, Not(Logged(Message(log_messages::kFolderNotOpened))));
}

TEST(LogMatchersTest, CompareTheValuesOfAMessage) {
    const CapturedLog log;

    EXPECT_EQ(tevalon::base::rmDir("/no/such/folder"), -2);

    EXPECT_THAT(log, Logged(Message(log_messages::kFolderNotOpened, "/no/such/folder")));
    EXPECT_THAT(log, Not(Logged(Message(log_messages::kFolderNotOpened, "/no/such"))));
    EXPECT_THAT(log, Not(Logged(Message(log_messages::kFolderNotOpened, "/no/such/folder", 1))));
}

TEST(LogMatchersTest, KnowMessagesOfHubsByTheirValues) {
    const CapturedLog log;
    tevalon::base::event_dispatcher::EventHub hub(42);

    tevalon::base::event_dispatcher::evtdispch_register_hub(&hub);
    tevalon::base::event_dispatcher::evtdispch_unregister_hub(&hub);

    EXPECT_THAT(
        log, LoggedInOrder(Message(log_messages::kHubRegistering, static_cast<void*>(&hub), 42),
                           Message(log_messages::kHubUnregistering, static_cast<void*>(&hub), 42),
                           Message(log_messages::kHubHadNoThread)));
}

TEST(LogMatchersTest, CountLines) {
    const CapturedLog log;
    removeNullFolder();
    removeNullFolder();

    EXPECT_THAT(log, LoggedTimes(2, Message(log_messages::kFolderNull)));
    EXPECT_THAT(log, Not(LoggedTimes(1, Message(log_messages::kFolderNull))));
    EXPECT_THAT(log, LoggedTimes(0, Message(log_messages::kRemovalNull)));
    EXPECT_EQ(explanationOf(LoggedTimes(3, Message(log_messages::kFolderNull)), log),
              "2 such lines");
}

TEST(LogMatchersTest, WantAnOrderWithRoomForOthers) {
    const CapturedLog log;
    print_browser_log(1, "t", "t.cpp", 1, "f", "first");
    removeNullFolder();
    print_browser_log(1, "t", "t.cpp", 1, "f", "last");

    EXPECT_THAT(log, LoggedInOrder(Text("first"), Text("last")));
    EXPECT_THAT(log, LoggedInOrder(Text("first"), Message(log_messages::kFolderNull)));
    EXPECT_EQ(explanationOf(LoggedInOrder(Text("last"), Text("first")), log),
              "after the first of these there is none that has \"first\" in it");
    EXPECT_EQ(explanationOf(LoggedInOrder(Text("none"), Text("first")), log),
              "there is no line that has \"none\" in it");
}

TEST(LogMatchersTest, ShowTheWholeLogWhereTheyFail) {
    const CapturedLog log;
    removeNullFolder();
    print_browser_log(2, "t", "t.cpp", 1, "f", "last");

    const std::string shown = testing::PrintToString(log);

    EXPECT_THAT(shown, testing::StartsWith("a log of 2 lines\n    (error) \"[B-LOG] "));
    EXPECT_THAT(shown, testing::EndsWith("\n    (warning) \"[t]t.cpp:1:f:last\\n\""));
}

TEST(LogMatchersTest, ShowTheEndsOfALongLog) {
    const CapturedLog log;
    for (int i = 0; i < 503; ++i) print_browser_log(1, "t", "t.cpp", 1, "f", "line %d.", i);

    const std::string shown = testing::PrintToString(log);

    EXPECT_THAT(shown, testing::StartsWith("a log of 503 lines\n"));
    EXPECT_THAT(shown, HasSubstr("line 249.\\n\"\n    ... 3 lines ...\n    (error) "
                                 "\"[t]t.cpp:1:f:line 253."));
    EXPECT_THAT(shown, testing::EndsWith("line 502.\\n\""));
}

TEST(LogMatchersTest, DescribeThemselvesAndTheirNegations) {
    using testing::DescribeMatcher;
    using testing::Matcher;
    const auto descriptions = [](const Matcher<const CapturedLog&>& matcher) {
        return std::make_pair(DescribeMatcher<const CapturedLog&>(matcher),
                              DescribeMatcher<const CapturedLog&>(matcher, /*negation=*/true));
    };

    EXPECT_THAT(descriptions(LoggedNoError()), testing::Pair("has no error in it",  //
                                                             "has an error in it"));
    EXPECT_THAT(descriptions(Logged(Message(log_messages::kFolderNull))),
                testing::Pair("has a line that is 'folder-null'",  //
                              "has no line that is 'folder-null'"));
    EXPECT_THAT(descriptions(LoggedTimes(0, Text("x"))),
                testing::Pair("has no line that has \"x\" in it",  //
                              "has a line that has \"x\" in it"));
    EXPECT_THAT(descriptions(LoggedTimes(1, Text("x"))),
                testing::Pair("has exactly 1 line that has \"x\" in it",
                              "does not have exactly 1 line that has \"x\" in it"));
    EXPECT_THAT(descriptions(LoggedTimes(2, Text("x"))),
                testing::Pair("has exactly 2 lines each of which has \"x\" in it",
                              "does not have exactly 2 lines each of which has \"x\" in it"));
    EXPECT_THAT(
        descriptions(LoggedInOrder(Message(log_messages::kTimerNotStarted, "news", 7), Text("x"))),
        testing::Pair("has, in this order, a line that is 'timer-not-started' of \"news\", \"7\", "
                      "then one that has \"x\" in it",
                      "does not have, in this order, a line that is 'timer-not-started' of "
                      "\"news\", \"7\", then one that has \"x\" in it"));
    EXPECT_EQ(DescribeMatcher<const LogLine&>(Text("x"), true), "does not have \"x\" in it");
    EXPECT_EQ(DescribeMatcher<const LogLine&>(Message(log_messages::kFolderNull), true),
              "is not 'folder-null'");
}

}  // namespace

#include "timeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <thread>
#include <vector>

#include "tv_browser/story.h"

namespace tv_browser {
namespace {

using namespace std::chrono_literals;

class TimelineTest : public testing::Test {
protected:
    void TearDown() override { (void)std::fclose(m_file); }

    std::string written() { return test::contentsOf(m_file); }
    // The text behind the seconds, which are checked for their shape.
    std::string withoutSeconds() {
        const std::string line = written();
        EXPECT_TRUE(std::regex_match(line.substr(0, 10), std::regex(R"( {3}0\.\d{3}  )"))) << line;
        return line.substr(10);
    }

    std::FILE* const m_file = std::tmpfile();
    Timeline m_timeline{m_file};
};

TEST_F(TimelineTest, BeginExplainsTheSignsAndNamesTheColumns) {
    m_timeline.begin("a title");

    EXPECT_EQ(written(),
              "a title\n"
              "   -> asks and waits   <- gets the reply   => tells, does not wait   !! in vain, or "
              "late\n"
              "\n"
              " seconds  module                  what happens                                    "
              "   duration\n");
}

TEST_F(TimelineTest, ARowHasModuleSignAndText) {
    m_timeline.add(ModuleId::Viewer, Sign::Asks, "something");

    EXPECT_EQ(withoutSeconds(), "viewer               -> something\n");
}

TEST_F(TimelineTest, ADurationStandsInItsColumnInMilliseconds) {
    m_timeline.add(ModuleId::BrowserEngine, Sign::Replied, "ok", 1234567us);

    EXPECT_EQ(withoutSeconds(),
              "browser_engine       <- ok" + std::string(46, ' ') + "  1234.6 ms\n");
}

TEST_F(TimelineTest, ADurationBehindALongTextStaysApart) {
    m_timeline.add(ModuleId::Viewer, Sign::Replied, std::string(60, 'x'), 2500us);

    EXPECT_EQ(withoutSeconds(),
              "viewer               <- " + std::string(60, 'x') + "     2.5 ms\n");
}

TEST_F(TimelineTest, EverySignIsItsOwn) {
    m_timeline.add(ModuleId::Viewer, Sign::Does, "a");
    m_timeline.add(ModuleId::Viewer, Sign::Asks, "b");
    m_timeline.add(ModuleId::Viewer, Sign::Tells, "c");
    m_timeline.add(ModuleId::Viewer, Sign::Replied, "d");
    m_timeline.add(ModuleId::Viewer, Sign::GaveUp, "e");

    EXPECT_EQ(test::storyOf(written()),
              (std::vector<std::string>{"viewer a", "viewer -> b", "viewer => c", "viewer <- d",
                                        "viewer !! e"}));
}

TEST_F(TimelineTest, AChapterStandsBehindAnEmptyLine) {
    m_timeline.chapter("The set is turned on.");

    EXPECT_TRUE(
        std::regex_match(written(), std::regex("\n {3}0\\.\\d{3}  The set is turned on\\.\n")))
        << written();
}

TEST_F(TimelineTest, LinesOfManyThreadsAreWholeAndInTheOrderOfTheirTimes) {
    constexpr std::size_t kThreads = 8;
    constexpr std::size_t kLines = 200;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (std::size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([this] {
            for (std::size_t line = 0; line < kLines; ++line) {
                m_timeline.add(ModuleId::OpAppHost, Sign::Does, "sets the volume");
            }
        });
    }

    for (std::thread& thread : threads) thread.join();

    const std::string output = written();
    const std::vector<double> seconds = test::secondsOf(output);
    EXPECT_EQ(test::storyOf(output),
              std::vector<std::string>(kThreads * kLines, "op_app_host sets the volume"));
    EXPECT_TRUE(std::is_sorted(seconds.begin(), seconds.end()));
}

TEST_F(TimelineTest, ItIsCompleteAsLongAsEveryLineCouldBeWritten) {
    m_timeline.chapter("one");

    EXPECT_TRUE(m_timeline.complete());
}

TEST(TimelineOnAFullDeviceTest, ItIsNotComplete) {
    std::FILE* p_full = std::fopen("/dev/full", "w");
    ASSERT_NE(p_full, nullptr);
    Timeline timeline(p_full);

    timeline.chapter("one");

    EXPECT_FALSE(timeline.complete());
    (void)std::fclose(p_full);
}

}  // namespace
}  // namespace tv_browser

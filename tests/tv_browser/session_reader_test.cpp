#include "session_reader.h"

#include <gtest/gtest.h>

#include <sstream>

#include "session_parser.h"
#include "tv_browser/scratch_file.h"

namespace tv_browser {
namespace {

using Status = SessionReader::Status;

TEST(SessionReaderTest, CommandsComeInOrderAndThenTheEnd) {
    std::istringstream input("# a session\n\ntune 1\n  \nquit # now\n");
    SessionReader reader(input, "s", "");
    Command first;
    Command second;
    Command third;

    EXPECT_EQ(reader.next(&first), Status::Ok);
    EXPECT_EQ(reader.next(&second), Status::Ok);
    EXPECT_EQ(reader.next(&third), Status::End);

    EXPECT_TRUE(std::holds_alternative<command::Tune>(first));
    EXPECT_TRUE(std::holds_alternative<command::Quit>(second));
    EXPECT_EQ(reader.error(), "");
}

TEST(SessionReaderTest, ALastLineWithoutItsEndCounts) {
    std::istringstream input("tune 1\nquit");
    SessionReader reader(input, "s", "");
    Command command;

    EXPECT_EQ(reader.next(&command), Status::Ok);
    EXPECT_EQ(reader.next(&command), Status::Ok);

    EXPECT_TRUE(std::holds_alternative<command::Quit>(command));
}

TEST(SessionReaderTest, ARefusedLineIsNamedWithItsFileAndNumberAndTheKnownCommands) {
    std::istringstream input("# one\n\ntune 1\nnonsense\n");
    SessionReader reader(input, "evening", "");
    Command command;

    EXPECT_EQ(reader.next(&command), Status::Ok);
    EXPECT_EQ(reader.next(&command), Status::Error);

    EXPECT_EQ(reader.error(),
              "evening:4: unknown command 'nonsense'; the commands are: " + knownCommands());
}

TEST(SessionReaderTest, BehindARefusedLineItGoesOnAndListsTheCommandsOnce) {
    std::istringstream input("nonsense\ntune 1\nmore nonsense\n");
    SessionReader reader(input, "evening", "");
    Command command;

    EXPECT_EQ(reader.next(&command), Status::Error);
    EXPECT_EQ(reader.next(&command), Status::Ok);
    EXPECT_EQ(reader.next(&command), Status::Error);
    EXPECT_EQ(reader.error(), "evening:3: unknown command 'more'");
    EXPECT_EQ(reader.next(&command), Status::End);
}

TEST(SessionReaderTest, ARelativePageIsFoundInThePageFolder) {
    const test::ScratchFile page("reader.html", "<title>t</title>");
    std::istringstream input("launch a " + page.name() + "\n");
    SessionReader reader(input, "s", testing::TempDir());
    Command command;

    ASSERT_EQ(reader.next(&command), Status::Ok) << reader.error();

    const auto& launch = std::get<command::Launch>(command);
    EXPECT_EQ(launch.page.shown, page.name());
    EXPECT_EQ(launch.page.path, page.path());
}

TEST(SessionReaderTest, AnAbsolutePageIsFoundWhateverThePageFolder) {
    const test::ScratchFile page("reader.html", "");
    std::istringstream input("launch a " + page.path() + "\n");
    SessionReader reader(input, "s", "/nowhere");
    Command command;

    ASSERT_EQ(reader.next(&command), Status::Ok) << reader.error();

    EXPECT_EQ(std::get<command::Launch>(command).page.path, page.path());
}

TEST(SessionReaderTest, AMissingPageIsRefusedWithItsPathAndWhy) {
    std::istringstream input("tune 1\nlaunch a page.html\n");
    SessionReader reader(input, "s", "/nowhere");
    Command command;

    EXPECT_EQ(reader.next(&command), Status::Ok);
    EXPECT_EQ(reader.next(&command), Status::Error);

    EXPECT_EQ(reader.error(),
              "s:2: cannot read page '/nowhere/page.html': No such file or directory");
}

TEST(SessionReaderTest, AFolderIsNoPage) {
    std::istringstream input("launch a /\n");
    SessionReader reader(input, "s", "");
    Command command;

    EXPECT_EQ(reader.next(&command), Status::Error);

    EXPECT_EQ(reader.error(), "s:1: cannot read page '/': Is a directory");
}

}  // namespace
}  // namespace tv_browser

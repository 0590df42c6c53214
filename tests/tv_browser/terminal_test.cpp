// The browser on a terminal: the story has it for itself.

#include "tv_browser/terminal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "tv_browser/scratch_file.h"

namespace {

using test::ScratchFile;
using test::TerminalResult;
using test::withoutColours;
using Variables = std::vector<std::pair<std::string, std::string>>;

const std::string kEvening = "--session=" TV_BROWSER_SESSIONS "/evening.session";

TerminalResult play(std::vector<std::string> options, unsigned short columns,
                    const Variables& more = {}, const std::string& typed = "") {
    options.insert(options.begin(), TV_BROWSER);
    Variables variables = {{"TERM", "xterm"},
                           {"NO_COLOR", ""},
                           {"ZOR_DEBUG", "debug"},
                           {"ZOR_DEBUG_FILE", ""},
                           {"ZOR_DEBUG_PREFIX", ""}};
    variables.insert(variables.end(), more.begin(), more.end());
    return test::runOnTerminal(options, columns, variables, typed);
}

std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// In characters; what the browser writes here has one byte for each.
std::size_t widestLine(const std::string& text) {
    std::size_t widest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) widest = std::max(widest, line.size());
    return widest;
}

long timesFound(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    return std::distance(std::sregex_iterator(text.begin(), text.end(), regex),
                         std::sregex_iterator());
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string placeOf(const std::string& logFile) {
    return "\nThe log is in " + logFile + "; --log shows it with the story.\n";
}

TEST(TerminalTest, TheStoryIsNoWiderThanTheTerminalAndTheLogIsInAFile) {
    const ScratchFile log("terminal.log", "of yesterday\n");

    const TerminalResult result = play({kEvening, "--save-log=" + log.path()}, 80);
    const std::string shown = withoutColours(result.shown);
    const std::string logged = contentsOf(log.path());

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(shown.substr(0, shown.find('\n')), "tv_browser plays evening.session");
    EXPECT_LE(widestLine(shown), 80U) << shown;
    EXPECT_EQ(
        timesFound(shown, "\n [0-9].[0-9]{3} viewer              -> hbbtv_controller: key red\n"),
        1)
        << shown;
    EXPECT_EQ(timesFound(shown, R"(\[[A-Za-z-]+\] [a-z_]+\.cpp:)"), 0) << shown;
    EXPECT_TRUE(endsWith(shown, " ms\n" + placeOf(log.path()))) << shown;

    EXPECT_EQ(timesFound(logged, "of yesterday"), 0);
    EXPECT_EQ(timesFound(logged, "\033"), 0);
    EXPECT_GE(timesFound(logged, R"(\[EventDispatcher\] event_dispatcher\.cpp:[0-9]+:)"), 1);
    EXPECT_GE(timesFound(logged, R"(\[TvBrowser\] module\.cpp:)"), 1);
}

TEST(TerminalTest, ThereIsMoreOnALineWhereThereIsRoom) {
    const ScratchFile log("wide.log", "");

    const TerminalResult result = play({kEvening, "--save-log=" + log.path()}, 120);
    const std::string shown = withoutColours(result.shown);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_LE(widestLine(shown), 120U);
    EXPECT_EQ(timesFound(shown,
                         "browser_engine         \"Evening News\" has MD5 [0-9a-f]{32}, "
                         "CRC-32 44CC9F57\n"),
              1)
        << shown;
}

TEST(TerminalTest, TheReportOfTheMemoryIsOneLineAndWholeInTheLog) {
    const ScratchFile session("memory.session", "memory\n");
    const ScratchFile log("memory.log", "");

    const TerminalResult result =
        play({"--session=" + session.path(), "--save-log=" + log.path()}, 80);
    const std::string shown = withoutColours(result.shown);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(timesFound(shown,
                         " session                finds [0-9]+ MiB of memory, [0-9]+ MiB "
                         "available\n"),
              1)
        << shown;
    EXPECT_EQ(timesFound(shown, "MemTotal"), 0) << shown;
    EXPECT_EQ(timesFound(contentsOf(log.path()), "==System MemInfo:==\n MemTotal:"), 1);
}

TEST(TerminalTest, ModulesAreColouredUnlessColoursAreUnwanted) {
    const ScratchFile session("colours.session", "key red\n");
    const ScratchFile log("colours.log", "");
    const std::vector<std::string> options = {"--session=" + session.path(),
                                              "--save-log=" + log.path()};

    EXPECT_EQ(timesFound(play(options, 80).shown,
                         "\033\\[1mviewer             \033\\[0m -> "
                         "\033\\[33mhbbtv_controller\033\\[0m: key red\n"),
              1);
    EXPECT_EQ(timesFound(play(options, 80, {{"NO_COLOR", "1"}}).shown, "\033"), 0);
    EXPECT_EQ(timesFound(play(options, 80, {{"TERM", "dumb"}}).shown, "\033"), 0);
}

TEST(TerminalTest, ATerminalThatDoesNotKnowItsWidthHas80Columns) {
    const ScratchFile log("unknown.log", "");

    const TerminalResult result = play({kEvening, "--save-log=" + log.path()}, 0);

    EXPECT_EQ(widestLine(withoutColours(result.shown)), 80U);
}

TEST(TerminalTest, WithTheOptionTheLogStandsBesideTheStory) {
    const ScratchFile session("both.session", "key red\n");
    const ScratchFile log("both.log", "of yesterday\n");

    for (const char* option : {"--log", "-L"}) {
        const TerminalResult result =
            play({"--session=" + session.path(), option, "--save-log=" + log.path()}, 80);

        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_GE(timesFound(result.shown, R"(\[EventDispatcher\] event_dispatcher\.cpp:[0-9]+:)"),
                  1);
        EXPECT_EQ(timesFound(result.shown, "The log is in"), 0);
        EXPECT_EQ(contentsOf(log.path()), "of yesterday\n");
    }
}

TEST(TerminalTest, EverySpellingOfTheLogFileIsTaken) {
    const ScratchFile session("spelling.session", "");
    const ScratchFile log("spelling.log", "");
    const std::vector<std::vector<std::string>> spellings = {
        {"--save-log=" + log.path()},
        {"--save-log", log.path()},
        {"-F" + log.path()},
        {"-F", log.path()},
    };

    for (std::vector<std::string> options : spellings) {
        options.push_back("--session=" + session.path());
        const TerminalResult result = play(options, 80);

        EXPECT_EQ(result.exitStatus, 0) << result.shown;
        EXPECT_TRUE(endsWith(result.shown, placeOf(log.path()))) << options[0] << result.shown;
    }
}

TEST(TerminalTest, ALogThatWasSentElsewhereIsLeftThere) {
    const ScratchFile session("sent.session", "");
    const ScratchFile sent("sent.log", "of yesterday\n");
    const ScratchFile log("unused.log", "of yesterday\n");

    const TerminalResult result = play({"--session=" + session.path(), "--save-log=" + log.path()},
                                       80, {{"ZOR_DEBUG_FILE", sent.path()}});

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(timesFound(result.shown, "The log is in"), 0);
    EXPECT_EQ(contentsOf(log.path()), "of yesterday\n");
    EXPECT_GE(timesFound(contentsOf(sent.path()), R"(\[EventDispatcher\] )"), 1);
}

TEST(TerminalTest, ALogThatCannotBeWrittenStandsInTheStory) {
    const ScratchFile session("unwritable.session", "");

    const TerminalResult result =
        play({"--session=" + session.path(), "--save-log=/nowhere/tv.log"}, 80);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.shown.find("tv_browser: cannot write the log to '/nowhere/tv.log': No such "
                                "file or directory; it stands in the story\n"),
              0U)
        << result.shown;
    EXPECT_GE(timesFound(result.shown, R"(\[EventDispatcher\] )"), 1);
    EXPECT_EQ(timesFound(result.shown, "The log is in"), 0);
}

TEST(TerminalTest, AWrongLineThatIsTypedIsNamedAndTheSessionGoesOn) {
    const ScratchFile log("typed.log", "");

    const TerminalResult result =
        play({"--session=-", "--save-log=" + log.path()}, 80, {}, "nonsense\ntune 2\nquit\n");
    const std::string shown = withoutColours(result.shown);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(timesFound(shown,
                         "\ntv_browser: <stdin>:1: unknown command 'nonsense'; the commands are: "),
              1)
        << shown;
    EXPECT_EQ(timesFound(shown, " viewer              -> hbbtv_controller: tune to channel 2\n"), 1)
        << shown;
}

TEST(TerminalTest, AComplaintIsShown) {
    const ScratchFile log("complaint.log", "");

    const TerminalResult result =
        play({"--session=/nowhere/evening.session", "--save-log=" + log.path()}, 80);

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.shown,
              "tv_browser: cannot read session '/nowhere/evening.session': No such file or "
              "directory\n");
}

}  // namespace

// The browser as a process: what it is given, what it says, and how it ends.

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "tv_browser/conversation.h"
#include "tv_browser/scratch_file.h"
#include "tv_browser/story.h"

namespace {

using test::ChildProcess;
using test::ChildResult;
using test::storyOf;
using test::tellsInOrder;
using test::timesTold;
using Story = std::vector<std::string>;

const std::string kCommands =
    "the commands are: tune CHANNEL, key KEY, launch APP PAGE, show APP, hide APP, stop APP, "
    "slow MODULE MS, call MODULE OTHER, misdial MODULE, remind MODULE MS, silence MODULE, "
    "hoard MODULE, say TEXT..., wait MS, memory, state, quit\n";

// The browser with its log switched off: what is left on standard error is its own.
ChildProcess browser(std::vector<std::string> options) {
    options.insert(options.begin(), TV_BROWSER);
    ChildProcess process(std::move(options));
    process.variable("ZOR_DEBUG", "off");
    return process;
}

ChildResult playTyped(const std::string& text) {
    return browser({"--session=-"}).input(text).run();
}

ChildResult playFile(const std::string& path) {
    return browser({"--session=" + path}).run();
}

std::string session(const char* name) {
    return std::string(TV_BROWSER_SESSIONS "/") + name + ".session";
}

std::string page(const char* name) {
    return std::string(TV_BROWSER_PAGES "/") + name + ".html";
}

const std::string kSlowLaunch =
    "application_manager is reported by the watchdog: eWatchID_app_launch_new goes on for ";

void expectRowsInOrderOfTime(const std::string& output) {
    const std::vector<double> seconds = test::secondsOf(output);
    EXPECT_TRUE(std::is_sorted(seconds.begin(), seconds.end())) << output;
}

// ---- the sessions that ship ----

TEST(EveningSessionTest, TellsItsStory) {
    const ChildResult result = playFile(session("evening"));
    const Story story = storyOf(result.output);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output.substr(0, result.output.find('\n')),
              "tv_browser plays evening.session");
    EXPECT_TRUE(tellsInOrder(
        story, {
                   "The set is turned on.",
                   "viewer -> hbbtv_controller: tune to channel 1",
                   "hbbtv_controller => everybody: the channel is 1, City One",
                   "viewer <- hbbtv_controller: ok",
                   "broadcaster -> hbbtv_controller: start news from ../pages/news.html",
                   "hbbtv_controller -> application_manager: launch news from ../pages/news.html",
                   "application_manager -> browser_engine: load news from ../pages/news.html",
                   "browser_engine loads \"Evening News\", 288 bytes",
                   "browser_engine \"Evening News\" has MD5 e64c7984767e0257454850d86cd52d7a, "
                   "CRC-32 44CC9F57",
                   "application_manager <- browser_engine: ok",
                   "application_manager => everybody: news runs hidden",
                   "hbbtv_controller <- application_manager: ok",
                   "broadcaster <- hbbtv_controller: ok",
                   "viewer -> application_manager: show news",
                   "browser_engine draws \"Evening News\"",
                   "application_manager => everybody: news is visible",
                   "viewer <- application_manager: ok",
                   "viewer -> hbbtv_controller: key red",
                   "hbbtv_controller -> browser_engine: key red for news",
                   "browser_engine \"Evening News\" opens the headlines",
                   "hbbtv_controller <- browser_engine: ok",
                   "viewer <- hbbtv_controller: ok",
                   "viewer -> hbbtv_controller: key volume_up",
                   "hbbtv_controller <- browser_engine: page has no use for it",
                   "hbbtv_controller => op_app_host: nobody used key volume_up",
                   "op_app_host sets the volume to 21",
                   "viewer -> application_manager: hide news",
                   "browser_engine clears the screen",
                   "viewer <- application_manager: ok",
                   "viewer -> hbbtv_controller: tune to channel 2",
                   "application_manager -> browser_engine: drop news",
                   "browser_engine drops \"Evening News\"",
                   "application_manager => everybody: news has stopped",
                   "broadcaster -> hbbtv_controller: start film from ../pages/film.html",
                   "application_manager puts up \"loading film\"",
                   "browser_engine loads \"The Lighthouse Keeper\", 229 bytes",
                   "application_manager takes down \"loading film\"",
                   "application_manager => everybody: film runs hidden",
                   "viewer -> application_manager: show film",
                   "browser_engine draws \"The Lighthouse Keeper\"",
                   "viewer -> hbbtv_controller: key blue",
                   "browser_engine \"The Lighthouse Keeper\" switches the subtitles on",
                   "viewer -> hbbtv_controller: key guide",
                   "op_app_host -> application_manager: hide film",
                   "op_app_host <- application_manager: ok",
                   "op_app_host opens the programme guide",
                   "viewer -> application_manager: show film",
                   "viewer -> hbbtv_controller: key back",
                   "browser_engine \"The Lighthouse Keeper\" switches the subtitles off",
                   "broadcaster -> hbbtv_controller: stop film",
                   "browser_engine drops \"The Lighthouse Keeper\"",
                   "broadcaster <- hbbtv_controller: ok",
                   "The set is turned off.",
                   "session -> browser_engine: finish, we turn off",
                   "session <- browser_engine: ok",
               }));
    EXPECT_EQ(timesTold(story, " !! "), 0);
    EXPECT_EQ(timesTold(story, " -> "), timesTold(story, " <- "));
    EXPECT_GE(timesTold(story, kSlowLaunch), 1);
    EXPECT_EQ(timesTold(story, "puts up"), 1);
    EXPECT_EQ(timesTold(story, "takes down"), 1);
    for (const char* part : {"browser_engine decodes \"Evening News\" on a worker thread",
                             "browser_engine caches \"Evening News\" on the background thread",
                             "browser_engine lays out \"Evening News\" on the main thread",
                             "browser_engine paints \"Evening News\" on the foreground thread",
                             "browser_engine \"Evening News\" polls its server"}) {
        EXPECT_EQ(timesTold(story, part), 1) << part;
    }
    EXPECT_GE(timesTold(story, "browser_engine \"Evening News\" is alive"), 1);
    EXPECT_EQ(timesTold(story, "application_manager makes news instance "), 1);
    EXPECT_EQ(timesTold(story, "browser_engine gives \"Evening News\" the values ["), 1);
    EXPECT_EQ(timesTold(story, ",(1280,720),TRUE]"), 3);
    EXPECT_NE(result.output.find("==System MemInfo:==\n MemTotal:"), std::string::npos);
    expectRowsInOrderOfTime(result.output);
}

TEST(TroubleSessionTest, TellsWhatGoesWrongAndGoesOn) {
    const ChildResult result = playFile(session("trouble"));
    const Story story = storyOf(result.output);

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(tellsInOrder(
        story, {
                   // Nothing runs yet.
                   "viewer -> hbbtv_controller: key red",
                   "hbbtv_controller => op_app_host: nobody used key red",
                   "viewer <- hbbtv_controller: passed on to op_app_host",
                   "viewer -> application_manager: show vote",
                   "viewer <- application_manager: not running",
                   "broadcaster -> hbbtv_controller: stop vote",
                   "hbbtv_controller <- application_manager: not running",
                   "broadcaster <- hbbtv_controller: not running",
                   "viewer -> hbbtv_controller: tune to channel 17",
                   "viewer <- hbbtv_controller: no such channel",
                   // Twice the same.
                   "broadcaster -> hbbtv_controller: start vote from ../pages/vote.html",
                   "broadcaster <- hbbtv_controller: ok",
                   "broadcaster -> hbbtv_controller: start vote from ../pages/vote.html",
                   "broadcaster <- hbbtv_controller: already running",
                   // A module that another one waits for in vain.
                   "session => browser_engine: take 800 ms over the next answer",
                   "viewer -> hbbtv_controller: key red",
                   "hbbtv_controller -> browser_engine: key red for vote",
                   "browser_engine is busy for 800 ms",
                   "hbbtv_controller !! browser_engine: no answer within 400 ms",
                   "viewer <- hbbtv_controller: no answer from further down",
                   "browser_engine \"Song Contest Vote\" votes for the first song",
                   "browser_engine !! answers 'key red for vote' only now: ok",
                   // A module that the viewer waits for in vain; the next key is answered.
                   "session => hbbtv_controller: take 1100 ms over the next answer",
                   "viewer -> hbbtv_controller: key green",
                   "hbbtv_controller is busy for 1100 ms",
                   "viewer !! hbbtv_controller: no answer within 800 ms",
                   "viewer -> hbbtv_controller: key ok",
                   "hbbtv_controller !! answers 'key green' only now: ok",
                   "browser_engine \"Song Contest Vote\" sends the vote",
                   "viewer <- hbbtv_controller: ok",
                   // A launch that is given up leaves nothing behind.
                   "broadcaster -> hbbtv_controller: start quiz from ../pages/quiz.html",
                   "application_manager puts up \"loading quiz\"",
                   "application_manager !! browser_engine: no answer within 400 ms",
                   "application_manager takes down \"loading quiz\"",
                   "application_manager => browser_engine: drop quiz",
                   "broadcaster <- hbbtv_controller: no answer from further down",
                   "browser_engine loads \"Quiz of the Day\", 140 bytes",
                   "browser_engine drops \"Quiz of the Day\"",
                   // Gone.
                   "broadcaster -> hbbtv_controller: stop vote",
                   "broadcaster <- hbbtv_controller: ok",
                   "viewer -> hbbtv_controller: key ok",
                   "viewer <- hbbtv_controller: passed on to op_app_host",
                   "viewer -> application_manager: hide vote",
                   "viewer <- application_manager: not running",
                   "The set is turned off.",
                   "session <- browser_engine: ok",
               }));
    EXPECT_GE(timesTold(story, kSlowLaunch), 1);
    EXPECT_EQ(timesTold(story, "no answer within"), 3);
    EXPECT_EQ(timesTold(story, "only now"), 3);
    expectRowsInOrderOfTime(result.output);
}

TEST(DeadlockSessionTest, TheStateReportNamesTheCircleAndTheSessionEndsByItself) {
    const ChildResult result = playFile(session("deadlock"));
    const std::string& output = result.output;

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    const std::vector<std::string> story = storyOf(output);
    EXPECT_TRUE(
        tellsInOrder(story, {
                                "op_app_host -> hbbtv_controller: call me back, then answer",
                                "hbbtv_controller -> op_app_host: are you there?",
                                "The set is turned off.",
                                "session <- browser_engine: ok",
                            }));
    // Whose patience ends first, by 50 ms, frees the other one; a busy machine may find both ended.
    EXPECT_GE(timesTold(story, "no answer within 1000 ms"), 1) << output;
    EXPECT_TRUE(std::regex_search(
        output, std::regex("\nwho waits for whom:\n"
                           "  circle: module 40 'op_app_host' -> module 20 'hbbtv_controller' -> "
                           "module 40 'op_app_host'\n")))
        << output;
    EXPECT_TRUE(std::regex_search(
        output, std::regex("of module 40 'op_app_host', for the reply of module 20 "
                           "'hbbtv_controller' to event 20 'call back' of module 40 'op_app_host', "
                           "since 0\\.[0-9]{3} s, until in 0\\.[0-9]{3} s\n")))
        << output;
    expectRowsInOrderOfTime(output);
}

// ---- sessions from standard input ----

TEST(TypedSessionTest, IsPlayedToItsEndWithoutQuit) {
    const ChildResult result = playTyped("tune 1\nlaunch news " + page("news") + "\nshow news\n");

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_TRUE(tellsInOrder(storyOf(result.output),
                             {
                                 "viewer <- hbbtv_controller: ok",
                                 "viewer <- application_manager: ok",
                                 "The set is turned off.",
                                 "session -> application_manager: finish, we turn off",
                                 "browser_engine drops \"Evening News\"",
                                 "application_manager => everybody: news has stopped",
                                 "session <- application_manager: ok",
                             }));
}

TEST(TypedSessionTest, QuitEndsItWhateverFollows) {
    const ChildResult result = playTyped("quit\nnonsense\n");

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
}

TEST(TypedSessionTest, NothingTypedIsASessionToo) {
    const ChildResult result = playTyped("");

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
}

TEST(TypedSessionTest, EachLineIsPlayedBeforeTheNextIsTyped) {
    test::Conversation talk({TV_BROWSER, "--session=-"});

    talk.say("tune 2\n");
    EXPECT_NE(talk.hear("viewer               <- hbbtv_controller: ok"), "");
    talk.say("key volume_down\n");
    EXPECT_NE(talk.hear("sets the volume to 19"), "");

    EXPECT_EQ(talk.end(), 0);
}

TEST(TypedSessionTest, WhatWasTypedBeforeAnUnknownLineIsPlayed) {
    const ChildResult result = playTyped("tune 1\nnonsense\ntune 2\n");
    const Story story = storyOf(result.output);

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "tv_browser: <stdin>:2: unknown command 'nonsense'; " + kCommands);
    EXPECT_TRUE(tellsInOrder(story, {
                                        "viewer -> hbbtv_controller: tune to channel 1",
                                        "viewer <- hbbtv_controller: ok",
                                        "The set is turned off.",
                                        "session <- browser_engine: ok",
                                    }));
    EXPECT_EQ(timesTold(story, "tune to channel 2"), 0);
}

TEST(TypedSessionTest, AMissingPageEndsItWithItsLine) {
    const ChildResult result = playTyped("tune 1\n\nlaunch news /nowhere/page.html\n");

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: <stdin>:3: cannot read page '/nowhere/page.html': No such file or "
              "directory\n");
}

TEST(TypedSessionTest, AModuleThatIsBusyAtTheEndDoesNotHoldItUp) {
    const ChildResult result = playTyped("slow op_app_host 60000\n");

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(tellsInOrder(storyOf(result.output),
                             {
                                 "session -> op_app_host: finish, we turn off",
                                 "session !! op_app_host: no answer within 800 ms",
                                 "session <- browser_engine: ok",
                                 "op_app_host !! answers 'finish, we turn off' only now: ok",
                             }));
}

TEST(TypedSessionTest, AChecksumHasEightDigits) {
    const test::ScratchFile file("page.html", "<title>Page 21</title>\n");

    const ChildResult result = playTyped("launch page " + file.path() + "\n");

    EXPECT_EQ(timesTold(storyOf(result.output),
                        "browser_engine \"Page 21\" has MD5 3960c06f7b1f71209132e7ec9bee81f0, "
                        "CRC-32 05AEC05F"),
              1)
        << result.output;
}

// ---- sessions from files ----

TEST(SessionFileTest, ALineThatIsNotUnderstoodKeepsAllOfItFromBeingPlayed) {
    const test::ScratchFile file("bad.session", "tune 1\n# fine so far\nwait 1 minute\n");

    const ChildResult result = playFile(file.path());

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: " + file.path() + ":3: 'wait MS' ends before 'minute'; " + kCommands);
    EXPECT_EQ(result.output, "");
}

TEST(SessionFileTest, EachWrongLineIsNamed) {
    const test::ScratchFile file("wrong.session", "tune\ntune 1\nlaunch a /no.html\nnonsense\n");

    const ChildResult result = playFile(file.path());

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "tv_browser: " + file.path() + ":1: 'tune CHANNEL' lacks CHANNEL; " +
                                 kCommands + "tv_browser: " + file.path() +
                                 ":3: cannot read page '/no.html': No such file or directory\n" +
                                 "tv_browser: " + file.path() + ":4: unknown command 'nonsense'\n");
    EXPECT_EQ(result.output, "");
}

TEST(SessionFileTest, AMissingPageKeepsAllOfItFromBeingPlayed) {
    const test::ScratchFile file("page.session", "tune 1\nlaunch news no/such/page.html\n");

    const ChildResult result = playFile(file.path());

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "tv_browser: " + file.path() + ":2: cannot read page '" +
                                 testing::TempDir() +
                                 "no/such/page.html': No such file or directory\n");
    EXPECT_EQ(result.output, "");
}

TEST(SessionFileTest, AMissingSessionIsReported) {
    const ChildResult result = playFile("/nowhere/evening.session");

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: cannot read session '/nowhere/evening.session': No such file or "
              "directory\n");
    EXPECT_EQ(result.output, "");
}

TEST(SessionFileTest, AFolderIsNoSession) {
    const ChildResult result = playFile(TV_BROWSER_SESSIONS);

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: cannot read session '" TV_BROWSER_SESSIONS "': Is a directory\n");
}

// ---- options ----

TEST(ProcessOptionsTest, HelpIsPrintedAndAllIsWell) {
    const ChildResult result = browser({"--help"}).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors.find("Usage: tv_browser --session=FILE [options]\n"), 0U);
    EXPECT_NE(result.errors.find("-S# or --session=#\n\t\t\tPlay the session in this file; '-' "
                                 "plays standard input, line by line\n"),
              std::string::npos)
        << result.errors;
}

TEST(ProcessOptionsTest, WithoutSessionItAsksForOne) {
    const ChildResult result = browser({}).run();

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: which session? --session=FILE plays a file, --session=- standard "
              "input; --help tells more\n");
}

TEST(ProcessOptionsTest, AFirstPageIsShownBeforeTheSessionBegins) {
    const ChildResult result =
        browser({"--session=-", "--sw", "--url=" + page("film")}).input("key blue\n").run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(tellsInOrder(storyOf(result.output),
                             {
                                 "browser_engine draws with the software backend",
                                 "browser_engine draws \"The Lighthouse Keeper\"",
                                 "viewer -> hbbtv_controller: key blue",
                                 "browser_engine \"The Lighthouse Keeper\" switches the "
                                 "subtitles on",
                             }));
}

TEST(ProcessOptionsTest, AMissingFirstPageIsReported) {
    const ChildResult result = browser({"--session=-", "--url=/nowhere/page.html"}).run();

    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "tv_browser: cannot read page '/nowhere/page.html' of --url: No such file or "
              "directory\n");
    EXPECT_EQ(result.output, "");
}

TEST(ProcessOptionsTest, DisabledInputKeepsKeysOut) {
    const ChildResult result = browser({"--session=-", "--disable-input"}).input("key red\n").run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_TRUE(
        tellsInOrder(storyOf(result.output), {"viewer presses red, but input is disabled"}));
    EXPECT_EQ(timesTold(storyOf(result.output), "hbbtv_controller: key"), 0);
}

// ---- beside the story ----

TEST(ProcessLogTest, StandsOnStandardErrorAndLeavesTheStoryAlone) {
    const ChildResult result = browser({"--session=-"})
                                   .variable("ZOR_DEBUG", "debug")
                                   .variable("ZOR_DEBUG_PREFIX", "")
                                   .input("tune 1\n")
                                   .run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_NE(result.errors.find("[EventDispatcher] "), std::string::npos);
    EXPECT_NE(result.errors.find(
                  "'hbbtv_controller' takes event 1 from module 101, 'tune to channel 1'.\n"),
              std::string::npos);
    EXPECT_TRUE(tellsInOrder(storyOf(result.output), {"viewer <- hbbtv_controller: ok"}));
    EXPECT_EQ(result.output.find("[EventDispatcher]"), std::string::npos);
}

}  // namespace

#include "session_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

namespace tv_browser {
namespace {

using namespace std::chrono_literals;

std::string errorOf(const std::string& line) {
    const ParsedLine parsed = parseLine(line);
    EXPECT_FALSE(parsed.command.has_value()) << line;
    return parsed.error;
}

// The command of the line; the test fails if it is another one, or none.
template <typename Expected>
Expected commandOf(const std::string& line) {
    const ParsedLine parsed = parseLine(line);
    EXPECT_EQ(parsed.error, "") << line;
    if (parsed.command && std::holds_alternative<Expected>(*parsed.command)) {
        return std::get<Expected>(*parsed.command);
    }
    ADD_FAILURE() << "not the command that was expected: " << line;
    return {};
}

bool ordersNothing(const std::string& line) {
    const ParsedLine parsed = parseLine(line);
    return !parsed.command && parsed.error.empty();
}

TEST(SessionParserTest, TuneTakesAChannelNumber) {
    EXPECT_EQ(commandOf<command::Tune>("tune 1").channel, 1);
    EXPECT_EQ(commandOf<command::Tune>("tune 999").channel, 999);
}

TEST(SessionParserTest, KeyTakesAKeyOfTheRemoteControl) {
    EXPECT_EQ(commandOf<command::Key>("key red").name, "red");
    EXPECT_EQ(commandOf<command::Key>("key volume_down").name, "volume_down");
}

TEST(SessionParserTest, LaunchTakesAnApplicationAndLeavesThePageAsItStands) {
    const auto launch = commandOf<command::Launch>("launch news ../pages/news.html");

    EXPECT_EQ(launch.app, "news");
    EXPECT_EQ(launch.page.shown, "../pages/news.html");
    EXPECT_EQ(launch.page.path, "");
}

TEST(SessionParserTest, ShowHideAndStopTakeAnApplication) {
    EXPECT_EQ(commandOf<command::Show>("show a").app, "a");
    EXPECT_EQ(commandOf<command::Hide>("hide Red_Button-2").app, "Red_Button-2");
    EXPECT_EQ(commandOf<command::Stop>("stop " + std::string(32, 'x')).app, std::string(32, 'x'));
}

TEST(SessionParserTest, SlowTakesAModuleAndMilliseconds) {
    const auto call = commandOf<command::Call>("call op_app_host hbbtv_controller");
    EXPECT_EQ(call.module, ModuleId::OpAppHost);
    EXPECT_EQ(call.other, ModuleId::HbbtvController);

    const auto slow = commandOf<command::Slow>("slow browser_engine 250");

    EXPECT_EQ(slow.module, ModuleId::BrowserEngine);
    EXPECT_EQ(slow.delay, 250ms);
}

TEST(SessionParserTest, MistakesTakeAModule) {
    EXPECT_EQ(commandOf<command::Misdial>("misdial op_app_host").module, ModuleId::OpAppHost);
    EXPECT_EQ(commandOf<command::Silence>("silence browser_engine").module,
              ModuleId::BrowserEngine);
    EXPECT_EQ(commandOf<command::Hoard>("hoard hbbtv_controller").module,
              ModuleId::HbbtvController);
    const auto remind = commandOf<command::Remind>("remind op_app_host 300");
    EXPECT_EQ(remind.module, ModuleId::OpAppHost);
    EXPECT_EQ(remind.delay, 300ms);
}

TEST(SessionParserTest, SlowKnowsEveryModuleWithAMailbox) {
    EXPECT_EQ(commandOf<command::Slow>("slow application_manager 1").module,
              ModuleId::ApplicationManager);
    EXPECT_EQ(commandOf<command::Slow>("slow hbbtv_controller 1").module,
              ModuleId::HbbtvController);
    EXPECT_EQ(commandOf<command::Slow>("slow op_app_host 1").module, ModuleId::OpAppHost);
}

TEST(SessionParserTest, WaitTakesUpToAMinute) {
    EXPECT_EQ(commandOf<command::Wait>("wait 0").duration, 0ms);
    EXPECT_EQ(commandOf<command::Wait>("wait 60000").duration, 60000ms);
}

TEST(SessionParserTest, SayTakesTheRestOfTheLineUpToAComment) {
    EXPECT_EQ(commandOf<command::Say>("say The  news\tbegins. # on 1").text, "The news begins.");
}

TEST(SessionParserTest, QuitStandsAlone) {
    commandOf<command::Memory>("memory");
    commandOf<command::State>("state");
    commandOf<command::Quit>("quit");
}

TEST(SessionParserTest, WordsMayStandAnywhereOnTheLine) {
    EXPECT_EQ(commandOf<command::Tune>(" \t tune \t 7 \t ").channel, 7);
}

TEST(SessionParserTest, ACarriageReturnAtTheEndIsNoPartOfTheLine) {
    EXPECT_EQ(commandOf<command::Tune>("tune 7\r").channel, 7);
    EXPECT_TRUE(ordersNothing("\r"));
}

TEST(SessionParserTest, ACommentEndsTheLineWhereAWordBeginsWithIt) {
    EXPECT_EQ(commandOf<command::Tune>("tune 7 # the seventh").channel, 7);
    EXPECT_EQ(commandOf<command::Launch>("launch a page#2.html").page.shown, "page#2.html");
}

TEST(SessionParserTest, BlankLinesAndCommentsOrderNothing) {
    EXPECT_TRUE(ordersNothing(""));
    EXPECT_TRUE(ordersNothing(" \t "));
    EXPECT_TRUE(ordersNothing("# tune 1"));
    EXPECT_TRUE(ordersNothing("  #tune 1"));
}

TEST(SessionParserTest, AnUnknownCommandIsRefused) {
    EXPECT_EQ(errorOf("nonsense"), "unknown command 'nonsense'");
    EXPECT_EQ(errorOf("TUNE 1"), "unknown command 'TUNE'");
    EXPECT_EQ(errorOf("tune# 1"), "unknown command 'tune#'");
    EXPECT_EQ(errorOf("tun 1"), "unknown command 'tun'");
}

TEST(SessionParserTest, AMissingArgumentIsNamed) {
    EXPECT_EQ(errorOf("tune"), "'tune CHANNEL' lacks CHANNEL");
    EXPECT_EQ(errorOf("key # red"), "'key KEY' lacks KEY");
    EXPECT_EQ(errorOf("launch"), "'launch APP PAGE' lacks APP");
    EXPECT_EQ(errorOf("launch news"), "'launch APP PAGE' lacks PAGE");
    EXPECT_EQ(errorOf("show"), "'show APP' lacks APP");
    EXPECT_EQ(errorOf("hide"), "'hide APP' lacks APP");
    EXPECT_EQ(errorOf("stop"), "'stop APP' lacks APP");
    EXPECT_EQ(errorOf("slow"), "'slow MODULE MS' lacks MODULE");
    EXPECT_EQ(errorOf("slow op_app_host"), "'slow MODULE MS' lacks MS");
    EXPECT_EQ(errorOf("say"), "'say TEXT...' lacks TEXT...");
    EXPECT_EQ(errorOf("wait"), "'wait MS' lacks MS");
}

TEST(SessionParserTest, WhatFollowsTheLastArgumentIsRefused) {
    EXPECT_EQ(errorOf("tune 1 now"), "'tune CHANNEL' ends before 'now'");
    EXPECT_EQ(errorOf("key red green"), "'key KEY' ends before 'green'");
    EXPECT_EQ(errorOf("launch a b c d"), "'launch APP PAGE' ends before 'c'");
    EXPECT_EQ(errorOf("show a b"), "'show APP' ends before 'b'");
    EXPECT_EQ(errorOf("hide a b"), "'hide APP' ends before 'b'");
    EXPECT_EQ(errorOf("stop a b"), "'stop APP' ends before 'b'");
    EXPECT_EQ(errorOf("slow op_app_host 5 ms"), "'slow MODULE MS' ends before 'ms'");
    EXPECT_EQ(errorOf("wait 5 ms"), "'wait MS' ends before 'ms'");
    EXPECT_EQ(errorOf("quit now"), "'quit' ends before 'now'");
}

TEST(SessionParserTest, AChannelThatIsNoNumberInRangeIsRefused) {
    const std::string wanted = "CHANNEL is a number from 1 to 999, not ";

    EXPECT_EQ(errorOf("tune one"), wanted + "'one'");
    EXPECT_EQ(errorOf("tune 1x"), wanted + "'1x'");
    EXPECT_EQ(errorOf("tune x1"), wanted + "'x1'");
    EXPECT_EQ(errorOf("tune 1.0"), wanted + "'1.0'");
    EXPECT_EQ(errorOf("tune 0x1"), wanted + "'0x1'");
    EXPECT_EQ(errorOf("tune +1"), wanted + "'+1'");
    EXPECT_EQ(errorOf("tune -1"), wanted + "'-1'");
    EXPECT_EQ(errorOf("tune 0"), wanted + "'0'");
    EXPECT_EQ(errorOf("tune 1000"), wanted + "'1000'");
}

TEST(SessionParserTest, ANumberThatOverflowsIsRefused) {
    const std::string wanted = "MS is a number from 0 to 60000, not ";

    EXPECT_EQ(errorOf("wait 60001"), wanted + "'60001'");
    EXPECT_EQ(errorOf("wait 2147483648"), wanted + "'2147483648'");
    EXPECT_EQ(errorOf("wait 4294967296"), wanted + "'4294967296'");
    EXPECT_EQ(errorOf("wait 18446744073709551616"), wanted + "'18446744073709551616'");
    EXPECT_EQ(errorOf("slow op_app_host 99999999999999999999"), wanted + "'99999999999999999999'");
    EXPECT_EQ(errorOf("wait -1"), wanted + "'-1'");
}

TEST(SessionParserTest, AnUnknownKeyIsRefusedWithTheKeysThatAreKnown) {
    EXPECT_EQ(errorOf("key purple"),
              "KEY is one of red, green, yellow, blue, ok, back, exit, up, down, left, right, "
              "guide, volume_up, volume_down, not 'purple'");
}

TEST(SessionParserTest, AnUnknownModuleIsRefusedWithTheModulesThatAreKnown) {
    const std::string wanted =
        "MODULE is one of application_manager, hbbtv_controller, browser_engine, op_app_host, not ";

    EXPECT_EQ(errorOf("slow engine 5"), wanted + "'engine'");
    EXPECT_EQ(errorOf("slow viewer 5"), wanted + "'viewer'");
}

TEST(SessionParserTest, AnApplicationNameThatIsNoneIsRefused) {
    const std::string wanted = "APP is up to 32 letters, digits, '-' and '_', not ";

    EXPECT_EQ(errorOf("show a/b"), wanted + "'a/b'");
    EXPECT_EQ(errorOf("hide a.b"), wanted + "'a.b'");
    EXPECT_EQ(errorOf("stop \xc3\xa9"), wanted + "'\xc3\xa9'");
    EXPECT_EQ(errorOf("launch a+b page.html"), wanted + "'a+b'");
    EXPECT_EQ(errorOf("show " + std::string(33, 'x')), wanted + "'" + std::string(33, 'x') + "'");
}

TEST(SessionParserTest, OfSeveralBadWordsTheFirstIsNamed) {
    EXPECT_EQ(errorOf("slow nobody never"),
              "MODULE is one of application_manager, hbbtv_controller, browser_engine, "
              "op_app_host, not 'nobody'");
}

TEST(SessionParserTest, AControlCharacterIsRefusedWhereverItStands) {
    const std::string why = "the line holds a control character";

    EXPECT_EQ(errorOf(std::string("tune 1\0", 7)), why);
    EXPECT_EQ(errorOf("say \x1b[31mred"), why);
    EXPECT_EQ(errorOf("# \x07"), why);
    EXPECT_EQ(errorOf("say \x7f"), why);
    EXPECT_EQ(errorOf("tune\r1"), why);
    EXPECT_EQ(errorOf("tune 1\r\r"), why);
}

TEST(SessionParserTest, TheKnownCommandsAreListedWithTheirArguments) {
    EXPECT_EQ(
        knownCommands(),
        "tune CHANNEL, key KEY, launch APP PAGE, show APP, hide APP, stop APP, "
        "slow MODULE MS, call MODULE OTHER, misdial MODULE, remind MODULE MS, silence MODULE, "
        "hoard MODULE, say TEXT..., wait MS, memory, state, quit");
}

}  // namespace
}  // namespace tv_browser

#include "timeline_row.h"

#include <gtest/gtest.h>

namespace tv_browser {
namespace {

using std::chrono_literals::operator""us;

std::string blanks(std::size_t count) {
    return std::string(count, ' ');
}

Row replied(const std::string& text, std::chrono::microseconds duration) {
    return {1.5, ModuleId::Viewer, Sign::Replied, text, duration};
}

class TerminalLayoutTest : public testing::Test {
protected:
    const TerminalLayout m_narrow{80, false};
    const TerminalLayout m_wide{120, false};
    const TerminalLayout m_colourful{80, true};
};

TEST_F(TerminalLayoutTest, TheHeadingFitsInto80Columns) {
    EXPECT_EQ(m_narrow.heading("a title"),
              "a title\n"
              "  -> asks, waits   <- gets the reply   => tells, goes on   !! in vain, or late\n");
}

TEST_F(TerminalLayoutTest, ARowHasTimeModuleSignAndText) {
    EXPECT_EQ(m_narrow.row({0.5034, ModuleId::Viewer, Sign::Asks, "something"}),
              " 0.503 viewer              -> something\n");
    EXPECT_EQ(m_narrow.row({123.4, ModuleId::ApplicationManager, Sign::Does, "waits"}),
              "123.400 application_manager    waits\n");
}

TEST_F(TerminalLayoutTest, ADurationEndsInTheLastColumn) {
    const std::string row = m_narrow.row(replied("ok", 1250us));

    EXPECT_EQ(row, " 1.500 viewer              <- ok" + blanks(42) + "1.2 ms\n");
    EXPECT_EQ(row.size(), 80U + 1U);
}

TEST_F(TerminalLayoutTest, OnAWideTerminalADurationStaysNearItsRow) {
    EXPECT_EQ(m_wide.row(replied("ok", 1250us)).size(), 100U + 1U);
}

TEST_F(TerminalLayoutTest, ADurationThatDoesNotFitStandsBelow) {
    EXPECT_EQ(m_narrow.row(replied(std::string(43, 'x'), 1250us)).size(), 80U + 1U);
    EXPECT_EQ(
        m_narrow.row(replied(std::string(44, 'x'), 1250us)),
        " 1.500 viewer              <- " + std::string(44, 'x') + "\n" + blanks(74) + "1.2 ms\n");
}

TEST_F(TerminalLayoutTest, ALongTextGoesOnBelowItself) {
    const std::string text = "lays out \"The Lighthouse Keeper\" on the main screen";

    EXPECT_EQ(m_narrow.row({1.5, ModuleId::BrowserEngine, Sign::Does, text}),
              " 1.500 browser_engine         lays out \"The Lighthouse Keeper\" on the main\n" +
                  blanks(30) + "screen\n");
    EXPECT_EQ(m_wide.row({1.5, ModuleId::BrowserEngine, Sign::Does, text}),
              " 1.500 browser_engine         " + text + "\n");
}

TEST_F(TerminalLayoutTest, ATextThatJustFitsIsNotBroken) {
    const std::string text = std::string(40, 'a') + " " + std::string(9, 'b');

    EXPECT_EQ(m_narrow.row({1.5, ModuleId::Viewer, Sign::Does, text}),
              " 1.500 viewer                 " + text + "\n");
    EXPECT_EQ(m_narrow.row({1.5, ModuleId::Viewer, Sign::Does, text + "b"}),
              " 1.500 viewer                 " + std::string(40, 'a') + "\n" + blanks(30) +
                  std::string(10, 'b') + "\n");
}

TEST_F(TerminalLayoutTest, AWordWiderThanALineIsBrokenAtItsCommas) {
    const std::string word = std::string(40, 'a') + "," + std::string(20, 'b') + ",c";

    EXPECT_EQ(m_narrow.row({1.5, ModuleId::Viewer, Sign::Does, "has " + word}),
              " 1.500 viewer                 has " + std::string(40, 'a') + ",\n" + blanks(30) +
                  std::string(20, 'b') + ",c\n");
}

TEST_F(TerminalLayoutTest, WidthIsCountedInCharactersAndNotInBytes) {
    std::string text;
    for (int i = 0; i < 25; ++i) text += "ä ";
    text += "ö";  // 51 characters.

    EXPECT_EQ(m_narrow.row({1.5, ModuleId::Viewer, Sign::Does, text}),
              " 1.500 viewer                 " + text.substr(0, text.size() - 3) + "\n" +
                  blanks(30) + "ö\n");
}

TEST_F(TerminalLayoutTest, ATerminalTooNarrowIsTakenForOneOf60Columns) {
    const std::string text = std::string(30, 'a') + " b";

    EXPECT_EQ(TerminalLayout(10, false).row({1.5, ModuleId::Viewer, Sign::Does, text}),
              " 1.500 viewer                 " + std::string(30, 'a') + "\n" + blanks(30) + "b\n");
}

TEST_F(TerminalLayoutTest, AChapterIsBrokenBelowItsFirstWord) {
    EXPECT_EQ(m_narrow.chapter(0.25, std::string(70, 'a') + " bcd"),
              "\n 0.250 " + std::string(70, 'a') + "\n" + blanks(7) + "bcd\n");
}

TEST_F(TerminalLayoutTest, ModulesHaveTheirColours) {
    EXPECT_EQ(m_colourful.row({1.5, ModuleId::HbbtvController, Sign::Asks, "browser_engine: x"}),
              "\033[2m 1.500\033[0m \033[33mhbbtv_controller   \033[0m -> "
              "\033[36mbrowser_engine\033[0m: x\n");
    // What a module does names nobody.
    EXPECT_EQ(m_colourful.row({1.5, ModuleId::OpAppHost, Sign::Does, "browser_engine: x"}),
              "\033[2m 1.500\033[0m \033[32mop_app_host        \033[0m    browser_engine: x\n");
}

TEST_F(TerminalLayoutTest, ColoursTakeNoColumns) {
    EXPECT_EQ(m_colourful.row(replied("browser_engine: ok", 1250us)),
              "\033[2m 1.500\033[0m \033[1mviewer             \033[0m <- "
              "\033[36mbrowser_engine\033[0m: ok\033[2m" +
                  blanks(26) + "1.2 ms\033[0m\n");
}

TEST_F(TerminalLayoutTest, WhatWasInVainIsRed) {
    EXPECT_EQ(m_colourful.row({1.5, ModuleId::BrowserEngine, Sign::GaveUp, "late"}),
              "\033[2m 1.500\033[0m \033[36mbrowser_engine     \033[0m "
              "\033[1;31m!!\033[0m \033[1;31mlate\033[0m\n");
}

}  // namespace
}  // namespace tv_browser

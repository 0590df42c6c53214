#include "page.h"

#include <gtest/gtest.h>

namespace tv_browser {
namespace {

using Keys = std::map<std::string, std::string>;

TEST(PageTest, TitleKeysAndSizeAreTaken) {
    const std::string html =
        "<title>Evening News</title>\n"
        "<li data-key=\"red\">opens the headlines</li><li data-key=\"ok\">plays</li>";

    const Page page = parsePage(html);

    EXPECT_EQ(page.title, "Evening News");
    EXPECT_EQ(page.keys, (Keys{{"red", "opens the headlines"}, {"ok", "plays"}}));
    EXPECT_EQ(page.sizeBytes, html.size());
}

TEST(PageTest, TextsAreBroughtOnOneLine) {
    const Page page =
        parsePage("<title>\n  Evening\r\n\tNews\x1b </title><b data-key=\"ok\">\na\n b");

    EXPECT_EQ(page.title, "Evening News");
    EXPECT_EQ(page.keys, (Keys{{"ok", ""}}));
}

TEST(PageTest, APageWithoutTitleIsUntitled) {
    EXPECT_EQ(parsePage("").title, "untitled");
    EXPECT_EQ(parsePage("<title> </title>").title, "untitled");
    EXPECT_EQ(parsePage("<title>never ends").title, "untitled");
}

TEST(PageTest, AKeyThatIsCutOffIsPassedOver) {
    EXPECT_EQ(parsePage("<li data-key=\"").keys, Keys());
    EXPECT_EQ(parsePage("<li data-key=\"red").keys, Keys());
    EXPECT_EQ(parsePage("<li data-key=\"red\"").keys, Keys());
    EXPECT_EQ(parsePage("<li data-key=\"\">nothing</li>").keys, Keys());
}

}  // namespace
}  // namespace tv_browser

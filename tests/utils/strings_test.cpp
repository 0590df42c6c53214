#include "base/utils/strings.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "base/utils.h"

namespace {

using namespace tevalon::base;

using Texts = std::vector<std::string>;

std::vector<std::string> allTexts(const std::string& alphabet, std::size_t longest) {
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].size() == longest) break;
        const std::string text = texts[i];
        for (const char letter : alphabet) texts.push_back(text + letter);
    }
    return texts;
}

TEST(ToLowerCaseTest, ChangesTheCapitalsAlone) {
    EXPECT_EQ(toLowerCase(""), "");
    EXPECT_EQ(toLowerCase("HbbTV 2.0: ABC-xyz"), "hbbtv 2.0: abc-xyz");
}

TEST(ToLowerCaseTest, TakesEveryByteForItself) {
    std::string bytes;
    std::string expected;
    for (int code = 0; code <= UCHAR_MAX; ++code) {
        bytes += static_cast<char>(code);
        expected += static_cast<char>(code >= 'A' && code <= 'Z' ? code + ('a' - 'A') : code);
    }

    EXPECT_EQ(toLowerCase(bytes), expected);
}

TEST(ToLowerCaseTest, LeavesItsArgument) {
    const std::string text = "ABC";

    EXPECT_EQ(toLowerCase(text), "abc");

    EXPECT_EQ(text, "ABC");
}

TEST(HasSuffixTest, ComparesFromTheLastDot) {
    EXPECT_TRUE(hasSuffix("a.js", ".js"));
    EXPECT_TRUE(hasSuffix("x.tar.gz", ".gz"));
    EXPECT_FALSE(hasSuffix("x.tar.gz", ".tar.gz"));
    EXPECT_FALSE(hasSuffix("x.tar.gz", ".tar"));
    EXPECT_FALSE(hasSuffix("a.js", "js"));
    EXPECT_FALSE(hasSuffix("a.js", "s"));
    EXPECT_FALSE(hasSuffix("a.js", ".j"));
    EXPECT_FALSE(hasSuffix("a.js", ".jsx"));
    EXPECT_FALSE(hasSuffix("a.JS", ".js"));
    EXPECT_TRUE(hasSuffix("a.", "."));
    EXPECT_TRUE(hasSuffix("a..", "."));
    EXPECT_FALSE(hasSuffix("a..b", "..b"));
    EXPECT_TRUE(hasSuffix("folder.d/file", ".d/file"));
}

TEST(HasSuffixTest, IsFalseForTextsOfOneLength) {
    EXPECT_FALSE(hasSuffix("a.js", "a.js"));
    EXPECT_FALSE(hasSuffix(".js", ".js"));
    EXPECT_FALSE(hasSuffix(".", "."));
    EXPECT_FALSE(hasSuffix("", ""));
}

TEST(HasSuffixTest, IsFalseWithoutPathDotOrSuffix) {
    EXPECT_FALSE(hasSuffix("", ".js"));
    EXPECT_FALSE(hasSuffix("readme", ".md"));
    EXPECT_FALSE(hasSuffix("readme", ""));
    EXPECT_FALSE(hasSuffix("a.js", ""));
    EXPECT_FALSE(hasSuffix("a", ".js"));
}

TEST(HasSuffixTest, TakesZeroBytesForLetters) {
    const std::string path("a.b\0c", 5);

    EXPECT_TRUE(hasSuffix(path, std::string(".b\0c", 4)));
    EXPECT_FALSE(hasSuffix(path, ".b"));
}

bool expectedSuffix(const std::string& path, const std::string& suffix) {
    if (path.size() == suffix.size()) return false;
    std::string tail;
    for (std::size_t i = path.size(); i > 0; --i) {
        tail.insert(tail.begin(), path[i - 1]);
        if (path[i - 1] == '.') return tail == suffix;
    }
    return false;
}

TEST(HasSuffixTest, FollowsTheRuleForEveryShortPair) {
    for (const std::string& path : allTexts(".ab", 5)) {
        for (const std::string& suffix : allTexts(".ab", 4)) {
            ASSERT_EQ(hasSuffix(path, suffix), expectedSuffix(path, suffix))
                << "'" << path << "' and '" << suffix << "'";
        }
    }
}

TEST(SeparateStrTest, SplitsAtEveryDelimiter) {
    const auto split = [](const std::string& text, const std::string& delimiters) {
        Texts pieces;
        EXPECT_EQ(separateStr(text, delimiters, pieces), 0) << text;
        return pieces;
    };

    EXPECT_EQ(split("a,b", ","), (Texts{"a", "b"}));
    EXPECT_EQ(split("a,,b", ","), (Texts{"a", "", "b"}));
    EXPECT_EQ(split("a,b,", ","), (Texts{"a", "b", ""}));
    EXPECT_EQ(split(",a", ","), (Texts{"", "a"}));
    EXPECT_EQ(split(",", ","), (Texts{"", ""}));
    EXPECT_EQ(split(",,", ","), (Texts{"", "", ""}));
    EXPECT_EQ(split("a,b;c d", ";, "), (Texts{"a", "b", "c", "d"}));
    EXPECT_EQ(split(std::string("a\0b", 3), std::string(1, '\0')), (Texts{"a", "b"}));
}

TEST(SeparateStrTest, RefusesATextWithoutADelimiter) {
    Texts pieces = {"kept"};

    EXPECT_EQ(separateStr("abc", ",", pieces), -1);
    EXPECT_EQ(separateStr("", ",", pieces), -1);
    EXPECT_EQ(separateStr("a,b", "", pieces), -1);
    EXPECT_EQ(separateStr("", "", pieces), -1);

    EXPECT_EQ(pieces, Texts{"kept"});
}

TEST(SeparateStrTest, AppendsToWhatIsThere) {
    Texts pieces = {"kept"};

    EXPECT_EQ(separateStr("a,b", ",", pieces), 0);

    EXPECT_EQ(pieces, (Texts{"kept", "a", "b"}));
}

TEST(SeparateStrTest, SplitsLongTexts) {
    constexpr std::size_t kPieces = 100000;
    std::string text;
    for (std::size_t i = 1; i < kPieces; ++i) text += "piece,";
    Texts pieces;

    EXPECT_EQ(separateStr(text + "piece", ",", pieces), 0);

    EXPECT_TRUE(pieces == Texts(kPieces, "piece"));
}

TEST(SeparateStrTest, FollowsTheRuleForEveryShortText) {
    for (const std::string& text : allTexts("a,; ", 6)) {
        Texts expected = {""};
        for (const char letter : text) {
            if (letter == ',' || letter == ';') {
                expected.emplace_back();
            } else {
                expected.back() += letter;
            }
        }
        const bool isSplit = expected.size() > 1;
        Texts pieces;

        ASSERT_EQ(separateStr(text, ",;", pieces), isSplit ? 0 : -1) << "'" << text << "'";

        ASSERT_EQ(pieces, isSplit ? expected : Texts{}) << "'" << text << "'";
    }
}

}  // namespace

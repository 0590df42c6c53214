#include "browser_options.h"

#include <gtest/gtest.h>

#include <vector>

namespace tv_browser {
namespace {

struct Outcome {
    bool good = false;
    BrowserOptions options;
    std::string why;
};

Outcome read(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "tv_browser");
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    Outcome outcome;
    outcome.good = readOptions(static_cast<int>(arguments.size()), argv.data(), &outcome.options,
                               &outcome.why);
    return outcome;
}

TEST(BrowserOptionsTest, ASessionIsEnough) {
    const Outcome outcome = read({"--session=evening"});

    EXPECT_TRUE(outcome.good) << outcome.why;
    EXPECT_EQ(outcome.options.session, "evening");
    EXPECT_EQ(outcome.options.url, "");
    EXPECT_EQ(outcome.options.backend, "default");
    EXPECT_FALSE(outcome.options.inputDisabled);
}

TEST(BrowserOptionsTest, StandardInputIsADash) {
    EXPECT_EQ(read({"--session=-"}).options.session, "-");
    EXPECT_EQ(read({"--session", "-"}).options.session, "-");
    EXPECT_EQ(read({"-S-"}).options.session, "-");
}

TEST(BrowserOptionsTest, EveryOptionIsTaken) {
    const Outcome outcome =
        read({"--url=page.html", "--disable-input", "--hw-gles", "--session", "evening"});

    EXPECT_TRUE(outcome.good) << outcome.why;
    EXPECT_EQ(outcome.options.session, "evening");
    EXPECT_EQ(outcome.options.url, "page.html");
    EXPECT_EQ(outcome.options.backend, "OpenGL ES 2.0");
    EXPECT_TRUE(outcome.options.inputDisabled);
}

TEST(BrowserOptionsTest, EveryBackendHasItsName) {
    EXPECT_EQ(read({"--session=-", "--sw"}).options.backend, "software");
    EXPECT_EQ(read({"--session=-", "--hw-dfb"}).options.backend, "DirectFB");
    EXPECT_EQ(read({"--session=-", "--hw-gles"}).options.backend, "OpenGL ES 2.0");
}

TEST(BrowserOptionsTest, TwoBackendsAreRefused) {
    const Outcome outcome = read({"--session=-", "--sw", "--hw-dfb"});

    EXPECT_FALSE(outcome.good);
    EXPECT_EQ(outcome.why, "only one of --sw, --hw-dfb and --hw-gles can be used");
}

TEST(BrowserOptionsTest, WithoutSessionItAsksForOne) {
    const std::string why =
        "which session? --session=FILE plays a file, --session=- standard input; --help tells more";

    EXPECT_EQ(read({}).why, why);
    EXPECT_EQ(read({"--session="}).why, why);
    EXPECT_EQ(read({"--session"}).why, why);
    EXPECT_FALSE(read({}).good);
}

TEST(BrowserOptionsTest, AnArgumentThatIsNoOptionIsRefused) {
    const Outcome outcome = read({"evening.session", "--session", "-"});

    EXPECT_FALSE(outcome.good);
    EXPECT_EQ(outcome.why,
              "unexpected argument 'evening.session'; a session is given as --session=FILE");
}

TEST(BrowserOptionsTest, UnknownOptionsAreLeftAlone) {
    EXPECT_TRUE(read({"--session=-", "--for-the-engine", "-z"}).good);
}

}  // namespace
}  // namespace tv_browser

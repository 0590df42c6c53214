#include "base/utils/command_line.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "base/logging/log_level.h"
#include "base/utils.h"
#include "support/log_capture.h"

namespace {

using test::LogCapture;
using test::LogEntry;
using tevalon::base::kLogDebug;
using tevalon::base::kLogError;
using tevalon::base::utils::CommandLine;

/// An argument vector that may be written to, as main() gets it.
class Arguments {
public:
    Arguments(std::initializer_list<const char*> texts) {
        for (const char* text : texts) m_storage.emplace_back(text);
        for (std::string& text : m_storage) m_argv.push_back(text.data());
        m_argv.push_back(nullptr);
    }

    int argc() const { return static_cast<int>(m_storage.size()); }
    char** argv() { return m_argv.data(); }

    /// The argument given at @p index, as C reads it now. The parser may have moved it in argv.
    std::string now(std::size_t index) const { return m_storage[index].c_str(); }
    /// All bytes of it.
    const std::string& bytes(std::size_t index) const { return m_storage[index]; }

private:
    std::vector<std::string> m_storage;
    std::vector<char*> m_argv;
};

CommandLine withDefaults(Arguments& arguments) {
    return CommandLine(arguments.argc(), arguments.argv(), "usage\n", "extra", true);
}

CommandLine withoutDefaults(Arguments& arguments) {
    return CommandLine(arguments.argc(), arguments.argv(), "usage\n", "extra", false);
}

const char* const kNone = nullptr;

std::string clearedLine(const std::string& token) {
    return "[B-LOG] command_line.cpp:#:clear_option(): clear  " + token + " done\n";
}

std::vector<std::string> textsWithoutLineNumbers(const LogCapture& log) {
    std::vector<std::string> texts;
    for (const LogEntry& entry : log.entriesWithoutLineNumbers()) texts.push_back(entry.text);
    return texts;
}

// Asking.

TEST(CommandLineTest, KnowsTheVectorItWasGiven) {
    Arguments arguments = {"prog", "-s"};

    const CommandLine commandLine = withDefaults(arguments);

    EXPECT_EQ(commandLine.argc(), 2);
    EXPECT_EQ(commandLine.argv(), arguments.argv());
}

TEST(CommandLineTest, HasNoOptionBeforeParse) {
    Arguments arguments = {"prog", "-s", "--url=page.html"};

    const CommandLine commandLine = withDefaults(arguments);

    EXPECT_FALSE(commandLine.HasOption("sw"));
    EXPECT_FALSE(commandLine.HasOption("url"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "");
    EXPECT_EQ(arguments.now(1), "-s");
}

TEST(CommandLineTest, ANullFallbackIsAnEmptyText) {
    Arguments arguments = {"prog"};
    const CommandLine commandLine = withDefaults(arguments);
    const char* const p_none = nullptr;

    EXPECT_EQ(commandLine.GetOptionValue("url", p_none), "");
    EXPECT_EQ(commandLine.GetOptionValue("url", "page.html"), "page.html");
}

TEST(CommandLineTest, HasTheOptionsThatWereGivenAndTheirValues) {
    Arguments arguments = {"prog", "--url=page.html", "-s"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("url"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_EQ(commandLine.GetOptionValue("sw"), "");
    EXPECT_EQ(commandLine.argc(), 3);
}

TEST(CommandLineTest, DoesNotHaveWhatWasDeclaredAndNotGiven) {
    Arguments arguments = {"prog", "-s"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_FALSE(commandLine.HasOption("url"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "");
    EXPECT_FALSE(commandLine.HasOption("nonsense"));
    EXPECT_EQ(commandLine.GetOptionValue("nonsense"), "");
}

TEST(CommandLineTest, NeedsTheLongNameNotTheLetterToAsk) {
    Arguments arguments = {"prog", "-s"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_FALSE(commandLine.HasOption("s"));
    EXPECT_FALSE(commandLine.HasOption(""));
}

TEST(CommandLineTest, ReadsTheDefaultOptionsInEitherSpelling) {
    const struct {
        const char* spelling;
        const char* name;
    } kOptions[] = {{"-s", "sw"},
                    {"--sw", "sw"},
                    {"-d", "hw-dfb"},
                    {"--hw-dfb", "hw-dfb"},
                    {"-g", "hw-gles"},
                    {"--hw-gles", "hw-gles"},
                    {"-%", "quit-on-render-crash"},
                    {"--quit-on-render-crash", "quit-on-render-crash"},
                    {"-#", "disable-input"},
                    {"--disable-input", "disable-input"}};
    for (const auto& [spelling, name] : kOptions) {
        Arguments arguments = {"prog", spelling};
        CommandLine commandLine = withDefaults(arguments);

        commandLine.Parse();

        EXPECT_TRUE(commandLine.HasOption(name)) << spelling;
        EXPECT_EQ(commandLine.GetOptionValue(name), "") << spelling;
        EXPECT_EQ(arguments.now(1), "") << spelling;
    }
}

TEST(CommandLineTest, ReadsAValueInEachWayItCanBeGiven) {
    Arguments vectors[] = {{"prog", "--url=page.html"},
                           {"prog", "--url", "page.html"},
                           {"prog", "-upage.html"},
                           {"prog", "-u", "page.html"}};
    for (Arguments& arguments : vectors) {
        CommandLine commandLine = withDefaults(arguments);

        commandLine.Parse();

        EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
        for (std::size_t i = 1; i < static_cast<std::size_t>(arguments.argc()); ++i) {
            EXPECT_EQ(arguments.now(i), "");
        }
        EXPECT_EQ(arguments.now(0), "prog");
    }
}

TEST(CommandLineTest, HasAnOptionWhoseValueIsEmpty) {
    Arguments arguments = {"prog", "--url="};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("url"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "");
    EXPECT_EQ(arguments.now(1), "");
}

TEST(CommandLineTest, KeepsTheLastValueOfARepeatedOption) {
    Arguments arguments = {"prog", "-u", "one", "--url=two", "-uthree"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("url"), "three");
}

TEST(CommandLineTest, ReadsLettersThatAreTypedTogether) {
    Arguments arguments = {"prog", "-sdupage.html"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_TRUE(commandLine.HasOption("hw-dfb"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
}

TEST(CommandLineTest, ReadsOptionsBehindOtherArguments) {
    Arguments arguments = {"prog", "file", "-s", "other", "--url=page.html"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
    EXPECT_EQ(arguments.now(1), "file");
    EXPECT_EQ(arguments.now(3), "other");
}

TEST(CommandLineTest, ReadsNothingBehindADoubleDash) {
    Arguments arguments = {"prog", "-d", "--", "-s"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("hw-dfb"));
    EXPECT_FALSE(commandLine.HasOption("sw"));
    EXPECT_EQ(arguments.now(3), "-s");
}

TEST(CommandLineTest, ParsesAnEmptyVector) {
    Arguments none = {};
    Arguments justTheProgram = {"prog"};
    CommandLine first = withDefaults(none);
    CommandLine second = withDefaults(justTheProgram);

    first.Parse();
    second.Parse();

    EXPECT_FALSE(first.HasOption("sw"));
    EXPECT_FALSE(second.HasOption("sw"));
    EXPECT_EQ(justTheProgram.now(0), "prog");
}

// Refusing in silence.

TEST(CommandLineTest, LeavesUnknownOptionsAloneWithoutAWord) {
    Arguments arguments = {"prog", "-z", "--nonsense", "--other=1", "-s"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    testing::internal::CaptureStderr();
    commandLine.Parse();
    const std::string errors = testing::internal::GetCapturedStderr();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_EQ(arguments.now(1), "-z");
    EXPECT_EQ(arguments.now(2), "--nonsense");
    EXPECT_EQ(arguments.now(3), "--other=1");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(textsWithoutLineNumbers(log), std::vector<std::string>{clearedLine("-s")});
}

TEST(CommandLineTest, LeavesAnOptionWithoutItsValueAloneWithoutAWord) {
    Arguments vectors[] = {{"prog", "--url"}, {"prog", "-u"}};
    for (Arguments& arguments : vectors) {
        const std::string given = arguments.now(1);
        CommandLine commandLine = withDefaults(arguments);
        LogCapture log;

        testing::internal::CaptureStderr();
        commandLine.Parse();
        const std::string errors = testing::internal::GetCapturedStderr();

        EXPECT_FALSE(commandLine.HasOption("url"));
        EXPECT_EQ(arguments.now(1), given);
        EXPECT_EQ(errors, "");
        EXPECT_TRUE(log.entries().empty());
    }
}

TEST(CommandLineTest, KnowsNoDefaultOptionsUnlessAsked) {
    Arguments arguments = {"prog", "-s", "--url=page.html", "--help"};
    CommandLine commandLine = withoutDefaults(arguments);

    commandLine.Parse();

    EXPECT_FALSE(commandLine.HasOption("sw"));
    EXPECT_FALSE(commandLine.HasOption("url"));
    EXPECT_FALSE(commandLine.HasOption("help"));
    EXPECT_EQ(arguments.now(1), "-s");
    EXPECT_EQ(arguments.now(3), "--help");
}

// Declaring.

TEST(CommandLineTest, AddsOptionsOfAProgramsOwn) {
    Arguments arguments = {"prog", "-v5", "--quiet", "-s"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.AddOption("volume", 'v', true, "Start at this volume", true, kNone);
    commandLine.AddOption("quiet", 'q', true, "Be quiet", false, std::vector<const char*>{});
    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("volume"), "5");
    EXPECT_TRUE(commandLine.HasOption("quiet"));
    EXPECT_TRUE(commandLine.HasOption("sw"));
}

TEST(CommandLineTest, AddsTheDefaultOptionsLaterToo) {
    Arguments arguments = {"prog", "--sw"};
    CommandLine commandLine = withoutDefaults(arguments);

    commandLine.AddDefaultOptions();
    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
}

TEST(CommandLineTest, AnAliasStandsForTheLongName) {
    Arguments arguments = {"prog", "--loudness=7"};
    CommandLine commandLine = withoutDefaults(arguments);

    commandLine.AddOption("volume", 'v', true, "Start at this volume", true, "loudness");
    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("volume"), "7");
    EXPECT_FALSE(commandLine.HasOption("loudness"));
}

TEST(CommandLineTest, SeveralAliasesStandForTheLongName) {
    for (const char* given : {"--volume=7", "--loudness=7", "--gain=7"}) {
        Arguments arguments = {"prog", given};
        CommandLine commandLine = withoutDefaults(arguments);

        commandLine.AddOption("volume", 'v', true, "Start at this volume", true,
                              {"loudness", nullptr, "gain"});
        commandLine.Parse();

        EXPECT_EQ(commandLine.GetOptionValue("volume"), "7") << given;
    }
}

TEST(CommandLineTest, WithoutALongNameOnlyTheLetterMayBeTyped) {
    Arguments byLetter = {"prog", "-q"};
    Arguments byName = {"prog", "--quiet"};
    Arguments byAlias = {"prog", "--silent"};
    for (Arguments* p_arguments : {&byLetter, &byName, &byAlias}) {
        CommandLine commandLine = withoutDefaults(*p_arguments);

        commandLine.AddOption("quiet", 'q', false, "Be quiet", false, "silent");
        commandLine.Parse();

        EXPECT_EQ(commandLine.HasOption("quiet"), p_arguments == &byLetter);
    }
}

TEST(CommandLineTest, ANullLongNameDeclaresNothing) {
    Arguments arguments = {"prog", "-v", "-u", "page.html"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.AddOption(nullptr, 'v', true, "Start at this volume", false, "loudness");
    commandLine.AddOption(nullptr, 'u', true, "Taken", false, std::vector<const char*>{});
    const bool silent = log.entries().empty();
    commandLine.Parse();

    EXPECT_TRUE(silent);
    EXPECT_EQ(arguments.now(1), "-v");
    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
}

TEST(CommandLineTest, ALetterThatIsTakenIsReportedAndGoesToTheNewOption) {
    Arguments arguments = {"prog", "-u", "page.html"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.AddOption("address", 'u', true, "Another", true, kNone);

    const std::vector<LogEntry> expected = {
        {kLogError,
         "[B-LOG] command_line.cpp:#:AddOption(): Command line argument -u is already used for "
         "--url\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
    commandLine.Parse();
    EXPECT_EQ(commandLine.GetOptionValue("address"), "page.html");
    EXPECT_FALSE(commandLine.HasOption("url"));
}

TEST(CommandLineTest, ALetterThatIsTakenTwiceIsReportedWithItsLastOwner) {
    Arguments arguments = {"prog", "--one"};
    CommandLine commandLine = withoutDefaults(arguments);
    LogCapture log;

    commandLine.AddOption("one", 'x', true, "1", false, kNone);
    commandLine.AddOption("two", 'x', true, "2", false, kNone);
    commandLine.AddOption("three", 'x', false, "3", false, kNone);

    EXPECT_EQ(
        textsWithoutLineNumbers(log),
        (std::vector<std::string>{"[B-LOG] command_line.cpp:#:AddOption(): Command line argument "
                                  "-x is already used for --one\n",
                                  "[B-LOG] command_line.cpp:#:AddOption(): Command line argument "
                                  "-x is already used for --two\n"}));
    // The older long name still matches, and leads through the letter to the new owner.
    commandLine.Parse();
    EXPECT_TRUE(commandLine.HasOption("three"));
    EXPECT_FALSE(commandLine.HasOption("one"));
}

TEST(CommandLineTest, OptionsDeclaredAfterParseAreNeverRead) {
    Arguments arguments = {"prog", "-v"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();

    commandLine.AddOption("volume", 'v', true, "Start at this volume", false, kNone);
    commandLine.Parse();

    EXPECT_FALSE(commandLine.HasOption("volume"));
    EXPECT_EQ(arguments.now(1), "-v");
}

TEST(CommandLineTest, AQuestionMarkThatIsDeclaredStandsForWhatIsUnknown) {
    Arguments arguments = {"prog", "-z"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.AddOption("unknown", '?', false, "Whatever else", false, kNone);
    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("unknown"));
    EXPECT_EQ(commandLine.GetOptionValue("unknown"), "");
    EXPECT_EQ(arguments.now(1), "-z");
}

// Options without a letter.

TEST(CommandLineTest, AnOptionWithoutALetterIsReadByItsNames) {
    for (const char* typed : {"--profile=kids", "--user=kids", "--prof=kids"}) {
        Arguments arguments = {"prog", "rest", typed, "-s"};
        CommandLine commandLine = withDefaults(arguments);
        commandLine.AddOption("profile", "Play in this profile", true, {"user", nullptr});
        LogCapture log;

        commandLine.Parse();

        EXPECT_EQ(commandLine.GetOptionValue("profile"), "kids");
        EXPECT_TRUE(commandLine.HasOption("sw"));
        EXPECT_EQ(arguments.now(0), "prog");
        EXPECT_EQ(arguments.now(1), "rest");
        EXPECT_EQ(arguments.now(2), "") << typed;
        EXPECT_EQ(textsWithoutLineNumbers(log).front(), clearedLine("--profile"));
    }
}

TEST(CommandLineTest, AValueApartIsEmptiedWithItsOption) {
    Arguments arguments = {"prog-profile", "rest", "--profile", "kids", "--more"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("more", "More of it", false);
    commandLine.AddOption("profile", "Play in this profile", true);

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("profile"), "kids");
    EXPECT_TRUE(commandLine.HasOption("more"));
    EXPECT_EQ(arguments.now(0), "prog-profile");
    EXPECT_EQ(arguments.now(1), "rest");
    EXPECT_EQ(arguments.now(2), "");
    EXPECT_EQ(arguments.now(3), "");
    EXPECT_EQ(arguments.now(4), "");
}

TEST(CommandLineTest, ALetterThatCannotBeTypedIsRefused) {
    for (const char letter : {'\0', ':'}) {
        Arguments arguments = {"prog", "--first", "--second=2", "-a", "-b"};
        CommandLine commandLine = withoutDefaults(arguments);
        LogCapture log;
        commandLine.AddOption("before", 'a', false, "A letter before it", false, kNone);
        commandLine.AddOption("first", letter, true, "First", false, kNone);
        commandLine.AddOption("second", letter, true, "Second", true, kNone);
        commandLine.AddOption("none", letter, false, "Neither letter nor name", false, kNone);
        commandLine.AddOption("after", 'b', false, "A letter behind it", false, kNone);
        EXPECT_TRUE(log.entries().empty());

        commandLine.Parse();

        EXPECT_TRUE(commandLine.HasOption("first"));
        EXPECT_EQ(commandLine.GetOptionValue("second"), "2");
        EXPECT_TRUE(commandLine.HasOption("before"));
        EXPECT_EQ(commandLine.GetOptionValue("before"), "");
        EXPECT_TRUE(commandLine.HasOption("after"));
    }
}

TEST(CommandLineDeathTest, TheHelpShowsALongNameAlone) {
    Arguments arguments = {"prog", "-h"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("help", 'h', false, "Prints this message", false, kNone);
    commandLine.AddOption("profile", "Play in this profile", true, {"user"});
    commandLine.AddOption("zero", '\0', true, "Without a letter", false, kNone);
    commandLine.AddOption("none", ':', false, "Refused", false, kNone);

    EXPECT_EXIT(commandLine.Parse(), testing::ExitedWithCode(0),
                "^usage\n-h\n\t\t\tPrints this message\n"
                "--profile=# or --user=#\n\t\t\tPlay in this profile\n"
                "--zero\n\t\t\tWithout a letter\n$");
}

TEST(CommandLineTest, ANullLongNameAloneDeclaresNothing) {
    Arguments arguments = {"prog", "--x"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption(nullptr, "Nothing", false);
    std::vector<std::string> notUnderstood;

    commandLine.Parse(&notUnderstood);

    EXPECT_EQ(notUnderstood, std::vector<std::string>{"--x"});
}

// What is not understood.

TEST(CommandLineTest, SaysWhatItDidNotUnderstand) {
    Arguments arguments = {"prog",   "-z",       "--unknown=1", "-sxd", "word",
                           "--sw=3", "--quit-o", "-y",          "--h",  "--url"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.AddOption("profile", "Play in this profile", true);
    std::vector<std::string> notUnderstood = {"before"};

    commandLine.Parse(&notUnderstood);

    // "--h" may be three options.
    EXPECT_EQ(notUnderstood, (std::vector<std::string>{"before", "-z", "--unknown=1", "-x",
                                                       "--sw=3", "-y", "--h", "--url"}));
    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_TRUE(commandLine.HasOption("hw-dfb"));
    EXPECT_TRUE(commandLine.HasOption("quit-on-render-crash"));
    EXPECT_FALSE(commandLine.HasOption("url"));
    commandLine.Parse(&notUnderstood);
    EXPECT_EQ(notUnderstood.size(), 8U);
}

TEST(CommandLineTest, AMissingValueIsNotUnderstood) {
    for (const char* typed : {"-u", "--profile", "--url"}) {
        Arguments arguments = {"prog", "--sw", typed};
        CommandLine commandLine = withDefaults(arguments);
        commandLine.AddOption("profile", "Play in this profile", true);
        std::vector<std::string> notUnderstood;

        commandLine.Parse(&notUnderstood);

        EXPECT_EQ(notUnderstood, std::vector<std::string>{typed});
    }
}

// Whether or not the letters before it have emptied the argument.
TEST(CommandLineTest, ALetterWhoseValueIsMissingIsListedByItself) {
    for (const char* before : {"--sw", "word"}) {
        Arguments arguments = {"prog", before, "-su"};
        CommandLine commandLine = withDefaults(arguments);
        std::vector<std::string> notUnderstood;

        commandLine.Parse(&notUnderstood);

        EXPECT_EQ(notUnderstood, std::vector<std::string>{"-u"}) << before;
    }
}

TEST(CommandLineTest, WhatIsUnderstoodIsNotListed) {
    Arguments arguments = {"prog", "-s", "word", "--url", "page", "--", "-z"};
    CommandLine commandLine = withDefaults(arguments);
    std::vector<std::string> notUnderstood;

    commandLine.Parse(&notUnderstood);

    EXPECT_TRUE(notUnderstood.empty());
}

// Typed values.

/// What is read of `--value=text`, or the fallback.
template <typename T>
T readAs(const char* text, const T& fallback) {
    const std::string typed = std::string("--value=") + text;
    Arguments arguments = {"prog", typed.c_str()};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("value", "A value", true);
    commandLine.Parse();
    const T value = commandLine.GetOptionValue("value", fallback);
    T read = fallback;
    const bool isRead = commandLine.ReadOptionValue("value", &read);
    EXPECT_EQ(read, value);
    EXPECT_TRUE(isRead || read == fallback);
    return value;
}

TEST(CommandLineTest, ReadsNumbersThatAreWholeAndInRange) {
    EXPECT_EQ(readAs("42", 7), 42);
    EXPECT_EQ(readAs("-42", 7), -42);
    EXPECT_EQ(readAs("2147483647", 7), 2147483647);
    for (const char* bad : {"", "x", "4x", " 4", "+4", "0x4", "4.5", "2147483648", "-2147483649"}) {
        EXPECT_EQ(readAs(bad, 7), 7) << bad;
    }
    EXPECT_EQ(readAs("255", static_cast<unsigned char>(1)), 255);
    EXPECT_EQ(readAs("256", static_cast<unsigned char>(1)), 1);
    EXPECT_EQ(readAs("-1", 1U), 1U);
    EXPECT_EQ(readAs("18446744073709551615", 1ULL), 18446744073709551615ULL);
    EXPECT_EQ(readAs("-1.5e3", 1.0), -1500.0);
    EXPECT_EQ(readAs("1,5", 1.0), 1.0);
    for (const char* noNumber : {"nan", "inf", "-inf", "infinity", "nan(1)"}) {
        EXPECT_EQ(readAs(noNumber, 1.0), 1.0) << noNumber;
        EXPECT_EQ(readAs(noNumber, 1.0F), 1.0F) << noNumber;
    }
}

TEST(CommandLineTest, ReadsBoolsAndTexts) {
    for (const char* text : {"", "true", "yes", "on", "1"})
        EXPECT_TRUE(readAs(text, false)) << text;
    for (const char* text : {"false", "no", "off", "0"}) EXPECT_FALSE(readAs(text, true)) << text;
    EXPECT_TRUE(readAs("maybe", true));
    EXPECT_FALSE(readAs("TRUE", false));
    EXPECT_EQ(readAs("a text", std::string("none")), "a text");
}

TEST(CommandLineTest, WhatWasNotGivenHasItsDefault) {
    Arguments arguments = {"prog", "-s"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();
    int untouched = 5;

    EXPECT_EQ(commandLine.GetOptionValue("url", "about:blank"), "about:blank");
    EXPECT_EQ(commandLine.GetOptionValue("volume", 30), 30);
    EXPECT_TRUE(commandLine.GetOptionValue("sw", false));
    EXPECT_FALSE(commandLine.ReadOptionValue("volume", &untouched));
    EXPECT_EQ(untouched, 5);
}

// Parsing twice.

TEST(CommandLineTest, ASecondParseChangesNothing) {
    Arguments arguments = {"prog", "-u", "page.html", "-s"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_TRUE(log.entries().empty());
}

TEST(CommandLineTest, ASecondParseDoesNotReadWhatTheVectorHoldsThen) {
    Arguments arguments = {"prog", "-s"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();
    char later[] = "-d";
    arguments.argv()[1] = later;

    commandLine.Parse();

    EXPECT_FALSE(commandLine.HasOption("hw-dfb"));
    EXPECT_STREQ(later, "-d");
}

TEST(CommandLineTest, ASecondObjectParsesItsOwnVectorFromTheStart) {
    Arguments first = {"prog", "-s", "file", "-u", "one.html"};
    Arguments second = {"prog", "--url=two.html", "-g"};
    CommandLine firstLine = withDefaults(first);
    CommandLine secondLine = withDefaults(second);

    firstLine.Parse();
    secondLine.Parse();

    EXPECT_EQ(firstLine.GetOptionValue("url"), "one.html");
    EXPECT_EQ(secondLine.GetOptionValue("url"), "two.html");
    EXPECT_TRUE(secondLine.HasOption("hw-gles"));
    EXPECT_FALSE(secondLine.HasOption("sw"));
}

TEST(CommandLineTest, ParsesFromTheStartAfterAnotherParserStoppedAnywhere) {
    Arguments others = {"prog", "-abc", "-d"};
    optind = 0;  // The C library starts anew.
    ASSERT_EQ(getopt(others.argc(), others.argv(), "abc"), 'a');
    Arguments arguments = {"prog", "-sg"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_TRUE(commandLine.HasOption("hw-gles"));
    EXPECT_FALSE(commandLine.HasOption("hw-dfb"));
}

TEST(CommandLineTest, OverTheSameVectorFindsOnlyWhatIsLeft) {
    Arguments arguments = {"prog", "-s", "-v", "-g"};
    CommandLine first = withDefaults(arguments);
    first.Parse();
    CommandLine second = withDefaults(arguments);
    second.AddOption("volume", 'v', true, "Start at this volume", false, kNone);

    second.Parse();

    EXPECT_TRUE(second.HasOption("volume"));
    EXPECT_FALSE(second.HasOption("sw"));
    EXPECT_FALSE(second.HasOption("hw-gles"));
}

// Erasing.

TEST(CommandLineTest, ErasesAnElementAndItsValueByTheirFirstCharacter) {
    Arguments arguments = {"prog", "--url=page.html"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(arguments.bytes(1), std::string("\0-url=\0age.html", 15));
    const std::vector<LogEntry> expected = {{kLogDebug, clearedLine("--url")}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(CommandLineTest, ErasesAValueThatStandsByItself) {
    Arguments arguments = {"prog", "-u", "page.html"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(arguments.bytes(1), std::string("\0u", 2));
    EXPECT_EQ(arguments.bytes(2), std::string("\0age.html", 9));
    EXPECT_EQ(textsWithoutLineNumbers(log), std::vector<std::string>{clearedLine("-u")});
}

TEST(CommandLineTest, KeepsErasedElementsAsEmptyStrings) {
    Arguments arguments = {"prog", "-s", "--url=page.html"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_EQ(commandLine.argc(), 3);
    EXPECT_STREQ(commandLine.argv()[0], "prog");
    EXPECT_STREQ(commandLine.argv()[1], "");
    EXPECT_STREQ(commandLine.argv()[2], "");
    EXPECT_EQ(commandLine.argv()[3], nullptr);
}

TEST(CommandLineTest, ErasesTheFirstElementThatContainsTheTokenAnywhere) {
    Arguments arguments = {"/opt/my-url/prog", "-u", "page.html"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("url"), "page.html");
    EXPECT_EQ(arguments.now(0), "");
    EXPECT_EQ(arguments.now(1), "-u");
    EXPECT_EQ(arguments.now(2), "");
}

TEST(CommandLineTest, ErasesALongOptionInFrontThatContainsTheShortToken) {
    Arguments arguments = {"prog", "--unknown", "-u", "page.html"};
    CommandLine commandLine = withDefaults(arguments);

    commandLine.Parse();

    EXPECT_EQ(arguments.now(1), "");
    EXPECT_EQ(arguments.now(2), "-u");
    EXPECT_EQ(arguments.now(3), "");
}

TEST(CommandLineTest, ErasesByTheLetterWhatMatchedTheFirstLongEntry) {
    Arguments arguments = {"prog", "--alpha"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("alpha", 'a', true, "first", false, kNone);
    commandLine.AddOption("beta", 'b', true, "second", false, kNone);
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(arguments.now(1), "");
    EXPECT_EQ(textsWithoutLineNumbers(log), std::vector<std::string>{clearedLine("-a")});
}

TEST(CommandLineTest, ErasesAndLogsNothingWhenNoElementContainsTheToken) {
    Arguments arguments = {"prog", "--alpha"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("alpha", 'x', true, "first", false, kNone);
    LogCapture log;

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("alpha"));
    EXPECT_EQ(arguments.now(1), "--alpha");
    EXPECT_TRUE(log.entries().empty());
}

TEST(CommandLineTest, ErasesByTheLongNameOnceALaterLongEntryHasMatched) {
    Arguments arguments = {"prog", "--url=page.html", "-d", "--hw-dfb"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("hw-dfb"));
    EXPECT_EQ(arguments.now(1), "");
    EXPECT_EQ(arguments.now(2), "-d");
    EXPECT_EQ(arguments.now(3), "");
    EXPECT_EQ(textsWithoutLineNumbers(log),
              (std::vector<std::string>{clearedLine("--url"), clearedLine("--hw-dfb")}));
}

TEST(CommandLineTest, LeavesAShortOptionInPlaceOnceALaterLongEntryHasMatched) {
    Arguments arguments = {"prog", "--url=page.html", "-s"};
    CommandLine commandLine = withDefaults(arguments);
    LogCapture log;

    commandLine.Parse();

    EXPECT_TRUE(commandLine.HasOption("sw"));
    EXPECT_EQ(arguments.now(1), "");
    EXPECT_EQ(arguments.now(2), "-s");
    EXPECT_EQ(textsWithoutLineNumbers(log), std::vector<std::string>{clearedLine("--url")});
}

TEST(CommandLineTest, ErasesByTheLetterAgainAfterTheFirstLongEntry) {
    Arguments arguments = {"prog", "--beta", "--alpha", "-b"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("alpha", 'a', true, "first", false, kNone);
    commandLine.AddOption("beta", 'b', true, "second", false, kNone);
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(arguments.now(1), "");
    EXPECT_EQ(arguments.now(2), "");
    EXPECT_EQ(arguments.now(3), "");
    EXPECT_EQ(
        textsWithoutLineNumbers(log),
        (std::vector<std::string>{clearedLine("--beta"), clearedLine("-a"), clearedLine("-b")}));
}

TEST(CommandLineTest, ErasesByTheLongNameNotByTheAliasThatWasTyped) {
    Arguments arguments = {"prog", "--loudness=7", "--volume=8"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.AddOption("volume", 'v', true, "Start at this volume", true, "loudness");
    LogCapture log;

    commandLine.Parse();

    // The element that names the option goes, before it is read; the alias only loses its value.
    EXPECT_EQ(commandLine.GetOptionValue("volume"), "7");
    EXPECT_EQ(arguments.now(1), "--loudness=");
    EXPECT_EQ(arguments.now(2), "");
    EXPECT_EQ(textsWithoutLineNumbers(log), std::vector<std::string>{clearedLine("--volume")});
}

TEST(CommandLineTest, LeavesAnAliasInPlaceWhenNoElementContainsTheLongName) {
    Arguments arguments = {"prog", "--loudness=7"};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.AddOption("volume", 'v', true, "Start at this volume", true, "loudness");
    LogCapture log;

    commandLine.Parse();

    EXPECT_EQ(commandLine.GetOptionValue("volume"), "7");
    EXPECT_EQ(arguments.now(1), "--loudness=7");
    EXPECT_TRUE(log.entries().empty());
}

TEST(CommandLineTest, LeavesTheVectorAloneWhenItIsDestroyed) {
    Arguments arguments = {"prog", "-s"};

    { const CommandLine commandLine = withDefaults(arguments); }

    EXPECT_EQ(arguments.now(0), "prog");
    EXPECT_EQ(arguments.now(1), "-s");
}

// Copying.

TEST(CommandLineTest, ACopyKnowsTheDeclaredOptions) {
    Arguments arguments = {"prog", "-v5"};
    CommandLine original = withoutDefaults(arguments);
    original.AddOption("volume", 'v', true, "Start at this volume", true, kNone);

    CommandLine copy(original);
    copy.Parse();

    EXPECT_EQ(copy.GetOptionValue("volume"), "5");
    EXPECT_FALSE(original.HasOption("volume"));
}

TEST(CommandLineTest, ACopyOfAParsedOneHasItsValuesAndStaysParsed) {
    Arguments arguments = {"prog", "-s"};
    Arguments others = {"prog", "-g"};
    CommandLine original = withDefaults(arguments);
    original.Parse();
    CommandLine assigned = withDefaults(others);

    assigned = original;
    assigned.Parse();

    EXPECT_TRUE(assigned.HasOption("sw"));
    EXPECT_FALSE(assigned.HasOption("hw-gles"));
    EXPECT_EQ(assigned.argv(), arguments.argv());
    EXPECT_EQ(others.now(1), "-g");
}

// Help. It ends the process.

const char* const kDefaultHelp =
    "-h or --help\n\t\t\tPrints this message\n"
    "-u# or --url=#\n\t\t\tSpecify the URL\n"
    "-s or --sw\n\t\t\tUse software backend\n"
    "-d or --hw-dfb\n\t\t\tUse DirectFB backend\n"
    "-g or --hw-gles\n\t\t\tUse OpenGL ES 2.0 backend\n"
    "-% or --quit-on-render-crash\n\t\t\tQuit integration on renderer crash\n"
    "-# or --disable-input\n\t\t\tDisable input passing of keyboard and mouse input to browser. "
    "Useful to avoid accidental breakage of test runs with input meant for the neighbouring "
    "device.\n";

void parseDefaults(const char* option) {
    Arguments arguments = {"prog", option};
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();
}

TEST(CommandLineDeathTest, HelpPrintsUsageAndHelpAndEndsWithStatusZero) {
    for (const char* spelling : {"-h", "--help", "-sh"}) {
        EXPECT_EXIT(parseDefaults(spelling), testing::ExitedWithCode(0),
                    testing::Eq(std::string("usage\n") + kDefaultHelp));
    }
}

void parseWithOddTexts() {
    Arguments arguments = {"prog", "-h"};
    CommandLine commandLine(arguments.argc(), arguments.argv(), "use: %s %d%%", "extra", true);
    commandLine.Parse();
}

TEST(CommandLineDeathTest, HelpShowsUsageAsItStandsAndTheExtraTextNotAtAll) {
    EXPECT_EXIT(parseWithOddTexts(), testing::ExitedWithCode(0),
                testing::Eq(std::string("use: %s %d%%") + kDefaultHelp));
}

void parseOptionsOfEveryKind() {
    Arguments arguments = {"prog", "--help"};
    CommandLine commandLine = withoutDefaults(arguments);
    commandLine.AddOption("help", '!', true, "Help", false, kNone);
    commandLine.AddOption("volume", 'v', true, "Start here", true, {"loudness", "gain"});
    commandLine.AddOption("mute", 'm', true, "Be mute", false, "silence");
    commandLine.AddOption("rate", 'r', false, "Frames", true, "ignored");
    commandLine.AddOption("quiet", 'q', false, "", false, kNone);
    commandLine.AddOption(nullptr, 'n', true, "Nothing", false, kNone);
    commandLine.Parse();
}

TEST(CommandLineDeathTest, HelpShowsOneLineForEachOptionWithItsAliasesAndValues) {
    EXPECT_EXIT(parseOptionsOfEveryKind(), testing::ExitedWithCode(0),
                testing::Eq("usage\n"
                            "-! or --help\n\t\t\tHelp\n"
                            "-v# or --volume=# or --loudness=# or --gain=#\n\t\t\tStart here\n"
                            "-m or --mute or --silence\n\t\t\tBe mute\n"
                            "-r#\n\t\t\tFrames\n"
                            "-q\n\t\t\t\n"));
}

Arguments* g_argumentsAtExit;

void parseAndShowWhatIsLeft() {
    Arguments arguments = {"prog", "--help", "-s", "--url=page.html"};
    g_argumentsAtExit = &arguments;
    std::atexit([] {
        std::fprintf(stderr, "left: '%s' '%s' '%s'\n", g_argumentsAtExit->now(1).c_str(),
                     g_argumentsAtExit->now(2).c_str(), g_argumentsAtExit->now(3).c_str());
    });
    CommandLine commandLine = withDefaults(arguments);
    commandLine.Parse();
}

TEST(CommandLineDeathTest, HelpEndsTheProcessOnlyWhenEverythingIsRead) {
    EXPECT_EXIT(parseAndShowWhatIsLeft(), testing::ExitedWithCode(0),
                testing::Eq(std::string("usage\n") + kDefaultHelp + "left: '' '' ''\n"));
}

}  // namespace

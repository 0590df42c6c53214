#include "base/utils/command_line.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/logging/blog.h"

namespace tevalon::base::utils {
namespace {

constexpr int kEndOfOptions = -1;
constexpr int kNotUnderstood = '?';

// What the C library's parser returns for an option without a letter: this, and the place of its
// long name in the table. A letter is less.
constexpr int kWithoutLetter = 256;

// Neither can be typed: the one ends the parser's list of letters, the other gives the letter
// before it a value.
bool isUsableLetter(char letter) {
    return letter != '\0' && letter != ':';
}

// What the erased option looked like on the command line, as far as this is known: once any
// long option but the first has been seen, every option counts as typed in its long form.
std::string tokenOf(char letter, const std::string& longName, int longIndex) {
    return longIndex < 1 ? std::string("-") + letter : "--" + longName;
}

void reportCleared(const std::string& token) {
    BLOG_AS("clear_option", kLogDebug, "clear  %s done\n", token.c_str());
}

// Empties the first argument that holds the token anywhere, so that a later parser of the same
// vector does not meet the option again. Searching for a part of the text, not for the whole,
// is what the programs have come to rely on.
void clear_option(int argc, char** argv, const std::string& token) {
    for (int i = 0; i < argc; ++i) {
        if (argv[i] == nullptr || std::strstr(argv[i], token.c_str()) == nullptr) continue;
        if (optarg != nullptr) optarg[0] = '\0';
        argv[i][0] = '\0';
        reportCleared(token);
        return;
    }
}

// Empties the option that was taken last, and its value. The parser stands right behind it, and has
// not moved it yet.
void clear_last_option(char** argv) {
    const bool isValueApart = optarg != nullptr && optarg == argv[optind - 1];
    if (optarg != nullptr) optarg[0] = '\0';
    argv[optind - (isValueApart ? 2 : 1)][0] = '\0';
}

}  // namespace

CommandLine::CommandLine(int argc, char** argv, const std::string& usageText,
                         const std::string& extraText, bool addDefaults)
    : m_argc(argc), m_argv(argv), m_usageText(usageText), m_extraText(extraText) {
    if (addDefaults) AddDefaultOptions();
}

CommandLine::CommandLine(const CommandLine&) = default;
CommandLine& CommandLine::operator=(const CommandLine&) = default;
CommandLine::~CommandLine() = default;

void CommandLine::AddOption(const char* longName, char shortName, bool hasLongName,
                            const std::string& description, bool hasArgument,
                            const std::vector<const char*>& aliases) {
    if (longName == nullptr) return;
    if (!isUsableLetter(shortName)) {
        if (hasLongName) AddOption(longName, description, hasArgument, aliases);
        return;
    }
    const auto taken = m_shortToLong.find(shortName);
    if (taken != m_shortToLong.end()) {
        BLOG(kLogError, "Command line argument -%c is already used for --%s\n", shortName,
             taken->second.c_str());
    }
    m_shortToLong[shortName] = longName;

    m_optString += shortName;
    if (hasArgument) m_optString += ':';

    if (hasLongName) addLongNames(longName, hasArgument, shortName, aliases);
    appendHelpLine(longName, shortName, hasLongName, description, hasArgument, aliases);
}

void CommandLine::AddOption(const char* longName, const std::string& description, bool hasArgument,
                            const std::vector<const char*>& aliases) {
    if (longName == nullptr) return;
    const int value = kWithoutLetter + static_cast<int>(m_longOptions.size());
    addLongNames(longName, hasArgument, value, aliases);
    appendHelpLine(longName, '\0', true, description, hasArgument, aliases);
}

void CommandLine::addLongNames(const char* longName, bool hasArgument, int value,
                               const std::vector<const char*>& aliases) {
    m_longOptions.push_back({longName, hasArgument, nullptr, value});
    for (const char* alias : aliases) {
        // A null name would end the parser's table here.
        if (alias == nullptr) continue;
        m_longOptions.push_back({alias, hasArgument, nullptr, value});
    }
}

void CommandLine::AddOption(const char* longName, char shortName, bool hasLongName,
                            const std::string& description, bool hasArgument, const char* alias) {
    std::vector<const char*> aliases;
    if (alias != nullptr) aliases.push_back(alias);
    AddOption(longName, shortName, hasLongName, description, hasArgument, aliases);
}

void CommandLine::AddDefaultOptions() {
    const auto add = [this](const char* longName, char shortName, bool hasArgument,
                            const char* description) {
        AddOption(longName, shortName, true, description, hasArgument, nullptr);
    };
    add("help", 'h', false, "Prints this message");
    add("url", 'u', true, "Specify the URL");
    add("sw", 's', false, "Use software backend");
    add("hw-dfb", 'd', false, "Use DirectFB backend");
    add("hw-gles", 'g', false, "Use OpenGL ES 2.0 backend");
    add("quit-on-render-crash", '%', false, "Quit integration on renderer crash");
    add("disable-input", '#', false,
        "Disable input passing of keyboard and mouse input to browser. Useful to avoid "
        "accidental breakage of test runs with input meant for the neighbouring device.");
}

void CommandLine::Parse() {
    Parse(nullptr);
}

void CommandLine::Parse(std::vector<std::string>* p_notUnderstood) {
    if (m_parsed) return;
    m_longOptions.push_back({nullptr, 0, nullptr, 0});
    opterr = 0;
    // Zero, not one: the C library then forgets the place of whoever parsed before.
    optind = 0;
    int longIndex = 0;  // Written by the parser for a long option only, and never reset.
    while (m_argv != nullptr) {
        const int letter =
            getopt_long(m_argc, m_argv, m_optString.c_str(), m_longOptions.data(), &longIndex);
        if (letter == kEndOfOptions) break;
        if (letter == kNotUnderstood && p_notUnderstood != nullptr) {
            keepNotUnderstood(p_notUnderstood);
        }
        if (letter != 0) takeOption(letter, longIndex);
    }
    finishParsing();
}

void CommandLine::takeOption(int value, int longIndex) {
    const bool hasLetter = value < kWithoutLetter;
    const auto letter = static_cast<char>(value);
    std::string longName;
    if (!hasLetter) {
        longName = m_longOptions[static_cast<std::size_t>(value - kWithoutLetter)].name;
    } else if (const auto declared = m_shortToLong.find(letter); declared != m_shortToLong.end()) {
        longName = declared->second;
    } else {
        return;
    }
    m_values[longName] = optarg != nullptr ? optarg : "";
    if (hasLetter) {
        clear_option(m_argc, m_argv, tokenOf(letter, longName, longIndex));
    } else {
        clear_last_option(m_argv);
        reportCleared("--" + longName);
    }
}

// The parser leaves in optopt: an unknown letter; nothing for an unknown long option; and for an
// option whose value is missing, or which takes none, what it would have returned for it. The
// parser stands behind that one's argument, which letters in front of it may have emptied.
void CommandLine::keepNotUnderstood(std::vector<std::string>* p_notUnderstood) const {
    const char* const typed = m_argv[optind - 1];
    const auto letter = static_cast<char>(optopt);
    const bool isDeclared = optopt >= kWithoutLetter || m_shortToLong.count(letter) != 0;
    if (optopt != 0 && !(isDeclared && std::strncmp(typed, "--", 2) == 0)) {
        p_notUnderstood->push_back(std::string("-") + letter);
    } else {
        p_notUnderstood->push_back(typed);
    }
}

void CommandLine::finishParsing() {
    m_parsed = true;
    if (!HasOption("help")) return;
    std::fprintf(stderr, "%s%s", m_usageText.c_str(), m_helpText.c_str());
    std::exit(0);
}

bool CommandLine::HasOption(const std::string& longName) const {
    return m_values.count(longName) != 0;
}

std::string CommandLine::GetOptionValue(const std::string& longName) const {
    const auto value = m_values.find(longName);
    return value != m_values.end() ? value->second : std::string();
}

void CommandLine::appendHelpLine(const char* longName, char shortName, bool hasLongName,
                                 const std::string& description, bool hasArgument,
                                 const std::vector<const char*>& aliases) {
    const bool hasLetter = shortName != '\0';
    const auto append = [this, hasArgument](const char* before, const char* name,
                                            const char* placeholder) {
        m_helpText.append(before).append(name).append(hasArgument ? placeholder : "");
    };
    const char letter[] = {shortName, '\0'};
    if (hasLetter) append("-", letter, "#");
    if (hasLongName) {
        append(hasLetter ? " or --" : "--", longName, "=#");
        for (const char* alias : aliases) {
            if (alias != nullptr) append(" or --", alias, "=#");
        }
    }
    m_helpText.append("\n\t\t\t").append(description).append("\n");
}

}  // namespace tevalon::base::utils

// The command line: random declarations and vectors. The C library's parser is asked beside, and
// what follows each of its answers is done step by step: values, erasures and what was not
// understood.

#include "base/utils/command_line.h"

#include <getopt.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/expect.h"
#include "support/input.h"
#include "support/log_text.h"

namespace {

using tevalon::base::utils::CommandLine;

struct Declaration {
    std::string longName;
    char letter = '\0';
    bool hasLetter = false;  // By the function with one, though it may be none that can be typed.
    bool hasLongName = true;
    bool hasArgument = false;
    bool hasNullAlias = false;
    std::vector<std::string> aliases;
};

/// An argument vector of the very size, with a null behind it.
class Vector {
public:
    explicit Vector(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            m_texts.emplace_back(text.begin(), text.end());
            m_texts.back().push_back('\0');
            m_arguments.push_back(m_texts.back().data());
        }
        m_arguments.push_back(nullptr);
    }

    int count() const { return static_cast<int>(m_arguments.size()) - 1; }
    char** get() { return m_arguments.data(); }

    /// As they stand there now; those that were emptied are empty.
    std::vector<std::string> texts() const {
        return std::vector<std::string>(m_arguments.begin(), m_arguments.end() - 1);
    }

private:
    std::list<std::vector<char>> m_texts;
    std::vector<char*> m_arguments;
};

class Model {
public:
    void declare(const Declaration& declaration) {
        const bool isUsable =
            declaration.hasLetter && declaration.letter != '\0' && declaration.letter != ':';
        if (declaration.hasLetter && !isUsable && !declaration.hasLongName) return;
        const int value = isUsable ? declaration.letter : kFirstWithoutLetter + m_count++;
        if (isUsable) {
            m_letters += declaration.letter;
            if (declaration.hasArgument) m_letters += ':';
        }
        m_names[value] = declaration.longName;
        if (!isUsable || declaration.hasLongName) {
            addLong(declaration.longName, declaration.hasArgument, value);
            for (const std::string& alias : declaration.aliases) {
                addLong(alias, declaration.hasArgument, value);
            }
        }
    }

    void parse(Vector* p_vector) {
        std::vector<option> table;
        for (const Long& name : m_longs) {
            table.push_back({name.text.c_str(), name.hasArgument ? 1 : 0, nullptr, name.value});
        }
        table.push_back({nullptr, 0, nullptr, 0});
        opterr = 0;
        optind = 0;
        int index = 0;
        for (;;) {
            const int answer = getopt_long(p_vector->count(), p_vector->get(), m_letters.c_str(),
                                           table.data(), &index);
            if (answer == -1) return;
            if (answer == '?') noteNotUnderstood(p_vector->get());
            if (answer == 0 || m_names.count(answer) == 0) continue;
            const std::string name = m_names[answer];
            m_values[name] = optarg != nullptr ? optarg : "";
            if (answer >= kFirstWithoutLetter) {
                eraseLast(p_vector->get());
            } else {
                erase(index < 1 ? std::string("-") + static_cast<char>(answer) : "--" + name,
                      p_vector);
            }
        }
    }

    const std::map<std::string, std::string>& values() const { return m_values; }
    const std::vector<std::string>& notUnderstood() const { return m_notUnderstood; }

    /// The parser's answer to both that option and what is not understood.
    bool hasQuestionMark() const { return m_names.count('?') != 0; }

private:
    struct Long {
        std::string text;
        bool hasArgument;
        int value;
    };

    static constexpr int kFirstWithoutLetter = 1000;

    void addLong(const std::string& text, bool hasArgument, int value) {
        m_longs.push_back({text, hasArgument, value});
    }

    // Emptied is the first that holds the token anywhere.
    static void erase(const std::string& token, Vector* p_vector) {
        const std::vector<std::string> texts = p_vector->texts();
        for (std::size_t i = 0; i < texts.size(); ++i) {
            if (texts[i].find(token) == std::string::npos) continue;
            if (optarg != nullptr) *optarg = '\0';
            *p_vector->get()[i] = '\0';
            return;
        }
    }

    // Emptied are the argument itself, and its value: the next argument, unless behind a '='.
    static void eraseLast(char** p_arguments) {
        const bool isApart = optarg != nullptr && optarg == p_arguments[optind - 1];
        if (optarg != nullptr) *optarg = '\0';
        *p_arguments[optind - (isApart ? 2 : 1)] = '\0';
    }

    // An unknown letter, and one that lacks its value; a long option as it was typed. Within a word
    // of several letters the parser still stands before the word; there it stops only at letters
    // that are unknown.
    void noteNotUnderstood(char** p_arguments) {
        const bool isUnknownLetter = optopt != 0 && m_names.count(optopt) == 0;
        const std::string typed = p_arguments[optind - 1];
        const bool isShownTyped =
            !isUnknownLetter && (optopt == 0 || typed.compare(0, 2, "--") == 0);
        m_notUnderstood.push_back(isShownTyped ? typed
                                               : std::string("-") + static_cast<char>(optopt));
    }

    std::string m_letters;
    std::vector<Long> m_longs;
    int m_count = 0;
    std::map<int, std::string> m_names;
    std::map<std::string, std::string> m_values;
    std::vector<std::string> m_notUnderstood;
};

std::string nameOf(fuzz::Input* p_input) {
    constexpr const char* kNames[] = {"url", "sw", "hw-dfb", "hw-gles",
                                      "a",   "ab", "abc",    "no-input"};
    const std::size_t choice = p_input->below(std::size(kNames) + 2);
    return choice < std::size(kNames) ? kNames[choice] : p_input->textWithoutZero(6);
}

// Not -W followed by a semicolon, nor at the front what changes how operands are taken: programs
// that declare these get what they ask the C library's parser for.
char letterOf(fuzz::Input* p_input) {
    constexpr const char kLetters[] = {'u', 's', 'd', 'g', 'a', 'b', '%', '#', '?', ':', '\0'};
    const std::size_t choice = p_input->below(std::size(kLetters) + 3);
    const char letter =
        choice < std::size(kLetters) ? kLetters[choice] : static_cast<char>(p_input->byte());
    const bool isSpecial = letter == ';' || letter == '-' || letter == '+' || letter < '\0';
    return isSpecial ? 'x' : letter;
}

Declaration declarationOf(fuzz::Input* p_input) {
    Declaration declaration;
    declaration.longName = nameOf(p_input);
    const std::uint8_t kind = p_input->byte();
    declaration.hasLetter = (kind & 1U) == 0;
    declaration.hasArgument = (kind & 2U) != 0;
    declaration.hasNullAlias = (kind & 4U) != 0;
    if (declaration.hasLetter) {
        declaration.hasLongName = (kind & 8U) == 0;
        declaration.letter = letterOf(p_input);
    }
    for (unsigned i = kind >> 6; i > 1; --i) declaration.aliases.push_back(nameOf(p_input));
    return declaration;
}

std::string argumentOf(fuzz::Input* p_input) {
    switch (p_input->below(8)) {
        case 0:
            return "--" + nameOf(p_input);
        case 1: {
            const std::string name = nameOf(p_input);
            return "--" + name + "=" + p_input->textWithoutZero(6);
        }
        case 2: {
            const std::string name = nameOf(p_input);
            return "--" + name.substr(0, p_input->below(name.size() + 1));
        }
        case 3:
            return "-" + std::string(1, letterOf(p_input));
        case 4:
            return "-" + std::string(1, letterOf(p_input)) + letterOf(p_input) + letterOf(p_input);
        case 5:
            return p_input->flag() ? "--" : "-";
        case 6:
            return "prog-u--url";
        default:
            return p_input->textWithoutZero(10);
    }
}

void declare(CommandLine* p_line, const Declaration& declaration) {
    std::vector<const char*> aliases;
    if (declaration.hasNullAlias) aliases.push_back(nullptr);
    for (const std::string& alias : declaration.aliases) aliases.push_back(alias.c_str());
    const char* const p_name = declaration.longName.c_str();
    if (!declaration.hasLetter) {
        p_line->AddOption(p_name, "described", declaration.hasArgument, aliases);
    } else if (aliases.size() < 2) {
        p_line->AddOption(p_name, declaration.letter, declaration.hasLongName, "described",
                          declaration.hasArgument, aliases.empty() ? nullptr : aliases[0]);
    } else {
        p_line->AddOption(p_name, declaration.letter, declaration.hasLongName, "described",
                          declaration.hasArgument, aliases);
    }
}

void compareValues(const CommandLine& line, const Model& model,
                   const std::vector<Declaration>& declarations) {
    for (const Declaration& declaration : declarations) {
        const auto value = model.values().find(declaration.longName);
        const bool isGiven = value != model.values().end();
        fuzz::expectEqual(line.HasOption(declaration.longName), isGiven, "whether it was given");
        fuzz::expectEqual(line.GetOptionValue(declaration.longName),
                          isGiven ? value->second : std::string(), "a value");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    const fuzz::LogText log;
    std::vector<Declaration> declarations;
    for (std::size_t i = input.below(8); i > 0; --i) declarations.push_back(declarationOf(&input));
    std::vector<std::string> arguments;
    while (!input.isAtEnd() && arguments.size() < 16) arguments.push_back(argumentOf(&input));

    Model model;
    Vector modelVector(arguments);
    for (const Declaration& declaration : declarations) model.declare(declaration);
    model.parse(&modelVector);
    if (model.values().count("help") != 0) return 0;  // Prints the help and ends the process.

    Vector vector(arguments);
    CommandLine line(vector.count(), vector.get(), "usage\n", "extra", false);
    for (const Declaration& declaration : declarations) declare(&line, declaration);
    std::vector<std::string> notUnderstood;
    line.Parse(&notUnderstood);

    compareValues(line, model, declarations);
    fuzz::expectEqual(vector.texts(), modelVector.texts(), "the arguments");
    if (model.hasQuestionMark()) return 0;
    fuzz::expectEqual(notUnderstood, model.notUnderstood(), "what was not understood");
    line.Parse(&notUnderstood);
    fuzz::expectEqual(vector.texts(), modelVector.texts(), "the arguments after another Parse()");
    fuzz::expectEqual(notUnderstood, model.notUnderstood(), "what another Parse() adds");
    return 0;
}

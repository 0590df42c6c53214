// A line of the example's sessions: what is understood of it, and that all else is refused.

#include "session_parser.h"

#include <cstdint>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "remote_control.h"
#include "support/expect.h"
#include "support/input.h"

namespace {

using namespace tv_browser;

template <typename... Parts>
std::string line(const Parts&... parts) {
    std::ostringstream out;
    ((out << parts << '|'), ...);
    return out.str();
}

/// What a command says, each of its members between bars.
struct Shown {
    std::string operator()(const command::Tune& c) const { return line("tune", c.channel); }
    std::string operator()(const command::Key& c) const { return line("key", c.name); }
    std::string operator()(const command::Launch& c) const {
        return line("launch", c.app, c.page.shown + c.page.path);
    }
    std::string operator()(const command::Show& c) const { return line("show", c.app); }
    std::string operator()(const command::Hide& c) const { return line("hide", c.app); }
    std::string operator()(const command::Stop& c) const { return line("stop", c.app); }
    std::string operator()(const command::Slow& c) const {
        return line("slow", nameOf(c.module), c.delay.count());
    }
    std::string operator()(const command::Call& c) const {
        return line("call", nameOf(c.module), nameOf(c.other));
    }
    std::string operator()(const command::Misdial& c) const {
        return line("misdial", nameOf(c.module));
    }
    std::string operator()(const command::Remind& c) const {
        return line("remind", nameOf(c.module), c.delay.count());
    }
    std::string operator()(const command::Silence& c) const {
        return line("silence", nameOf(c.module));
    }
    std::string operator()(const command::Hoard& c) const {
        return line("hoard", nameOf(c.module));
    }
    std::string operator()(const command::Say& c) const { return line("say", c.text); }
    std::string operator()(const command::Wait& c) const {
        return line("wait", c.duration.count());
    }
    std::string operator()(const command::Memory&) const { return line("memory"); }
    std::string operator()(const command::State&) const { return line("state"); }
    std::string operator()(const command::Quit&) const { return line("quit"); }
};

// Of an argument what is kept of it, or nothing where it is refused.
std::optional<std::string> understood(char kind, const std::string& word) {
    const auto numberUpTo = [&word](long least, long most) -> std::optional<std::string> {
        if (word.empty() ||
            word.find_first_not_of("0123456789", word[0] == '-' ? 1 : 0) != std::string::npos) {
            return std::nullopt;
        }
        const long double value = std::strtold(word.c_str(), nullptr);
        if (word == "-" || value < static_cast<long double>(least) ||
            value > static_cast<long double>(most)) {
            return std::nullopt;
        }
        return std::to_string(static_cast<long>(value));
    };
    switch (kind) {
        case 'c':
            return numberUpTo(1, 999);
        case 't':
            return numberUpTo(0, 60000);
        case 'm':
            return moduleNamed(word) ? std::optional<std::string>(nameOf(*moduleNamed(word)))
                                     : std::nullopt;
        case 'k':
            return isKey(word) ? std::optional<std::string>(word) : std::nullopt;
        case 'a': {
            constexpr const char* kAllowed =
                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
            const bool isGood =
                word.size() <= 32 && word.find_first_not_of(kAllowed) == std::string::npos;
            return isGood ? std::optional<std::string>(word) : std::nullopt;
        }
        default:
            return word;
    }
}

struct Expected {
    bool isRefused = false;
    std::string shown;  // Nothing for a line that orders nothing.
};

Expected model(std::string typed) {
    // A letter for each argument: channel, time, module, key, application, any word, the rest.
    static const std::map<std::string, std::string> kForms = {
        {"tune", "c"},    {"key", "k"},   {"launch", "ap"}, {"show", "a"},    {"hide", "a"},
        {"stop", "a"},    {"slow", "mt"}, {"call", "mm"},   {"misdial", "m"}, {"remind", "mt"},
        {"silence", "m"}, {"hoard", "m"}, {"say", "r"},     {"wait", "t"},    {"memory", ""},
        {"state", ""},    {"quit", ""}};
    if (!typed.empty() && typed.back() == '\r') typed.pop_back();
    for (const char c : typed) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < ' ' && c != '\t') || byte == 0x7F) return {true, ""};
    }
    std::vector<std::string> words;
    std::istringstream in(typed);
    for (std::string word; in >> word && word[0] != '#';) words.push_back(word);
    if (words.empty()) return {};
    const auto form = kForms.find(words[0]);
    if (form == kForms.end()) return {true, ""};
    const std::string& kinds = form->second;
    if (kinds == "r" && words.size() > 2) {
        for (std::size_t i = 2; i < words.size(); ++i) words[1] += " " + words[i];
        words.resize(2);
    }
    if (words.size() != kinds.size() + 1) return {true, ""};
    Expected expected = {false, words[0] + "|"};
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        const std::optional<std::string> argument = understood(kinds[i], words[i + 1]);
        if (!argument) return {true, ""};
        expected.shown += *argument + "|";
    }
    return expected;
}

std::string lineOf(fuzz::Input* p_input) {
    constexpr const char* kWords[] = {"tune", "key",  "launch",  "show",   "hide",    "stop",
                                      "slow", "call", "misdial", "remind", "silence", "hoard",
                                      "say",  "wait", "memory",  "state",  "quit",    " ",
                                      "\t",   "#",    "60000",   "999",    "1000",    "60001",
                                      "-1",   "00",   "\r",      "red",    "+1"};
    std::string text;
    while (!p_input->isAtEnd()) {
        const std::uint8_t choice = p_input->byte();
        if (choice < 0x80) {
            text += static_cast<char>(choice);
        } else if (choice < 0xC0) {
            text += std::string(kWords[choice % std::size(kWords)]) + ' ';
        } else if (choice < 0xF0) {
            constexpr ModuleId kModules[] = {ModuleId::ApplicationManager,
                                             ModuleId::HbbtvController, ModuleId::BrowserEngine,
                                             ModuleId::OpAppHost, ModuleId::Session};
            text += std::string(nameOf(kModules[choice % std::size(kModules)])) + ' ';
        } else {
            text += static_cast<char>(p_input->byte());
        }
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    const std::string typed = lineOf(&input);
    const ParsedLine parsed = parseLine(typed);
    const Expected expected = model(typed);
    fuzz::expectEqual(!parsed.error.empty(), expected.isRefused, "whether the line is refused");
    const std::string shown = parsed.command ? std::visit(Shown{}, *parsed.command) : "";
    fuzz::expectEqual(shown, expected.shown, "the command");
    return 0;
}

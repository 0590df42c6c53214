#include "session_parser.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "session_arguments.h"

namespace tv_browser {
namespace {

using Words = std::vector<std::string>;

struct Form {
    const char* name;
    Words arguments;  // As the usage shows them.
    Command (*make)(SessionArguments& arguments);
};

// A last argument of this name takes the rest of the line.
constexpr const char* kRestOfLine = "TEXT...";

Command makeTune(SessionArguments& a) {
    return command::Tune{a.channel()};
}
Command makeKey(SessionArguments& a) {
    return command::Key{a.key()};
}
Command makeLaunch(SessionArguments& a) {
    std::string app = a.app();
    return command::Launch{std::move(app), {a.text(), ""}};
}
Command makeShow(SessionArguments& a) {
    return command::Show{a.app()};
}
Command makeHide(SessionArguments& a) {
    return command::Hide{a.app()};
}
Command makeStop(SessionArguments& a) {
    return command::Stop{a.app()};
}
Command makeSlow(SessionArguments& a) {
    const ModuleId module = a.module();
    return command::Slow{module, a.milliseconds()};
}
Command makeCall(SessionArguments& a) {
    const ModuleId module = a.module();
    return command::Call{module, a.module()};
}
Command makeMisdial(SessionArguments& a) {
    return command::Misdial{a.module()};
}
Command makeRemind(SessionArguments& a) {
    const ModuleId module = a.module();
    return command::Remind{module, a.milliseconds()};
}
Command makeSilence(SessionArguments& a) {
    return command::Silence{a.module()};
}
Command makeHoard(SessionArguments& a) {
    return command::Hoard{a.module()};
}
Command makeSay(SessionArguments& a) {
    return command::Say{a.text()};
}
Command makeWait(SessionArguments& a) {
    return command::Wait{a.milliseconds()};
}
Command makeMemory(SessionArguments&) {
    return command::Memory{};
}
Command makeState(SessionArguments&) {
    return command::State{};
}
Command makeQuit(SessionArguments&) {
    return command::Quit{};
}

const std::vector<Form>& forms() {
    static const std::vector<Form> kForms = {
        {"tune", {"CHANNEL"}, makeTune},
        {"key", {"KEY"}, makeKey},
        {"launch", {"APP", "PAGE"}, makeLaunch},
        {"show", {"APP"}, makeShow},
        {"hide", {"APP"}, makeHide},
        {"stop", {"APP"}, makeStop},
        {"slow", {"MODULE", "MS"}, makeSlow},
        {"call", {"MODULE", "OTHER"}, makeCall},
        {"misdial", {"MODULE"}, makeMisdial},
        {"remind", {"MODULE", "MS"}, makeRemind},
        {"silence", {"MODULE"}, makeSilence},
        {"hoard", {"MODULE"}, makeHoard},
        {"say", {kRestOfLine}, makeSay},
        {"wait", {"MS"}, makeWait},
        {"memory", {}, makeMemory},
        {"state", {}, makeState},
        {"quit", {}, makeQuit},
    };
    return kForms;
}

const Form* formNamed(const std::string& name) {
    for (const Form& form : forms()) {
        if (name == form.name) return &form;
    }
    return nullptr;
}

std::string usageOf(const Form& form) {
    std::string usage = form.name;
    for (const std::string& argument : form.arguments) usage += " " + argument;
    return usage;
}

bool takesRestOfLine(const Form& form) {
    return !form.arguments.empty() && form.arguments.back() == kRestOfLine;
}

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && !isBlank(c)) || byte == 0x7f;
}

// What an editor of another system has left at the end of the line.
std::string withoutCarriageReturn(std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

Words wordsOf(const std::string& line) {
    Words words;
    for (auto at = line.begin(); at != line.end();) {
        const auto begin = std::find_if_not(at, line.end(), isBlank);
        at = std::find_if(begin, line.end(), isBlank);
        if (begin == line.end() || *begin == '#') break;
        words.emplace_back(begin, at);
    }
    return words;
}

// Makes one word of all from the first on.
void joinFrom(std::size_t first, Words* p_words) {
    if (p_words->size() <= first + 1) return;
    for (std::size_t i = first + 1; i < p_words->size(); ++i) {
        (*p_words)[first] += " " + (*p_words)[i];
    }
    p_words->resize(first + 1);
}

ParsedLine refused(std::string why) {
    return {std::nullopt, std::move(why)};
}

ParsedLine make(const Form& form, Words words) {
    const std::size_t wanted = 1 + form.arguments.size();
    if (takesRestOfLine(form)) joinFrom(wanted - 1, &words);
    if (words.size() < wanted) {
        return refused("'" + usageOf(form) + "' lacks " + form.arguments[words.size() - 1]);
    }
    if (words.size() > wanted) {
        return refused("'" + usageOf(form) + "' ends before '" + words[wanted] + "'");
    }
    SessionArguments arguments(words);
    Command command = form.make(arguments);
    if (!arguments.error().empty()) return refused(arguments.error());
    return {std::move(command), ""};
}

}  // namespace

ParsedLine parseLine(const std::string& typed) {
    const std::string line = withoutCarriageReturn(typed);
    if (std::any_of(line.begin(), line.end(), isControl)) {
        return refused("the line holds a control character");
    }
    Words words = wordsOf(line);
    if (words.empty()) return {};
    const Form* p_form = formNamed(words.front());
    if (p_form == nullptr) return refused("unknown command '" + words.front() + "'");
    return make(*p_form, std::move(words));
}

std::string knownCommands() {
    std::string usages;
    for (const Form& form : forms()) {
        if (!usages.empty()) usages += ", ";
        usages += usageOf(form);
    }
    return usages;
}

}  // namespace tv_browser

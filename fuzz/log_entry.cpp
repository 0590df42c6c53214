// The entry points of the log and memory dumps: each piece that they write, at each level.

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "base/logging.h"
#include "support/expect.h"
#include "support/input.h"
#include "support/log_text.h"

namespace {

using Pieces = std::vector<std::string>;

constexpr std::array<unsigned, 5> kLevels = {1, 1000, 3000, 4000, 5000};

unsigned g_highestOn = 0;

void setLevel(unsigned level) {
    g_highestOn = level;
    // The others' levels change nothing.
    const std::string setting = "debug,0x5f=" + std::to_string(level);
    fuzz::expectEqual(zorDebugSetLevels(setting.c_str()), 0, "the setting of a level");
}

/// A text of the C library's, or none.
struct Text {
    explicit Text(fuzz::Input* p_input) {
        if (p_input->below(8) != 0) text = p_input->textWithoutZero(40);
    }

    const char* get() const { return text ? text->c_str() : nullptr; }
    std::string orEmpty() const { return text.value_or(""); }

    std::optional<std::string> text;
};

std::string baseNameModel(const std::string& path) {
    std::string name;
    for (const char c : path) {
        if (c == '/') {
            name.clear();
        } else {
            name += c;
        }
    }
    return name;
}

Pieces lineOf(const std::string& head, const std::string& message) {
    return {head, message, "\n"};
}

void print(fuzz::Input* p_input, fuzz::LogText* p_log) {
    const int index = static_cast<int>(p_input->below(7)) - 1;
    const Text tag(p_input);
    const Text file(p_input);
    const Text function(p_input);
    const int line = p_input->number<int>();
    const std::string message = p_input->textWithoutZero(60);
    const auto print = p_input->flag() ? print_browser_log : print_hbbtv_controller_log;

    Pieces expected = lineOf("[" + tag.orEmpty() + "]" + baseNameModel(file.orEmpty()) + ":" +
                                 std::to_string(line) + ":" + function.orEmpty() + ":",
                             "");
    switch (p_input->below(5)) {
        case 0:
            print(index, tag.get(), file.get(), line, function.get(), nullptr);
            expected.clear();
            break;
        case 1:
            print(index, tag.get(), file.get(), line, function.get(), "%s", message.c_str());
            expected[1] = message;
            break;
        case 2:
            print(index, tag.get(), file.get(), line, function.get(), "x=%d %s%%", line,
                  message.c_str());
            expected[1] = "x=" + std::to_string(line) + " " + message + "%";
            break;
        case 3:
            print(index, tag.get(), file.get(), line, function.get(), "%c%lu|%s", 'c',
                  static_cast<unsigned long>(message.size()), message.c_str());
            expected[1] = "c" + std::to_string(message.size()) + "|" + message;
            break;
        default:
            print(index, tag.get(), file.get(), line, function.get(), "nothing to fill in");
            expected[1] = "nothing to fill in";
    }
    const bool isOn =
        index >= 0 && index <= 4 && kLevels[static_cast<std::size_t>(index)] <= g_highestOn;
    if (!isOn) expected.clear();
    fuzz::expectEqual(p_log->take(), expected, "the pieces of a line");
}

// Whatever number the dump has.
std::string dumpNumber(const Pieces& pieces) {
    constexpr std::size_t kFront = sizeof("DUMPMEM(") - 1;
    fuzz::expect(pieces.size() > 1 && pieces[1].size() > kFront + 8, "the title of a dump");
    return pieces[1].substr(kFront, 8);
}

void dump(fuzz::Input* p_input, fuzz::LogText* p_log) {
    const Text title(p_input);
    const std::string text = p_input->text(100);
    // Of the very size, so that a byte too far is noticed.
    const std::vector<unsigned char> data(text.begin(), text.end());
    const bool isNull = p_input->below(16) == 0;
    const int length =
        p_input->below(16) == 0 ? -static_cast<int>(data.size()) : static_cast<int>(data.size());
    dump_memory(title.get(), isNull ? nullptr : data.data(), length);

    const Pieces pieces = p_log->take();
    Pieces expected;
    if (g_highestOn >= 5000) {
        const std::string head = "DUMPMEM(" + dumpNumber(pieces) + "d):, ";
        fuzz::expect(dumpNumber(pieces) <= "3B9AC9FF", "a number of nanoseconds");
        expected = lineOf("[]:0::", head + title.text.value_or("(null)"));
        for (std::size_t i = 0; !isNull && length > 0 && i < data.size(); ++i) {
            if (i % 16 == 0) {
                const Pieces line = lineOf("[]:0::", head);
                expected.insert(expected.end(), line.begin(), line.end());
            }
            char digits[8];
            (void)std::snprintf(digits, sizeof(digits), "%02X ", static_cast<unsigned>(data[i]));
            expected[expected.size() - 2] += digits;
        }
    }
    fuzz::expectEqual(pieces, expected, "the pieces of a dump");
}

void locate(fuzz::Input* p_input) {
    const Text file(p_input);
    const Text function(p_input);
    const int line = p_input->number<int>();
    std::string expected;
    if (file.get() != nullptr) {
        expected = *file.text + ":" + std::to_string(line) + ":";
        if (function.get() != nullptr) expected += *function.text + "():";
    }
    fuzz::expectEqual(dbg_location(file.get(), line, function.get()), expected, "a location");
    const std::string path = file.orEmpty();
    const char* const p_name = blog_base_name(path.c_str());
    fuzz::expectEqual(std::string(p_name), baseNameModel(path), "a base name");
    fuzz::expect(p_name >= path.c_str() && p_name <= path.c_str() + path.size(),
                 "where a base name points to");
}

void trace(fuzz::Input* p_input, fuzz::LogText* p_log) {
    const std::string function = p_input->textWithoutZero(40);
    const std::string file = p_input->textWithoutZero(40);
    const int line = p_input->number<int>();
    const unsigned before = g_highestOn;
    const unsigned after = p_input->flag() ? 5000U : 4999U;
    {
        const tevalon::base::FunctionTracer tracer(function.c_str(), file.c_str(), line);
        setLevel(after);
    }
    const std::string place = "] :" + file + ":" + std::to_string(line) + " \n";
    Pieces expected;
    if (before >= 5000) expected.push_back("TRACE -> [" + function + "(IN)" + place);
    if (after >= 5000) expected.push_back("TRACE <- [" + function + "(OUT)" + place);
    fuzz::expectEqual(p_log->take(), expected, "the lines of a tracer");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    fuzz::LogText log;
    setLevel(5000);
    while (!input.isAtEnd()) {
        switch (input.below(5)) {
            case 0:
                setLevel(kLevels[input.below(kLevels.size())] + (input.flag() ? 1U : 0U) - 1U);
                break;
            case 1:
                dump(&input, &log);
                break;
            case 2:
                locate(&input);
                break;
            case 3:
                trace(&input, &log);
                break;
            default:
                print(&input, &log);
        }
    }
    return 0;
}

// The settings of the substitute debug library: what is understood of a text, and what is on then.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/expect.h"
#include "support/input.h"
#include "zor_debug/zor_debug_control.h"

namespace {

struct Range {
    unsigned lowest = 1;
    unsigned highest = 1000;
};

struct Levels {
    Range common;
    std::map<unsigned, Range> modules;
};

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

// Without the blanks around them.
std::vector<std::string> itemsOf(const std::string& text) {
    std::vector<std::string> items(1);
    for (const char c : text) {
        if (c == ',') {
            items.emplace_back();
        } else {
            items.back() += c;
        }
    }
    for (std::string& item : items) {
        while (!item.empty() && std::string(" \t\r\n").find(item.back()) != std::string::npos) {
            item.pop_back();
        }
        item.erase(0, std::min(item.find_first_not_of(" \t\r\n"), item.size()));
    }
    return items;
}

std::optional<unsigned> numberIn(const std::string& text) {
    const bool isHexadecimal = lower(text).rfind("0x", 0) == 0;
    const std::string digits = isHexadecimal ? text.substr(2) : text;
    const std::string known = isHexadecimal ? "0123456789abcdef" : "0123456789";
    if (digits.empty()) return std::nullopt;
    unsigned value = 0;
    for (const char c : lower(digits)) {
        const std::size_t digit = known.find(c);
        if (digit == std::string::npos) return std::nullopt;
        value = value * static_cast<unsigned>(known.size()) + static_cast<unsigned>(digit);
        if (value > 65535) return std::nullopt;
    }
    return value;
}

std::optional<Range> levelIn(const std::string& text) {
    static const std::map<std::string, Range> kNames = {
        {"off", {1, 0}},     {"errors-only", {1000, 1000}}, {"error", {1, 1000}},
        {"warn", {1, 3000}}, {"warning", {1, 3000}},        {"info", {1, 4000}},
        {"debug", {1, 5000}}};
    const auto named = kNames.find(lower(text));
    if (named != kNames.end()) return named->second;
    const std::optional<unsigned> number = numberIn(text);
    if (!number) return std::nullopt;
    return Range{1, *number};
}

std::optional<Levels> levelsIn(const std::string& text) {
    Levels levels;
    if (text.empty()) return levels;
    for (const std::string& item : itemsOf(text)) {
        const std::size_t equals = item.find('=');
        const bool isForAll = equals == std::string::npos;
        const std::optional<Range> range = levelIn(isForAll ? item : item.substr(equals + 1));
        if (!range) return std::nullopt;
        if (isForAll) {
            levels.common = *range;
            continue;
        }
        const std::optional<unsigned> module = numberIn(item.substr(0, equals));
        if (!module) return std::nullopt;
        levels.modules[*module] = *range;
        if (levels.modules.size() > 64) return std::nullopt;
    }
    return levels;
}

bool isPrefix(const std::string& text) {
    if (text.empty()) return true;
    for (const std::string& item : itemsOf(text)) {
        const std::string piece = lower(item);
        if (piece != "wall" && piece != "time" && piece != "level" && piece != "module" &&
            piece != "thread") {
            return false;
        }
    }
    return true;
}

bool isLimit(const std::string& typed) {
    if (typed.empty()) return true;
    // The comma is no separator here.
    std::string text = typed;
    while (!text.empty() && std::string(" \t\r\n").find(text.back()) != std::string::npos) {
        text.pop_back();
    }
    text.erase(0, std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    unsigned __int128 unit = 1;
    const std::size_t suffix =
        text.empty() ? std::string::npos : std::string("KMG").find(text.back());
    if (suffix != std::string::npos) {
        unit <<= 10 * (suffix + 1);
        text.pop_back();
    }
    unsigned __int128 value = 0;
    if (text.empty()) return false;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
        if (value * unit > UINT64_MAX) return false;
    }
    return value > 0;
}

void compareLevels(const Levels& levels, unsigned module, unsigned level) {
    const auto own = levels.modules.find(module);
    const Range& range = own != levels.modules.end() ? own->second : levels.common;
    fuzz::expectEqual(unsigned{zorDebugGetLevel(static_cast<std::uint16_t>(module))}, range.highest,
                      "the highest level of a module");
    DebugLevelRecord record = {static_cast<std::uint16_t>(level),
                               static_cast<std::uint16_t>(module), 0, 0};
    fuzz::expectEqual(zorDebugCheckLevelGetFrameAndChunk(&record) != 0,
                      level >= range.lowest && level <= range.highest, "whether a level is on");
}

void compareAll(fuzz::Input* p_input, const Levels& levels) {
    for (const auto& [module, range] : levels.modules) {
        for (const unsigned level : {range.lowest, range.highest, range.highest + 1, 1U, 1000U}) {
            // Modules that share their last byte share the quick answer.
            if (level < 1 || level > 65535) continue;
            compareLevels(levels, module, level);
            compareLevels(levels, module ^ 0x100U, level);
        }
    }
    for (const unsigned level : {1U, 999U, 1000U, 1001U, 3000U, 4000U, 5000U, 65535U}) {
        compareLevels(levels, p_input->number<std::uint16_t>(), level);
    }
    const unsigned level = p_input->number<std::uint16_t>();
    compareLevels(levels, p_input->number<std::uint16_t>(), level > 0 ? level : 1);
}

std::string settingOf(fuzz::Input* p_input) {
    constexpr const char* kWords[] = {"off",    "errors-only", "error", "warn", "warning",
                                      "info",   "debug",       "wall",  "time", "level",
                                      "module", "thread",      ",",     "=",    "0x",
                                      "0x5f=",  " ",           "65535", "K",    "M",
                                      "G",      "17179869184", "65536", "00"};
    std::string text;
    for (std::size_t i = p_input->below(200); i > 0 && !p_input->isAtEnd(); --i) {
        const std::uint8_t choice = p_input->byte();
        if (choice < 0x80) {
            text += static_cast<char>(choice);
        } else if (choice < 0xF0) {
            text += kWords[choice % std::size(kWords)];
        } else {
            text += std::to_string(p_input->number<std::uint16_t>()) + "=" +
                    std::to_string(p_input->number<std::uint16_t>()) + ",";
        }
    }
    return text.substr(0, text.find('\0'));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    (void)zorDebugSetLevels(nullptr);
    Levels levels;
    while (!input.isAtEnd()) {
        const std::size_t kind = input.below(4);
        const std::string text = settingOf(&input);
        if (kind == 0) {
            fuzz::expectEqual(zorDebugSetPrefix(text.c_str()) == 0, isPrefix(text), "a prefix");
        } else if (kind == 1) {
            fuzz::expectEqual(zorDebugSetFileLimit(text.c_str()) == 0, isLimit(text), "a limit");
        } else {
            const std::optional<Levels> understood = levelsIn(text);
            fuzz::expectEqual(zorDebugSetLevels(text.c_str()) == 0, understood.has_value(),
                              "levels");
            if (understood) levels = *understood;
            compareAll(&input, levels);
        }
    }
    return 0;
}

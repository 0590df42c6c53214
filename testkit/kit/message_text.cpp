#include "message_text.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace tevalon::testkit::kit {
namespace {

// A part of a format: a literal text, or a conversion by its letter.
struct Part {
    std::string_view literal;
    char conversion = '\0';
};

constexpr std::string_view kAnything = "<format>";  // Stands for a caller's own format.

std::size_t lengthOfConversion(std::string_view format) {
    std::size_t length = format.find_first_not_of("-+ #0123456789.*", 1);
    if (length == std::string_view::npos) return 0;
    length = format.find_first_not_of("hlzjtL", length);
    return length == std::string_view::npos ? 0 : length + 1;
}

std::vector<Part> partsOf(std::string_view format) {
    std::vector<Part> parts;
    while (!format.empty()) {
        if (format.substr(0, kAnything.size()) == kAnything) {
            parts.push_back({{}, 's'});
            format.remove_prefix(kAnything.size());
        } else if (format.front() == '%' && format.substr(0, 2) == "%%") {
            parts.push_back({format.substr(0, 1)});
            format.remove_prefix(2);
        } else if (const std::size_t length =
                       format.front() == '%' ? lengthOfConversion(format) : 0) {
            parts.push_back({{}, format[length - 1]});
            format.remove_prefix(length);
        } else {
            const std::size_t end = std::min(format.find_first_of("%<", 1), format.size());
            parts.push_back({format.substr(0, end)});
            format.remove_prefix(end);
        }
    }
    return parts;
}

bool canBeIn(char conversion, char letter) {
    switch (conversion) {
        case 'd':
        case 'i':
        case 'u':
            return std::strchr("-0123456789 ", letter) != nullptr;
        case 'x':
        case 'X':
            return std::strchr("0123456789abcdefABCDEFx ", letter) != nullptr;
        case 'p':
            return std::strchr("0123456789abcdefx(nil)", letter) != nullptr;
        case 'f':
            return std::strchr("-0123456789.infa ", letter) != nullptr;
        default:
            return true;
    }
}

// Backtracks: each value is the shortest that leaves the rest to match.
bool match(const Part* p_part, const Part* p_end, std::string_view text,
           std::vector<std::string>* p_values) {
    if (p_part == p_end) return text.empty();
    if (p_part->conversion == '\0') {
        const std::string_view literal = p_part->literal;
        return text.substr(0, literal.size()) == literal &&
               match(p_part + 1, p_end, text.substr(literal.size()), p_values);
    }
    for (std::size_t length = 0;; ++length) {
        p_values->emplace_back(text.substr(0, length));
        if (match(p_part + 1, p_end, text.substr(length), p_values)) return true;
        p_values->pop_back();
        if (length == text.size() || !canBeIn(p_part->conversion, text[length])) return false;
    }
}

std::optional<std::vector<std::string>> matchAll(const LogMessage& message, std::string_view text) {
    const std::vector<Part> parts = partsOf(message.format);
    std::vector<std::string> values;
    if (!match(parts.data(), parts.data() + parts.size(), text, &values)) return std::nullopt;
    return values;
}

// Of names with commas between them; all where there are none.
bool isOneOf(std::string_view name, std::string_view names) {
    if (names.empty()) return true;
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        if (names.substr(0, end) == name) return true;
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return false;
}

// Behind "[tag] file:line:function(): "; nothing where that is not what the text begins with.
std::string_view withoutPlace(const LogMessage& message, std::string_view text) {
    const std::string front = "[" + std::string(message.tag) + "] ";
    constexpr std::string_view kEnd = "(): ";
    if (text.substr(0, front.size()) != front) return {};
    const std::size_t end = text.find(kEnd);
    if (end == std::string_view::npos) return {};
    const std::size_t colon = text.rfind(':', end);
    if (colon == std::string_view::npos || colon < front.size()) return {};
    if (!isOneOf(text.substr(colon + 1, end - colon - 1), message.functions)) return {};
    return text.substr(end + kEnd.size());
}

}  // namespace

std::optional<std::vector<std::string>> valuesOf(const LogMessage& message,
                                                 const std::string& text) {
    const std::string_view behindPlace = withoutPlace(message, text);
    if (!behindPlace.empty()) {
        if (auto values = matchAll(message, behindPlace)) return values;
    }
    // The texts that have a place of their own, or none.
    if (message.functions[0] != '\0') return std::nullopt;
    return matchAll(message, text);
}

}  // namespace tevalon::testkit::kit

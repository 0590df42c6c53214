// The substitute debug library's own printf, beside the C library's.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <variant>
#include <vector>

#include "support/expect.h"
#include "support/input.h"
#include "support/log_text.h"

// What is formatted is what is tried out.
#pragma clang diagnostic ignored "-Wformat-nonliteral"

namespace {

using Argument = std::variant<int, long, long long, std::size_t, double, const char*, const void*>;

// Percent signs begin what is made by the other functions.
std::string plainText(fuzz::Input* p_input) {
    std::string text = p_input->textWithoutZero(24);
    for (std::size_t at = 0; (at = text.find('%', at)) != std::string::npos; at += 2) {
        text.insert(at, 1, '%');
    }
    return text;
}

std::string flagsAndWidth(fuzz::Input* p_input) {
    std::string text;
    const std::uint8_t flags = p_input->byte();
    if ((flags & 0x80U) == 0) return text;
    constexpr const char kFlags[] = "-+ #0";
    for (std::size_t i = 0; i < 5; ++i) {
        if ((flags >> i & 1U) != 0) text += kFlags[i];
    }
    if ((flags & 0x20U) != 0) text += std::to_string(p_input->below(300));
    if ((flags & 0x40U) != 0) text += "." + std::to_string(p_input->below(40));
    return text;
}

// The flags that a conversion does not have are undefined.
std::string fitting(std::string text, const char* flags) {
    std::string kept;
    std::size_t at = 0;
    for (; at < text.size() && std::string("-+ #0").find(text[at]) != std::string::npos; ++at) {
        if (std::string(flags).find(text[at]) != std::string::npos) kept += text[at];
    }
    return kept + text.substr(at);
}

std::string withoutPrecision(const std::string& text) {
    return text.substr(0, text.find('.'));
}

std::string integer(fuzz::Input* p_input, const char* size) {
    const char conversion = "diuxXo"[p_input->below(6)];
    const bool isSigned = conversion == 'd' || conversion == 'i';
    const char* const flags = isSigned ? "-+ 0" : (conversion == 'u' ? "-0" : "-#0");
    return "%" + fitting(flagsAndWidth(p_input), flags) + size + conversion;
}

// Appends a directive to the format, and makes what it takes.
Argument directive(fuzz::Input* p_input, std::string* p_format, std::string* p_text) {
    switch (p_input->below(9)) {
        case 0: {
            constexpr const char* kSizes[] = {"", "", "h", "hh"};
            *p_format += integer(p_input, kSizes[p_input->below(std::size(kSizes))]);
            return p_input->number<int>();
        }
        case 1:
            *p_format += integer(p_input, "l");
            return p_input->number<long>();
        case 2:
            *p_format += integer(p_input, p_input->flag() ? "ll" : "j");
            return p_input->number<long long>();
        case 3:
            *p_format += integer(p_input, p_input->flag() ? "z" : "t");
            return p_input->number<std::size_t>();
        case 4:
            *p_format += "%" + flagsAndWidth(p_input) + "efgaEFGA"[p_input->below(8)];
            return p_input->number<double>();
        case 5:
            *p_format += "%" + fitting(flagsAndWidth(p_input), "-") + "s";
            if (p_input->below(16) == 0) return static_cast<const char*>(nullptr);
            *p_text = p_input->textWithoutZero(200);
            return p_text->c_str();
        case 6:
            *p_format += "%" + withoutPrecision(fitting(flagsAndWidth(p_input), "-")) + "p";
            return reinterpret_cast<const void*>(p_input->number<std::uintptr_t>());
        case 7:
            *p_format += "%" + withoutPrecision(fitting(flagsAndWidth(p_input), "-")) + "c";
            return int{p_input->byte()};
        default:
            *p_format += "%m ";
            return 0;
    }
}

template <typename... Values>
void compare(fuzz::LogText* p_log, const std::string& format, int error, Values... values) {
    errno = error;
    const int length = std::snprintf(nullptr, 0, format.c_str(), values...);
    std::vector<char> expected(static_cast<std::size_t>(length) + 1);
    errno = error;
    (void)std::snprintf(expected.data(), expected.size(), format.c_str(), values...);
    errno = error;
    (void)zorDebugOutput0(format.c_str(), values...);
    fuzz::expectEqual(errno, error, "errno");
    const std::vector<std::string> pieces = p_log->take();
    fuzz::expectEqual(pieces.size(), std::size_t{1}, "the number of pieces");
    fuzz::expectEqual(pieces[0], std::string(expected.data(), expected.size() - 1), "the text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    fuzz::LogText log;
    const int error = static_cast<int>(input.below(120));
    while (!input.isAtEnd()) {
        std::string format = plainText(&input);
        std::string texts[2];
        const Argument first = directive(&input, &format, &texts[0]);
        format += plainText(&input);
        const Argument second = directive(&input, &format, &texts[1]);
        format += plainText(&input);
        std::visit([&](auto one, auto two) { compare(&log, format, error, one, two); }, first,
                   second);
    }
    return 0;
}

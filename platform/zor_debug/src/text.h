// text.h: the small grammar of the settings: items separated by commas, and numbers.

#ifndef ZOR_DEBUG_SRC_TEXT_H
#define ZOR_DEBUG_SRC_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zor_debug {

/// The text without the blanks around it, and the line end behind it.
inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// Whether @p text is the word, in whatever letters. The word is in small ones.
inline bool isSameWord(std::string_view word, std::string_view text) {
    if (word.size() != text.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        const bool isCapital = text[i] >= 'A' && text[i] <= 'Z';
        const char small = isCapital ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
        if (small != word[i]) return false;
    }
    return true;
}

/// Hands out the items of a text, the empty ones too and without blanks around them: "a,,b" has
/// three, "" has one.
class ItemReader {
public:
    explicit ItemReader(std::string_view text) : m_rest(text) {}

    bool next(std::string_view* p_item) {
        if (m_atEnd) return false;
        const std::size_t comma = m_rest.find(',');
        *p_item = trimmed(m_rest.substr(0, comma));
        m_atEnd = comma == std::string_view::npos;
        if (!m_atEnd) m_rest.remove_prefix(comma + 1);
        return true;
    }

private:
    std::string_view m_rest;
    bool m_atEnd = false;
};

/// Reads 0 to 65535, decimal or behind 0x hexadecimal; the whole text must be the number.
inline bool parseNumber(std::string_view text, std::uint16_t* p_number) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    const char* p_end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), p_end, *p_number, base);
    return read.ec == std::errc() && read.ptr == p_end;
}

/// Reads a number of bytes, at least 1, with K, M or G behind it or nothing.
inline bool parseBytes(std::string_view text, std::uint64_t* p_bytes) {
    unsigned shift = 0;
    if (!text.empty()) {
        const char unit = text.back();
        if (unit == 'K') shift = 10;
        if (unit == 'M') shift = 20;
        if (unit == 'G') shift = 30;
    }
    if (shift != 0) text.remove_suffix(1);
    std::uint64_t number = 0;
    const char* p_end = text.data() + text.size();
    const std::from_chars_result read = std::from_chars(text.data(), p_end, number);
    if (read.ec != std::errc() || read.ptr != p_end || number == 0) return false;
    if (number > (UINT64_MAX >> shift)) return false;
    *p_bytes = number << shift;
    return true;
}

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_TEXT_H

// text.h: the small grammar of the settings: items separated by commas, and numbers.

#ifndef ZOR_DEBUG_SRC_TEXT_H
#define ZOR_DEBUG_SRC_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zor_debug {

/// Hands out the items of a text, the empty ones too: "a,,b" has three, "" has one.
class ItemReader {
public:
    explicit ItemReader(std::string_view text) : m_rest(text) {}

    bool next(std::string_view* p_item) {
        if (m_atEnd) return false;
        const std::size_t comma = m_rest.find(',');
        *p_item = m_rest.substr(0, comma);
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

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_TEXT_H

// appender.h: appends text and numbers to memory of a fixed size.

#ifndef ZOR_DEBUG_SRC_APPENDER_H
#define ZOR_DEBUG_SRC_APPENDER_H

#include <charconv>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <system_error>

namespace zor_debug {

/// Each function appends its argument whole, or returns false when there is no room for it.
class Appender {
public:
    Appender(char* p_begin, std::size_t capacity)
        : m_begin(p_begin), m_next(p_begin), m_end(p_begin + capacity) {}

    bool character(char character) {
        if (m_next == m_end) return false;
        *m_next++ = character;
        return true;
    }

    /// The beginning of @p *pp_text, up to a '%' or its end, at which @p *pp_text then stands.
    bool literal(const char** pp_text) {
        const char* p_text = *pp_text;
        for (; *p_text != '%' && *p_text != '\0'; ++p_text) {
            if (m_next == m_end) return false;
            *m_next++ = *p_text;
        }
        *pp_text = p_text;
        return true;
    }

    bool text(std::string_view text) {
        if (text.size() > room()) return false;
        std::memcpy(m_next, text.data(), text.size());
        m_next += text.size();
        return true;
    }

    /// Faster than text() for the few characters that most strings have.
    bool string(const char* p_text) {
        for (; *p_text != '\0'; ++p_text) {
            if (m_next == m_end) return false;
            *m_next++ = *p_text;
        }
        return true;
    }

    template <typename Integer>
    bool decimal(Integer number) {
        const std::to_chars_result written = std::to_chars(m_next, m_end, number);
        if (written.ec != std::errc()) return false;
        m_next = written.ptr;
        return true;
    }

    /// In @p digits, "0123456789abcdef" or the like, and at least @p width of them.
    bool hexadecimal(unsigned number, std::size_t width, const char* p_digits) {
        std::size_t count = 1;
        while (count < width || (count < 8 && number >> (4 * count) != 0)) ++count;
        if (count > room()) return false;
        for (char* p_digit = m_next + count; p_digit != m_next; number >>= 4) {
            *--p_digit = p_digits[number & 0xFU];
        }
        m_next += count;
        return true;
    }

    std::size_t length() const { return static_cast<std::size_t>(m_next - m_begin); }

private:
    std::size_t room() const { return static_cast<std::size_t>(m_end - m_next); }

    char* m_begin;
    char* m_next;
    char* m_end;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_APPENDER_H

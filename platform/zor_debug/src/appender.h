// appender.h: appends text and numbers to memory of a fixed size.

#ifndef ZOR_DEBUG_SRC_APPENDER_H
#define ZOR_DEBUG_SRC_APPENDER_H

#include <charconv>
#include <cstddef>
#include <cstdint>
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
        const auto isEnd = [](char next) { return next == '%' || next == '\0'; };
        return copyUntil(isEnd, pp_text, SIZE_MAX) == Copied::Whole;
    }

    bool text(std::string_view text) {
        if (text.size() > room()) return false;
        std::memcpy(m_next, text.data(), text.size());
        m_next += text.size();
        return true;
    }

    /// Faster than text() for the few characters that most strings have.
    bool string(const char* p_text) {
        constexpr std::size_t kMostSteps = 2;
        const auto isEnd = [](char next) { return next == '\0'; };
        const Copied copied = copyUntil(isEnd, &p_text, kMostSteps);
        return copied == Copied::More ? text(p_text) : copied == Copied::Whole;
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
        // One for zero too; the builtin, for C++17 has no std::countl_zero().
        const auto digits = static_cast<std::size_t>(8 - __builtin_clz(number | 1) / 4);
        const std::size_t count = width > digits ? width : digits;
        if (count > room()) return false;
        for (char* p_digit = m_next + count; p_digit != m_next; number >>= 4) {
            *--p_digit = p_digits[number & 0xFU];
        }
        m_next += count;
        return true;
    }

    std::size_t length() const { return static_cast<std::size_t>(m_next - m_begin); }

private:
    enum class Copied { Whole, More, NoRoom };

    // Copies up to the character that isEnd() says true of, or so many steps of eight characters;
    // *pp_text then stands behind them. Looks for room once a step, for there is little else to do
    // for a character.
    template <typename IsEnd>
    Copied copyUntil(IsEnd isEnd, const char** pp_text, std::size_t maxSteps) {
        constexpr std::size_t kStep = 8;
        const char* p_text = *pp_text;
        for (; room() >= kStep; p_text += kStep, m_next += kStep) {
            if (maxSteps-- == 0) {
                *pp_text = p_text;
                return Copied::More;
            }
#pragma GCC unroll 8
            for (std::size_t i = 0; i < kStep; ++i) {
                const char next = p_text[i];
                if (isEnd(next)) {
                    m_next += i;
                    *pp_text = p_text + i;
                    return Copied::Whole;
                }
                m_next[i] = next;
            }
        }
        for (; !isEnd(*p_text); ++p_text) {
            if (m_next == m_end) return Copied::NoRoom;
            *m_next++ = *p_text;
        }
        *pp_text = p_text;
        return Copied::Whole;
    }

    std::size_t room() const {
        return static_cast<std::size_t>(m_end - m_next);
    }

    char* m_begin;
    char* m_next;
    char* m_end;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_APPENDER_H

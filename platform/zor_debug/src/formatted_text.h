// formatted_text.h: the text of one call, formatted.

#ifndef ZOR_DEBUG_SRC_FORMATTED_TEXT_H
#define ZOR_DEBUG_SRC_FORMATTED_TEXT_H

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace zor_debug {

/// Text formatted into the stack where it fits, else into memory that is asked for. Cut off at
/// what the stack holds when there is none. A zero stands behind it.
class FormattedText {
public:
    FormattedText(const char* p_format, va_list args) __attribute__((format(printf, 2, 0)));
    ~FormattedText() {
        if (m_onHeap != nullptr) std::free(m_onHeap);
    }

    FormattedText(const FormattedText&) = delete;
    FormattedText& operator=(const FormattedText&) = delete;

    std::string_view view() const { return std::string_view(m_begin, m_length); }

    /// Puts up to kFrontRoom bytes before the text, once. False when that cannot be done.
    bool prepend(std::string_view front);

    static constexpr std::size_t kFrontRoom = 160;

private:
    void formatFully(const char* p_format, va_list args) __attribute__((format(printf, 2, 0)));
    void formatLong(const char* p_format, va_list args) __attribute__((format(printf, 2, 0)));

    static constexpr std::size_t kCapacity = 1024;

    char m_onStack[kFrontRoom + kCapacity];
    char* m_onHeap = nullptr;
    char* m_begin = m_onStack + kFrontRoom;
    std::size_t m_length = 0;
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_FORMATTED_TEXT_H

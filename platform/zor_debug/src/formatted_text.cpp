#include "formatted_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "appender.h"
#include "plain_format.h"

namespace zor_debug {

FormattedText::FormattedText(const char* p_format, va_list args) {
    va_list again;
    va_copy(again, args);
    Appender onStack(m_begin, kCapacity - 1);
    if (formatPlainly(&onStack, p_format, args)) {
        m_length = onStack.length();
        m_begin[m_length] = '\0';
    } else {
        formatFully(p_format, again);
    }
    va_end(again);
}

void FormattedText::formatFully(const char* p_format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int wanted = std::vsnprintf(m_begin, kCapacity, p_format, args);
    if (wanted > 0) m_length = static_cast<std::size_t>(wanted);
    if (m_length >= kCapacity) formatLong(p_format, again);
    va_end(again);
}

void FormattedText::formatLong(const char* p_format, va_list args) {
    m_onHeap = static_cast<char*>(std::malloc(m_length + 1));
    if (m_onHeap != nullptr && std::vsnprintf(m_onHeap, m_length + 1, p_format, args) >= 0) {
        m_begin = m_onHeap;
        return;
    }
    // The beginning is there already.
    std::free(m_onHeap);
    m_onHeap = nullptr;
    m_length = kCapacity - 1;
}

bool FormattedText::prepend(std::string_view front) {
    if (m_onHeap != nullptr || front.size() > kFrontRoom) return false;
    m_begin -= front.size();
    m_length += front.size();
    std::memcpy(m_begin, front.data(), front.size());
    return true;
}

}  // namespace zor_debug

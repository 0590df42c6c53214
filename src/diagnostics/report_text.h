// report_text.h: a text that is written line by line, and then all at once.

#ifndef SRC_DIAGNOSTICS_REPORT_TEXT_H
#define SRC_DIAGNOSTICS_REPORT_TEXT_H

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "diagnostics/pages.h"
#include "diagnostics/write_all.h"

namespace tevalon::base::diagnostics {

/// Thread-safety: none.
class ReportText {
public:
    /// A piece is cut at some 250 bytes.
    void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        char piece[256];
        va_list args;
        va_start(args, format);
        const int length = std::vsnprintf(piece, sizeof(piece), format, args);
        va_end(args);
        if (length < 0) m_isComplete = false;
        const std::size_t kept =
            std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof(piece) - 1);
        m_isComplete &= m_text.add(piece, kept);
    }

    /// Something is missing for another reason.
    void setIncomplete() { m_isComplete = false; }
    /// False where it did not find memory for all, or could not make a text of it.
    bool isComplete() const { return m_isComplete; }

    /// False, with errno, where @p fd does not take all.
    bool writeTo(int fd) const { return writeAll(fd, m_text.begin(), m_text.size()); }

private:
    PageMemory m_text;
    bool m_isComplete = true;
};

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_REPORT_TEXT_H

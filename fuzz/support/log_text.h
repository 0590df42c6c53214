// log_text.h: what the substitute debug library is given to write, piece by piece.

#ifndef FUZZ_SUPPORT_LOG_TEXT_H
#define FUZZ_SUPPORT_LOG_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

#include "zor_debug/zor_debug_control.h"

namespace fuzz {

/// Takes all that is written while it exists; of one thread.
class LogText {
public:
    LogText() { zorDebugInstallCapture(&LogText::capture, &m_pieces); }
    ~LogText() { zorDebugRemoveCapture(); }

    LogText(const LogText&) = delete;
    LogText& operator=(const LogText&) = delete;

    /// The pieces since the last call.
    std::vector<std::string> take() {
        std::vector<std::string> pieces;
        pieces.swap(m_pieces);
        return pieces;
    }

private:
    static void capture(void* p_context, const DebugLevelRecord*, const char* p_text,
                        std::size_t length) {
        static_cast<std::vector<std::string>*>(p_context)->emplace_back(p_text, length);
    }

    std::vector<std::string> m_pieces;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_LOG_TEXT_H

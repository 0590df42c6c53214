#include "zor_debug/zor_debug.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "call_scope.h"
#include "capture.h"
#include "levels.h"
#include "line_writer.h"
#include "settings.h"
#include "thread_state.h"
#include "zor_debug/zor_debug_control.h"

using zor_debug::CallScope;

namespace {

// Text formatted into the stack where it fits, else into memory that is asked for. Cut off at
// what the stack holds when there is none.
class FormattedText {
public:
    FormattedText(const char* p_format, va_list args) __attribute__((format(printf, 2, 0))) {
        va_list again;
        va_copy(again, args);
        const int wanted = std::vsnprintf(m_onStack, sizeof(m_onStack), p_format, args);
        if (wanted > 0) m_length = static_cast<std::size_t>(wanted);
        if (m_length >= sizeof(m_onStack)) formatLong(p_format, again);
        va_end(again);
    }
    ~FormattedText() { std::free(m_onHeap); }

    FormattedText(const FormattedText&) = delete;
    FormattedText& operator=(const FormattedText&) = delete;

    const char* data() const { return m_onHeap != nullptr ? m_onHeap : m_onStack; }
    std::size_t length() const { return m_length; }

private:
    void formatLong(const char* p_format, va_list args) __attribute__((format(printf, 2, 0))) {
        m_onHeap = static_cast<char*>(std::malloc(m_length + 1));
        if (m_onHeap != nullptr) {
            std::vsnprintf(m_onHeap, m_length + 1, p_format, args);
        } else {
            m_length = sizeof(m_onStack) - 1;
        }
    }

    char m_onStack[1024];
    char* m_onHeap = nullptr;
    std::size_t m_length = 0;
};

// Kept out of the check's way: a level that is off needs none of it.
__attribute__((noinline)) int32_t checkExactly(const DebugLevelRecord& record) {
    zor_debug::ensureSettings();
    if (!zor_debug::isOn(record)) return 0;
    zor_debug::t_state.lastOn = record;
    return 1;
}

}  // namespace

int32_t zorDebugCheckLevelGetFrameAndChunk(DebugLevelRecord* p_record) {
    if (!zor_debug::mayBeOn(*p_record)) return 0;
    return checkExactly(*p_record);
}

int zorDebugOutput0(const char* p_format, ...) {
    va_list args;
    va_start(args, p_format);
    const int written = zorDebugOutputV(p_format, args);
    va_end(args);
    return written;
}

int zorDebugOutputV(const char* p_format, va_list args) {
    const CallScope scope;
    if (p_format == nullptr) return 0;
    zor_debug::ensureSettings();
    errno = scope.callersErrno();  // For %m.
    const FormattedText text(p_format, args);
    if (!zor_debug::captureText(text.data(), text.length())) {
        zor_debug::writeText(text.data(), text.length());
    }
    return static_cast<int>(text.length());
}

int zorDebugSetLevels(const char* p_text) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setLevels(p_text) ? 0 : -1;
}

uint16_t zorDebugGetLevel(uint16_t module) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::levelOf(module);
}

int zorDebugSetFile(const char* p_path) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setFile(p_path) ? 0 : -1;
}

int zorDebugSetPrefix(const char* p_text) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setPrefixText(p_text) ? 0 : -1;
}

void zorDebugInstallCapture(ZorDebugCapture capture, void* p_context) {
    const CallScope scope;
    zor_debug::ensureSettings();
    zor_debug::installCapture(capture, p_context);
}

void zorDebugRemoveCapture(void) {
    const CallScope scope;
    zor_debug::removeCapture();
}

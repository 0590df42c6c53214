#include "zor_debug/zor_debug.h"

#include <cstdarg>

#include "call_scope.h"
#include "capture.h"
#include "formatted_text.h"
#include "levels.h"
#include "levels_file.h"
#include "line_writer.h"
#include "settings.h"
#include "thread_state.h"
#include "zor_debug/zor_debug_control.h"

using zor_debug::CallScope;

namespace {

// Kept out of the check's way: a level that is off needs none of it.
__attribute__((noinline)) int32_t checkExactly(const DebugLevelRecord& record) {
    if (!zor_debug::isCertainlyOn(record)) {
        zor_debug::ensureSettings();
        zor_debug::followLevelsFile();
        if (!zor_debug::isOn(record)) return 0;
    }
    zor_debug::t_state.lastOn = record;
    return 1;
}

}  // namespace

// On one cache line: spread over two, it takes a fifth longer.
__attribute__((aligned(64))) int32_t zorDebugCheckLevelGetFrameAndChunk(
    DebugLevelRecord* p_record) {
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
    const zor_debug::ErrnoScope scope;
    if (p_format == nullptr) return 0;
    zor_debug::ensureSettings();
    zor_debug::FormattedText text(p_format, args);  // With the caller's errno, for %m.
    const std::size_t length = text.view().size();
    if (!zor_debug::captureText(text.view())) zor_debug::writeText(&text);
    return static_cast<int>(length);
}

int zorDebugSetLevels(const char* p_text) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setLevels(p_text) ? 0 : -1;
}

uint16_t zorDebugGetLevel(uint16_t module) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::levelsOf(module).highest;
}

int zorDebugSetFile(const char* p_path) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setFile(p_path) ? 0 : -1;
}

int zorDebugSetLevelsFile(const char* p_path) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setLevelsFile(p_path) ? 0 : -1;
}

int zorDebugSetFileLimit(const char* p_text) {
    const CallScope scope;
    zor_debug::ensureSettings();
    return zor_debug::setFileLimit(p_text) ? 0 : -1;
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

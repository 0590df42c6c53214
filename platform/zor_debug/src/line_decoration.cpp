#include "line_decoration.h"

#include <pthread.h>
#include <time.h>

#include <cstdio>

#include "levels.h"
#include "thread_id.h"

namespace zor_debug {
namespace {

std::string_view colourOf(std::uint16_t level) {
    if (level < kLevelError) return "\033[1m";   // Progress: bold.
    if (level < kLevelWarn) return "\033[31m";   // Errors: red.
    if (level < kLevelInfo) return "\033[33m";   // Warnings: yellow.
    if (level < kLevelDebug) return "\033[36m";  // Information: cyan.
    return "\033[2m";                            // Debug: faint.
}

// Appends formatted text behind the first @p length bytes and returns the new length.
std::size_t print(char* p_text, std::size_t length, const char* p_format, ...)
    __attribute__((format(printf, 3, 4)));

std::size_t print(char* p_text, std::size_t length, const char* p_format, ...) {
    va_list args;
    va_start(args, p_format);
    const int added = std::vsnprintf(p_text + length, kMaxDecoration - length, p_format, args);
    va_end(args);
    return added > 0 ? length + static_cast<std::size_t>(added) : length;
}

std::size_t printTime(char* p_text, std::size_t length) {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // Without a clock every line is at 0.
    return print(p_text, length, "[%5lld.%06ld] ", static_cast<long long>(now.tv_sec),
                 static_cast<long>(now.tv_nsec / 1000));
}

std::size_t printThread(char* p_text, std::size_t length) {
    char name[16] = "";
    (void)pthread_getname_np(pthread_self(), name, sizeof(name));
    return print(p_text, length, "[%ld %s] ", static_cast<long>(threadId()), name);
}

}  // namespace

std::size_t beginLine(char* p_text, LinePrefix prefix, bool isColourful, std::uint16_t level) {
    std::size_t length = 0;
    if (isColourful) length = colourOf(level).copy(p_text, kMaxDecoration);
    if (prefix.time) length = printTime(p_text, length);
    if (prefix.thread) length = printThread(p_text, length);
    return length;
}

std::string_view endOfColour() {
    return "\033[0m";
}

}  // namespace zor_debug

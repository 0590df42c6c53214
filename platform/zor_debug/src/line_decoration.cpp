#include "line_decoration.h"

#include <pthread.h>
#include <time.h>

#include "appender.h"
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

timespec now() {
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);  // Without a clock every line is at 0.
    return time;
}

void appendTime(Appender* p_out, const timespec& time) {
    // A one before them makes six digits of the microseconds.
    char microseconds[7];
    (void)std::to_chars(microseconds, microseconds + sizeof(microseconds),
                        static_cast<std::uint32_t>(1000000 + time.tv_nsec / 1000));
    p_out->character('[');
    for (time_t limit = 10000; time.tv_sec < limit && limit > 1; limit /= 10) p_out->character(' ');
    p_out->decimal(time.tv_sec);
    microseconds[0] = '.';
    p_out->text(std::string_view(microseconds, sizeof(microseconds)));
    p_out->text("] ");
}

void makeLabel(ThreadLabel* p_label) {
    char name[16] = "";
    (void)pthread_getname_np(pthread_self(), name, sizeof(name));
    Appender out(p_label->text, sizeof(p_label->text));
    out.character('[');
    out.decimal(threadId());
    out.character(' ');
    out.text(name);
    out.text("] ");
    p_label->length = out.length();
}

// Asking the kernel for the name takes longer than all else about a line. A thread is named as it
// begins, so its first lines always ask; later ones do not ask again within a burst.
std::string_view threadLabel(const timespec& time) {
    constexpr std::uint32_t kFirstUses = 32;
    constexpr std::int64_t kBurst = 50000;
    ThreadLabel& label = t_state.label;
    const std::int64_t at = std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    if (label.useCount < kFirstUses || at - label.madeAt > kBurst) {
        if (label.useCount < kFirstUses) ++label.useCount;
        label.madeAt = at;
        makeLabel(&label);
    }
    return std::string_view(label.text, label.length);
}

}  // namespace

std::size_t beginLine(char* p_text, LinePrefix prefix, bool isColourful, std::uint16_t level) {
    Appender out(p_text, kMaxDecoration);
    if (isColourful) out.text(colourOf(level));
    if (prefix.isEmpty()) return out.length();
    const timespec time = now();
    if (prefix.time) appendTime(&out, time);
    if (prefix.thread) out.text(threadLabel(time));
    return out.length();
}

std::string_view endOfColour() {
    return "\033[0m";
}

}  // namespace zor_debug

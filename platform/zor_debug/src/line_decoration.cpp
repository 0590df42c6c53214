#include "line_decoration.h"

#include <pthread.h>
#include <time.h>

#include <array>
#include <atomic>

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

// By the same bounds as the colours. Of a text before which no level was asked for none is known.
char letterOf(std::uint16_t level) {
    if (level == 0) return '-';
    if (level < kLevelError) return 'A';
    if (level < kLevelWarn) return 'E';
    if (level < kLevelInfo) return 'W';
    if (level < kLevelDebug) return 'I';
    return 'D';
}

// Twelve that can be read on light and dark, of the 256 of a terminal: modules that are numbered
// one after the other differ.
constexpr std::array<std::uint8_t, 12> kModuleColours = {33, 37,  64, 125, 136, 166,
                                                         61, 160, 28, 208, 99,  31};

timespec now() {
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);  // Without a clock every line is at 0.
    return time;
}

// In "number", with zeros in front up to so many digits.
void appendPadded(Appender* p_out, std::uint32_t number, std::uint32_t width) {
    char digits[10];
    for (std::uint32_t i = width; i > 0; --i, number /= 10) {
        digits[i - 1] = static_cast<char>('0' + number % 10);
    }
    p_out->text(std::string_view(digits, width));
}

// East of Greenwich, as the time zone has it at that moment. The C library is asked once in a
// quarter of an hour, at which zones change: it takes a lock, which a forked child may find taken
// for good.
std::int32_t zoneMinutesAt(std::int64_t seconds) {
    constexpr std::int64_t kQuarter = 900;
    constexpr std::uint32_t kOffsetBits = 12;
    constexpr std::int32_t kBias = 2048;
    // Number of the quarter and what held in it. Relaxed: the one word is all there is.
    static std::atomic<std::uint32_t> s_known{0};
    const auto quarter = static_cast<std::uint32_t>(seconds / kQuarter) & 0xFFFFFU;
    const std::uint32_t known = s_known.load(std::memory_order_relaxed);
    if (known >> kOffsetBits == quarter && known != 0) {
        return static_cast<std::int32_t>(known & 0xFFFU) - kBias;
    }
    const auto time = static_cast<time_t>(seconds);
    tm local = {};
    const std::int32_t minutes =
        localtime_r(&time, &local) != nullptr ? static_cast<std::int32_t>(local.tm_gmtoff / 60) : 0;
    s_known.store(quarter << kOffsetBits | static_cast<std::uint32_t>(minutes + kBias),
                  std::memory_order_relaxed);
    return minutes;
}

// The Gregorian calendar's day of so many days since 1970, counted in years that begin in March:
// the day that leap years have more is the last one then.
void appendDate(Appender* p_out, std::int64_t daysSince1970) {
    constexpr std::int64_t kDaysOf400Years = 146097;
    constexpr std::int64_t kDaysToMarchOfYear0 = 719468;
    const std::int64_t days = daysSince1970 + kDaysToMarchOfYear0;
    const std::int64_t era = days / kDaysOf400Years;
    const std::int64_t day = days % kDaysOf400Years;
    const std::int64_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const std::int64_t dayOfYear = day - (365 * year + year / 4 - year / 100);
    const std::int64_t month = (5 * dayOfYear + 2) / 153;
    const bool isNextYear = month >= 10;
    appendPadded(p_out, static_cast<std::uint32_t>(era * 400 + year + (isNextYear ? 1 : 0)), 4);
    p_out->character('-');
    appendPadded(p_out, static_cast<std::uint32_t>(isNextYear ? month - 9 : month + 3), 2);
    p_out->character('-');
    appendPadded(p_out, static_cast<std::uint32_t>(dayOfYear - (153 * month + 2) / 5 + 1), 2);
}

// As ISO 8601 has it: 2026-11-22T20:15:00.123456+01:00.
void appendWallTime(Appender* p_out) {
    timespec time = {};
    (void)clock_gettime(CLOCK_REALTIME, &time);  // Without a clock it is 1970.
    const std::int64_t utc = time.tv_sec > 0 ? time.tv_sec : 0;
    const std::int32_t zone = zoneMinutesAt(utc);
    constexpr std::int64_t kDay = 86400;
    const std::int64_t local = utc + std::int64_t{zone} * 60 + kDay;  // Never negative.
    const auto ofDay = static_cast<std::uint32_t>(local % kDay);
    p_out->character('[');
    appendDate(p_out, local / kDay - 1);
    p_out->character('T');
    appendPadded(p_out, ofDay / 3600, 2);
    p_out->character(':');
    appendPadded(p_out, ofDay / 60 % 60, 2);
    p_out->character(':');
    appendPadded(p_out, ofDay % 60, 2);
    p_out->character('.');
    appendPadded(p_out, static_cast<std::uint32_t>(time.tv_nsec / 1000), 6);
    p_out->character(zone < 0 ? '-' : '+');
    const auto distance = static_cast<std::uint32_t>(zone < 0 ? -zone : zone);
    appendPadded(p_out, distance / 60, 2);
    p_out->character(':');
    appendPadded(p_out, distance % 60, 2);
    p_out->text("] ");
}

void appendLevel(Appender* p_out, std::uint16_t level) {
    p_out->character('[');
    p_out->character(letterOf(level));
    p_out->text("] ");
}

// On a terminal in a colour of its own; then the line's goes on.
void appendModule(Appender* p_out, const DebugLevelRecord& record, bool isColourful) {
    if (isColourful) {
        p_out->text("\033[0;38;5;");
        p_out->decimal(kModuleColours[record.module % kModuleColours.size()]);
        p_out->character('m');
    }
    p_out->text("[0x");
    p_out->hexadecimal(record.module, 2, "0123456789abcdef");
    p_out->text("] ");
    if (!isColourful) return;
    p_out->text("\033[0m");
    p_out->text(colourOf(record.level));
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

std::size_t beginLine(char* p_text, LinePrefix prefix, bool isColourful,
                      const DebugLevelRecord& record) {
    Appender out(p_text, kMaxDecoration);
    if (isColourful) out.text(colourOf(record.level));
    if (prefix.isEmpty()) return out.length();
    if (prefix.wall) appendWallTime(&out);
    const timespec time = prefix.time || prefix.thread ? now() : timespec{};
    if (prefix.time) appendTime(&out, time);
    if (prefix.level) appendLevel(&out, record.level);
    if (prefix.module) appendModule(&out, record, isColourful);
    if (prefix.thread) out.text(threadLabel(time));
    return out.length();
}

std::string_view endOfColour() {
    return "\033[0m";
}

}  // namespace zor_debug

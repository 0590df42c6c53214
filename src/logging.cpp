#define TEVALON_BASE_TRACER_INLINE  // Defined here, for modules that were built earlier.
#include "base/logging.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>

#include "os/monotonic_time.h"
#include "os/no_cancellation.h"

namespace {

using tevalon::base::DebugLevelRecord;
using tevalon::base::isLogOn;
using tevalon::base::kBlogModule;
using tevalon::base::kLogDebug;

constexpr std::array<std::uint16_t, 5> kLevels = {
    tevalon::base::kLogAlways, tevalon::base::kLogError, tevalon::base::kLogWarn,
    tevalon::base::kLogInfo, tevalon::base::kLogDebug};

constexpr int kBytesPerDumpLine = 16;

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

// Only the nanoseconds field, not the whole time: enough to tell dumps and runs apart.
std::uint32_t monotonicNanosecondsOr(std::uint32_t withoutClock) {
    const std::optional<timespec> now = tevalon::base::readMonotonicClock();
    return now ? static_cast<std::uint32_t>(now->tv_nsec) : withoutClock;
}

void printLog(int levelIndex, const char* tag, const char* file, int line, const char* function,
              const char* format, va_list args) __attribute__((format(printf, 6, 0)));

void printLog(int levelIndex, const char* tag, const char* file, int line, const char* function,
              const char* format, va_list args) {
    if (format == nullptr) return;
    if (levelIndex < 0 || levelIndex >= static_cast<int>(kLevels.size())) return;

    DebugLevelRecord record = {kLevels[static_cast<std::size_t>(levelIndex)], kBlogModule, 0, 0};
    // Each piece asks anew: the level may be switched while the line is being written.
    if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) {
        zorDebugOutput0("[%s]%s:%d:%s:", orEmpty(tag), blog_base_name(orEmpty(file)), line,
                        orEmpty(function));
    }
    if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) zorDebugOutputV(format, args);
    if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) zorDebugOutput0("\n");
}

void outputByList(const char* format, ...) __attribute__((format(printf, 1, 2)));

void outputByList(const char* format, ...) {
    va_list args;
    va_start(args, format);
    zorDebugOutputV(format, args);
    va_end(args);
}

// The lines of a dump behind its title: each the three pieces that print_browser_log() would write,
// with what is the same in all of them formatted once.
class DumpLines {
public:
    explicit DumpLines(std::uint32_t dumpId) {
        (void)std::snprintf(m_text.data(), m_text.size(), "DUMPMEM(%08Xd):, ", dumpId);
    }

    void write(const unsigned char* data, int count) {
        format(data, count);
        DebugLevelRecord record = {kLogDebug, kBlogModule, 0, 0};
        if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) zorDebugOutput0("[]:0::");
        if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) outputByList("%s", m_text.data());
        if (zorDebugCheckLevelGetFrameAndChunk(&record) != 0) zorDebugOutput0("\n");
    }

private:
    void format(const unsigned char* data, int count) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        char* p_next = m_text.data() + kFrontLength;
        for (int i = 0; i < count; ++i) {
            *p_next++ = kDigits[data[i] >> 4];
            *p_next++ = kDigits[data[i] & 0xF];
            *p_next++ = ' ';
        }
        *p_next = '\0';
    }

    static constexpr std::size_t kFrontLength = sizeof("DUMPMEM(12345678d):, ") - 1;

    std::array<char, kFrontLength + 3 * std::size_t{kBytesPerDumpLine} + 1> m_text;
};

}  // namespace

const char* blog_base_name(const char* path) {
    const char* lastSlash = std::strrchr(path, '/');
    return lastSlash != nullptr ? lastSlash + 1 : path;
}

void print_browser_log(int levelIndex, const char* tag, const char* file, int line,
                       const char* function, const char* format, ...) {
    va_list args;
    va_start(args, format);
    printLog(levelIndex, tag, file, line, function, format, args);
    va_end(args);
}

void print_hbbtv_controller_log(int levelIndex, const char* tag, const char* file, int line,
                                const char* function, const char* format, ...) {
    va_list args;
    va_start(args, format);
    printLog(levelIndex, tag, file, line, function, format, args);
    va_end(args);
}

void dump_memory(const char* title, const unsigned char* data, int length) {
    if (!isLogOn(kLogDebug)) return;
    const std::uint32_t dumpId = monotonicNanosecondsOr(0);

    print_browser_log(4, nullptr, nullptr, 0, nullptr, "DUMPMEM(%08Xd):, %s", dumpId,
                      title != nullptr ? title : "(null)");
    if (data == nullptr || length < 1) return;
    DumpLines lines(dumpId);
    while (length > 0) {
        const int count = std::min(length, kBytesPerDumpLine);
        lines.write(data, count);
        data += count;
        length -= count;
    }
}

std::string dbg_location(const char* file, int line, const char* function) {
    std::string location;
    if (file == nullptr) return location;
    char number[sizeof(":-2147483648:")];  // Half the code of std::to_string().
    (void)std::snprintf(number, sizeof(number), ":%d:", line);
    location.append(file).append(number);
    if (function == nullptr) return location;
    location.append(function).append("():");
    return location;
}

namespace tevalon::base {

std::uint32_t bootID() {
    constexpr std::uint32_t kWithoutClock = 0x1234;
    // Relaxed: the value stands for itself, nothing else is published with it.
    static std::atomic<std::uint32_t> s_bootId{0};

    std::uint32_t bootId = s_bootId.load(std::memory_order_relaxed);
    if (bootId != 0) return bootId;
    bootId = monotonicNanosecondsOr(kWithoutClock);
    s_bootId.store(bootId, std::memory_order_relaxed);
    return bootId;
}

void FunctionTracer::writeIn() const {
    zorDebugOutput0("TRACE -> [%s(IN)] :%s:%d \n", orEmpty(m_function), orEmpty(m_file), m_line);
}

// Written by a destructor, where cancellation in the output would end the process.
void FunctionTracer::writeOut() const {
    const NoCancellation noCancellation;
    zorDebugOutput0("TRACE <- [%s(OUT)] :%s:%d \n", orEmpty(m_function), orEmpty(m_file), m_line);
}

namespace internal {

void ScopeTrace::writeIn() const {
    zorDebugOutput0("[TRACE -> %s(IN)] %s:%d:%s() \n", m_function, blog_base_name(m_file), m_line,
                    m_function);
}

void ScopeTrace::writeOut() const {
    const NoCancellation noCancellation;  // As above.
    zorDebugOutput0("[TRACE <- %s(OUT)] %s:%d:%s() \n", m_function, blog_base_name(m_file), m_line,
                    m_function);
}

}  // namespace internal
}  // namespace tevalon::base

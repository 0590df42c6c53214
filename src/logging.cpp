#define TEVALON_BASE_TRACER_INLINE  // Defined here, for modules that were built earlier.
#include "base/logging.h"

#include <time.h>

#include <array>
#include <atomic>
#include <cstdarg>
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

void writeDumpLine(std::uint32_t dumpId, const char* text) {
    print_browser_log(4, nullptr, nullptr, 0, nullptr, "DUMPMEM(%08Xd):, %s", dumpId, text);
}

void writeDumpBytes(std::uint32_t dumpId, const unsigned char* data, int count) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::array<char, 52> line = {};
    char* p_end = line.data();
    for (int i = 0; i < count; ++i) {
        *p_end++ = kDigits[data[i] >> 4];
        *p_end++ = kDigits[data[i] & 0xF];
        *p_end++ = ' ';
    }
    writeDumpLine(dumpId, line.data());
}

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
    const std::uint32_t dumpId = monotonicNanosecondsOr(0);

    writeDumpLine(dumpId, title != nullptr ? title : "(null)");
    if (data == nullptr) return;
    for (int offset = 0; offset < length;) {
        const int left = length - offset;
        const int count = left < kBytesPerDumpLine ? left : kBytesPerDumpLine;
        if (isLogOn(kLogDebug)) writeDumpBytes(dumpId, data + offset, count);
        offset += count;
    }
}

std::string dbg_location(const char* file, int line, const char* function) {
    std::string location;
    if (file == nullptr) return location;
    location.append(file).append(":").append(std::to_string(line)).append(":");
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

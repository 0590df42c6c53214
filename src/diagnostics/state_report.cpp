#include "base/diagnostics/state_report.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "base/logging/boot_id.h"
#include "diagnostics/build_id.h"
#include "diagnostics/recorder_state.h"
#include "diagnostics/write_all.h"
#include "os/monotonic_time.h"

namespace tevalon::base::diagnostics {
namespace {

constexpr std::uint64_t kSecondNs = 1000000000;

bool writeLine(int fd, const char* format, ...) __attribute__((format(printf, 2, 3)));

bool writeLine(int fd, const char* format, ...) {
    char line[256];
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof(line) - 1, format, args);
    va_end(args);
    if (length < 0) return false;
    const std::size_t kept = std::min(static_cast<std::size_t>(length), sizeof(line) - 2);
    line[kept] = '\n';
    return writeAll(fd, line, kept + 1);
}

struct BuildIdText {
    char text[2 * record::kBuildIdBytes + 1];
};

BuildIdText textOf(const BuildId& id) {
    BuildIdText hex = {};
    char* p_next = hex.text;
    for (const std::uint8_t byte : id.bytes) {
        p_next += std::snprintf(p_next, 3, "%02x", byte);
    }
    return hex;
}

bool writeProcess(int fd) {
    return writeLine(fd, "process %d '%s', boot id %" PRIu32, static_cast<int>(getpid()),
                     program_invocation_short_name, bootID()) &&
           writeLine(fd, "build id of the program %s, of the library %s",
                     textOf(programBuildId()).text, textOf(libraryBuildId()).text);
}

bool writeTime(int fd) {
    timespec realtime = {};
    (void)clock_gettime(CLOCK_REALTIME, &realtime);
    tm date = {};
    (void)gmtime_r(&realtime.tv_sec, &date);
    const std::uint64_t monotonic = monotonicNanoseconds();
    return writeLine(
        fd, "at %04d-%02d-%02d %02d:%02d:%02d.%03ld UTC, monotonic %" PRIu64 ".%09" PRIu64,
        date.tm_year + 1900, date.tm_mon + 1, date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec,
        realtime.tv_nsec / 1000000, monotonic / kSecondNs, monotonic % kSecondNs);
}

bool writeRecorder(int fd) {
    const RecorderState state = recorderState();
    if (state.bytes == 0) return writeLine(fd, "recorder: nothing was recorded");
    return writeLine(fd,
                     "recorder: %s, %zu bytes, from monotonic %" PRIu64 ".%09" PRIu64 ", %" PRIu32
                     " records lost",
                     state.isRecording ? "recording" : "stopped", state.bytes,
                     state.startMonotonicNs / kSecondNs, state.startMonotonicNs % kSecondNs,
                     state.recordsLost);
}

}  // namespace

Status writeState(int fd) {
    const bool isWritten = writeProcess(fd) && writeTime(fd) && writeRecorder(fd);
    return isWritten ? Status::Ok : Status::WriteFailed;
}

}  // namespace tevalon::base::diagnostics

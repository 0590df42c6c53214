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

struct Date {
    std::int64_t year;
    int month;
    int day;
};

/// The proleptic Gregorian calendar, in eras of 400 years that begin on the first of March (Howard
/// Hinnant, "chrono-Compatible Low-Level Date Algorithms"). Not gmtime_r(), which may allocate and
/// takes a lock that a thread may have died with.
Date dateOf(std::int64_t daysSince1970) {
    constexpr std::int64_t kDaysPerEra = 146097;
    const std::int64_t days = daysSince1970 + 719468;
    const std::int64_t era = (days >= 0 ? days : days - kDaysPerEra + 1) / kDaysPerEra;
    const std::int64_t dayOfEra = days - era * kDaysPerEra;
    const std::int64_t year =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const auto dayOfYear = static_cast<int>(dayOfEra - (365 * year + year / 4 - year / 100));
    const int monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    const int month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    return {year + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

bool writeTime(int fd) {
    constexpr std::int64_t kSecondsPerDay = 86400;
    timespec realtime = {};
    (void)clock_gettime(CLOCK_REALTIME, &realtime);
    const std::int64_t seconds = std::max<std::int64_t>(realtime.tv_sec, 0);
    const Date date = dateOf(seconds / kSecondsPerDay);
    const auto ofDay = static_cast<int>(seconds % kSecondsPerDay);
    const std::uint64_t monotonic = monotonicNanoseconds();
    return writeLine(
        fd, "at %04" PRId64 "-%02d-%02d %02d:%02d:%02d.%03ld UTC, monotonic %" PRIu64 ".%09" PRIu64,
        date.year, date.month, date.day, ofDay / 3600, ofDay / 60 % 60, ofDay % 60,
        static_cast<long>(realtime.tv_nsec / 1000000), monotonic / kSecondNs,
        monotonic % kSecondNs);
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

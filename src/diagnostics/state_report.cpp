#include "base/diagnostics/state_report.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdio>

#include "base/logging/boot_id.h"
#include "diagnostics/build_id.h"
#include "diagnostics/recorder_state.h"
#include "diagnostics/report_text.h"
#include "diagnostics/snapshot.h"
#include "diagnostics/state_lists.h"
#include "os/monotonic_time.h"
#include "os/no_cancellation.h"

namespace tevalon::base::diagnostics {
namespace {

constexpr std::uint64_t kSecondNs = 1000000000;

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

void addProcess(ReportText* p_text) {
    p_text->add("process %d '%s', boot id %" PRIu32 "\n", static_cast<int>(getpid()),
                program_invocation_short_name, bootID());
    p_text->add("build id of the program %s, of the library %s\n", textOf(programBuildId()).text,
                textOf(libraryBuildId()).text);
}

struct Date {
    std::int64_t year;
    int month;
    int day;
};

/// The proleptic Gregorian calendar, in eras of 400 years that begin on the first of March (Howard
/// Hinnant, "chrono-Compatible Low-Level Date Algorithms"). Not gmtime_r(), which may allocate and
/// takes a lock that a thread may have died with. For no day before 1970.
Date dateOf(std::int64_t daysSince1970) {
    constexpr std::int64_t kDaysPerEra = 146097;
    const std::int64_t days = daysSince1970 + 719468;
    const std::int64_t era = days / kDaysPerEra;
    const std::int64_t dayOfEra = days - era * kDaysPerEra;
    const std::int64_t year =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const auto dayOfYear = static_cast<int>(dayOfEra - (365 * year + year / 4 - year / 100));
    const int monthFromMarch = (5 * dayOfYear + 2) / 153;
    const int day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    const int month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    return {year + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

void addTime(ReportText* p_text) {
    constexpr std::int64_t kSecondsPerDay = 86400;
    timespec realtime = {};
    (void)clock_gettime(CLOCK_REALTIME, &realtime);
    const std::int64_t seconds = std::max<std::int64_t>(realtime.tv_sec, 0);
    const Date date = dateOf(seconds / kSecondsPerDay);
    const auto ofDay = static_cast<int>(seconds % kSecondsPerDay);
    const std::uint64_t monotonic = monotonicNanoseconds();
    p_text->add("at %04" PRId64 "-%02d-%02d %02d:%02d:%02d.%03ld UTC, monotonic %" PRIu64
                ".%09" PRIu64 "\n",
                date.year, date.month, date.day, ofDay / 3600, ofDay / 60 % 60, ofDay % 60,
                static_cast<long>(realtime.tv_nsec / 1000000), monotonic / kSecondNs,
                monotonic % kSecondNs);
}

void addRecorder(ReportText* p_text) {
    const RecorderState state = recorderState();
    if (state.bytes == 0) {
        p_text->add("recorder: nothing was recorded\n");
        return;
    }
    p_text->add("recorder: %s, %zu bytes, from monotonic %" PRIu64 ".%09" PRIu64 ", %" PRIu32
                " records lost\n",
                state.isRecording ? "recording" : "stopped", state.bytes,
                state.startMonotonicNs / kSecondNs, state.startMonotonicNs % kSecondNs,
                state.recordsLost);
}

// Two looks, for some of what changes all the time is only worth telling where it does not.
void addLists(std::size_t most, ReportText* p_text) {
    constexpr std::uint64_t kMostWaitNs = 100000000;  // For all the locks of one look.
    constexpr timespec kBetween = {0, 10000000};
    Snapshot earlier;
    earlier.take(monotonicNanoseconds() + kMostWaitNs);
    (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &kBetween, nullptr);
    Snapshot snapshot;
    snapshot.take(monotonicNanoseconds() + kMostWaitNs);
    addStateLists(earlier, snapshot, most, p_text);
}

}  // namespace

Status writeState(int fd, const StateOptions& options) {
    constexpr std::size_t kFew = 10;
    const NoCancellation noCancellation;
    ReportText text;
    addProcess(&text);
    addTime(&text);
    addRecorder(&text);
    addLists(options.isWhole ? SIZE_MAX : kFew, &text);
    if (!text.writeTo(fd)) return Status::WriteFailed;
    return text.isComplete() ? Status::Ok : Status::NoMemory;
}

Status writeState(int fd) {
    return writeState(fd, StateOptions());
}

}  // namespace tevalon::base::diagnostics

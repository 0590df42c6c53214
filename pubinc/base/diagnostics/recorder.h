// recorder.h: a flight recorder: what the process did last, for when it hangs or dies.

#ifndef BASE_DIAGNOSTICS_RECORDER_H
#define BASE_DIAGNOSTICS_RECORDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/export.h"

/// While it runs, the library's events, tasks, timers, watches, hubs and long waits, and what
/// clients add below, are recorded into memory that is set aside once: the oldest is overwritten.
/// Records of one thread are in exact order; all carry the monotonic clock. `tevalon-trace` shows
/// a recording; docs/recording-format.md says how it is laid out.
///
///     diagnostics::nameModule(kTuner, "tuner");
///     diagnostics::RecordingOptions options;
///     options.file = "/var/log/tv.recording";
///     if (diagnostics::startRecording(options) != diagnostics::Status::Ok) { ... }
///     ...
///     const diagnostics::Scope scope("launch app");
///     diagnostics::mark("tuned", frequencyKHz);
///     diagnostics::counter("frames", frames);
///
/// Thread-safety: everything here may be called from any thread at any time, from inside handlers
/// and tasks too. In a forked child nothing is recorded until that starts a recording of its own.
namespace tevalon::base::diagnostics {

/// How a call of this family ended.
enum class Status {
    Ok,                ///< Done.
    AlreadyRecording,  ///< Stop first.
    NotRecording,      ///< There is nothing to stop, or nothing was recorded yet.
    Busy,              ///< Another thread starts, stops or writes at this moment; try again later.
    BadArgument,       ///< A size outside its limits; a name that is null or empty.
    NoMemory,          ///< The system has none left.
    FileExists,        ///< Also a link, wherever it leads.
    FileNotOpened,     ///< errno tells why.
    NoRoom,            ///< The file system has not so much, or there is no room for the name.
    WriteFailed,       ///< errno tells why.
    AlreadyNamed,      ///< The first name stays.
    NotSupported,      ///< The library was built without this family.
};

/// @{
/// Limits of RecordingOptions::bytes.
inline constexpr std::size_t kLeastRecordingBytes = std::size_t{16} * 1024;
inline constexpr std::size_t kMostRecordingBytes = std::size_t{1024} * 1024 * 1024;
/// @}

/// How much is recorded, and where to.
struct RecordingOptions {
    /// For everything: from kLeastRecordingBytes to kMostRecordingBytes.
    std::size_t bytes = std::size_t{256} * 1024;

    /// Where the recording lies; null keeps it in memory alone. With a file, what the process did
    /// until it was killed stands in it, and another process may read it meanwhile. Copied.
    ///
    /// The file is created, for its user alone (mode 0600), and must not be there yet: a link is
    /// never followed, and no earlier recording is lost. Its room is reserved before the recording
    /// starts. Nobody may make it shorter while it is recorded to: that ends the process. On a
    /// tmpfs it costs what memory does; elsewhere a record may wait while its page is written to
    /// the disk.
    const char* file = nullptr;
};

/// Forgets the last recording and starts a new one. On any status but Ok nothing has changed, and
/// no file is left behind. Not async-signal-safe.
[[nodiscard]] TEVALON_BASE_EXPORT Status startRecording(const RecordingOptions& options = {});

/// Stops recording: Ok or NotRecording. What was recorded stays, for writeRecording(), until the
/// next start. Waits for threads that are just adding a record, up to a second. Not
/// async-signal-safe.
TEVALON_BASE_EXPORT Status stopRecording();

/// Writes the recording, or the last one after it was stopped, to @p fd, as it would lie in a file.
/// Threads go on recording meanwhile; what they overwrite is missing. Async-signal-safe, and no
/// cancellation point.
///
/// @param fd  Stays open. Where it does not take all (it does not wait, or is full): WriteFailed.
///
/// Status: Ok, NotRecording when nothing was recorded yet, Busy, WriteFailed.
[[nodiscard]] TEVALON_BASE_EXPORT Status writeRecording(int fd);

/// Asks the C library how much of its heap is in use, which then stands in the memory records that
/// are added once a second. The library does not ask by itself: that takes the allocator's locks,
/// and as long as there are free pieces. Not async-signal-safe.
TEVALON_BASE_EXPORT void sampleHeap();

namespace internal {

extern TEVALON_BASE_EXPORT std::atomic<bool> g_isRecording;

enum class Entry : std::int32_t { Mark = 29, ScopeBegun, ScopeEnded, Counter };
TEVALON_BASE_EXPORT void record(Entry entry, const char* text, std::int64_t value);

enum class Named : std::int32_t { Module = 1, Event, Task };
TEVALON_BASE_EXPORT Status giveName(Named what, std::int32_t id, const char* name);

}  // namespace internal

/// @{
/// Give a module id, an event type or a task id a name for all that shows it: this recorder's
/// readers and the state report. To be done once, before or while something is recorded. The name
/// is copied, and cut at 23 bytes.
///
/// Status: Ok; AlreadyNamed; BadArgument; NoRoom after 512 names.
inline Status nameModule(std::int32_t moduleId, const char* name) {
    return internal::giveName(internal::Named::Module, moduleId, name);
}
inline Status nameEvent(std::int32_t eventType, const char* name) {
    return internal::giveName(internal::Named::Event, eventType, name);
}
inline Status nameTask(std::int32_t taskId, const char* name) {
    return internal::giveName(internal::Named::Task, taskId, name);
}
/// @}

/// Whether something is recorded at this moment. A load and a branch, as each of the following is
/// while nothing is recorded. Async-signal-safe, as the following are.
inline bool isRecording() {
    return internal::g_isRecording.load(std::memory_order_relaxed);
}

/// Records that the calling thread got here.
///
/// @param text   Copied; cut at 40 bytes.
/// @param value  Whatever tells more.
inline void mark(const char* text, std::int64_t value = 0) {
    if (isRecording()) internal::record(internal::Entry::Mark, text, value);
}

/// Records a figure that goes up and down.
///
/// @param name   Copied; cut at 40 bytes.
/// @param value  The figure now.
inline void counter(const char* name, std::int64_t value) {
    if (isRecording()) internal::record(internal::Entry::Counter, name, value);
}

/// Records when it is constructed and when it is destroyed, if it was recorded then. Scopes of one
/// thread may lie within each other.
class Scope {
public:
    /// @param text  Not copied: must outlive the scope, as a literal does. Cut at 40 bytes.
    explicit Scope(const char* text) : m_text(isRecording() ? text : nullptr) {
        if (m_text != nullptr) internal::record(internal::Entry::ScopeBegun, m_text, 0);
    }
    ~Scope() {
        if (m_text != nullptr) internal::record(internal::Entry::ScopeEnded, m_text, 0);
    }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    const char* const m_text;  // Null where its beginning was not recorded.
};

}  // namespace tevalon::base::diagnostics

#endif  // BASE_DIAGNOSTICS_RECORDER_H

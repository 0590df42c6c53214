// state_report.h: what the process is doing at this moment, as text.

#ifndef BASE_DIAGNOSTICS_STATE_REPORT_H
#define BASE_DIAGNOSTICS_STATE_REPORT_H

#include "base/diagnostics/recorder.h"
#include "base/export.h"

namespace tevalon::base::diagnostics {

/// How much writeState() writes.
struct StateOptions {
    /// All entries of all lists. Else ten of each, and how many more there are.
    bool isWhole = false;
};

/// @{
/// Writes a text for people to @p fd, one screen of a healthy process: process, time and build; the
/// recorder; the hubs with their threads, the events that wait and the handler in hand; the threads
/// that wait, for a reply or inside a stop, a destructor or an unregister, and who waits for whom,
/// a circle called so; the started simple timers and the runs of their handlers; the timer threads
/// with their tasks; the watches; the locks of the library's objects that stay held. With the names
/// that recorder.h gives. docs/debugging.md explains it line by line.
///
///     hubs: 2
///       module 1 'tuner': thread 4720 'Evt:1', 12 waiting, in event 7 of module 2 'ui' for 2.104 s
///       module 2 'ui': thread 4721 'Evt:2', 0 waiting, idle
///
/// Takes some 10 ms, and half a second at most, but for what @p fd takes: what stays locked so long
/// is reported as such. What others do meanwhile goes on, but for a thread that starts, ends or
/// begins to wait just then, which waits for it.
///
/// Any thread, also in a handler, a task or a run; not async-signal-safe. A process that has
/// crashed calls it on a thread that has not. Uses no heap. @p fd stays open.
///
/// Status: Ok; WriteFailed where @p fd does not take all; NoMemory where parts of the text are
/// missing; NotSupported.
[[nodiscard]] TEVALON_BASE_EXPORT Status writeState(int fd);
[[nodiscard]] TEVALON_BASE_EXPORT Status writeState(int fd, const StateOptions& options);
/// @}

}  // namespace tevalon::base::diagnostics

#endif  // BASE_DIAGNOSTICS_STATE_REPORT_H

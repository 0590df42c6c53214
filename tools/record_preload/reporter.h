// reporter.h: a thread that writes reports when it is told to, by signal handlers too.

#ifndef TOOLS_RECORD_PRELOAD_REPORTER_H
#define TOOLS_RECORD_PRELOAD_REPORTER_H

namespace tevalon::record_preload {

/// Starts the thread, once in a process. It blocks all signals, and lives as long as the process
/// does. False where there is none to be had.
///
/// @param file  What the names of the reports begin with. Not copied.
bool startReporter(const char* file);

/// Whether the thread is this process's: a forked child has none. Async-signal-safe.
bool hasReporter();

/// Has a copy of the recording written as "FILE.1", "FILE.2" and so on, and beside it a state
/// report, "FILE.1.state". Does not wait. Async-signal-safe.
void requestSnapshot();

/// Has a state report appended to "FILE.state", and waits for that, two seconds at most: whatever
/// the report needs, the thread that waits may hold. Async-signal-safe.
void reportDeath();

/// Appends a state report to "FILE.state" on the calling thread. Not async-signal-safe.
void appendState();

}  // namespace tevalon::record_preload

#endif  // TOOLS_RECORD_PRELOAD_REPORTER_H

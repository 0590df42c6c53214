// state_report.h: what the process is doing at this moment, as text.

#ifndef BASE_DIAGNOSTICS_STATE_REPORT_H
#define BASE_DIAGNOSTICS_STATE_REPORT_H

#include "base/diagnostics/recorder.h"
#include "base/export.h"

namespace tevalon::base::diagnostics {

/// Writes a text for people to @p fd: the process, its time and build, and the recorder.
///
/// Any thread; not async-signal-safe. A process that has crashed calls it on a thread that has not.
///
/// @param fd  Stays open. Where it does not take all: WriteFailed.
[[nodiscard]] TEVALON_BASE_EXPORT Status writeState(int fd);

}  // namespace tevalon::base::diagnostics

#endif  // BASE_DIAGNOSTICS_STATE_REPORT_H

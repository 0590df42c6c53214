// signals.h: what happens when a signal asks for a copy, or ends the process.

#ifndef TOOLS_RECORD_PRELOAD_SIGNALS_H
#define TOOLS_RECORD_PRELOAD_SIGNALS_H

namespace tevalon::record_preload {

/// Handles the signals by which a fault ends a process, and @p snapshotSignal, unless it is 0. The
/// calling thread gets an alternate stack; see alternate_stack.h. The handlers that were there are
/// called after ours; where there were none, the process ends as it would have. Once in a process.
void handleSignals(int snapshotSignal);

}  // namespace tevalon::record_preload

#endif  // TOOLS_RECORD_PRELOAD_SIGNALS_H

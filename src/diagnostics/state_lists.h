// state_lists.h: the state report's lists: hubs, waits, timers, tasks, watches, locks.

#ifndef SRC_DIAGNOSTICS_STATE_LISTS_H
#define SRC_DIAGNOSTICS_STATE_LISTS_H

#include <cstddef>

#include "diagnostics/report_text.h"
#include "diagnostics/snapshot.h"

namespace tevalon::base::diagnostics {

/// Adds the lists to @p p_text.
///
/// @param earlier  Taken a few milliseconds before: what is the same in both is true of the time
///                 between.
/// @param most     So many entries of each list, whose number is told.
void addStateLists(const Snapshot& earlier, const Snapshot& snapshot, std::size_t most,
                   ReportText* p_text);

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_STATE_LISTS_H

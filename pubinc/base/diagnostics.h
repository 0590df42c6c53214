// diagnostics.h: everything of the diagnostics family; diagnostics/ holds one header per topic.

#ifndef BASE_DIAGNOSTICS_H
#define BASE_DIAGNOSTICS_H

#include "base/diagnostics/recorder.h"
#include "base/diagnostics/state_report.h"

#endif  // BASE_DIAGNOSTICS_H

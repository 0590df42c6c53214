// text.h: a recording as text, a line for each record.

#ifndef TOOLS_TEVALON_TRACE_TEXT_H
#define TOOLS_TEVALON_TRACE_TEXT_H

#include <string>

#include "recording.h"

namespace tevalon::trace {

/// What the recording is of, in a few lines.
std::string describeHead(const Recording& recording);

/// What the record tells: "event 0x1f0 type 100 (tune) from 1 sent to 7 (tuner)".
std::string sentenceOf(const Recording& recording, const Record& record);

/// The same behind time and thread: "12.000345678  Evt:7            1234  event 0x1f0 ...".
std::string describeRecord(const Recording& recording, const Record& record);

}  // namespace tevalon::trace

#endif  // TOOLS_TEVALON_TRACE_TEXT_H

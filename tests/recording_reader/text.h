// text.h: a recording as text, a line for each record.

#ifndef TESTS_RECORDING_READER_TEXT_H
#define TESTS_RECORDING_READER_TEXT_H

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

#endif  // TESTS_RECORDING_READER_TEXT_H

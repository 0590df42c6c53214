// recording_memory.h: the memory that a recording lies in, of a file or of none.

#ifndef SRC_DIAGNOSTICS_RECORDING_MEMORY_H
#define SRC_DIAGNOSTICS_RECORDING_MEMORY_H

#include <cstddef>

#include "base/diagnostics/recorder.h"

namespace tevalon::base::diagnostics {

struct RecordingMemory {
    std::byte* p_begin = nullptr;
    std::size_t bytes = 0;
};

/// Zeros, all of them present: writing there does not fail for want of memory or of room. With a
/// file it is the contents of a new one.
///
/// @param file  Null for none. On any status but Ok it is not there.
Status makeRecordingMemory(std::size_t bytes, const char* file, RecordingMemory* p_memory);

void freeRecordingMemory(const RecordingMemory& memory);

/// For a forked child: takes the parent's memory away from under the same addresses, where somebody
/// may still write, and leaves zeros. Async-signal-safe.
void detachRecordingMemory(const RecordingMemory& memory);

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_RECORDING_MEMORY_H

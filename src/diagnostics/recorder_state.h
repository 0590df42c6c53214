// recorder_state.h: what the state report tells of the recorder.

#ifndef SRC_DIAGNOSTICS_RECORDER_STATE_H
#define SRC_DIAGNOSTICS_RECORDER_STATE_H

#include <cstddef>
#include <cstdint>

namespace tevalon::base::diagnostics {

struct RecorderState {
    bool isRecording;
    std::size_t bytes;  ///< Of the recording, or the last one; 0 where there was none.
    std::uint64_t startMonotonicNs;
    std::uint32_t recordsLost;
};

RecorderState recorderState();

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_RECORDER_STATE_H

// no_recorder.cpp: takes the place of recorder.cpp in a library that is built without it.

#include "base/diagnostics/recorder.h"
#include "diagnostics/recorder_state.h"

namespace tevalon::base::diagnostics {
namespace internal {

std::atomic<bool> g_isRecording{false};

void recordMark(const char*, std::int64_t) {}
void recordScopeBegun(const char*) {}
void recordScopeEnded(const char*) {}
void recordCounter(const char*, std::int64_t) {}

}  // namespace internal

Status startRecording(const RecordingOptions&) {
    return Status::NotSupported;
}

Status stopRecording() {
    return Status::NotSupported;
}

Status writeRecording(int) {
    return Status::NotSupported;
}

RecorderState recorderState() {
    return {};
}

Status nameModule(std::int32_t, const char*) {
    return Status::NotSupported;
}

Status nameEvent(std::int32_t, const char*) {
    return Status::NotSupported;
}

Status nameTask(std::int32_t, const char*) {
    return Status::NotSupported;
}

void sampleHeap() {}

}  // namespace tevalon::base::diagnostics

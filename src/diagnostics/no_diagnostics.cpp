// no_diagnostics.cpp: takes the place of recorder.cpp and state_report.cpp in a library that is
// built without them.

#include "base/diagnostics.h"

namespace tevalon::base::diagnostics {
namespace internal {

std::atomic<bool> g_isRecording{false};

void record(Entry, const char*, std::int64_t) {}

Status giveName(Named, std::int32_t, const char*) {
    return Status::NotSupported;
}

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

void sampleHeap() {}

Status writeState(int) {
    return Status::NotSupported;
}

Status writeState(int, const StateOptions&) {
    return Status::NotSupported;
}

}  // namespace tevalon::base::diagnostics

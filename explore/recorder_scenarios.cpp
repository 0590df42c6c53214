// The recorder: start, stop and write against threads that record, and threads that end.
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::Semaphore;
using tevalon::base::diagnostics::kLeastRecordingBytes;
using tevalon::base::diagnostics::mark;
using tevalon::base::diagnostics::RecordingOptions;
using tevalon::base::diagnostics::startRecording;
using tevalon::base::diagnostics::Status;
using tevalon::base::diagnostics::stopRecording;
using tevalon::base::diagnostics::writeRecording;

namespace {

RecordingOptions small() {
    RecordingOptions options;
    options.bytes = kLeastRecordingBytes;
    return options;
}

int openNull() {
    return open("/dev/null", O_WRONLY | O_CLOEXEC);
}

}  // namespace

TEVALON_SCENARIO(RecorderStartAgainstMark) {
    std::thread other([] { mark("other", 1); });
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    mark("own", 2);
    other.join();
    TEVALON_EXPECT(stopRecording() == Status::Ok);
}

TEVALON_SCENARIO(RecorderStopAgainstMark) {
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    std::thread other([] {
        mark("first", 1);
        mark("second", 2);
    });
    TEVALON_EXPECT(stopRecording() == Status::Ok);
    other.join();
}

TEVALON_SCENARIO(RecorderStartAgainstStart) {
    std::thread other([] { (void)startRecording(small()); });
    (void)startRecording(small());
    other.join();
    mark("own", 1);
    TEVALON_EXPECT(stopRecording() == Status::Ok);
}

TEVALON_SCENARIO(RecorderWriteAgainstMark) {
    const int null = openNull();
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    std::thread other([] { mark("other", 1); });
    TEVALON_EXPECT(writeRecording(null) == Status::Ok);
    other.join();
}

TEVALON_SCENARIO(RecorderWriteAgainstStop) {
    const int null = openNull();
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    mark("own", 1);
    std::thread other([] { (void)stopRecording(); });
    (void)writeRecording(null);
    other.join();
}

// A thread's block goes back as it ends, and another one takes it.
TEVALON_SCENARIO(RecorderThreadsThatEnd) {
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    std::thread first([] { mark("first", 1); });
    std::thread second([] { mark("second", 2); });
    first.join();
    second.join();
    TEVALON_EXPECT(stopRecording() == Status::Ok);
}

TEVALON_SCENARIO(RecorderThreadEndAgainstStop) {
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    std::thread other([] { mark("other", 1); });
    TEVALON_EXPECT(stopRecording() == Status::Ok);
    TEVALON_EXPECT(startRecording(small()) == Status::Ok);
    mark("own", 2);
    other.join();
}

// A start while somebody gives a name may find the memory in use.
TEVALON_SCENARIO(RecorderNames) {
    std::thread other([] { (void)tevalon::base::diagnostics::nameEvent(1, "other"); });
    (void)tevalon::base::diagnostics::nameEvent(1, "own");
    Status status = startRecording(small());
    while (status == Status::Busy) {
        std::this_thread::yield();
        status = startRecording(small());
    }
    TEVALON_EXPECT(status == Status::Ok);
    TEVALON_EXPECT(writeRecording(openNull()) == Status::Ok);
    other.join();
}

// The substitute debug-output library: captures that are replaced, and the gate of its writers.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "testkit/explore.h"
#include "zor_debug/zor_debug_control.h"

namespace {

/// What a capture needs while it is installed.
struct Sink {
    std::atomic<int> texts{0};
};

void count(void* p_context, const DebugLevelRecord*, const char*, std::size_t) {
    ++static_cast<Sink*>(p_context)->texts;
}

}  // namespace

// Once it is replaced nobody is in a capture, and what it needs may go.
TEVALON_SCENARIO(CaptureReplacedAgainstWriter) {
    auto first = std::make_unique<Sink>();
    auto second = std::make_unique<Sink>();
    zorDebugInstallCapture(count, first.get());
    std::thread writer([] { (void)zorDebugOutput0("text"); });
    zorDebugInstallCapture(count, second.get());
    const int texts = first->texts;
    first.reset();
    writer.join();
    TEVALON_EXPECT(texts + second->texts == 1);
    zorDebugRemoveCapture();
}

TEVALON_SCENARIO(CaptureRemovedAgainstWriter) {
    auto sink = std::make_unique<Sink>();
    (void)zorDebugSetFile("/dev/null");
    zorDebugInstallCapture(count, sink.get());
    std::thread writer([] { (void)zorDebugOutput0("text"); });
    zorDebugRemoveCapture();
    sink.reset();
    writer.join();
}

TEVALON_SCENARIO(CaptureReplacedFromTwoSides) {
    static Sink s_sink;
    (void)zorDebugSetFile("/dev/null");
    std::thread other([] { zorDebugInstallCapture(count, &s_sink); });
    zorDebugInstallCapture(count, &s_sink);
    (void)zorDebugOutput0("text");
    other.join();
    TEVALON_EXPECT(s_sink.texts == 1);
    zorDebugRemoveCapture();
}

// Writers share the gate; what changes the lines' form closes it.
TEVALON_SCENARIO(GateClosedAgainstWriter) {
    (void)zorDebugSetFile("/dev/null");
    (void)zorDebugOutput0("open\n");
    // The first line of a thread is written exclusively.
    std::thread writer([] {
        (void)zorDebugOutput0("text\n");
        (void)zorDebugOutput0("text\n");
    });
    (void)zorDebugSetPrefix("time");
    (void)zorDebugOutput0("text\n");
    writer.join();
}

TEVALON_SCENARIO(GateOfTwoWriters) {
    (void)zorDebugSetFile("/dev/null");
    std::thread writer([] { (void)zorDebugOutput0("te"); });
    (void)zorDebugOutput0("xt\n");
    writer.join();
    (void)zorDebugSetFile("/dev/null");
}

namespace {

std::string contentsOf(int descriptor) {
    char text[256];
    const ssize_t length = pread(descriptor, text, sizeof(text), 0);
    return std::string(text, length > 0 ? static_cast<std::size_t>(length) : 0);
}

}  // namespace

// What two threads lose beside one another is counted whole, and told before the next line.
TEVALON_SCENARIO(LossesOfTwoWriters) {
    (void)zorDebugSetFile("/dev/full");
    // The first line of a thread is written exclusively, and so are those behind a loss.
    (void)zorDebugOutput0("begun, ");
    std::thread writer([] {
        (void)zorDebugOutput0("begun, ");
        (void)zorDebugOutput0("lost\n");
    });
    (void)zorDebugOutput0("lost\n");
    writer.join();
    const int file = static_cast<int>(syscall(SYS_memfd_create, "log", 0U));
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    (void)zorDebugSetFile(path.c_str());
    (void)zorDebugOutput0("after\n");
    TEVALON_EXPECT(contentsOf(file) ==
                   "zor-debug: lines that could not be written: 2, for: No space left on device\n"
                   "after\n");
    (void)zorDebugSetFile("/dev/null");
    (void)close(file);
}

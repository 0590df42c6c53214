// The substitute debug-output library: captures that are replaced, and the gate of its writers.
#include <atomic>
#include <memory>
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

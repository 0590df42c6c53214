#include <vector>

#include "base/logging.h"
#include "hot_paths/hot_path.h"
#include "zor_debug/zor_debug_control.h"

namespace bench {
namespace {

/// What is on, and with it goes nowhere.
class Levels {
public:
    explicit Levels(const char* levels) {
        (void)zorDebugSetFile("/dev/null");
        (void)zorDebugSetLevels(levels);
    }
    ~Levels() {
        (void)zorDebugSetLevels("off");
        (void)zorDebugSetFile("");
    }

    Levels(const Levels&) = delete;
    Levels& operator=(const Levels&) = delete;
};

void statements(int count) {
    for (int i = 0; i < count; ++i) {
        BLOG(tevalon::base::kLogError, "timer %s fired %d times\n", "launch", 12345);
    }
}

void statementsOff(int count) {
    const Counted counted;
    statements(count);
}

void statementsOn(int count) {
    const Levels levels("error");
    const Counted counted;
    statements(count);
}

void functionTracersOff(int count) {
    const Counted counted;
    for (int i = 0; i < count; ++i) {
        const tevalon::base::FunctionTracer tracer(__func__, __FILE__, __LINE__);
    }
}

void scopeTracesOff(int count) {
    const Counted counted;
    for (int i = 0; i < count; ++i) {
        BLOG_TRACE_SCOPE();
    }
}

void dump(int count) {
    const std::vector<unsigned char> bytes(4096, 0x5A);
    const Counted counted;
    for (int i = 0; i < count; ++i) dump_memory("dump", bytes.data(), 4096);
}

void dumpOn(int count) {
    const Levels levels("debug");
    dump(count);
}

}  // namespace

void addLoggingPaths(HotPaths* p_paths) {
    constexpr int kCount = 100;
    constexpr int kDumps = 4;
    constexpr bool kIsLong = true;
    p_paths->push_back({"logging/off", kCount, statementsOff});
    p_paths->push_back({"logging/on", kCount, statementsOn});
    p_paths->push_back({"logging/off_function_tracer", kCount, functionTracersOff});
    p_paths->push_back({"logging/off_scope_trace", kCount, scopeTracesOff});
    p_paths->push_back({"logging/dump_4_KiB_off", kDumps, dump});
    p_paths->push_back({"logging/dump_4_KiB_on", kDumps, dumpOn, kIsLong});
}

}  // namespace bench

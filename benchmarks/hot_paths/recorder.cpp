#include <time.h>

#include <cerrno>
#include <cstdlib>

#include "base/diagnostics/recorder.h"
#include "hot_paths/hot_path.h"

namespace bench {
namespace {

namespace diagnostics = tevalon::base::diagnostics;

// The first record in a second has the process's memory read, which is not counted here.
void waitForNextSecond() {
    timespec next = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &next);
    ++next.tv_sec;
    next.tv_nsec = 0;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr) == EINTR) {
    }
    diagnostics::mark("next");
}

class Recording {
public:
    Recording() {
        if (diagnostics::startRecording() != diagnostics::Status::Ok) std::abort();
        waitForNextSecond();
    }
    ~Recording() { (void)diagnostics::stopRecording(); }

    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
};

void count(int count) {
    for (int i = 0; i < count; ++i) diagnostics::counter("frames", i);
}

void countOff(int times) {
    const Counted counted;
    count(times);
}

void countOn(int times) {
    const Recording recording;
    const Counted counted;
    count(times);
}

void readClock(int times) {
    const Counted counted;
    for (int i = 0; i < times; ++i) {
        timespec now;
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
    }
}

}  // namespace

void addRecorderPaths(HotPaths* p_paths) {
    constexpr int kRecordsPerBlock = 40;  // Each block is taken from the memory once.
    p_paths->push_back({"record/counter_off", kRecordsPerBlock, countOff});
    p_paths->push_back({"record/counter_on", kRecordsPerBlock, countOn});
    p_paths->push_back({"record/bare_clock", kRecordsPerBlock, readClock});
}

}  // namespace bench

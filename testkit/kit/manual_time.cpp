#include "testkit/manual_time.h"

#include <cstdio>
#include <cstdlib>

#include "interposition.h"
#include "schedule.h"

namespace tevalon::testkit {
namespace {

// Before the program's other static objects, which may start threads. In this source, so that only
// a program that uses one of the functions below has it.
__attribute__((constructor(101))) void takeOverEarly() {
    kit::linkInterposers();
    kit::takeOver();
}

void requireTestThread(const char* function) {
    if (kit::isTestThread()) return;
    (void)std::fprintf(stderr, "testkit: %s() is for the test's own thread\n", function);
    std::abort();
}

}  // namespace

void runUntilIdle() {
    requireTestThread("runUntilIdle");
    kit::awaitIdleness();
}

void advanceBy(std::chrono::nanoseconds duration) {
    requireTestThread("advance");
    kit::advanceTo(kit::now() + duration.count());
}

}  // namespace tevalon::testkit

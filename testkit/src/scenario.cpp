// What a scenario asks of the schedule that it runs in.
#include "schedule.h"
#include "testkit/explore.h"

namespace tevalon::testkit {

TimeStandsStill::TimeStandsStill() {
    g_schedule.standStill(1);
}
TimeStandsStill::~TimeStandsStill() {
    g_schedule.standStill(-1);
}

void fail(const char* file, int line, const char* text) {
    g_schedule.finish(Outcome::Expectation, "%s, at %s:%d", text, file, line);
}

void refuseNextThread() {
    Schedule::self()->isNextRefused = true;
}

void refuseNextWrite() {
    Schedule::self()->isNextWriteRefused = true;
}

std::int64_t elapsedNanoseconds() {
    return g_schedule.now();
}

void advanceClock(std::int64_t nanoseconds) {
    g_schedule.advance(nanoseconds);
}

int liveThreads() {
    return g_schedule.alive();
}

}  // namespace tevalon::testkit

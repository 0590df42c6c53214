#include "record/record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "own_recording.h"

namespace {

namespace record = tevalon::base::record;

const void* at(std::uintptr_t address) {
    return reinterpret_cast<const void*>(address);
}

TEST(RecordTest, EventsAreReadAsTheyWereWritten) {
    test::OwnRecording recording(50);

    record::eventCreated(at(0x10), 100, 1);
    record::eventSent(at(0x10), 100, 1, INT32_MIN);
    record::eventQueued(at(0x10), 100, 1, -7, 3);
    record::eventRefused(at(0x10), 100, 1, 7, record::Refusal::NoHub);
    record::eventRefused(at(0x10), 100, 1, 7, record::Refusal::NoHandler);
    record::eventRefused(nullptr, 100, 1, 7, record::Refusal::NoEvent);
    record::handlerBegun(at(0x10), 100, 1, 7);
    record::handlerEnded(at(0x10), 100, 1, 7);
    record::eventReplied(at(0x10), 100, -5);
    record::eventAwaited(at(0x10), 100, 1000);
    record::eventAwaited(at(0x10), 100, -1);
    record::eventAwaitedInVain(at(0x10), 100, 1000);
    record::eventUnanswered(at(0x10), 100, 1);

    EXPECT_EQ(test::sentences(recording.read()),
              (std::vector<std::string>{
                  "event 0x10 type 100 from 1 created",
                  "event 0x10 type 100 from 1 sent to any",
                  "event 0x10 type 100 from 1 queued for -7, queue length 3",
                  "event 0x10 type 100 from 1 refused by 7: no hub of that module",
                  "event 0x10 type 100 from 1 refused by 7: no handler takes it",
                  "event 0x0 type 100 from 1 refused by 7: no event, or it could not be armed",
                  "event 0x10 type 100 from 1 handler of 7 begun",
                  "event 0x10 type 100 from 1 handler of 7 ended",
                  "event 0x10 type 100 replied -5",
                  "event 0x10 type 100 waited for, at most 1000 ms",
                  "event 0x10 type 100 waited for",
                  "event 0x10 type 100 waited for in vain, 1000 ms",
                  "event 0x10 type 100 from 1 ended without a reply though one waits",
              }));
}

// Later formats may give them a meaning.
TEST(RecordTest, HalfWordsWithoutAMeaningAreZero) {
    test::OwnRecording recording(50);

    record::eventSent(at(0x10), 100, 1, 7);
    record::handlerBegun(at(0x10), 100, 1, 7);
    record::handlerEnded(at(0x10), 100, 1, 7);

    for (const auto& each : test::withoutMemory(recording.read())) EXPECT_EQ(each.word(2), 7U);
}

TEST(RecordTest, BesideAModuleStandsNothing) {
    test::OwnRecording recording(50);

    record::hubRegistered(at(0x10), 7);
    record::hubUnregistered(at(0x10), 7);
    record::hubThreadStarted(at(0x10), 7);
    record::hubThreadEnded(at(0x10), 7);

    for (const auto& each : test::withoutMemory(recording.read())) EXPECT_EQ(each.word(1), 7U);
}

TEST(RecordTest, TasksTimersAndWatchesAreReadAsTheyWereWritten) {
    test::OwnRecording recording(50);

    record::taskPosted(at(0x20), 4, 77, -250000);
    record::taskCancelled(at(0x20), 4, 77);
    record::taskBegun(at(0x20), 4, 77);
    record::taskEnded(at(0x20), 4, 77);
    record::timerStarted(at(0x30), "clock", 1500000);
    record::timerStopped(at(0x30));
    record::timerDue(at(0x30));
    record::timerRunBegun(at(0x30), nullptr);
    record::timerRunEnded(at(0x30));
    record::watchBegun(17, 2.5);
    record::watchOverdue(17, 2.75);
    record::watchOverdue(17, std::nan(""));
    record::watchOverdue(17, std::numeric_limits<double>::infinity());
    record::watchEnded(17);

    EXPECT_EQ(test::sentences(recording.read()),
              (std::vector<std::string>{
                  "task 0x20 id 4 session 77 posted, due in -0.250 ms",
                  "task 0x20 id 4 session 77 cancelled",
                  "task 0x20 id 4 session 77 begun",
                  "task 0x20 id 4 session 77 ended",
                  "timer 0x30 'clock' started, due in 1.500 ms",
                  "timer 0x30 stopped",
                  "timer 0x30 due",
                  "timer 0x30 '' run begun",
                  "timer 0x30 run ended",
                  "watch 17 begun, allowed 2500.000 ms",
                  "watch 17 overdue after 2750.000 ms",
                  "watch 17 overdue after -9223372036854.775 ms",
                  "watch 17 overdue after 9223372036854.775 ms",
                  "watch 17 ended",
              }));
}

TEST(RecordTest, HubsWaitsAndMarksAreReadAsTheyWereWritten) {
    test::OwnRecording recording(50);

    record::hubRegistered(at(0x40), 7);
    record::hubThreadStarted(at(0x40), 7);
    record::hubThreadEnded(at(0x40), 7);
    record::hubUnregistered(at(0x40), 7);
    record::waited(record::Wait::Lock, at(0x50), 0, 1234567);
    record::waited(record::Wait::Stop, at(0x50), 4321, 1234567);
    record::waited(record::Wait::Destructor, at(0x50), 4321, 1234567);
    record::waited(record::Wait::Unregister, at(0x50), 4321, 1234567);
    record::mark("tuned", 498000);
    record::scopeBegun("launch app");
    record::counter("frames", INT64_MIN);
    record::scopeEnded("launch app");

    EXPECT_EQ(test::sentences(recording.read()),
              (std::vector<std::string>{
                  "hub 0x40 of 7 registered",
                  "hub 0x40 of 7 thread started",
                  "hub 0x40 of 7 thread ended",
                  "hub 0x40 of 7 unregistered",
                  "waited 1.235 ms for the lock of 0x50",
                  "waited 1.235 ms inside a stop of 0x50 for thread 4321",
                  "waited 1.235 ms inside the destructor of 0x50 for thread 4321",
                  "waited 1.235 ms inside an unregister of 0x50 for thread 4321",
                  "mark 'tuned' 498000",
                  "scope 'launch app' begun",
                  "counter 'frames' -9223372036854775808",
                  "scope 'launch app' ended",
              }));
}

TEST(RecordTest, TextsAreCutAtTheirLimit) {
    const std::string longest(record::kTextBytes, 'x');
    test::OwnRecording recording(50);

    record::mark(longest.c_str(), 1);
    record::mark((longest + "y").c_str(), 2);
    record::mark("", 3);
    record::timerStarted(at(0x30), (longest + "y").c_str(), 0);

    EXPECT_EQ(test::sentences(recording.read()),
              (std::vector<std::string>{
                  "mark '" + longest + "' 1",
                  "mark '" + longest + "' 2",
                  "mark '' 3",
                  "timer 0x30 '" + longest + "' started, due in 0.000 ms",
              }));
}

}  // namespace

// What a library that is built without recorder and state report answers: its source is built into
// this test.

#include <gtest/gtest.h>
#include <unistd.h>

#include "base/diagnostics.h"

namespace {

using namespace tevalon::base::diagnostics;

TEST(NoDiagnosticsTest, SaysThatItIsNotSupported) {
    EXPECT_EQ(startRecording(), Status::NotSupported);
    EXPECT_EQ(stopRecording(), Status::NotSupported);
    EXPECT_EQ(writeRecording(STDERR_FILENO), Status::NotSupported);
    EXPECT_EQ(nameModule(1, "module"), Status::NotSupported);
    EXPECT_EQ(nameEvent(1, "event"), Status::NotSupported);
    EXPECT_EQ(nameTask(1, "task"), Status::NotSupported);
    EXPECT_EQ(writeState(STDERR_FILENO), Status::NotSupported);
    EXPECT_EQ(writeState(STDERR_FILENO, StateOptions()), Status::NotSupported);
}

TEST(NoDiagnosticsTest, LetsClientsMarkInVain) {
    EXPECT_FALSE(isRecording());
    const Scope scope("scope");
    mark("mark", 1);
    counter("counter", 1);
    sampleHeap();
    internal::record(internal::Entry::Mark, "mark", 1);  // As they would while it records.
    EXPECT_FALSE(isRecording());
}

}  // namespace

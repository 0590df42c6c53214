// recordings.h: what tests of the recorder share: starting it for a test, and reading it back.

#ifndef TESTS_DIAGNOSTICS_RECORDINGS_H
#define TESTS_DIAGNOSTICS_RECORDINGS_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "recording.h"
#include "support/fault_injection.h"
#include "text.h"

namespace test {

namespace diagnostics = tevalon::base::diagnostics;
namespace record = tevalon::base::record;
namespace trace = tevalon::trace;

inline diagnostics::RecordingOptions optionsOf(std::size_t bytes, const char* file = nullptr) {
    diagnostics::RecordingOptions options;
    options.bytes = bytes;
    options.file = file;
    return options;
}

/// Stops what a test has started.
class RecorderTest : public testing::Test {
protected:
    ~RecorderTest() override { (void)diagnostics::stopRecording(); }
};

inline std::string contentsOf(const std::string& path) {
    const PassCalls pass;
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline trace::Recording readBytes(const std::string& bytes) {
    trace::Recording recording;
    std::string error;
    EXPECT_TRUE(trace::readRecording(bytes, &recording, &error)) << error;
    return recording;
}

inline trace::Recording readFile(const std::string& path) {
    return readBytes(contentsOf(path));
}

/// What writeRecording() writes.
inline std::string writtenBytes() {
    std::string path = testing::TempDir() + "recording.XXXXXX";
    const int fd = mkstemp(path.data());
    EXPECT_EQ(diagnostics::writeRecording(fd), diagnostics::Status::Ok);
    (void)close(fd);
    const std::string bytes = contentsOf(path);
    (void)unlink(path.c_str());
    return bytes;
}

/// What each record tells, without its time and thread, and without those of the memory.
inline std::vector<std::string> sentences(const trace::Recording& recording) {
    std::vector<std::string> lines;
    for (const trace::Record& record : recording.records) {
        if (record.kind == record::Kind::Memory) continue;
        lines.push_back(trace::sentenceOf(recording, record));
    }
    return lines;
}

}  // namespace test

#endif  // TESTS_DIAGNOSTICS_RECORDINGS_H

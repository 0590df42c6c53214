// What tevalon-trace makes of recordings that are damaged, cut off, or of other machines.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "own_recording.h"
#include "record/record.h"

namespace {

namespace record = tevalon::base::record;
using tevalon::trace::Recording;

/// Of marks with rising values by two threads, in eight blocks.
std::string sampleBytes() {
    test::OwnRecording recording(8);
    for (int i = 0; i < 100; ++i) record::mark("m", i);
    std::thread([] {
        for (int i = 100; i < 110; ++i) record::mark("m", i);
    }).join();
    recording.close();
    return recording.bytes();
}

template <typename Field>
void put(std::string* p_bytes, std::size_t offset, Field value) {
    std::memcpy(p_bytes->data() + offset, &value, sizeof(value));
}

std::vector<std::uint64_t> valuesOf(const std::string& bytes, std::uint32_t unreadableBlocks) {
    Recording recording;
    std::string error;
    EXPECT_TRUE(tevalon::trace::readRecording(bytes, &recording, &error)) << error;
    EXPECT_EQ(recording.unreadableBlocks, unreadableBlocks);
    std::vector<std::uint64_t> values;
    for (const auto& each : test::withoutMemory(recording)) values.push_back(each.word(0));
    return values;
}

std::string errorOf(const std::string& bytes) {
    Recording recording;
    std::string error;
    EXPECT_FALSE(tevalon::trace::readRecording(bytes, &recording, &error));
    return error;
}

constexpr std::size_t kFirstBlock = sizeof(record::Head);
constexpr std::size_t kBlockBytes = 256;

TEST(RecordingReaderTest, RefusesWhatIsNoRecording) {
    const std::string bytes = sampleBytes();
    const std::string isNone = "it does not begin as a recording does";
    EXPECT_EQ(errorOf(""), isNone);
    EXPECT_EQ(errorOf(bytes.substr(0, sizeof(record::Head) - 1)), isNone);
    EXPECT_EQ(errorOf(std::string(4096, '\0')), isNone);  // Killed before the head was complete.

    std::string foreign = bytes;
    put<std::uint32_t>(&foreign, offsetof(record::Head, byteOrder), 0x04030201);
    EXPECT_EQ(errorOf(foreign), "it is from a machine of another byte order");
    std::string later = bytes;
    put<std::uint16_t>(&later, offsetof(record::Head, version), 2);
    EXPECT_EQ(errorOf(later), "it has version 2; this program reads 1");
    for (const std::uint32_t blockBytes : {0U, 8U, 56U, 257U}) {
        std::string wrong = bytes;
        put(&wrong, offsetof(record::Head, blockBytes), blockBytes);
        EXPECT_EQ(errorOf(wrong), "the size of its blocks makes no sense");
    }
}

TEST(RecordingReaderTest, LeavesOutABlockThatWasReusedMeanwhile) {
    const std::string bytes = sampleBytes();
    const std::size_t whole = valuesOf(bytes, 0).size();
    std::uint32_t sequence = 0;
    std::memcpy(&sequence, bytes.data() + kFirstBlock, sizeof(sequence));
    ASSERT_NE(sequence, 0U);

    std::string tailAhead = bytes;
    put(&tailAhead, kFirstBlock + kBlockBytes - sizeof(record::BlockTail), sequence + 8);
    EXPECT_LT(valuesOf(tailAhead, 1).size(), whole);
    std::string headAhead = bytes;
    put(&headAhead, kFirstBlock, sequence + 8);
    EXPECT_LT(valuesOf(headAhead, 1).size(), whole);
    std::string tooLong = bytes;
    put<std::uint32_t>(&tooLong, kFirstBlock + offsetof(record::BlockHead, committed), 201);
    EXPECT_LT(valuesOf(tooLong, 1).size(), whole);
}

TEST(RecordingReaderTest, ReadsWhatIsCommittedAndNothingBehindIt) {
    std::string bytes = sampleBytes();
    const std::vector<std::uint64_t> whole = valuesOf(bytes, 0);
    // The last block of the second thread: begun as the last one.
    std::size_t last = kFirstBlock;
    std::uint32_t newest = 0;
    for (std::size_t block = kFirstBlock; block < bytes.size(); block += kBlockBytes) {
        std::uint32_t sequence = 0;
        std::memcpy(&sequence, bytes.data() + block, sizeof(sequence));
        if (sequence > newest) {
            newest = sequence;
            last = block;
        }
    }
    std::uint32_t committed = 0;
    std::memcpy(&committed, bytes.data() + last + offsetof(record::BlockHead, committed),
                sizeof(committed));

    put(&bytes, last + offsetof(record::BlockHead, committed), committed - 24);  // A mark.

    EXPECT_EQ(valuesOf(bytes, 0), std::vector<std::uint64_t>(whole.begin(), whole.end() - 1));
}

TEST(RecordingReaderTest, ReadsWhatIsThereOfAFileThatIsCutOff) {
    const std::string bytes = sampleBytes();
    std::size_t most = 0;
    for (std::size_t length = sizeof(record::Head); length <= bytes.size(); ++length) {
        Recording recording;
        std::string error;
        ASSERT_TRUE(tevalon::trace::readRecording(bytes.substr(0, length), &recording, &error));
        const std::size_t missing = (bytes.size() - length + kBlockBytes - 1) / kBlockBytes;
        EXPECT_EQ(recording.unreadableBlocks, missing);
        EXPECT_GE(recording.records.size(), most);
        most = recording.records.size();
    }
    EXPECT_GT(most, 0U);
}

TEST(RecordingReaderTest, SurvivesWhateverStandsInAFile) {
    const std::string bytes = sampleBytes();
    std::mt19937 random(1);
    for (int i = 0; i < 5000; ++i) {
        std::string damaged = bytes;
        for (int n = 0; n < 8; ++n) {
            // Not the beginning, or nothing else is looked at.
            damaged[16 + random() % (damaged.size() - 16)] = static_cast<char>(random());
        }
        Recording recording;
        std::string error;
        if (!tevalon::trace::readRecording(damaged, &recording, &error)) continue;
        (void)tevalon::trace::describeHead(recording);
        for (const auto& each : recording.records) {
            EXPECT_NE(tevalon::trace::describeRecord(recording, each), "");
        }
    }
}

TEST(RecordingReaderTest, ShowsRecordsThatItDoesNotKnow) {
    Recording recording;
    tevalon::trace::Record unknown;
    unknown.kind = static_cast<record::Kind>(200);
    unknown.content = {1, 0xABC};
    EXPECT_EQ(tevalon::trace::sentenceOf(recording, unknown),
              "record of unknown kind 200: 0x1 0xabc");
}

TEST(RecordingReaderTest, ShowsNamesAndNothingThatMovesACursor) {
    Recording recording;
    recording.names[{record::NameKind::Module, 7}] = "tuner";
    recording.names[{record::NameKind::Module, 1}] = "bad\x1b[2J";
    recording.names[{record::NameKind::Event, 100}] = "tune";
    recording.names[{record::NameKind::Task, 4}] = "scan";
    recording.threads[3] = {4321, "Evt:7"};
    tevalon::trace::Record event;
    event.thread = 3;
    event.timeNs = 12000345678;
    event.kind = record::Kind::EventSent;
    event.content = {0x1f0, std::uint64_t{1} << 32 | 100, 7};
    EXPECT_EQ(tevalon::trace::describeRecord(recording, event),
              "12.000345678  Evt:7             4321  "
              "event 0x1f0 type 100 (tune) from 1 (bad\\x1b[2J) sent to 7 (tuner)");
    tevalon::trace::Record task;
    task.kind = record::Kind::TaskBegun;
    task.content = {0x20, std::uint64_t{77} << 32 | 4};
    EXPECT_EQ(tevalon::trace::sentenceOf(recording, task),
              "task 0x20 id 4 (scan) session 77 begun");
}

}  // namespace

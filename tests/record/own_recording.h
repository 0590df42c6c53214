// own_recording.h: a recording in memory of the test's own, without the recorder around it.

#ifndef TESTS_RECORD_OWN_RECORDING_H
#define TESTS_RECORD_OWN_RECORDING_H

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "record/format.h"
#include "record/writer.h"
#include "recording.h"
#include "text.h"

namespace test {

namespace record = tevalon::base::record;
namespace trace = tevalon::trace;

/// Opened when it is made; gone, mapping and all, at its end.
class OwnRecording {
public:
    explicit OwnRecording(std::uint32_t blockCount, std::uint32_t blockBytes = 256)
        : m_bytes(kBlockOffset + std::size_t{blockCount} * blockBytes),
          m_begin(static_cast<std::byte*>(
              mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        if (m_begin == MAP_FAILED) throw std::runtime_error("no memory");
        record::Head head = {};
        std::memcpy(head.magic, record::kMagic, sizeof(head.magic));
        head.byteOrder = record::kByteOrderMark;
        head.version = record::kFormatVersion;
        head.blockOffset = kBlockOffset;
        head.blockBytes = blockBytes;
        head.blockCount = blockCount;
        std::memcpy(m_begin, &head, sizeof(head));
        EXPECT_TRUE(record::openBlocks({m_begin + kBlockOffset, blockBytes, blockCount,
                                        reinterpret_cast<std::atomic<std::uint32_t>*>(
                                            m_begin + offsetof(record::Head, recordsLost))}));
    }
    ~OwnRecording() {
        close();
        (void)munmap(m_begin, m_bytes);
    }

    OwnRecording(const OwnRecording&) = delete;
    OwnRecording& operator=(const OwnRecording&) = delete;

    void close() {
        if (!m_isOpen) return;
        EXPECT_TRUE(record::closeBlocks());
        m_isOpen = false;
    }

    /// The first block's memory.
    std::byte* blocks() const { return m_begin + kBlockOffset; }

    /// As it is at this moment: nobody may write.
    std::string bytes() const {
        return std::string(reinterpret_cast<const char*>(m_begin), m_bytes);
    }

    /// The same after closing it, so that the count of lost records is up to date.
    trace::Recording read() {
        close();
        trace::Recording recording;
        std::string error;
        EXPECT_TRUE(trace::readRecording(bytes(), &recording, &error)) << error;
        EXPECT_EQ(recording.unreadableBlocks, 0U);
        return recording;
    }

private:
    static constexpr std::uint32_t kBlockOffset = sizeof(record::Head);

    const std::size_t m_bytes;
    std::byte* const m_begin;
    bool m_isOpen = true;
};

/// Without those that the recorder adds once a second.
inline std::vector<trace::Record> withoutMemory(const trace::Recording& recording) {
    std::vector<trace::Record> records;
    for (const trace::Record& record : recording.records) {
        if (record.kind != record::Kind::Memory) records.push_back(record);
    }
    return records;
}

/// What each record tells, without its time and thread.
inline std::vector<std::string> sentences(const trace::Recording& recording) {
    std::vector<std::string> lines;
    for (const trace::Record& record : withoutMemory(recording)) {
        lines.push_back(trace::sentenceOf(recording, record));
    }
    return lines;
}

}  // namespace test

#endif  // TESTS_RECORD_OWN_RECORDING_H

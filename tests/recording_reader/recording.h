// recording.h: a recording, read from its file into what it tells.

#ifndef TESTS_RECORDING_READER_RECORDING_H
#define TESTS_RECORDING_READER_RECORDING_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "record/format.h"

namespace tevalon::trace {

namespace record = tevalon::base::record;

struct Thread {
    std::uint32_t kernelId = 0;
    std::string name;
};

struct Record {
    std::uint64_t timeNs = 0;  ///< On the monotonic clock.
    std::uint32_t thread = 0;  ///< See Recording::threads.
    record::Kind kind{};       ///< Maybe none that is known here.
    std::vector<std::uint64_t> content;

    /// A word of the content; 0 where it has not so many.
    [[nodiscard]] std::uint64_t word(std::size_t index) const {
        return index < content.size() ? content[index] : 0;
    }
    [[nodiscard]] std::int32_t low(std::size_t index) const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(word(index)));
    }
    [[nodiscard]] std::int32_t high(std::size_t index) const {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(word(index) >> 32));
    }
    /// The text that begins at this word.
    [[nodiscard]] std::string text(std::size_t index) const;
};

struct Recording {
    record::Head head = {};
    std::map<std::pair<record::NameKind, std::int32_t>, std::string> names;
    std::map<std::uint32_t, Thread> threads;  ///< By the number in the recording.
    std::vector<Record> records;              ///< By time, those of each thread in their order.
    std::uint32_t unreadableBlocks = 0;  ///< Cut off, damaged, or reused while they were copied.
};

/// Reads as much of @p bytes as is there. False, with the reason, where it is no recording.
bool readRecording(std::string_view bytes, Recording* p_recording, std::string* p_error);

}  // namespace tevalon::trace

#endif  // TESTS_RECORDING_READER_RECORDING_H

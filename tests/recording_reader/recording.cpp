#include "recording.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace tevalon::trace {
namespace {

constexpr std::size_t kWordBytes = sizeof(std::uint64_t);

/// False where there are not so many bytes. Nothing in a file need be aligned, or true.
template <typename T>
bool readAt(std::string_view bytes, std::uint64_t offset, T* p_value) {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return false;
    std::memcpy(p_value, bytes.data() + offset, sizeof(T));
    return true;
}

template <std::size_t kSize>
std::string textOf(const char (&text)[kSize]) {
    return std::string(text, strnlen(text, kSize));
}

bool readHead(std::string_view bytes, record::Head* p_head, std::string* p_error) {
    // A later version may have made it longer, never shorter.
    if (!readAt(bytes, 0, p_head) ||
        std::memcmp(p_head->magic, record::kMagic, sizeof(record::kMagic)) != 0) {
        *p_error = "it does not begin as a recording does";
    } else if (p_head->byteOrder != record::kByteOrderMark) {
        *p_error = "it is from a machine of another byte order";
    } else if (p_head->version != record::kFormatVersion) {
        *p_error = "it has version " + std::to_string(p_head->version) + "; this program reads " +
                   std::to_string(record::kFormatVersion);
    } else if (p_head->blockBytes <= sizeof(record::BlockHead) + sizeof(record::BlockTail) ||
               p_head->blockBytes % kWordBytes != 0) {
        *p_error = "the size of its blocks makes no sense";
    } else {
        return true;
    }
    return false;
}

void readNames(std::string_view bytes, Recording* p_recording) {
    const record::Head& head = p_recording->head;
    record::Name name = {};
    for (std::uint64_t i = 0; i < head.nameCapacity; ++i) {
        if (!readAt(bytes, head.nameOffset + i * sizeof(name), &name)) return;
        if (name.kind == record::NameKind::None) continue;
        p_recording->names.emplace(std::pair(name.kind, name.id), textOf(name.text));
    }
}

struct Block {
    record::BlockHead head = {};
    std::string_view records;
};

enum class BlockState { Unused, Readable, Unreadable };

BlockState readBlock(std::string_view bytes, const record::Head& head, std::uint64_t offset,
                     Block* p_block) {
    const std::uint32_t room =
        head.blockBytes - std::uint32_t{sizeof(record::BlockHead) + sizeof(record::BlockTail)};
    record::BlockTail tail = {};
    if (!readAt(bytes, offset, &p_block->head) ||
        !readAt(bytes, offset + head.blockBytes - sizeof(tail), &tail)) {
        return BlockState::Unreadable;
    }
    if (p_block->head.sequence == 0 && tail.sequence == 0) return BlockState::Unused;
    if (p_block->head.sequence != tail.sequence || p_block->head.committed > room) {
        return BlockState::Unreadable;
    }
    // Within the bytes, as the tail has been read.
    p_block->records = bytes.substr(static_cast<std::size_t>(offset) + sizeof(record::BlockHead),
                                    p_block->head.committed);
    return BlockState::Readable;
}

std::vector<Block> readBlocks(std::string_view bytes, Recording* p_recording) {
    const record::Head& head = p_recording->head;
    std::vector<Block> blocks;
    for (std::uint64_t i = 0; i < head.blockCount; ++i) {
        Block block;
        const std::uint64_t offset = head.blockOffset + i * head.blockBytes;
        if (offset >= bytes.size()) {  // Cut off from here on; the count may be anything.
            p_recording->unreadableBlocks += static_cast<std::uint32_t>(head.blockCount - i);
            break;
        }
        switch (readBlock(bytes, head, offset, &block)) {
            case BlockState::Readable:
                blocks.push_back(block);
                break;
            case BlockState::Unreadable:
                ++p_recording->unreadableBlocks;
                break;
            case BlockState::Unused:
                break;
        }
    }
    // The thread's own numbers give the exact order; its clock may have stood still.
    std::sort(blocks.begin(), blocks.end(), [](const Block& left, const Block& right) {
        return std::tie(left.head.thread, left.head.threadBlock) <
               std::tie(right.head.thread, right.head.threadBlock);
    });
    return blocks;
}

/// What is damaged ends the block.
void readRecords(const Block& block, std::vector<Record>* p_records) {
    std::uint64_t first = 0;
    for (std::string_view rest = block.records; readAt(rest, 0, &first);) {
        const auto words = static_cast<std::size_t>(first >> 8 & 0xFF);
        if (words == 0 || words * kWordBytes > rest.size()) return;
        Record record;
        record.kind = static_cast<record::Kind>(first & 0xFF);
        record.timeNs = block.head.baseNs + (first >> 16);
        record.thread = block.head.thread;
        record.content.resize(words - 1);
        if (words > 1) {
            std::memcpy(record.content.data(), rest.data() + kWordBytes, (words - 1) * kWordBytes);
        }
        p_records->push_back(std::move(record));
        rest.remove_prefix(words * kWordBytes);
    }
}

}  // namespace

std::string Record::text(std::size_t index) const {
    if (index >= content.size()) return "";
    const auto* const p_text = reinterpret_cast<const char*>(&content[index]);
    return std::string(p_text, strnlen(p_text, (content.size() - index) * kWordBytes));
}

bool readRecording(std::string_view bytes, Recording* p_recording, std::string* p_error) {
    *p_recording = Recording();
    if (!readHead(bytes, &p_recording->head, p_error)) return false;
    readNames(bytes, p_recording);
    for (const Block& block : readBlocks(bytes, p_recording)) {
        Thread& thread = p_recording->threads[block.head.thread];
        thread.kernelId = block.head.kernelId;
        thread.name = textOf(block.head.threadName);  // Its last name.
        readRecords(block, &p_recording->records);
    }
    std::stable_sort(
        p_recording->records.begin(), p_recording->records.end(),
        [](const Record& left, const Record& right) { return left.timeNs < right.timeNs; });
    return true;
}

}  // namespace tevalon::trace

// line_buffer.h: a thread's line in the making.

#ifndef ZOR_DEBUG_SRC_LINE_BUFFER_H
#define ZOR_DEBUG_SRC_LINE_BUFFER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zor_debug {

/// Text that grows, in plain memory that may run out. Linked into the list of all buffers.
/// Guarded by the output lock.
struct LineBuffer {
    LineBuffer* p_next = nullptr;
    LineBuffer* p_previous = nullptr;
    pid_t ownerId = 0;
    std::uint16_t level = 0;  // Of the line that is in the making.
    char* p_text = nullptr;
    std::size_t length = 0;
    std::size_t capacity = 0;

    /// Makes room for @p more bytes. False when there is no memory; nothing is changed then.
    bool reserve(std::size_t more) {
        if (capacity - length >= more) return true;
        std::size_t wanted = capacity == 0 ? 256 : capacity;
        while (wanted - length < more) wanted *= 2;
        void* p_grown = std::realloc(p_text, wanted);
        if (p_grown == nullptr) return false;
        p_text = static_cast<char*>(p_grown);
        capacity = wanted;
        return true;
    }

    /// There must be room.
    void append(const char* p_more, std::size_t moreLength) {
        std::memcpy(p_text + length, p_more, moreLength);
        length += moreLength;
    }

    void removeFront(std::size_t count) {
        std::memmove(p_text, p_text + count, length - count);
        length -= count;
    }
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LINE_BUFFER_H

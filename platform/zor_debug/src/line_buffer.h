// line_buffer.h: a thread's line in the making.

#ifndef ZOR_DEBUG_SRC_LINE_BUFFER_H
#define ZOR_DEBUG_SRC_LINE_BUFFER_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "writer_gate.h"

namespace zor_debug {

/// Text that grows, in plain memory that may run out. Its thread's, which enters the gate by it,
/// and that of whoever holds the gate exclusively.
struct LineBuffer : GateMember {
    pid_t ownerId = 0;
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
    void append(std::string_view more) {
        std::memcpy(p_text + length, more.data(), more.size());
        length += more.size();
    }

    std::string_view view() const { return std::string_view(p_text, length); }

    void removeFront(std::size_t count) {
        length -= count;
        if (length != 0) std::memmove(p_text, p_text + count, length);
    }
};

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LINE_BUFFER_H

// line_decoration.h: what is put around a line: time, thread and colour.

#ifndef ZOR_DEBUG_SRC_LINE_DECORATION_H
#define ZOR_DEBUG_SRC_LINE_DECORATION_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "line_writer.h"

namespace zor_debug {

/// More than any line's decoration takes, in bytes.
inline constexpr std::size_t kMaxDecoration = 128;

/// Writes the colour's beginning and the prefix of a line that the calling thread begins now
/// into @p p_text, which has room for kMaxDecoration bytes. Returns its length.
std::size_t beginLine(char* p_text, LinePrefix prefix, bool isColourful, std::uint16_t level);

/// What stands before the line end.
std::string_view endOfColour();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LINE_DECORATION_H

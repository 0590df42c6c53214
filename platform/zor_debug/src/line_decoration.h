// line_decoration.h: what is put around a line: times, level, module, thread and colour.

#ifndef ZOR_DEBUG_SRC_LINE_DECORATION_H
#define ZOR_DEBUG_SRC_LINE_DECORATION_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "line_writer.h"
#include "zor_debug/zor_debug.h"

namespace zor_debug {

/// More than any line's decoration takes, in bytes.
inline constexpr std::size_t kMaxDecoration = 160;

/// Writes the colour's beginning and the prefix of a line that the calling thread begins now
/// into @p p_text, which has room for kMaxDecoration bytes. Returns its length.
///
/// @param record  Of which level and module the line is.
std::size_t beginLine(char* p_text, LinePrefix prefix, bool isColourful,
                      const DebugLevelRecord& record);

/// What stands before the line end.
std::string_view endOfColour();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LINE_DECORATION_H

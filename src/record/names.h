// names.h: what the process calls its modules, events and tasks.

#ifndef SRC_RECORD_NAMES_H
#define SRC_RECORD_NAMES_H

#include <cstdint>

#include "record/format.h"

namespace tevalon::base::record {

/// Names that the process has room for.
inline constexpr std::uint32_t kMaxNames = 512;

enum class Naming { Added, Known, Full };

/// Gives @p id a name, unless it has one already. Never freed. Any thread, lock-free.
///
/// @param text  Not null. Cut at kNameBytes - 1.
Naming giveName(NameKind kind, std::int32_t id, const char* text);

/// Names given so far, those for which there was no room included.
std::uint32_t namesGiven();

/// The name at @p index of those given, counted from 0; null where it is none yet. Valid for ever.
const Name* nameAt(std::uint32_t index);

/// Null where @p id has no name. Valid for ever. Async-signal-safe.
const char* findName(NameKind kind, std::int32_t id);

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_NAMES_H

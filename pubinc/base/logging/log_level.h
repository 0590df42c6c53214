// log_level.h: the level numbers, and the question whether one of them is on.

#ifndef BASE_LOGGING_LOG_LEVEL_H
#define BASE_LOGGING_LOG_LEVEL_H

#include <cstdint>

#include "zor_debug/zor_debug.h"

namespace tevalon::base {

using ::DebugLevelRecord;

/// @{
/// The levels in use. A smaller number is more important; the platform decides which are on.
inline constexpr std::uint16_t kLogAlways = 1;    ///< Progress lines meant to show always.
inline constexpr std::uint16_t kLogError = 1000;  ///< Failures, refusals, caught exceptions.
inline constexpr std::uint16_t kLogWarn = 3000;   ///< Odd, but gone on with.
inline constexpr std::uint16_t kLogInfo = 4000;   ///< What is called and chosen.
inline constexpr std::uint16_t kLogDebug = 5000;  ///< Traces and progress chatter.
/// @}

/// This library's module number in the platform's debug output.
inline constexpr std::uint16_t kBlogModule = 0x5F;

/// True when the platform shows @p level for @p module at this moment. Costs one call into the
/// platform. Any thread, at any time.
inline bool isLogOn(std::uint16_t level, std::uint16_t module) {
    DebugLevelRecord record = {level, module, 0, 0};
    return ::zorDebugCheckLevelGetFrameAndChunk(&record) != 0;
}

/// The same for kBlogModule.
inline bool isLogOn(std::uint16_t level) {
    return isLogOn(level, kBlogModule);
}

}  // namespace tevalon::base

#endif  // BASE_LOGGING_LOG_LEVEL_H

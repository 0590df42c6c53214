// levels.h: which levels are on, for all modules and for single ones.

#ifndef ZOR_DEBUG_SRC_LEVELS_H
#define ZOR_DEBUG_SRC_LEVELS_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zor_debug/zor_debug.h"

namespace zor_debug {

inline constexpr std::uint16_t kLevelOff = 0;
inline constexpr std::uint16_t kLevelError = 1000;
inline constexpr std::uint16_t kLevelWarn = 3000;
inline constexpr std::uint16_t kLevelInfo = 4000;
inline constexpr std::uint16_t kLevelDebug = 5000;

/// Which levels are on, the two and all between them. None where highest is 0.
struct LevelRange {
    std::uint16_t lowest = 1;
    std::uint16_t highest = kLevelError;

    bool includes(std::uint16_t level) const { return lowest <= level && level <= highest; }
};

struct ModuleLevel {
    std::uint16_t module;
    LevelRange range;
};

/// The levels that are on: common, or the module's own entry.
struct LevelSettings {
    static constexpr std::size_t kMaxModules = 64;

    LevelRange common;
    std::array<ModuleLevel, kMaxModules> modules = {};
    std::size_t moduleCount = 0;

    /// False when there is no room for another module.
    bool set(std::uint16_t module, LevelRange range);
};

/// Reads "warn,0x5f=debug". On failure @p p_settings is unchanged and @p p_bad is the item
/// that was not understood. An empty text gives the default.
bool parseLevels(std::string_view text, LevelSettings* p_settings, std::string_view* p_bad);

/// Puts @p settings into force. One thread at a time.
void applyLevels(const LevelSettings& settings);

/// The levels that are on for @p module. Any thread.
LevelRange levelsOf(std::uint16_t module);

/// Has each check come to the exact answer, for somebody who has to know of them. One thread at a
/// time, of those that call applyLevels() too.
void answerExactly(bool isExact);

/// For each group of modules with the same low byte, how many levels, counted from the top,
/// are off for all of them. Zero, as at the start, tells nothing.
inline std::array<std::atomic<std::uint16_t>, 256> g_silentLevels = {};

/// For the same groups, how many levels, counted from the most important, are on for all of them.
/// Zero tells nothing here too.
inline std::array<std::atomic<std::uint16_t>, 256> g_shownLevels = {};

/// True when the record's level is certainly on. Spares a line that is written the exact answer,
/// and the settings are in force then. Relaxed, as below. Level 0 does not exist.
inline bool isCertainlyOn(const DebugLevelRecord& record) {
    const std::uint32_t shown =
        g_shownLevels[record.module & 0xFFU].load(std::memory_order_relaxed);
    return record.level != 0 && record.level <= shown;
}

/// False when the record's level is certainly off. One load and one comparison: this is what
/// every log statement that is off costs. Relaxed: a thread that sees a change of levels late
/// writes or leaves out a line that it might as well have written before the change.
inline bool mayBeOn(const DebugLevelRecord& record) {
    const std::uint32_t silent =
        g_silentLevels[record.module & 0xFFU].load(std::memory_order_relaxed);
    return record.level + silent <= UINT16_MAX;
}

/// The exact answer, once the settings are in force. Level 0 does not exist and is never on.
inline bool isOn(const DebugLevelRecord& record) {
    return levelsOf(record.module).includes(record.level);
}

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LEVELS_H

// settings.h: takes the settings from the environment, and from the control functions.

#ifndef ZOR_DEBUG_SRC_SETTINGS_H
#define ZOR_DEBUG_SRC_SETTINGS_H

#include <atomic>
#include <string_view>

namespace zor_debug {

/// Set once the environment has been read.
inline std::atomic<bool> g_isEnvironmentRead{false};

void readEnvironmentOnce();

/// Reads the environment on the process's first call, and returns when it has been read. Any
/// thread. Keeps errno.
inline void ensureSettings() {
    if (!g_isEnvironmentRead.load(std::memory_order_acquire)) readEnvironmentOnce();
}

inline constexpr const char* kLevelsFileVariable = "ZOR_DEBUG_LEVELS_FILE";

inline constexpr char kAcceptedLevels[] =
    "accepted are off, errors-only, error, warn, info, debug or 0 to 65535, for one module as in "
    "0x5f=debug, separated by commas";

/// Puts the levels into force. On failure nothing is changed, and @p p_bad is the item that makes
/// no sense.
bool tryLevels(std::string_view text, std::string_view* p_bad);

/// Has each check of a level come to the exact answer, where somebody looks at them.
void checkEachLevelExactly(bool isExact);

/// Put a setting into force; see the control functions of the same purpose. False, and nothing
/// changed, when it makes no sense. Null or "" is the default.
bool setLevels(const char* p_text);
bool setFile(const char* p_path);
bool setFileLimit(const char* p_text);
bool setPrefixText(const char* p_text);

/// Held over a fork, so that the child finds everything whole.
void lockSettings();
void unlockSettings();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_SETTINGS_H

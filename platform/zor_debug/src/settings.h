// settings.h: takes the settings from the environment, and from the control functions.

#ifndef ZOR_DEBUG_SRC_SETTINGS_H
#define ZOR_DEBUG_SRC_SETTINGS_H

#include <atomic>

namespace zor_debug {

/// Set once the environment has been read.
inline std::atomic<bool> g_isEnvironmentRead{false};

void readEnvironmentOnce();

/// Reads the environment on the process's first call, and returns when it has been read. Any
/// thread. Keeps errno.
inline void ensureSettings() {
    if (!g_isEnvironmentRead.load(std::memory_order_acquire)) readEnvironmentOnce();
}

/// Put a setting into force; see the control functions of the same purpose. False, and nothing
/// changed, when it makes no sense. Null or "" is the default.
bool setLevels(const char* p_text);
bool setFile(const char* p_path);
bool setPrefixText(const char* p_text);

/// Held over a fork, so that the child finds everything whole.
void lockSettings();
void unlockSettings();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_SETTINGS_H

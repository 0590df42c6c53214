// levels_file.h: levels of a running process, changed by a file.

#ifndef ZOR_DEBUG_SRC_LEVELS_FILE_H
#define ZOR_DEBUG_SRC_LEVELS_FILE_H

#include <atomic>

namespace zor_debug {

/// Set while a file is looked at.
inline std::atomic<bool> g_isLevelsFileNamed{false};

/// Looks at the file, but not within a second of the last look. Any thread. Keeps errno.
void lookAtLevelsFile();

/// For a check that comes to the exact answer, and then only.
inline void followLevelsFile() {
    if (g_isLevelsFileNamed.load(std::memory_order_relaxed)) lookAtLevelsFile();
}

/// Names the file, and looks at it at once. Null or "" names none. False, with errno set and
/// nothing changed, where the name is too long.
bool setLevelsFile(const char* p_path);

/// Held over a fork, so that the child finds everything whole; before the locks of the levels.
void lockLevelsFile();
void unlockLevelsFile();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LEVELS_FILE_H

// losses.h: counts the lines that could not be written.

#ifndef ZOR_DEBUG_SRC_LOSSES_H
#define ZOR_DEBUG_SRC_LOSSES_H

#include <cstdint>
#include <string_view>

namespace zor_debug {

struct Losses {
    std::uint32_t lines;
    int error;    // Why the last of them was lost.
    bool isTorn;  // Part of a line was written, and its end is missing.
};

/// Counts @p text, of which @p error kept the rest from being written. The calling thread is told
/// by takeOwnLoss(). Any thread.
void addLoss(std::string_view text, int error, bool isTorn);

/// Counts again what could not be told.
void addLosses(const Losses& losses);

/// All losses since the last call; 0 lines where there are none.
Losses takeLosses();
bool hasLosses();

/// Whether the calling thread has lost anything since its last call.
bool takeOwnLoss();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_LOSSES_H

// capture.h: hands the output to a test instead of writing it.

#ifndef ZOR_DEBUG_SRC_CAPTURE_H
#define ZOR_DEBUG_SRC_CAPTURE_H

#include <atomic>
#include <string_view>

#include "zor_debug/zor_debug_control.h"

namespace zor_debug {

/// Whether there is a capture, as far as a glance can tell.
inline std::atomic<bool> g_isCaptureInstalled{false};

/// Hands the text, behind which a zero stands, to the capture, if there still is one.
bool offerText(std::string_view text);

/// True when a capture took the text, behind which a zero stands. Any thread.
inline bool captureText(std::string_view text) {
    return g_isCaptureInstalled.load(std::memory_order_relaxed) && offerText(text);
}

void installCapture(ZorDebugCapture capture, void* p_context);
void removeCapture();

/// Held over a fork, so that the child finds everything whole.
void lockCapture();
void unlockCapture();

/// In a forked child, locked: forgets the parent's other threads that were in the capture.
void resetCaptureAfterFork();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_CAPTURE_H

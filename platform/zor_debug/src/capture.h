// capture.h: hands the output to a test instead of writing it.

#ifndef ZOR_DEBUG_SRC_CAPTURE_H
#define ZOR_DEBUG_SRC_CAPTURE_H

#include <cstddef>

#include "zor_debug/zor_debug_control.h"

namespace zor_debug {

/// True when a capture took the text. Any thread.
bool captureText(const char* p_text, std::size_t length);

void installCapture(ZorDebugCapture capture, void* p_context);
void removeCapture();

/// Held over a fork, so that the child finds everything whole.
void lockCapture();
void unlockCapture();

/// In a forked child, locked: forgets the parent's other threads that were in the capture.
void resetCaptureAfterFork();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_CAPTURE_H

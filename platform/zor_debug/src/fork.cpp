// fork.cpp: keeps the library usable in a forked child: no fork leaves a lock of this library
// taken, or a line half made, there.

#include <pthread.h>

#include "capture.h"
#include "line_writer.h"
#include "settings.h"

namespace zor_debug {
namespace {

// All of the library's locks, in the one order in which any two of them are ever held.
void beforeFork() {
    lockSettings();
    lockCapture();
    lockLineWriter();
}

void afterForkInParent() {
    unlockLineWriter();
    unlockCapture();
    unlockSettings();
}

void afterForkInChild() {
    resetCaptureAfterFork();
    resetLineWriterAfterFork();
    afterForkInParent();
}

// When the library is loaded, not on the first call: a fork in another thread could come between
// this registration and the note that it has been made, and its child would register once more.
// Handlers that are registered twice take each lock twice.
__attribute__((constructor)) void registerForkHandlers() {
    (void)pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

}  // namespace
}  // namespace zor_debug

#include "fork.h"

#include <pthread.h>

#include "capture.h"
#include "line_writer.h"
#include "settings.h"

namespace zor_debug {
namespace {

// All of the library's locks, in the one order in which any two of them are ever held.
void beforeFork() {
    lockCapture();
    lockSettings();
    lockLineWriter();
}

void afterForkInParent() {
    unlockLineWriter();
    unlockSettings();
    unlockCapture();
}

void afterForkInChild() {
    resetCaptureAfterFork();
    resetLineWriterAfterFork();
    afterForkInParent();
}

}  // namespace

void prepareForForks() {
    (void)pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

}  // namespace zor_debug

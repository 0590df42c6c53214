#include "capture.h"

#include <sched.h>

#include "call_scope.h"
#include "lock.h"
#include "thread_state.h"

namespace zor_debug {
namespace {

Lock g_changeLock;  // One change of the capture at a time; never held while the capture runs.

// Written only while no thread is in the capture.
ZorDebugCapture g_capture = nullptr;
void* g_context = nullptr;

// Writers announce themselves, then look whether the capture is there; a removal takes it away,
// then looks for writers. Sequentially consistent, so that one of the two sees the other.
std::atomic<unsigned> g_writersInside{0};

void retire() {
    g_isCaptureInstalled.store(false);
    // From inside the capture there is no waiting: it would wait for itself.
    if (t_state.inCapture) return;
    while (g_writersInside.load() != 0) (void)sched_yield();
}

}  // namespace

bool offerText(std::string_view text) {
    // What a capture writes itself goes to the output, not round in circles.
    if (t_state.inCapture) return false;
    const CancellationScope scope;
    g_writersInside.fetch_add(1);
    const bool installed = g_isCaptureInstalled.load();
    if (installed) {
        t_state.inCapture = true;
        const DebugLevelRecord record = t_state.lastOn;
        g_capture(g_context, &record, text.data(), text.size());
        t_state.inCapture = false;
    }
    g_writersInside.fetch_sub(1);
    return installed;
}

void installCapture(ZorDebugCapture capture, void* p_context) {
    const Locked locked(g_changeLock);
    retire();
    if (capture == nullptr) return;
    g_capture = capture;
    g_context = p_context;
    g_isCaptureInstalled.store(true);
}

void removeCapture() {
    if (t_state.inCapture) {
        retire();
        return;
    }
    const Locked locked(g_changeLock);
    retire();
}

void resetCaptureAfterFork() {
    g_writersInside.store(t_state.inCapture ? 1 : 0);
}

void lockCapture() {
    (void)pthread_mutex_lock(&g_changeLock.mutex);
}
void unlockCapture() {
    (void)pthread_mutex_unlock(&g_changeLock.mutex);
}

}  // namespace zor_debug

#include "capture.h"

#include <pthread.h>

#include <cstdlib>
#include <new>

#include "backoff.h"
#include "call_scope.h"
#include "lock.h"
#include "thread_state.h"

namespace zor_debug {

/// An installed capture. Function and context change only while the capture is not current and
/// nobody is inside, so that a writer never sees one's function with the other's context.
struct Capture {
    ZorDebugCapture function = nullptr;
    void* p_context = nullptr;
    std::atomic<unsigned> writersInside{0};
    // The number of the change that installed it.
    std::atomic<unsigned long> change{0};
    Capture* p_next = nullptr;  // Constant once it is in the list.
};

namespace {

// Guards the changes below. Held for a few instructions: never while the capture runs, nor while a
// change waits for threads inside it, for one of those may change the capture itself.
Lock g_changeLock;
unsigned long g_changeCount = 0;

// All captures there ever were, for reuse: one, unless captures are replaced from inside. They are
// never freed, so that a writer may still look at one that has been removed.
Capture g_firstCapture;
std::atomic<Capture*> g_captures{&g_firstCapture};

// A writer enters a capture, then looks whether it is still current; a change makes another one
// current, then looks for writers inside. Sequentially consistent, so that one of the two sees the
// other.
std::atomic<Capture*> g_current{nullptr};

Capture* enterCurrent() {
    for (Capture* p_capture = g_current.load(); p_capture != nullptr;
         p_capture = g_current.load()) {
        p_capture->writersInside.fetch_add(1);
        if (g_current.load() == p_capture) return p_capture;
        p_capture->writersInside.fetch_sub(1);
    }
    return nullptr;
}

// Locked: a capture that is not in use, or null when there is no memory for another one.
Capture* unusedCapture() {
    for (Capture* p_capture = g_captures.load(); p_capture != nullptr;
         p_capture = p_capture->p_next) {
        if (p_capture != g_current.load() && p_capture->writersInside.load() == 0) return p_capture;
    }
    void* p_memory = std::malloc(sizeof(Capture));
    if (p_memory == nullptr) return nullptr;
    auto* p_capture = new (p_memory) Capture();
    p_capture->p_next = g_captures.load();
    g_captures.store(p_capture);
    return p_capture;
}

// Makes the capture current, none where the function is null, and returns the change's number.
unsigned long change(ZorDebugCapture function, void* p_context) {
    const Locked locked(g_changeLock);
    ++g_changeCount;
    Capture* p_capture = function != nullptr ? unusedCapture() : nullptr;
    if (p_capture != nullptr) {
        p_capture->function = function;
        p_capture->p_context = p_context;
        p_capture->change.store(g_changeCount);
    }
    g_current.store(p_capture);
    g_isCaptureInstalled.store(p_capture != nullptr, std::memory_order_relaxed);
    return g_changeCount;
}

// Returns when no thread is in a capture that was installed before that change. One that has been
// taken into use again since had been left by then.
void waitUntilLeft(unsigned long change) {
    for (Capture* p_capture = g_captures.load(); p_capture != nullptr;
         p_capture = p_capture->p_next) {
        Backoff backoff;
        while (p_capture->writersInside.load() != 0 && p_capture->change.load() < change) {
            backoff.pause();
        }
    }
}

void changeAndWait(ZorDebugCapture function, void* p_context) {
    const unsigned long number = change(function, p_context);
    // From inside a capture there is no waiting: two threads would wait for each other.
    if (t_state.p_capture == nullptr) waitUntilLeft(number);
}

}  // namespace

bool offerText(std::string_view text) {
    // What a capture writes itself goes to the output, not round in circles.
    if (t_state.p_capture != nullptr) return false;
    const CancellationScope scope;
    Capture* p_capture = enterCurrent();
    if (p_capture == nullptr) return false;
    t_state.p_capture = p_capture;
    const DebugLevelRecord record = t_state.lastOn;
    p_capture->function(p_capture->p_context, &record, text.data(), text.size());
    t_state.p_capture = nullptr;
    p_capture->writersInside.fetch_sub(1);
    return true;
}

void installCapture(ZorDebugCapture capture, void* p_context) {
    changeAndWait(capture, p_context);
}

void removeCapture() {
    changeAndWait(nullptr, nullptr);
}

void resetCaptureAfterFork() {
    for (Capture* p_capture = g_captures.load(); p_capture != nullptr;
         p_capture = p_capture->p_next) {
        p_capture->writersInside.store(p_capture == t_state.p_capture ? 1 : 0);
    }
}

void lockCapture() {
    (void)pthread_mutex_lock(&g_changeLock.mutex);
}
void unlockCapture() {
    (void)pthread_mutex_unlock(&g_changeLock.mutex);
}

}  // namespace zor_debug

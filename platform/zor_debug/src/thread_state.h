// thread_state.h: what the library remembers about the calling thread.

#ifndef ZOR_DEBUG_SRC_THREAD_STATE_H
#define ZOR_DEBUG_SRC_THREAD_STATE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "zor_debug/zor_debug.h"

namespace zor_debug {

struct Capture;
struct LineBuffer;

/// The thread's part of a line's prefix, as it was last made.
struct ThreadLabel {
    char text[32];
    std::size_t length;
    std::uint32_t useCount;  // Of the uses at the thread's beginning.
    std::int64_t madeAt;     // In nanoseconds of the monotonic clock.
};

/// Plain data that starts as zeros, so that it is there before a thread's first constructor
/// and after its last destructor.
struct ThreadState {
    DebugLevelRecord lastOn;  // The record last found on: the level of what is written next.
    LineBuffer* p_line;       // Guarded by the writer gate.
    pid_t id;                 // Kernel thread id; 0 until asked for.
    Capture* p_capture;       // That the thread is in; null outside.
    ThreadLabel label;
    bool hasLost;  // Something it wrote was lost, and nobody has taken note.
};

// In the block that every thread has from its start, without a call for each look: some of the room
// that the C library keeps for libraries which are loaded at run time.
__attribute__((tls_model("initial-exec"))) inline thread_local ThreadState t_state;
static_assert(sizeof(ThreadState) <= 128);

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_THREAD_STATE_H

// thread_state.h: what the library remembers about the calling thread.

#ifndef ZOR_DEBUG_SRC_THREAD_STATE_H
#define ZOR_DEBUG_SRC_THREAD_STATE_H

#include <sys/types.h>

#include "zor_debug/zor_debug.h"

namespace zor_debug {

struct LineBuffer;

/// Plain data that starts as zeros, so that it is there before a thread's first constructor
/// and after its last destructor.
struct ThreadState {
    DebugLevelRecord lastOn;  // The record last found on: the level of what is written next.
    LineBuffer* p_line;       // Guarded by the output lock.
    pid_t id;                 // Kernel thread id; 0 until asked for.
    bool inCapture;
};

inline thread_local ThreadState t_state;

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_THREAD_STATE_H

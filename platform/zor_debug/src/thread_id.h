// thread_id.h: the kernel's number of the calling thread.

#ifndef ZOR_DEBUG_SRC_THREAD_ID_H
#define ZOR_DEBUG_SRC_THREAD_ID_H

#include <sys/syscall.h>
#include <unistd.h>

#include "thread_state.h"

namespace zor_debug {

/// Asked once per thread. By system call: older C libraries have no function for it.
inline pid_t threadId() {
    if (t_state.id == 0) t_state.id = static_cast<pid_t>(syscall(SYS_gettid));
    return t_state.id;
}

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_THREAD_ID_H

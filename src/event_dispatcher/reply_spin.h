// reply_spin.h: whether this thread spins for the replies that it waits for.

#ifndef SRC_EVENT_DISPATCHER_REPLY_SPIN_H
#define SRC_EVENT_DISPATCHER_REPLY_SPIN_H

#include "event_dispatcher/spin.h"

namespace tevalon::base::event_dispatcher {

/// Each thread's own. In the block that every thread has from its start, as OwnThread's pointer:
/// nothing is allocated at the first wait.
__attribute__((tls_model("initial-exec"))) inline thread_local AdaptiveSpin t_replySpin{100};

}  // namespace tevalon::base::event_dispatcher

#endif  // SRC_EVENT_DISPATCHER_REPLY_SPIN_H

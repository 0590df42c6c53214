// current_thread.h: the kernel's number of the calling thread.

#ifndef BASE_THREADING_CURRENT_THREAD_H
#define BASE_THREADING_CURRENT_THREAD_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base {

/// Returns the calling thread's kernel thread id, as top and gdb show it. Any thread.
TEVALON_BASE_EXPORT std::int32_t currentThread();

}  // namespace tevalon::base

#endif  // BASE_THREADING_CURRENT_THREAD_H

// fork.h: keeps the library usable in a forked child.

#ifndef ZOR_DEBUG_SRC_FORK_H
#define ZOR_DEBUG_SRC_FORK_H

namespace zor_debug {

/// From now on no fork leaves a lock of this library taken, or a line half made, in the child.
/// Once per process.
void prepareForForks();

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_FORK_H

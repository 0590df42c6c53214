// thread_name.h: names a thread for top, gdb and a trace.

#ifndef SRC_OS_THREAD_NAME_H
#define SRC_OS_THREAD_NAME_H

namespace tevalon::base {

/// Names the calling thread; what is longer than the system's 15 characters is cut off.
/// Reports no failure: a thread without its name works as well.
void nameThisThread(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tevalon::base

#endif  // SRC_OS_THREAD_NAME_H

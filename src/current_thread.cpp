#include "base/threading/current_thread.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tevalon::base {

// By system call: the C libraries of older sets have no function for it.
std::int32_t currentThread() {
    return static_cast<std::int32_t>(syscall(SYS_gettid));
}

}  // namespace tevalon::base

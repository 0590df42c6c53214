// write_all.h: writes to a descriptor until all is written.

#ifndef SRC_DIAGNOSTICS_WRITE_ALL_H
#define SRC_DIAGNOSTICS_WRITE_ALL_H

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace tevalon::base::diagnostics {

/// False, with errno, where the descriptor does not take all. Async-signal-safe; not write(), which
/// is a cancellation point.
inline bool writeAll(int fd, const void* p_data, std::size_t bytes) {
    const char* p_next = static_cast<const char*>(p_data);
    while (bytes > 0) {
        const long written = syscall(SYS_write, fd, p_next, bytes);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        p_next += written;
        bytes -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_WRITE_ALL_H
